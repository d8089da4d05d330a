// The command line of mplsvpn: options, commands, help and exit status.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/output/terminal.h"

namespace cli {

// Runs one command; `words` are the arguments without the program's name. Answers the exit status
// (session.h). `terminal` shows `out`.
// --run-dir sets MPLS_VPN_MIB_RUN_DIR for the rest of the process.
int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err,
        const Terminal& terminal = {});

}  // namespace cli
