#include "agent/tables/l3vpn_tables.h"

#include <array>

#include "agent/tables/columns.h"
#include "agent/tables/route_key.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace tables {
namespace {

using Keys = std::span<const kvtree::ColumnValue>;

std::string_view text(const kvtree::ColumnValue& value) {
  return {reinterpret_cast<const char*>(value.octets.data()), value.octets.size()};
}

// A name, then numbers.
Taken add_named_index(Keys keys, Window* window) {
  if (!window->add_name(text(keys[0]))) return Taken::kNoIndex;
  for (const kvtree::ColumnValue& key : keys.subspan(1)) window->add_index(key.number);
  return Taken::kRow;
}

// --- Scalars

Taken add_scalar_index(Keys /*keys*/, Window* window) {
  window->add_index(0);
  return Taken::kRow;
}

constexpr std::array kScalarIndex = {IndexPart{PartKind::kNumber, 0, 0}};
constexpr std::array<std::string_view, 0> kScalarKeys = {};
using ScalarRows = RecordRows<mib::Scalars, add_scalar_index, mib::kScalarColumns, kScalarKeys>;
constexpr RowSet kScalars = ScalarRows::single("mplsL3VpnScalars", "/oper/mpls_vpn/gl/scalars", kScalarIndex);

// --- Interfaces

constexpr std::array kInterfaceIndex = {IndexPart{PartKind::kName}, IndexPart{PartKind::kNumber}};
constexpr std::array<std::string_view, 2> kInterfaceKeys = {"vrfName", "ifConfIndex"};
using InterfaceRows = RecordRows<mib::Interface, add_named_index, mib::kInterfaceColumns, kInterfaceKeys>;
constexpr RowSet kInterfaces =
    InterfaceRows::walked("mplsL3VpnIfConfTable", "/oper/mpls_vpn/gl/interface-next", kInterfaceIndex);

// --- VRFs

constexpr std::array kVrfIndex = {IndexPart{PartKind::kName}};
constexpr std::array<std::string_view, 1> kVrfKeys = {"name"};
using VrfRows = RecordRows<mib::Vrf, add_named_index, mib::kVrfColumns, kVrfKeys>;
constexpr RowSet kVrfs = VrfRows::walked("mplsL3VpnVrfTable", "/oper/mpls_vpn/gl/vrf-next", kVrfIndex);

// --- Route targets

constexpr std::array kRouteTargetIndex = {IndexPart{PartKind::kName},
                                          IndexPart{PartKind::kNumber, 1, 0xffffffff},
                                          IndexPart{PartKind::kNumber, kRtImport, kRtBoth}};
constexpr std::array<std::string_view, 3> kRouteTargetKeys = {"vrfName", "index", "type"};
using RouteTargetRows =
    RecordRows<mib::RouteTarget, add_named_index, mib::kRouteTargetColumns, kRouteTargetKeys>;
constexpr RowSet kRouteTargets =
    RouteTargetRows::walked("mplsL3VpnVrfRTTable", "/oper/mpls_vpn/gl/rt-next", kRouteTargetIndex);

// --- Routes, IPv4 before IPv6

Taken add_index_of_route(Keys keys, Window* window) {
  if (!window->add_name(text(keys[0]))) return Taken::kNoIndex;
  const RouteIndex index = {keys[1].number, keys[2].octets, keys[3].number, keys[4].number, keys[5].octets};
  return add_route_index(index, window) ? Taken::kRow : Taken::kBad;
}

constexpr std::array<std::string_view, 6> kRouteKeys = {"vrfName", "destType",    "dest",
                                                        "mask",    "nextHopType", "nextHop"};
using RouteRows = RecordRows<mib::Route, add_index_of_route, mib::kRouteColumns, kRouteKeys>;
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
