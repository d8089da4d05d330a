// Whether this process's user may use the shell of the routing suite. The shell prints the same for a socket
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

}  // namespace frr
