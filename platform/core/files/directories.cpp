#include "platform/core/files/directories.h"

#include <algorithm>
#include <cstdlib>

namespace {

std::string directory(const char* variable, const char* fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0' ? value : fallback;
}

}  // namespace

std::string run_directory() {
  return directory("MPLS_VPN_MIB_RUN_DIR", "/run/mpls_vpn_mib");
}
std::string state_directory() {
  return directory("MPLS_VPN_MIB_STATE_DIR", "/var/lib/mpls_vpn_mib");
}
std::string library_directory() {
  return directory("MPLS_VPN_MIB_LIB_DIR", "/usr/lib/mpls_vpn_mib");
}
std::string config_directory() {
  return directory("MPLS_VPN_MIB_CONFIG_DIR", "/etc/mpls_vpn_mib");
}

std::string event_manager_socket(const std::string& manager_name, const std::string& directory) {
  std::string file = manager_name;
  while (!file.empty() && file.front() == '/') file.erase(file.begin());
  std::replace(file.begin(), file.end(), '/', '.');
  return directory + "/" + file;
}
