#include "agent/tables/l3vpn_tables.h"

#include <array>

#include "agent/tables/columns.h"
#include "agent/tables/route_key.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

std::string_view text_or_empty(const char* text) {
  return text == nullptr ? std::string_view() : text;
}

// --- Scalars

Taken add_scalar_index(const mib::Scalars& /*record*/, Window* window) {
  window->add_index(0);
  return Taken::kRow;
}

constexpr std::array kScalarIndex = {IndexPart{PartKind::kNumber, 0, 0}};
using ScalarRows = RecordRows<mib::Scalars, kMibScalarsParcel, add_scalar_index, mib::kScalarColumns>;
constexpr RowSet kScalars = ScalarRows::single("mplsL3VpnScalars", "/oper/mpls_vpn/gl/scalars", kScalarIndex);

// --- Interfaces

Taken add_interface_index(const mib::Interface& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  window->add_index(static_cast<std::uint32_t>(record.ifConfIndex));
  return Taken::kRow;
}

constexpr std::array kInterfaceIndex = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber}};
using InterfaceRows =
    RecordRows<mib::Interface, kMibInterfaceParcel, add_interface_index, mib::kInterfaceColumns>;
constexpr RowSet kInterfaces =
    InterfaceRows::walked("mplsL3VpnIfConfTable", "/oper/mpls_vpn/gl/interface-next", kInterfaceIndex);

// --- VRFs

Taken add_vrf_index(const mib::Vrf& record, Window* window) {
  return window->add_name(text_or_empty(record.name)) ? Taken::kRow : Taken::kNoIndex;
}

constexpr std::array kVrfIndex = {IndexPart{PartKind::kName}};
using VrfRows = RecordRows<mib::Vrf, kMibVrfParcel, add_vrf_index, mib::kVrfColumns>;
constexpr RowSet kVrfs = VrfRows::walked("mplsL3VpnVrfTable", "/oper/mpls_vpn/gl/vrf-next", kVrfIndex);

// --- Route targets

Taken add_route_target_index(const mib::RouteTarget& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  window->add_index(record.index);
  window->add_index(static_cast<std::uint32_t>(record.type));
  return Taken::kRow;
}

constexpr std::array kRouteTargetIndex = {IndexPart{PartKind::kName},
                                          IndexPart{PartKind::kNumber, 1, 0xffffffff},
                                          IndexPart{PartKind::kNumber, kRtImport, kRtBoth}};
using RouteTargetRows =
    RecordRows<mib::RouteTarget, kMibRtParcel, add_route_target_index, mib::kRouteTargetColumns>;
constexpr RowSet kRouteTargets =
    RouteTargetRows::walked("mplsL3VpnVrfRTTable", "/oper/mpls_vpn/gl/rt-next", kRouteTargetIndex);

// --- Routes, IPv4 before IPv6

std::span<const std::uint8_t> view(const ParcelOctets& octets) {
  return {octets.octets, octets.length};
}

Taken add_index_of_route(const mib::Route& record, Window* window) {
  if (!window->add_name(text_or_empty(record.vrfName))) return Taken::kNoIndex;
  const RouteIndex index = {static_cast<std::uint32_t>(record.destType), view(record.dest), record.mask,
                            static_cast<std::uint32_t>(record.nextHopType), view(record.nextHop)};
  return add_route_index(index, window) ? Taken::kRow : Taken::kBad;
}

using RouteRows = RecordRows<mib::Route, kMibRouteParcel, add_index_of_route, mib::kRouteColumns>;
constexpr RowSet make_routes() {
  RowSet rows = RouteRows::walked("mplsL3VpnVrfRteTable", "/oper/mpls_vpn/gl/route-next", kRouteIndex);
  rows.key = route_path;
  rows.early_rows = kRouteEarlyRows;
  return rows;
}
constexpr RowSet kRoutes = make_routes();

constexpr std::array kTables = {
    Table{&kScalars, ScalarRows::columns()}, Table{&kInterfaces, InterfaceRows::columns()},
    Table{&kVrfs, VrfRows::columns()},       Table{&kRouteTargets, RouteTargetRows::columns()},
    Table{&kRoutes, RouteRows::columns()},
};

}  // namespace

std::span<const Table> l3vpn_tables() {
  return kTables;
}

}  // namespace tables
