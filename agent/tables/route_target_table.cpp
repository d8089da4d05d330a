// mplsL3VpnVrfRTTable (RFC 4382): the route targets of the VRFs, numbered from 1 in each.
#include <array>

#include "agent/tables/columns.h"
#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

using RouteTarget = mpls_vpn_mib_rt;

Taken add_route_target_index(const RouteTarget& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  window->add_index(record.index);
  window->add_index(static_cast<std::uint32_t>(record.type));
  return Taken::kRow;
}

constexpr std::array kRouteTargetIndex = {IndexPart{PartKind::kName},
                                          IndexPart{PartKind::kNumber, 1, 0xffffffff},
                                          IndexPart{PartKind::kNumber, kRtImport, kRtBoth}};

// Columns 2 and 3, number and type, are not accessible; there is no column 1.
constexpr RecordColumn<RouteTarget> kRouteTargetColumns[] = {
    {4, Syntax::kOctets, text<&RouteTarget::rt, kDistinguisherMax>},
    {5, Syntax::kOctets, text<&RouteTarget::description, kDescriptionMax>},
    {6, Syntax::kInteger, number<&RouteTarget::rowStatus>},
    {7, Syntax::kInteger, number<&RouteTarget::storageType>},
};
using RouteTargetRows = RecordRows<RouteTarget, kMibRtParcel, add_route_target_index, kRouteTargetColumns>;

const RowSet kRouteTargets =
    RouteTargetRows::walked("mplsL3VpnVrfRTTable", "/oper/mpls_vpn/gl/rt-next", kRouteTargetIndex);

constexpr auto kRouteTargetEntry = l3vpn_oid(2, 3, 1);
const std::array kRouteTargetTables = {
    Table{kRouteTargetEntry, &kRouteTargets, RouteTargetRows::columns<0>()}};

}  // namespace

std::span<const Table> route_target_tables() {
  return kRouteTargetTables;
}

}  // namespace tables
