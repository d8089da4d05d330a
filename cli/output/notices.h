// What a command says besides its result: a line on standard error, with --json an object.
#pragma once

#include <string>

#include "cli/session.h"

namespace cli {

// The command is done, but perhaps not what the user wants.
void warn(const Session& session, const std::string& message);
void note(const Session& session, const std::string& message);

}  // namespace cli
