// The daemon's tables as the commands walk and print them.
#pragma once

#include <cstdint>
#include <string>

#include "cli/output/json_list.h"
#include "cli/row_walk.h"

namespace cli {

extern const RowTable<mpls_vpn_mib_interface> kInterfaceTable;
extern const RowTable<mpls_vpn_mib_vrf> kVrfTable;
extern const RowTable<mpls_vpn_mib_rt> kRouteTargetTable;
extern const RowTable<mpls_vpn_mib_route> kRouteTable;

// A path below kProviderPath, from its first component and its keys.
std::string provider_path(const std::string& first);
std::string provider_path(const std::string& first, const std::string& vrf);

// Reads that begin with the first row of a VRF (of all VRFs when the name is empty).
std::string first_interface_path(const std::string& vrf);
std::string first_vrf_path(const std::string& vrf);
std::string first_route_target_path(const std::string& vrf);
std::string first_route_path(const std::string& vrf);

// A route's key in a path: `read` is "route" (this one) or "route-next" (the first behind it). Addresses are
// hexadecimal, all their digits; an all-zero next hop stands for none, too.
std::string route_path(const std::string& read, const std::string& vrf, std::int32_t type,
                       std::uint32_t length, const std::string& destination, const std::string& next_hop);

// False while the daemon lacks a module of the routing table: the route counts of VRF rows are unknown then.
bool are_routes_counted(kvtree::Client& client);

// Failure when there is no such VRF; it tells an invalid one (interfaces name it, but it is not there) from
// one of which nothing is known.
void require_vrf(const Session& session, kvtree::Client& client, const std::string& vrf);

}  // namespace cli
