// "show routes": the routes of a VRF, printed as their batches come, or those of one prefix.
//
// A row names its interface by ifIndex. The names of the VRF's own interfaces are read once, before; a route
// that leaves by an interface of another VRF shows the number.
#include <fmt/format.h>

#include <map>
#include <optional>

#include "cli/commands.h"
#include "cli/output/names.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "cli/show/route_lookup.h"

namespace cli {

namespace {

using InterfaceNames = std::map<std::int32_t, std::string>;

InterfaceNames read_interface_names(const Session& session, kvtree::Client& client, const std::string& vrf) {
  InterfaceNames names;
  const auto keep = [&](const mpls_vpn_mib_interface& row) {
    if (vrf != text_or_empty(row.vrfName)) return false;
    names[row.ifConfIndex] = text_or_empty(row.name);
    return true;
  };
  RowWalk<mpls_vpn_mib_interface>(session, client, kInterfaceTable, {keep}).run(first_interface_path(vrf));
  return names;
}

std::string interface_name(const InterfaceNames& names, std::int32_t index) {
  const auto name = names.find(index);
  return name == names.end() ? std::string() : name->second;
}

std::string interface_text(const InterfaceNames& names, std::int32_t index) {
  std::string name = interface_name(names, index);
  if (!name.empty()) return name;
  return index == 0 ? std::string("-") : fmt::format("#{}", index);
}

std::string prefix_text(const mpls_vpn_mib_route& row) {
  return fmt::format("{}/{}", address_text(octets_of(row.dest)), row.mask);
}

std::string next_hop_text(const mpls_vpn_mib_route& row) {
  const std::string digits = hexadecimal(octets_of(row.nextHop));
  const bool is_none = digits.find_first_not_of('0') == std::string::npos;
  return is_none ? "-" : address_text(octets_of(row.nextHop));
}

// RFC 4292 writes -1 for a metric that is not used.
std::string metric_text(std::int32_t metric) {
  return metric == -1 ? "-" : std::to_string(metric);
}

// A single 0 says that no cross-connect forwards the route (RFC 4382, mplsL3VpnVrfRteXCPointer).
std::string cross_connect(const mpls_vpn_mib_route& row) {
  const auto* octets = static_cast<const std::uint8_t*>(row.xcPointer.elements);
  const std::string digits = hexadecimal({octets, static_cast<std::size_t>(row.xcPointer.count)});
  return digits == "00" ? std::string() : digits;
}

Json destination_json(const mpls_vpn_mib_route& row) {
  return {{"vrfName", text_or_empty(row.vrfName)},
          {"prefix", prefix_text(row)},
          {"destType", row.destType},
          {"destTypeName", address_type_name(row.destType)},
          {"dest", address_text(octets_of(row.dest))},
          {"mask", row.mask},
          {"nextHopType", row.nextHopType},
          {"nextHopTypeName", address_type_name(row.nextHopType)},
          {"nextHop", address_text(octets_of(row.nextHop))}};
}

Json row_json(const mpls_vpn_mib_route& row, const InterfaceNames& names) {
  Json json = destination_json(row);
  json.update({{"ifIndex", row.ifIndex},
               {"interfaceName", interface_name(names, row.ifIndex)},
               {"type", row.type},
               {"typeName", route_type_name(row.type)},
               {"proto", row.proto},
               {"protoName", route_protocol_name(row.proto)},
               {"age", row.age},
               {"nextHopAS", row.nextHopAS},
               {"metric1", row.metric1},
               {"metric2", row.metric2},
               {"metric3", row.metric3},
               {"metric4", row.metric4},
               {"metric5", row.metric5},
               {"xcPointer", cross_connect(row)},
               {"rowStatus", row.rowStatus},
               {"rowStatusName", row_status_name(row.rowStatus)}});
  return json;
}

std::vector<std::string> row_cells(const mpls_vpn_mib_route& row, const InterfaceNames& names) {
  const std::string labels = cross_connect(row);
  return {prefix_text(row),
          next_hop_text(row),
          interface_text(names, row.ifIndex),
          route_protocol_name(row.proto),
          route_type_name(row.type),
          metric_text(row.metric1),
          duration_text(row.age),
          labels.empty() ? "-" : labels};
}

// One request, with what its printing needs.
struct Lookup {
  const Session& session;
  kvtree::Client& client;
  const RoutesRequest& request;
  std::optional<Prefix> prefix;
  InterfaceNames names;
};

void show(const Lookup& lookup, const RouteSink& sink) {
  const std::string& vrf = lookup.request.vrf;
  if (!lookup.prefix) return walk_routes(lookup.session, lookup.client, vrf, sink);
  if (find_routes(lookup.session, lookup.client, vrf, *lookup.prefix, sink)) return;
  throw Failure(kExitFailed,
                fmt::format("VRF {} has no route {} {}", printable(vrf),
                            lookup.prefix->is_address ? "to" : "for", printable(lookup.request.prefix)));
}

void show_as_json(const Lookup& lookup) {
  JsonList list(lookup.session.out);
  const auto add = [&](const mpls_vpn_mib_route& row) {
    list.add(row_json(row, lookup.names));
    return true;
  };
  show(lookup, {add});
  list.end();
}

void show_as_table(const Lookup& lookup) {
  Table table(lookup.session.out, {{"PREFIX"},
                                   {"NEXT HOP"},
                                   {"INTERFACE"},
                                   {"PROTOCOL"},
                                   {"TYPE"},
                                   {"METRIC", true},
                                   {"AGE", true},
                                   {"CROSS-CONNECT"}});
  const auto add = [&](const mpls_vpn_mib_route& row) {
    table.add(row_cells(row, lookup.names));
    return true;
  };
  show(lookup, {add, [&table] { table.flush(); }});
}

}  // namespace

void show_routes(const Session& session, const RoutesRequest& request) {
  std::optional<Prefix> prefix;
  if (!request.prefix.empty()) prefix = parse_prefix(request.prefix);  // wrong words come first
  const auto client = connect_to_daemon(session);
  require_vrf(session, *client, request.vrf);
  const Lookup lookup = {session, *client, request, prefix,
                         read_interface_names(session, *client, request.vrf)};
  session.json ? show_as_json(lookup) : show_as_table(lookup);
}

}  // namespace cli
