// mplsL3VpnVrfRteTable (RFC 4382): the routes of the VRFs, IPv4 before IPv6.
#include <array>

#include "agent/tables/columns.h"
#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/route_key.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

using Route = mpls_vpn_mib_route;

std::span<const std::uint8_t> view(const ParcelOctets& octets) {
  return {octets.octets, octets.length};
}

Taken add_route_index(const Route& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  const RouteIndex index = {static_cast<std::uint32_t>(record.destType), view(record.dest), record.mask,
                            static_cast<std::uint32_t>(record.nextHopType), view(record.nextHop)};
  return add_route_index(index, window) ? Taken::kRow : Taken::kBad;
}

// MplsIndexType has at least one octet; a single zero is "no label stack".
void cross_connect(const Route& record, Window* window) {
  static constexpr std::array<std::uint8_t, 1> kNone = {0};
  const ParcelArray& octets = record.xcPointer;
  if (octets.count == 0) {
    window->add_octets(kNone);
  } else {
    window->add_octets({static_cast<const std::uint8_t*>(octets.elements), octets.count});
  }
}

// Columns 1 to 6 are the index and not accessible.
constexpr RecordColumn<Route> kRouteColumns[] = {
    {7, Syntax::kInteger, number<&Route::ifIndex>},
    {8, Syntax::kInteger, number<&Route::type>},
    {9, Syntax::kInteger, number<&Route::proto>},
    {10, Syntax::kGauge, number<&Route::age>},
    {11, Syntax::kUnsigned, number<&Route::nextHopAS>},
    {12, Syntax::kInteger, number<&Route::metric1>},
    {13, Syntax::kInteger, number<&Route::metric2>},
    {14, Syntax::kInteger, number<&Route::metric3>},
    {15, Syntax::kInteger, number<&Route::metric4>},
    {16, Syntax::kInteger, number<&Route::metric5>},
    {17, Syntax::kOctets, cross_connect},
    {18, Syntax::kInteger, number<&Route::rowStatus>},
};
using RouteRows = RecordRows<Route, kMibRouteParcel, add_route_index, kRouteColumns>;

// The index is a constant of another file, so the set is built on first use.
const RowSet& routes() {
  static const RowSet set = [] {
    RowSet rows = RouteRows::walked("mplsL3VpnVrfRteTable", "/oper/mpls_vpn/gl/route-next", kRouteIndex);
    rows.key = route_path;
    rows.early_rows = kRouteEarlyRows;
    return rows;
  }();
  return set;
}

constexpr auto kRouteEntry = l3vpn_oid(4, 1, 1);

}  // namespace

std::span<const Table> route_tables() {
  static const std::array tables = {Table{kRouteEntry, &routes(), RouteRows::columns<0>()}};
  return tables;
}

}  // namespace tables
