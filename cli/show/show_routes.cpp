// "show routes": the routes of a VRF, printed batch by batch, or those of one prefix.
//
// A row names its interface by ifIndex. The names of the VRF's own interfaces are read once, before; a route
// that leaves by an interface of another VRF shows the number.
#include <fmt/format.h>

#include <map>
#include <optional>

#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "cli/show/route_lookup.h"

namespace cli {

namespace {

using InterfaceNames = std::map<std::int32_t, std::string>;

InterfaceNames read_interface_names(const Session& session, kvtree::Client& client, const std::string& vrf) {
  InterfaceNames names;
  const auto add = [&](const mpls_vpn_mib_interface& row) {
    if (vrf != text_or_empty(row.vrfName)) return false;
    names[row.ifConfIndex] = text_or_empty(row.name);
    return true;
  };
  RowWalk<mpls_vpn_mib_interface>(session, client, kInterfaceTable, {add}).run(first_interface_path(vrf));
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

// A single 0 means that no cross-connect forwards the route (RFC 4382, mplsL3VpnVrfRteXCPointer).
std::string cross_connect(const RouteRow& route) {
  const ParcelArray& pointer = route.row.xcPointer;
  const auto* octets = static_cast<const std::uint8_t*>(pointer.elements);
  const std::string digits = hexadecimal({octets, static_cast<std::size_t>(pointer.count)});
  return digits == "00" ? std::string() : digits;
}

std::string cross_connect_text(const RouteRow& route) {
  const std::string labels = cross_connect(route);
  return labels.empty() ? "-" : labels;
}

template <ParcelOctets mpls_vpn_mib_route::*kAddress>
Json address_json(const RouteRow& route) {
  return address_text(octets_of(route.row.*kAddress));
}

template <std::string (*kText)(const RouteRow&)>
Json text_json(const RouteRow& route) {
  return kText(route);
}

using RouteRecord = mpls_vpn_mib_route;
using RouteColumns = Columns<RouteRow>;

constexpr Column<RouteRow> kRouteColumns[] = {
    RouteColumns::member<&RouteRecord::vrfName>("vrfName"),
    RouteColumns::value("prefix", text_json<prefix_text>).cell(1, "PREFIX"),
    RouteColumns::named<&RouteRecord::destType, address_type_name>("destType"),
    RouteColumns::value("dest", address_json<&RouteRecord::dest>),
    RouteColumns::member<&RouteRecord::mask>("mask"),
    RouteColumns::named<&RouteRecord::nextHopType, address_type_name>("nextHopType"),
    RouteColumns::value("nextHop", address_json<&RouteRecord::nextHop>).cell(2, "NEXT HOP", next_hop_text),
    RouteColumns::member<&RouteRecord::ifIndex>("ifIndex"),
    RouteColumns::value("interfaceName", text_json<interface_name>).cell(3, "INTERFACE", interface_text),
    RouteColumns::named<&RouteRecord::type, route_type_name>("type").cell(5, "TYPE"),
    RouteColumns::named<&RouteRecord::proto, route_protocol_name>("proto").cell(4, "PROTOCOL"),
    RouteColumns::member<&RouteRecord::age>("age").number(7, "AGE", route_age_text),
    RouteColumns::member<&RouteRecord::nextHopAS>("nextHopAS"),
    RouteColumns::member<&RouteRecord::metric1>("metric1").number(6, "METRIC", metric_text),
    RouteColumns::member<&RouteRecord::metric2>("metric2"),
    RouteColumns::member<&RouteRecord::metric3>("metric3"),
    RouteColumns::member<&RouteRecord::metric4>("metric4"),
    RouteColumns::member<&RouteRecord::metric5>("metric5"),
    RouteColumns::value("xcPointer", text_json<cross_connect>).cell(8, "CROSS-CONNECT", cross_connect_text),
    RouteColumns::named<&RouteRecord::rowStatus, row_status_name>("rowStatus"),
};

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
  if (!lookup.prefix) return walk_routes(lookup.session, lookup.client, vrf, sink);
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
  RowWriter<RouteRow> writer(session, kRouteColumns);
  const auto show = [&](const mpls_vpn_mib_route& row) {
    writer.add({row, lookup.names});
    return true;
  };
  walk(lookup, {show, [&writer] { writer.flush(); }});
  writer.end();
}

}  // namespace cli
