#include "cli/vrf/vrf_report.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/output/details.h"
#include "cli/output/names.h"
#include "cli/output/record.h"
#include "cli/output/times.h"

namespace cli {

namespace {

using vrf_config::Direction;

constexpr std::size_t kLabelWidth = 22;  // with the indentation

template <typename T>
std::span<const T> elements(const ParcelArray& array) {
  return {static_cast<const T*>(array.elements), static_cast<std::size_t>(array.count)};
}

std::string printable_or_dash(const char* text) {
  return printable(text_or_dash(text));
}

// --- Address families -----------------------------------------------------------------------------

struct FamilyView {
  const mpls_vpn_afi_safi& row;
  const VrfOrigins& origins;
};

// SAFIs are compared by their bits, as in the daemon's filter: that of flow rules counts as unicast.
bool is_wanted(const mpls_vpn_afi_safi& table, const VrfRequest& request) {
  return (request.afi == 0 || table.AFName == request.afi) &&
         (request.safi == 0 || (table.SAFName & request.safi) != 0);
}

// Only unicast and EVPN have configuration items.
bool has_items(const mpls_vpn_afi_safi& table) {
  return table.SAFName == inet::kUnicastSafi || table.AFName == inet::kL2VpnAfi;
}

std::int32_t type_of(const mpls_vpn_rt& target) {
  return static_cast<std::int32_t>(target.RouteTargetType);
}

std::string target_origin(const FamilyView& family, const mpls_vpn_rt& target) {
  if (!has_items(family.row)) return {};
  const bool is_import = type_of(target) == kRtImport;
  return family.origins.of_target(family.row.AFName, is_import ? Direction::kImport : Direction::kExport,
                                  text_or_empty(target.RouteTargetValue));
}

template <Direction kDirection>
std::string policy_origin(const FamilyView& family) {
  return has_items(family.row) ? family.origins.of_policy(family.row.AFName, kDirection) : std::string();
}
template <Direction kDirection>
Json policy_origin_json(const FamilyView& family) {
  return text_or_null(policy_origin<kDirection>(family));
}
template <Direction kDirection>
Lines policy_line(const FamilyView& family) {
  const mpls_vpn_afi_safi& table = family.row;
  const char* policy = kDirection == Direction::kImport ? table.ImportRoutePolicy : table.ExportRoutePolicy;
  return {with_origin(printable_or_dash(policy), policy_origin<kDirection>(family))};
}

Json targets_json(const FamilyView& family) {
  Json targets = Json::array();
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(family.row.RouteTarget)) {
    targets.push_back({{"type", target.RouteTargetType},
                       {"typeName", route_target_type_name(type_of(target))},
                       {"value", text_or_empty(target.RouteTargetValue)},
                       {"origin", text_or_null(target_origin(family, target))}});
  }
  return targets;
}

template <std::int32_t kType>
Lines target_words(const FamilyView& family) {
  Lines words;
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(family.row.RouteTarget)) {
    if (type_of(target) != kType) continue;
    words.push_back(with_origin(printable_or_dash(target.RouteTargetValue), target_origin(family, target)));
  }
  return words;
}

using FamilyTable = mpls_vpn_afi_safi;
using FamilyColumns = Columns<FamilyView>;

constexpr Column<FamilyView> kFamilyColumns[] = {
    FamilyColumns::named<&FamilyTable::AFName, afi_name>("afi"),
    FamilyColumns::named<&FamilyTable::SAFName, safi_name>("safi"),
    FamilyColumns::value("routeTargets", targets_json).words(1, "import targets", target_words<kRtImport>),
    FamilyColumns::text_only().words(2, "export targets", target_words<kRtExport>),
    FamilyColumns::member<&FamilyTable::ImportRoutePolicy>("importRoutePolicy")
        .with("Origin", policy_origin_json<Direction::kImport>)
        .line(3, "import policy", policy_line<Direction::kImport>),
    FamilyColumns::member<&FamilyTable::ExportRoutePolicy>("exportRoutePolicy")
        .with("Origin", policy_origin_json<Direction::kExport>)
        .line(4, "export policy", policy_line<Direction::kExport>),
};

Json families_json(const VrfView& vrf) {
  Json families = Json::array();
  for (const mpls_vpn_afi_safi& table : vrf.details->tables) {
    families.push_back(row_json<FamilyView>(kFamilyColumns, {table, vrf.details->origins}));
  }
  return families;
}

// --- VRFs -----------------------------------------------------------------------------------------

