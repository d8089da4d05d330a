// Routes of a VRF by prefix.
#pragma once

#include <string>
#include <vector>

#include "cli/output/address.h"
#include "cli/show/tables.h"

namespace cli {

using RouteSink = RowSink<mpls_vpn_mib_route>;

// The routes of this prefix, one for each next hop; of an address, those of the longest prefix that contains
// it. False for none.
bool find_routes(const Session& session, kvtree::Client& client, const std::string& vrf, const Prefix& prefix,
                 const RouteSink& sink);

// The destinations "ADDRESS/LENGTH" of the VRF that begin so, at most so many, for a user who types one: the
// others of a large table may have more.
std::vector<std::string> destinations_that_begin(const Session& session, kvtree::Client& client,
                                                 const std::string& vrf, const std::string& beginning,
                                                 std::size_t most);

}  // namespace cli
