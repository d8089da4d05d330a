// What the sockets of the routing suite's programs show without its shell, which prints the same for a socket
// that it may not open and for a program that does not run.
#pragma once

#include <string>
#include <string_view>

namespace frr {

// What the user lacks, and how to add it, when the shell ended for this reason. Empty if it lacks nothing, or
// if the program has no socket. Asks the name service only for the text.
std::string missing_permission(const std::string& folder, std::string_view program, std::string_view reason);

// True if others listen at sockets in the folder and this program does not: it does not run. Where none
// listens, the suite may be elsewhere, in another network namespace, for example. A file alone proves
// nothing: it outlives a program that was killed.
bool runs_without(const std::string& folder, std::string_view program);

}  // namespace frr
