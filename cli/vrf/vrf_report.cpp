#include "cli/vrf/vrf_report.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "cli/output/details.h"
#include "cli/output/mib_json.h"
#include "cli/output/times.h"

namespace cli {

namespace {

using mib::Vrf;
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
  const mpls_vpn_afi_safi& table;
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
  if (!has_items(family.table)) return {};
  const bool is_import = type_of(target) == kRtImport;
  return family.origins.of_target(family.table.AFName, is_import ? Direction::kImport : Direction::kExport,
                                  text_or_empty(target.RouteTargetValue));
}

std::string policy_origin(const FamilyView& family, Direction direction) {
  return has_items(family.table) ? family.origins.of_policy(family.table.AFName, direction) : std::string();
}

Json targets_json(const FamilyView& family) {
  Json targets = Json::array();
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(family.table.RouteTarget)) {
    targets.push_back({{"type", target.RouteTargetType},
                       {"typeName", name_of(mib::kRouteTargetType, type_of(target))},
                       {"value", text_or_empty(target.RouteTargetValue)},
                       {"origin", text_or_null(target_origin(family, target))}});
  }
  return targets;
}

Lines target_words(const FamilyView& family, std::int32_t type) {
  Lines words;
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(family.table.RouteTarget)) {
    if (type_of(target) != type) continue;
    words.push_back(with_origin(printable_or_dash(target.RouteTargetValue), target_origin(family, target)));
  }
  return words;
}

Json family_json(const FamilyView& family) {
  const mpls_vpn_afi_safi& table = family.table;
  return {{"afi", table.AFName},
          {"afiName", afi_name(table.AFName)},
          {"safi", table.SAFName},
          {"safiName", safi_name(table.SAFName)},
          {"routeTargets", targets_json(family)},
          {"importRoutePolicy", text_or_empty(table.ImportRoutePolicy)},
          {"importRoutePolicyOrigin", text_or_null(policy_origin(family, Direction::kImport))},
          {"exportRoutePolicy", text_or_empty(table.ExportRoutePolicy)},
          {"exportRoutePolicyOrigin", text_or_null(policy_origin(family, Direction::kExport))}};
}

void print_family(const Session& session, const FamilyView& family) {
  const mpls_vpn_afi_safi& table = family.table;
  fmt::print(session.out, "  {} {}\n", afi_name(table.AFName), safi_name(table.SAFName));
  Details details(session.out, 4, kLabelWidth, session.terminal.width);
  details.words("import targets", target_words(family, kRtImport));
  details.words("export targets", target_words(family, kRtExport));
  details.line("import policy", with_origin(printable_or_dash(table.ImportRoutePolicy),
                                            policy_origin(family, Direction::kImport)));
  details.line("export policy", with_origin(printable_or_dash(table.ExportRoutePolicy),
                                            policy_origin(family, Direction::kExport)));
}

// --- VRFs -----------------------------------------------------------------------------------------

std::string time_text(std::uint32_t seconds) {
  return seconds == 0 ? "-" : fmt::format("{} ({} ago)", local_time_text(seconds), age_text(seconds));
}

std::string changed_age(const VrfView& vrf) {
  return age_text(vrf.row.confLastChanged);
}

std::string routes_text(const VrfView& vrf) {
  return vrf.are_routes_counted ? std::to_string(vrf.row.currNumRoutes) : "unknown";
}

template <std::uint32_t Vrf::*kTime>
Json local_time_json(const VrfView& vrf) {
  return local_time_text(vrf.row.*kTime);
}

constexpr Column<VrfView> kVrfCells[] = {
    {.cell = {"VRF"}, .text = member_text<&Vrf::name>},
    {.cell = {"RD"}, .text = member_or_dash<&Vrf::rd>},
    {.cell = state("STATE"), .text = member_name<&Vrf::operStatus, mib::kVrfStatus>},
    {.cell = number("INTERFACES"), .text = member_text<&Vrf::associatedInterfaces>},
    {.cell = number("ACTIVE"), .text = member_text<&Vrf::activeInterfaces>},
    {.cell = number("ROUTES"), .text = routes_text},
    {.cell = number("CHANGED"), .text = changed_age},
    {.cell = {"DESCRIPTION"}, .text = member_or_dash<&Vrf::description>},
};

constexpr Column<VrfView> kBriefCells[] = {
    {.cell = {"VRF"}, .text = member_text<&Vrf::name>},
    {.cell = {"RD"}, .text = member_or_dash<&Vrf::rd>},
    {.cell = state("STATE"), .text = member_name<&Vrf::operStatus, mib::kVrfStatus>},
    {.cell = number("ROUTES"), .text = routes_text},
};

constexpr AddedKey<VrfView> kVrfKeys[] = {
    {"creationTime", "creationTimeText", local_time_json<&Vrf::creationTime>},
    {"confLastChanged", "confLastChangedText", local_time_json<&Vrf::confLastChanged>},
};

