// mplsL3VpnVrfRteTable (RFC 4382): the routes of the VRFs, IPv4 before IPv6.
#include <array>

#include "agent/rows/decoded_record.h"
#include "agent/tables/l3vpn_tables.h"
#include "agent/tables/route_key.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

enum RouteSlot : std::size_t {
  kIfIndex,
  kType,
  kProtocol,
  kAge,
  kNextHopAs,
  kMetric1,
  kMetric2,
  kMetric3,
  kMetric4,
  kMetric5,
  kXcPointer,
  kStatus,
  kRouteSlots,
};

std::span<const std::uint8_t> view(const ParcelOctets& octets) {
  return {octets.octets, octets.length};
}

// MplsIndexType has at least one octet; a single zero is "no label stack".
void add_cross_connect(const ParcelArray& octets, Window* window) {
  static constexpr std::array<std::uint8_t, 1> kNone = {0};
  if (octets.count == 0) {
    window->add_octets(kNone);
  } else {
    window->add_octets({static_cast<const std::uint8_t*>(octets.elements), octets.count});
  }
}

Taken take_route(const kvtree::Octets& octets, Window* window) {
  const Decoded<mpls_vpn_mib_route> record(kMibRouteParcel, octets);
  if (!record.good()) return Taken::kBad;
  if (!window->add_name(text_or_empty(record->vrfName))) return Taken::kNoIndex;
  const RouteIndex index = {static_cast<std::uint32_t>(record->destType), view(record->dest), record->mask,
                            static_cast<std::uint32_t>(record->nextHopType), view(record->nextHop)};
  if (!add_route_index(index, window)) return Taken::kBad;
  add_signed(window, record->ifIndex);
  add_signed(window, record->type);
  add_signed(window, record->proto);
  window->add_number(record->age);
  window->add_number(record->nextHopAS);
  add_signed(window, record->metric1);
  add_signed(window, record->metric2);
  add_signed(window, record->metric3);
  add_signed(window, record->metric4);
  add_signed(window, record->metric5);
  add_cross_connect(record->xcPointer, window);
  add_signed(window, record->rowStatus);
  return Taken::kRow;
}

// The index is a constant of another file, so the set is built on first use.
const RowSet& routes() {
  static const RowSet set = {"mplsL3VpnVrfRteTable",
                             "/oper/mpls_vpn/gl/route-next",
                             false,
                             kRouteIndex,
                             kRouteSlots,
                             take_route,
                             route_path,
                             kRouteEarlyRows};
  return set;
}

// Columns 1 to 6 are the index and not accessible.
constexpr std::array kRouteColumns = {
    Column{7, Syntax::kInteger, kIfIndex},     Column{8, Syntax::kInteger, kType},
    Column{9, Syntax::kInteger, kProtocol},    Column{10, Syntax::kGauge, kAge},
    Column{11, Syntax::kUnsigned, kNextHopAs}, Column{12, Syntax::kInteger, kMetric1},
    Column{13, Syntax::kInteger, kMetric2},    Column{14, Syntax::kInteger, kMetric3},
    Column{15, Syntax::kInteger, kMetric4},    Column{16, Syntax::kInteger, kMetric5},
    Column{17, Syntax::kOctets, kXcPointer},   Column{18, Syntax::kInteger, kStatus},
};

constexpr std::array<std::uint32_t, 13> kRouteEntry = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 4, 1, 1};

}  // namespace

std::span<const Table> route_tables() {
  static const std::array tables = {Table{kRouteEntry, &routes(), kRouteColumns}};
  return tables;
}

}  // namespace tables
