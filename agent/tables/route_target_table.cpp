// mplsL3VpnVrfRTTable (RFC 4382): the route targets of the VRFs, numbered from 1 in each.
#include <array>

#include "agent/tables/decoded_record.h"
#include "agent/tables/l3vpn_tables.h"
#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"

namespace tables {
namespace {

constexpr std::uint32_t kImport = 1;  // MplsL3VpnRtType
constexpr std::uint32_t kBoth = 3;

enum Slot : std::size_t { kRouteTarget, kDescription, kRowStatus, kStorageType, kSlots };

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

constexpr std::array kIndex = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber, 1, 0xffffffff},
                               IndexPart{PartKind::kNumber, kImport, kBoth}};

const RowSet kRouteTargets = {"mplsL3VpnVrfRTTable", "/oper/mpls_vpn/gl/rt-next", false, kIndex, kSlots,
                              take_route_target};

// Columns 2 and 3, number and type, are not accessible; there is no column 1.
constexpr std::array kColumns = {
    Column{4, Syntax::kOctets, kRouteTarget},
    Column{5, Syntax::kOctets, kDescription},
    Column{6, Syntax::kInteger, kRowStatus},
    Column{7, Syntax::kInteger, kStorageType},
};

constexpr std::array<std::uint32_t, 13> kEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 3, 1};
const std::array kTables = {Table{kEntry, &kRouteTargets, kColumns}};

}  // namespace

std::span<const Table> route_target_tables() {
  return kTables;
}

}  // namespace tables
