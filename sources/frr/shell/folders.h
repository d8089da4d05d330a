// Where the shell of the routing suite, called with these words, looks for files: below the folder for the
// path space that -N names, or where an option says.
#pragma once

#include <string>
#include <vector>

namespace frr {

inline constexpr char kSocketFolder[] = "/var/run/frr";
inline constexpr char kConfigurationFolder[] = "/etc/frr";

// Of the programs' sockets.
std::string socket_folder(const std::vector<std::string>& shell, const std::string& folder = kSocketFolder);
// Of the saved configuration.
std::string configuration_folder(const std::vector<std::string>& shell,
                                 const std::string& folder = kConfigurationFolder);

}  // namespace frr