using Vrf = mpls_vpn_mib_vrf;
using VrfColumns = Columns<VrfView>;

template <std::uint32_t Vrf::*kTime>
Lines time_line(const VrfView& vrf) {
  const std::uint32_t seconds = vrf.row.*kTime;
  if (seconds == 0) return {"-"};
  return {fmt::format("{} ({} ago)", local_time_text(seconds), age_text(seconds))};
}

std::string changed_age(const VrfView& vrf) {
  return age_text(vrf.row.confLastChanged);
}

Lines description_line(const VrfView& vrf) {
  return {with_origin(printable_or_dash(vrf.row.description), vrf.details->origins.of_description())};
}
Json description_origin(const VrfView& vrf) {
  return text_or_null(vrf.details->origins.of_description());
}

std::string rd_origin_text(const VrfView& vrf) {
  return vrf.details->origins.of_rd(text_or_empty(vrf.row.rd));
}
Lines rd_line(const VrfView& vrf) {
  return {with_origin(printable_or_dash(vrf.row.rd), rd_origin_text(vrf))};
}
Json rd_origin(const VrfView& vrf) {
  return text_or_null(rd_origin_text(vrf));
}

Json vni_json(const VrfView& vrf) {
  const auto vni = vrf.details->origins.vni();
  return vni ? Json(*vni) : Json();
}
Json vni_origin(const VrfView& vrf) {
  return text_or_null(vrf.details->origins.of_vni());
}
Lines vni_line(const VrfView& vrf) {
  const auto vni = vrf.details->origins.vni();
  return {with_origin(vni ? std::to_string(*vni) : "-", vrf.details->origins.of_vni())};
}

Lines state_line(const VrfView& vrf) {
  return {fmt::format("{}, administratively {}", vrf_status_name(vrf.row.operStatus),
                      vrf_status_name(vrf.row.adminStatus))};
}

Json routes_json(const VrfView& vrf) {
  return vrf.are_routes_counted ? Json(vrf.row.currNumRoutes) : Json();
}
std::string routes_text(const VrfView& vrf) {
  return vrf.are_routes_counted ? std::to_string(vrf.row.currNumRoutes) : "unknown";
}
Lines routes_line(const VrfView& vrf) {
  return {fmt::format("{} now, {} added, {} deleted, {} dropped", routes_text(vrf), vrf.row.routesAdded,
                      vrf.row.routesDeleted, vrf.row.routesDropped)};
}

std::string threshold_text(std::int64_t routes) {
  return routes == 0 ? "none" : std::to_string(routes);
}

// One line for each family that has thresholds.
Lines threshold_lines(const VrfView& vrf) {
  Lines lines;
  for (const FamilyThresholds& family : vrf.details->thresholds) {
    lines.push_back(with_origin(fmt::format("{} mid {}, high {}", afi_name(family.afi),
                                            threshold_text(family.mid), threshold_text(family.high)),
                                vrf.details->origins.of_threshold(family.afi)));
  }
  return lines.empty() ? Lines{"none"} : lines;
}
Json thresholds_json(const VrfView& vrf) {
  Json list = Json::array();
  for (const FamilyThresholds& family : vrf.details->thresholds) {
    list.push_back({{"afi", family.afi},
                    {"afiName", afi_name(family.afi)},
                    {"midThresh", family.mid},
                    {"highThresh", family.high},
                    {"origin", text_or_null(vrf.details->origins.of_threshold(family.afi))}});
  }
  return list;
}

Lines illegal_labels_line(const VrfView& vrf) {
  return {std::to_string(vrf.row.illegalLabelViolations)};
}

Json big_json(const VrfView& vrf) {
  return vrf.details->shown.isBigVrf != 0;
}
Lines big_line(const VrfView& vrf) {
  return {vrf.details->shown.isBigVrf != 0 ? "yes" : "no"};
}

Lines interface_counts_line(const VrfView& vrf) {
  return {fmt::format("{}, {} active", vrf.row.associatedInterfaces, vrf.row.activeInterfaces)};
}
Json interfaces_json(const VrfView& vrf) {
  return interface_names(vrf.details->shown);
}
Lines interface_words(const VrfView& vrf) {
  Lines words = interface_names(vrf.details->shown);
  for (std::string& name : words) name = printable(name);
  return words;
}

