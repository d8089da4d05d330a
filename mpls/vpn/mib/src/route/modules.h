// The routing table's MIB modules, "mib/libipv4_forwardmib.dll" and "mib/libipv6_forwardmib.dll" below the
// library directory: loaded at first use, never unloaded while the process runs.
//
// Main thread. Fault points "dlopen" and "dlsym".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "route_modules/forwardmib.h"

// True when the module is loaded with both its symbols. A failure is posted as an error message; the next
// call tries again what is missing.
bool mpls_vpn_mib_rib_ipv4_route_load_dll();
bool mpls_vpn_mib_rib_ipv6_route_load_dll();

// Why the latest attempt to load each module failed: its whole path below the library directory, and the
// loader's reason. No entry for a module that is loaded or was not requested yet.
std::vector<std::string> mpls_vpn_mib_route_module_failures();

// "ribmib_find_route" of each. REQUIRES: the module was loaded successfully.
ForwardmibFindIpv4Route mpls_vpn_mib_rib_ipv4_find_route();
ForwardmibFindIpv6Route mpls_vpn_mib_rib_ipv6_find_route();

// Routes of a unicast table as the routing table counts them; 0 when the module cannot be loaded.
std::uint32_t mpls_vpn_mib_ipv4_unicast_active_routes(std::uint32_t table_id);
std::uint32_t mpls_vpn_mib_ipv6_unicast_active_routes(std::uint32_t table_id);

// Unloads both. For tests that start the daemon again.
void mpls_vpn_mib_route_modules_end();
