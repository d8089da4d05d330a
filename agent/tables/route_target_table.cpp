// mplsL3VpnVrfRTTable (RFC 4382): the route targets of the VRFs, numbered from 1 in each.
#include <array>

#include "agent/rows/decoded_record.h"
#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

constexpr std::uint32_t kImport = 1;  // MplsL3VpnRtType
constexpr std::uint32_t kBoth = 3;

enum RouteTargetSlot : std::size_t {
  kRouteTarget,
  kRouteTargetDescription,
  kRouteTargetRowStatus,
  kRouteTargetStorageType,
  kRouteTargetSlots
};

Taken take_route_target(const kvtree::Octets& octets, Window* window) {
  const Decoded<mpls_vpn_mib_rt> record(kMibRtParcel, octets);
  if (!record.good()) return Taken::kBad;
  if (!window->add_name(text_or_empty(record->vrfName))) return Taken::kNoIndex;
  window->add_index(record->index);
  window->add_index(static_cast<std::uint32_t>(record->type));
  add_text(window, record->rt, kDistinguisherMax);
  add_text(window, record->description, kDescriptionMax);
  add_signed(window, record->rowStatus);
  add_signed(window, record->storageType);
  return Taken::kRow;
}

constexpr std::array kRouteTargetIndex = {IndexPart{PartKind::kName},
                                          IndexPart{PartKind::kNumber, 1, 0xffffffff},
                                          IndexPart{PartKind::kNumber, kImport, kBoth}};

const RowSet kRouteTargets = {"mplsL3VpnVrfRTTable", "/oper/mpls_vpn/gl/rt-next", false,
                              kRouteTargetIndex,     kRouteTargetSlots,           take_route_target};

// Columns 2 and 3, number and type, are not accessible; there is no column 1.
constexpr std::array kRouteTargetColumns = {
    Column{4, Syntax::kOctets, kRouteTarget},
    Column{5, Syntax::kOctets, kRouteTargetDescription},
    Column{6, Syntax::kInteger, kRouteTargetRowStatus},
    Column{7, Syntax::kInteger, kRouteTargetStorageType},
};

constexpr std::array<std::uint32_t, 13> kRouteTargetEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 3, 1};
const std::array kRouteTargetTables = {Table{kRouteTargetEntry, &kRouteTargets, kRouteTargetColumns}};

}  // namespace

std::span<const Table> route_target_tables() {
  return kRouteTargetTables;
}

}  // namespace tables