std::string rd_origin(const VrfView& vrf, const VrfDetails& details) {
  return details.origins.of_rd(text_or_empty(vrf.row.rd));
}

std::string threshold_text(std::int64_t routes) {
  return routes == 0 ? "none" : std::to_string(routes);
}

// One line for each family that has thresholds.
Lines threshold_lines(const VrfDetails& details) {
  Lines lines;
  for (const FamilyThresholds& family : details.thresholds) {
    lines.push_back(with_origin(fmt::format("{} high {}, mid {}", afi_name(family.afi),
                                            threshold_text(family.high), threshold_text(family.mid)),
                                details.origins.of_threshold(family.afi)));
  }
  return lines.empty() ? Lines{"none"} : lines;
}
Json thresholds_json(const VrfDetails& details) {
  Json list = Json::array();
  for (const FamilyThresholds& family : details.thresholds) {
    list.push_back({{"afi", family.afi},
                    {"afiName", afi_name(family.afi)},
                    {"midThresh", family.mid},
                    {"highThresh", family.high},
                    {"origin", text_or_null(details.origins.of_threshold(family.afi))}});
  }
  return list;
}

// "ge2 (down)"; an interface that is up and has an address is active.
std::string interface_word(const std::string& name, RouterStates* states) {
  const RouterState* state = states == nullptr ? nullptr : states->find(name);
  const char* reason = "";
  if (state != nullptr && !state->is_up) {
    reason = " (down)";
  } else if (state != nullptr && state->addresses.empty()) {
    reason = " (no address)";
  }
  return printable(name) + reason;
}

// "2, 1 active: ge1 ge2 (down)".
Lines interface_words(const Vrf& row, const VrfDetails& details) {
  const std::vector<std::string> names = interface_names(details.shown);
  Lines words = {fmt::format("{}, {} active{}", row.associatedInterfaces, row.activeInterfaces,
                             names.empty() ? "" : ":")};
  for (const std::string& name : names) words.push_back(interface_word(name, details.states));
  return words;
}

}  // namespace

std::span<const Column<VrfView>> vrf_cells() {
  return kVrfCells;
}

std::span<const Column<VrfView>> brief_vrf_cells() {
  return kBriefCells;
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

Json vrf_row_json(const VrfView& vrf) {
  Json json = mib_json<VrfView>(mib::kVrfColumns, vrf, kVrfKeys);
  for (const mib::Column<Vrf>& column : mib::kVrfColumns) {
    if (column.is_counted && !vrf.are_routes_counted) json[column.key] = nullptr;
  }
  return json;
}

Json vrf_json(const VrfView& vrf, const VrfDetails& details) {
  const VrfOrigins& origins = details.origins;
  Json families = Json::array();
  for (const mpls_vpn_afi_safi& table : details.tables) families.push_back(family_json({table, origins}));
  Json json = vrf_row_json(vrf);
  json["descriptionOrigin"] = text_or_null(origins.of_description());
  json["rdOrigin"] = text_or_null(rd_origin(vrf, details));
  json["vni"] = origins.vni() ? Json(*origins.vni()) : Json();
  json["vniOrigin"] = text_or_null(origins.of_vni());
  json["routeThresholds"] = thresholds_json(details);
  json["isBigVrf"] = details.shown.isBigVrf != 0;
  json["interfaces"] = interface_names(details.shown);
  json["addressFamilies"] = std::move(families);
  return json;
}

void print_vrf(const Session& session, const VrfView& vrf, const VrfDetails& details) {
  const Vrf& row = vrf.row;
  const VrfOrigins& origins = details.origins;
  fmt::print(session.out, "VRF {}\n", printable_or_dash(row.name));
  Details lines(session.out, 2, kLabelWidth, session.terminal.width);
  lines.line("description", with_origin(printable_or_dash(row.description), origins.of_description()));
  lines.line("route distinguisher", with_origin(printable_or_dash(row.rd), rd_origin(vrf, details)));
  lines.line("vni", with_origin(origins.vni() ? std::to_string(*origins.vni()) : "-", origins.of_vni()));
  lines.line("state", name_of(mib::kVrfStatus, row.operStatus));
  lines.line("created", time_text(row.creationTime));
  lines.line("last changed", time_text(row.confLastChanged));
  lines.line("routes", fmt::format("{} now; additions and deletions are not counted", routes_text(vrf)));
  lines.lines("route thresholds", threshold_lines(details));
  lines.line("big", details.shown.isBigVrf != 0 ? "yes" : "no");
  lines.words("interfaces", interface_words(row, details));
  for (const mpls_vpn_afi_safi& table : details.tables) print_family(session, {table, origins});
}

}  // namespace cli
