// Routes of a VRF: all of them, or those of a prefix.
#pragma once

#include <string>

#include "cli/output/address.h"
#include "cli/show/tables.h"

namespace cli {

using RouteSink = RowSink<mpls_vpn_mib_route>;

// Every route of the VRF, IPv4 before IPv6.
void walk_routes(const Session& session, kvtree::Client& client, const std::string& vrf,
                 const RouteSink& sink);

// The routes of this prefix, one for each next hop; of an address, those of the longest prefix that contains
// it. False for none.
bool find_routes(const Session& session, kvtree::Client& client, const std::string& vrf, const Prefix& prefix,
                 const RouteSink& sink);

}  // namespace cli
