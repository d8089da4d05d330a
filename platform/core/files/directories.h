// The directories of one running system. Each has a fixed default and an environment variable that overrides
// it, so that tests and demonstrations run anywhere, unprivileged and side by side.
#pragma once

#include <string>

std::string run_directory();      // sockets, trace buffers: /run/mpls_vpn_mib, MPLS_VPN_MIB_RUN_DIR
std::string state_directory();    // databases: /var/lib/mpls_vpn_mib, MPLS_VPN_MIB_STATE_DIR
std::string library_directory();  // loadable modules: /usr/lib/mpls_vpn_mib, MPLS_VPN_MIB_LIB_DIR
std::string config_directory();   // platform.yaml: /etc/mpls_vpn_mib, MPLS_VPN_MIB_CONFIG_DIR

// The Unix socket of the event manager with this name: "/dev/mpls/vpn/main" is
// RUN_DIRECTORY/dev.mpls.vpn.main.
std::string event_manager_socket(const std::string& manager_name,
                                 const std::string& directory = run_directory());
