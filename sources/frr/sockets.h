// What the sockets of the routing suite's programs show without its shell, which prints the same for a socket
// that it may not open and for a program that does not run.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace frr {

inline constexpr char kSocketFolder[] = "/var/run/frr";

// Where the shell of these words looks for the programs' sockets: below `folder` for the path space that -N
// names, or where --vty_socket says.
std::string socket_folder(const std::vector<std::string>& shell, const std::string& folder = kSocketFolder);

// What the user lacks, and how to add it, when the shell ended for this reason. Empty if it lacks nothing, or
// if the program has no socket. Asks the name service only for the text.
std::string missing_permission(const std::string& folder, std::string_view program, std::string_view reason);

// True if others listen at sockets in the folder and this program does not: it does not run. Where none
// listens, the suite may be elsewhere, in another network namespace, for example. A file alone proves
// nothing: it outlives a program that was killed.
bool runs_without(const std::string& folder, std::string_view program);

}  // namespace frr