constexpr Column<VrfView> kVrfColumns[] = {
    VrfColumns::member<&Vrf::name>("name").cell(1, "VRF"),
    VrfColumns::member<&Vrf::description>("description")
        .cell(8, "DESCRIPTION", member_or_dash<&Vrf::description, VrfView>)
        .line(1, "description", description_line),
    VrfColumns::member<&Vrf::rd>("rd")
        .cell(2, "RD", member_or_dash<&Vrf::rd, VrfView>)
        .line(2, "route distinguisher", rd_line),
    VrfColumns::named<&Vrf::creationTime, local_time_text>("creationTime", "Text")
        .line(5, "created", time_line<&Vrf::creationTime>),
    VrfColumns::named<&Vrf::operStatus, vrf_status_name>("operStatus")
        .cell(3, "STATE")
        .line(4, "state", state_line),
    VrfColumns::member<&Vrf::activeInterfaces>("activeInterfaces").number(5, "ACTIVE"),
    VrfColumns::member<&Vrf::associatedInterfaces>("associatedInterfaces")
        .number(4, "INTERFACES")
        .line(11, "interface counts", interface_counts_line),
    VrfColumns::member<&Vrf::midThresh>("midThresh"),
    VrfColumns::member<&Vrf::highThresh>("highThresh"),
    VrfColumns::named<&Vrf::confLastChanged, local_time_text>("confLastChanged", "Text")
        .number(7, "CHANGED", changed_age)
        .line(6, "last changed", time_line<&Vrf::confLastChanged>),
    VrfColumns::named<&Vrf::rowStatus, row_status_name>("rowStatus"),
    VrfColumns::named<&Vrf::adminStatus, vrf_status_name>("adminStatus"),
    VrfColumns::named<&Vrf::storageType, storage_type_name>("storageType"),
    VrfColumns::member<&Vrf::illegalLabelViolations>("illegalLabelViolations")
        .line(9, "illegal labels", illegal_labels_line),
    VrfColumns::member<&Vrf::discontinuityTime>("discontinuityTime"),
    VrfColumns::member<&Vrf::routesAdded>("routesAdded"),
    VrfColumns::member<&Vrf::routesDeleted>("routesDeleted"),
    VrfColumns::value("currNumRoutes", routes_json)
        .number(6, "ROUTES", routes_text)
        .line(7, "routes", routes_line),
    VrfColumns::member<&Vrf::routesDropped>("routesDropped"),
    VrfColumns::member<&Vrf::discTime>("discTime"),
    // From here on of details alone.
    VrfColumns::value("descriptionOrigin", description_origin),
    VrfColumns::value("rdOrigin", rd_origin),
    VrfColumns::value("vni", vni_json).with("Origin", vni_origin).line(3, "vni", vni_line),
    VrfColumns::value("routeThresholds", thresholds_json).line(8, "route thresholds", threshold_lines),
    VrfColumns::value("isBigVrf", big_json).line(10, "big", big_line),
    VrfColumns::value("interfaces", interfaces_json).words(12, "interfaces", interface_words),
    VrfColumns::value("addressFamilies", families_json),
};
constexpr std::size_t kVrfRowColumns = 20;
static_assert(std::string_view(kVrfColumns[kVrfRowColumns].key) == "descriptionOrigin");

}  // namespace

std::span<const Column<VrfView>> vrf_row_columns() {
  return std::span(kVrfColumns).first<kVrfRowColumns>();
}

std::vector<mpls_vpn_afi_safi> wanted_tables(const mpls_vpn_vrf& shown, const VrfRequest& request) {
  std::vector<mpls_vpn_afi_safi> tables;
  for (const mpls_vpn_afi_safi& table : elements<mpls_vpn_afi_safi>(shown.AF)) {
    if (is_wanted(table, request)) tables.push_back(table);
  }
  return tables;
}

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown) {
  std::vector<std::string> names;
  for (const mpls_vpn_interfaces& interface : elements<mpls_vpn_interfaces>(shown.Interfaces)) {
    names.push_back(text_or_empty(interface.InterfaceName));
  }
  return names;
}

Json vrf_json(const VrfView& vrf) {
  return row_json<VrfView>(kVrfColumns, vrf);
}

void print_vrf(std::ostream& out, const VrfView& vrf) {
  fmt::print(out, "VRF {}\n", printable_or_dash(vrf.row.name));
  print_details<VrfView>(out, {2, kLabelWidth}, kVrfColumns, vrf);
  for (const mpls_vpn_afi_safi& table : vrf.details->tables) {
    fmt::print(out, "  {} {}\n", afi_name(table.AFName), safi_name(table.SAFName));
    print_details<FamilyView>(out, {4, kLabelWidth}, kFamilyColumns, {table, vrf.details->origins});
  }
}

}  // namespace cli
