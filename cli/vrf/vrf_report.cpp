// See vrf_report.h.
#include "cli/vrf/vrf_report.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <span>

#include "cli/output/names.h"
#include "cli/output/record.h"
#include "cli/output/table.h"
#include "cli/output/times.h"

namespace cli {

namespace {

constexpr std::size_t kLineWidth = 100;
constexpr std::size_t kTitleWidth = 22;  // with the indentation

template <typename T>
std::span<const T> elements(const ParcelArray& array) {
  return {static_cast<const T*>(array.elements), static_cast<std::size_t>(array.count)};
}

std::string printable_or_dash(const char* text) {
  return printable(text_or_dash(text));
}

// SAFIs are compared by their bits, as the daemon's filter does: that of flow rules counts as unicast.
bool is_wanted(const mpls_vpn_afi_safi& table, const VrfRequest& request) {
  return (request.afi == 0 || table.AFName == request.afi) &&
         (request.safi == 0 || (table.SAFName & request.safi) != 0);
}

using vrf_config::Direction;

// Items are configured for unicast and EVPN alone: a table of another SAFI has none of its own.
bool has_items(const mpls_vpn_afi_safi& table) {
  constexpr std::uint32_t kUnicast = 1;
  return table.SAFName == kUnicast || table.AFName == static_cast<std::uint32_t>(vrf_config::Family::kEvpn);
}

std::string target_origin(const VrfOrigins& origins, const mpls_vpn_afi_safi& table,
                          const mpls_vpn_rt& target) {
  constexpr std::uint32_t kImport = 1;
  if (!has_items(table)) return {};
  return origins.of_target(table.AFName,
                           target.RouteTargetType == kImport ? Direction::kImport : Direction::kExport,
                           text_or_empty(target.RouteTargetValue));
}

std::string policy_origin(const VrfOrigins& origins, const mpls_vpn_afi_safi& table, Direction direction) {
  return has_items(table) ? origins.of_policy(table.AFName, direction) : std::string();
}

Json route_targets_json(const mpls_vpn_afi_safi& table, const VrfOrigins& origins) {
  Json targets = Json::array();
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(table.RouteTarget)) {
    targets.push_back(
        {{"type", target.RouteTargetType},
         {"typeName", route_target_type_name(static_cast<std::int32_t>(target.RouteTargetType))},
         {"value", text_or_empty(target.RouteTargetValue)},
         {"origin", text_or_null(target_origin(origins, table, target))}});
  }
  return targets;
}

std::vector<mpls_vpn_afi_safi> wanted_tables(const VrfDetail& vrf, const VrfRequest& request) {
  std::vector<mpls_vpn_afi_safi> tables;
  for (const mpls_vpn_afi_safi& table : elements<mpls_vpn_afi_safi>(vrf.shown.AF)) {
    if (is_wanted(table, request)) tables.push_back(table);
  }
  tables.insert(tables.end(), vrf.further.begin(), vrf.further.end());
  return tables;
}

Json tables_json(const VrfDetail& vrf, const VrfRequest& request) {
  const VrfOrigins& origins = vrf.origins;
  Json tables = Json::array();
  for (const mpls_vpn_afi_safi& table : wanted_tables(vrf, request)) {
    tables.push_back(
        {{"afi", table.AFName},
         {"afiName", afi_name(table.AFName)},
         {"safi", table.SAFName},
         {"safiName", safi_name(table.SAFName)},
         {"routeTargets", route_targets_json(table, origins)},
         {"importRoutePolicy", text_or_empty(table.ImportRoutePolicy)},
         {"importRoutePolicyOrigin", text_or_null(policy_origin(origins, table, Direction::kImport))},
         {"exportRoutePolicy", text_or_empty(table.ExportRoutePolicy)},
         {"exportRoutePolicyOrigin", text_or_null(policy_origin(origins, table, Direction::kExport))}});
  }
  return tables;
}

void print_line(std::ostream& out, const std::string& title, const std::string& value) {
  fmt::print(out, "{:<{}}{}\n", title, kTitleWidth, value);
}

// Words that do not fit on the line go on below its value.
void print_words(std::ostream& out, const std::string& title, const std::vector<std::string>& words) {
  std::string line;
  std::string line_title = title;
  for (const std::string& word : words) {
    if (!line.empty() && kTitleWidth + line.size() + 1 + word.size() > kLineWidth) {
      print_line(out, line_title, line);
      line.clear();
      line_title.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  print_line(out, line_title, line.empty() ? "-" : line);
}

std::vector<std::string> target_values(const mpls_vpn_afi_safi& table, std::uint32_t type,
                                       const VrfOrigins& origins) {
  std::vector<std::string> values;
  for (const mpls_vpn_rt& target : elements<mpls_vpn_rt>(table.RouteTarget)) {
    if (target.RouteTargetType == type)
      values.push_back(
          with_origin(printable_or_dash(target.RouteTargetValue), target_origin(origins, table, target)));
  }
  return values;
}

void print_table(std::ostream& out, const mpls_vpn_afi_safi& table, const VrfOrigins& origins) {
  constexpr std::uint32_t kImport = 1;
  constexpr std::uint32_t kExport = 2;
  fmt::print(out, "  {} {}\n", afi_name(table.AFName), safi_name(table.SAFName));
  print_words(out, "    import targets", target_values(table, kImport, origins));
  print_words(out, "    export targets", target_values(table, kExport, origins));
  print_line(out, "    import policy",
             with_origin(printable_or_dash(table.ImportRoutePolicy),
                         policy_origin(origins, table, Direction::kImport)));
  print_line(out, "    export policy",
             with_origin(printable_or_dash(table.ExportRoutePolicy),
                         policy_origin(origins, table, Direction::kExport)));
}

std::string time_line(std::uint32_t seconds) {
  if (seconds == 0) return "-";
  return fmt::format("{} ({} ago)", local_time_text(seconds), age_text(seconds));
}

std::string threshold(std::int64_t routes) {
  return routes == 0 ? "none" : std::to_string(routes);
}

// A line for each family that has any.
void print_thresholds(std::ostream& out, const std::vector<FamilyThresholds>& thresholds,
                      const VrfOrigins& origins) {
  std::string title = "  route thresholds";
  if (thresholds.empty()) print_line(out, title, "none");
  for (const FamilyThresholds& family : thresholds) {
    print_line(out, title,
               with_origin(fmt::format("{} mid {}, high {}", afi_name(family.afi), threshold(family.mid),
                                       threshold(family.high)),
                           origins.of_threshold(family.afi)));
    title.clear();
  }
}

Json thresholds_json(const std::vector<FamilyThresholds>& thresholds, const VrfOrigins& origins) {
  Json list = Json::array();
  for (const FamilyThresholds& family : thresholds) {
    list.push_back({{"afi", family.afi},
                    {"afiName", afi_name(family.afi)},
                    {"midThresh", family.mid},
                    {"highThresh", family.high},
                    {"origin", text_or_null(origins.of_threshold(family.afi))}});
  }
  return list;
}

std::string vni_text(const VrfOrigins& origins) {
  return origins.vni() ? std::to_string(*origins.vni()) : "-";
}

void print_row(std::ostream& out, const VrfDetail& vrf) {
  const mpls_vpn_mib_vrf& row = vrf.row;
  const VrfOrigins& origins = vrf.origins;
  print_line(out, "  description", with_origin(printable_or_dash(row.description), origins.of_description()));
  print_line(out, "  route distinguisher",
             with_origin(printable_or_dash(row.rd), origins.of_rd(text_or_empty(row.rd))));
  print_line(out, "  vni", with_origin(vni_text(origins), origins.of_vni()));
  print_line(out, "  state",
             fmt::format("{}, administratively {}", vrf_status_name(row.operStatus),
                         vrf_status_name(row.adminStatus)));
  print_line(out, "  created", time_line(row.creationTime));
  print_line(out, "  last changed", time_line(row.confLastChanged));
  print_line(out, "  routes",
             fmt::format("{} now, {} added, {} deleted, {} dropped", route_count(row, vrf.are_routes_counted),
                         row.routesAdded, row.routesDeleted, row.routesDropped));
  print_thresholds(out, vrf.thresholds, origins);
  print_line(out, "  illegal labels", std::to_string(row.illegalLabelViolations));
}

}  // namespace

std::string route_count(const mpls_vpn_mib_vrf& row, bool are_routes_counted) {
  return are_routes_counted ? std::to_string(row.currNumRoutes) : "unknown";
}

Json vrf_row_json(const mpls_vpn_mib_vrf& row, bool are_routes_counted) {
  return {{"name", text_or_empty(row.name)},
          {"description", text_or_empty(row.description)},
          {"rd", text_or_empty(row.rd)},
          {"creationTime", row.creationTime},
          {"creationTimeText", local_time_text(row.creationTime)},
          {"operStatus", row.operStatus},
          {"operStatusName", vrf_status_name(row.operStatus)},
          {"activeInterfaces", row.activeInterfaces},
          {"associatedInterfaces", row.associatedInterfaces},
          {"midThresh", row.midThresh},
          {"highThresh", row.highThresh},
          {"confLastChanged", row.confLastChanged},
          {"confLastChangedText", local_time_text(row.confLastChanged)},
          {"rowStatus", row.rowStatus},
          {"rowStatusName", row_status_name(row.rowStatus)},
          {"adminStatus", row.adminStatus},
          {"adminStatusName", vrf_status_name(row.adminStatus)},
          {"storageType", row.storageType},
          {"storageTypeName", storage_type_name(row.storageType)},
          {"illegalLabelViolations", row.illegalLabelViolations},
          {"discontinuityTime", row.discontinuityTime},
          {"routesAdded", row.routesAdded},
          {"routesDeleted", row.routesDeleted},
          {"currNumRoutes", are_routes_counted ? Json(row.currNumRoutes) : Json()},
          {"routesDropped", row.routesDropped},
          {"discTime", row.discTime}};
}

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown) {
  std::vector<std::string> names;
  for (const mpls_vpn_interfaces& interface : elements<mpls_vpn_interfaces>(shown.Interfaces)) {
    names.push_back(text_or_empty(interface.InterfaceName));
  }
  return names;
}

Json vrf_json(const VrfDetail& vrf, const VrfRequest& request) {
  Json json = vrf_row_json(vrf.row, vrf.are_routes_counted);
  json["descriptionOrigin"] = text_or_null(vrf.origins.of_description());
  json["rdOrigin"] = text_or_null(vrf.origins.of_rd(text_or_empty(vrf.row.rd)));
  json["vni"] = vrf.origins.vni() ? Json(*vrf.origins.vni()) : Json();
  json["vniOrigin"] = text_or_null(vrf.origins.of_vni());
  json["routeThresholds"] = thresholds_json(vrf.thresholds, vrf.origins);
  json["isBigVrf"] = vrf.shown.isBigVrf != 0;
  json["interfaces"] = interface_names(vrf.shown);
  json["addressFamilies"] = tables_json(vrf, request);
  return json;
}

void print_vrf(std::ostream& out, const VrfDetail& vrf, const VrfRequest& request) {
  const mpls_vpn_mib_vrf& row = vrf.row;
  const mpls_vpn_vrf& shown = vrf.shown;
  fmt::print(out, "VRF {}\n", printable_or_dash(row.name));
  print_row(out, vrf);
  print_line(out, "  big", shown.isBigVrf != 0 ? "yes" : "no");
  std::vector<std::string> names = interface_names(shown);
  for (std::string& name : names) name = printable(name);
  print_line(out, "  interface counts",
             fmt::format("{}, {} active", row.associatedInterfaces, row.activeInterfaces));
  print_words(out, "  interfaces", names);
  for (const mpls_vpn_afi_safi& table : wanted_tables(vrf, request)) print_table(out, table, vrf.origins);
}

}  // namespace cli
