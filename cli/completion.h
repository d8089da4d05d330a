// What may follow the words of a command line, for the completion of shells: "mplsvpn complete -- WORDS...".
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/session.h"

namespace CLI {
class App;
}

namespace cli {

// Prints the candidates for the last word, each on a line; ":files" alone for names of files. What only a
// daemon knows is missing while none answers. `connect` makes the session that the words before ask for: of
// this run directory and socket, empty when not given.
using MakeSession = std::function<Session(const std::string& run_directory, const std::string& socket)>;
void complete(const CLI::App& app, const std::vector<std::string>& words, std::ostream& out,
              const MakeSession& make_session);

}  // namespace cli
