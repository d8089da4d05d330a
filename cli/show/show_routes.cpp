// "show routes": the routes of a VRF, printed batch by batch, or those of one prefix.
//
// A row names its interface by ifIndex. The names of the VRF's own interfaces are read once, before; a route
// that leaves by an interface of another VRF shows the number.
#include <fmt/format.h>

#include <map>
#include <optional>

#include "cli/commands.h"
#include "cli/output/mib_json.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/show/route_lookup.h"

namespace cli {

namespace {

using InterfaceNames = std::map<std::int32_t, std::string>;

InterfaceNames read_interface_names(const Session& session, kvtree::Client& client, const std::string& vrf) {
  InterfaceNames names;
  const auto add = [&](const mpls_vpn_mib_interface& row) {
    names[row.ifConfIndex] = text_or_empty(row.name);
  };
  walk_rows_of(session, client, kInterfaceTable, vrf, {add});
  return names;
}

// A row with the names of the VRF's interfaces.
struct RouteRow {
  const mpls_vpn_mib_route& row;
  const InterfaceNames& names;
};

std::string interface_name(const RouteRow& route) {
  const auto name = route.names.find(route.row.ifIndex);
  return name == route.names.end() ? std::string() : name->second;
}

std::string interface_text(const RouteRow& route) {
  std::string name = interface_name(route);
  if (!name.empty()) return name;
  return route.row.ifIndex == 0 ? std::string("-") : fmt::format("#{}", route.row.ifIndex);
}

std::string prefix_text(const RouteRow& route) {
  return fmt::format("{}/{}", address_text(octets_of(route.row.dest)), route.row.mask);
}

std::string next_hop_text(const RouteRow& route) {
  const std::string digits = hexadecimal(octets_of(route.row.nextHop));
  const bool is_none = digits.find_first_not_of('0') == std::string::npos;
  return is_none ? "-" : address_text(octets_of(route.row.nextHop));
}

// RFC 4292: -1 for a metric that is not used.
std::string metric_text(const RouteRow& route) {
  return route.row.metric1 == -1 ? "-" : std::to_string(route.row.metric1);
}

std::string route_age_text(const RouteRow& route) {
  return duration_text(route.row.age);
}

std::string cross_connect_text(const RouteRow& route) {
  const std::string index = mpls_index_text(mib::cross_connect(route.row).octets);
  return index.empty() ? "-" : index;
}

using mib::Route;

constexpr Column<RouteRow> kRouteCells[] = {
    {.cell = {"PREFIX"}, .text = prefix_text},
    {.cell = {"NEXT HOP"}, .text = next_hop_text},
    {.cell = {"INTERFACE"}, .text = interface_text},
    {.cell = {"PROTOCOL"}, .text = member_name<&Route::proto, mib::kRouteProtocol>},
    {.cell = {"TYPE"}, .text = member_name<&Route::type, mib::kRouteType>},
    {.cell = number("METRIC"), .text = metric_text},
    {.cell = number("AGE"), .text = route_age_text},
    {.cell = {"CROSS-CONNECT"}, .text = cross_connect_text},
};

constexpr AddedKey<RouteRow> kRouteKeys[] = {
    {"vrfName", "prefix", [](const RouteRow& route) -> Json { return prefix_text(route); }},
    {"ifIndex", "interfaceName", [](const RouteRow& route) -> Json { return interface_name(route); }},
};

Json route_json(const RouteRow& route) {
  return mib_json<RouteRow>(mib::kRouteColumns, route, kRouteKeys);
}

// One request.
struct Lookup {
  const Session& session;
  kvtree::Client& client;
  const RoutesRequest& request;
  std::optional<Prefix> prefix;
  InterfaceNames names;
};

void walk(const Lookup& lookup, const RouteSink& sink) {
  const std::string& vrf = lookup.request.vrf;
  if (!lookup.prefix) return walk_rows_of(lookup.session, lookup.client, kRouteTable, vrf, sink);
  if (find_routes(lookup.session, lookup.client, vrf, *lookup.prefix, sink)) return;
  throw Failure(kExitFailed,
                fmt::format("VRF {} has no route {} {}", printable(vrf),
                            lookup.prefix->is_address ? "to" : "for", printable(lookup.request.prefix)));
}

}  // namespace

void show_routes(const Session& session, const RoutesRequest& request) {
  std::optional<Prefix> prefix;
  if (!request.prefix.empty()) prefix = parse_prefix(request.prefix);  // wrong words are reported first
  const auto client = connect_to_daemon(session);
  require_vrf(session, *client, request.vrf);
  const Lookup lookup = {session, *client, request, prefix,
                         read_interface_names(session, *client, request.vrf)};
  RowWriter<RouteRow> writer(session, kRouteCells, route_json);
  walk(lookup, {[&](const mpls_vpn_mib_route& row) {
                  writer.add({row, lookup.names});
                },
                [&] { writer.flush(); }});
  writer.end();
}

}  // namespace cli
