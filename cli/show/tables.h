// The daemon's tables: their walks, paths and keys (mpls/vpn/mib/src/walk/walk.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/output/json_list.h"
#include "cli/row_walk.h"

namespace cli {

extern const RowTable<mpls_vpn_mib_interface> kInterfaceTable;
extern const RowTable<mpls_vpn_mib_vrf> kVrfTable;
extern const RowTable<mpls_vpn_mib_rt> kRouteTargetTable;
extern const RowTable<mpls_vpn_mib_route> kRouteTable;

// A path below kMplsVpnPath, from its first component and its keys.
std::string provider_path(const std::string& first);
std::string provider_path(const std::string& first, const std::string& vrf);

// The rows of a VRF, of all VRFs when the name is empty.
template <typename T>
void walk_rows_of(const Session& session, kvtree::Client& client, const RowTable<T>& table,
                  const std::string& vrf, const RowSink<T>& sink) {
  const auto of_vrf = [&](const T& row) {
    if (!vrf.empty() && vrf != text_or_empty(row.vrfName)) return false;
    sink.row(row);
    return true;
  };
  RowWalk<T>(session, client, table, of_vrf, sink.batch_end).run(table.first_path(vrf));
}

// Failure for a VRF that does not exist. An invalid one, to which interfaces are bound, has a message of its
// own; so have an interface, and an abbreviation of one of the `words` that the user may have meant.
void require_vrf(const Session& session, kvtree::Client& client, const std::string& vrf,
                 const std::vector<std::string>& words = {});
// "did you mean red?" for a VRF that does not exist; empty if no other is similar.
std::string hint_of_vrf(kvtree::Client& client, const std::string& vrf);

// The same as walk_rows_of, but a named VRF without rows must exist. A VRF that does not exist may have rows,
// as its route targets may be configured.
template <typename T>
void walk_rows_of_known(const Session& session, kvtree::Client& client, const RowTable<T>& table,
                        const std::string& vrf, const RowSink<T>& sink) {
  bool is_known = vrf.empty();
  const auto row = [&](const T& found) {
    is_known = true;
    sink.row(found);
  };
  const auto batch_end = [&] {
    if (!is_known) require_vrf(session, client, vrf);
    is_known = true;
    sink.batch_end();
  };
  walk_rows_of<T>(session, client, table, vrf, {row, batch_end});
}

// With the length 0 the start of a family's routes.
inline constexpr char kNoAddress[] = "0";

// A route's key in a path. `read` is "route" (this one) or "route-next" (the first after it). Addresses are
// hexadecimal with all digits; an all-zero next hop also means none.
std::string route_path(const std::string& read, const std::string& vrf, std::int32_t type,
                       std::uint32_t length, const std::string& destination, const std::string& next_hop);

// False while the daemon lacks a module of the routing table; the route counts of VRF rows are unknown then.
bool are_routes_counted(const Session& session, kvtree::Client& client);

}  // namespace cli
