// The commands "add-route" and "delete-route" of the action "router". The store decides which routes
// are valid; what is left out has the same defaults as in a router file.
#include <optional>

#include "sources/file/commands/router_commands.h"
#include "sources/file/commands/router_words.h"
#include "sources/file/reader/route_reader.h"
#include "sources/file/reader/router_file.h"

namespace {

using router::RouteType;
using router_words::Option;
using router_words::parse_number;
using router_words::quoted;
using router_words::refuse;

struct Path {
  router::Address prefix;
  std::optional<router::Address> next_hop;
  std::string interface;
  std::optional<RouteType> type;
  std::optional<router::RouteProtocol> protocol;
  std::int32_t metric = router::kMetricUnused;
  std::vector<std::uint32_t> labels;
};

bool read_next_hop(const std::string& value, Path* path) {
  router::Address address;
  if (value.find('/') != std::string::npos || !router::parse_address(value, &address)) return false;
  if (address.family != path->prefix.family || address.octets == router::RouteAddress{}) return false;
  path->next_hop = address;
  return true;
}

constexpr Option<Path> kOptions[] = {
    {"via", true, read_next_hop},
    {"interface", true, router_words::take_text<Path, &Path::interface, router::valid_interface_name>},
    {"type", true,
     [](const std::string& value, Path* path) {
       return router_file::route_type_of(value, &path->type.emplace());
     }},
    {"protocol", true,
     [](const std::string& value, Path* path) {
       return router_file::route_protocol_of(value, &path->protocol.emplace());
     }},
    {"metric", true,
     [](const std::string& value, Path* path) {
       std::uint32_t metric = 0;
       if (!parse_number(value, 0, INT32_MAX, &metric)) return false;
       path->metric = static_cast<std::int32_t>(metric);
       return true;
     }},
    {"label", true,
     [](const std::string& value, Path* path) {
       return parse_number(value, 0, router::kLabelMax, &path->labels.emplace_back());
     }},
};

// The VRF's table for the prefix and the words after it; 0, or a status with the reason in the answer.
Status read_path(const RouterCommandContext& context, router::RouteTableId* table, Path* path) {
  const std::string& name = context.arguments[0];
  const std::string& prefix = context.arguments[1];
  const router::Vrf* vrf = context.model->find_vrf(name);
  if (vrf == nullptr) {
    *context.text = "VRF " + name + " does not exist";
    return kStatusNoSuchRow;
  }
  if (prefix.find('/') == std::string::npos || !router::parse_address(prefix, &path->prefix)) {
    return refuse(context, quoted(prefix) + " is not a prefix");
  }
  const router::Address& typed = path->prefix;
  if (inet::has_host_bits(typed.octets, typed.prefix_length))
    return refuse(context,
                  inet::host_bits_error(prefix, {{typed.family, typed.octets}, typed.prefix_length}));
  const bool is_ipv4 = path->prefix.family == router::Family::kIpv4;
  *table = {path->prefix.family, is_ipv4 ? vrf->ipv4_table : vrf->ipv6_table};
  return router_words::apply_options(context, 2, kOptions, path);
}

router::RouteKey key_of(const Path& path) {
  router::RouteKey key;
  key.destination = path.prefix.octets;
  key.prefix_length = path.prefix.prefix_length;
  if (path.next_hop) key.next_hop = path.next_hop->octets;
  return key;
}

router::Route route_of(const Path& path, std::uint32_t interface_index) {
  router::Route route;
  route.key = key_of(path);
  route.interface_index = interface_index;
  route.type = path.type.value_or(path.next_hop ? RouteType::kRemote : RouteType::kLocal);
  const bool is_local = route.type == RouteType::kLocal;
  route.protocol =
      path.protocol.value_or(is_local ? router::RouteProtocol::kLocal : router::RouteProtocol::kNetmgmt);
  route.metrics[0] = path.metric;
  route.labels = path.labels;
  return route;
}

std::string text_of(const RouterCommandContext& context, const Path& path) {
  std::string text = "route " + context.arguments[1];
  if (path.next_hop) {
    const std::string hop = router::format_address(*path.next_hop);
    text += " via " + hop.substr(0, hop.find('/'));
  }
  return text;
}

Status add(const RouterCommandContext& context, router::RouteTableId table, const Path& path) {
  const router::Interface* interface = nullptr;
  if (!path.interface.empty()) {
    interface = context.model->find_interface_by_name(path.interface);
    if (interface == nullptr) return refuse(context, "there is no interface " + quoted(path.interface));
  }
  if (!path.next_hop && interface == nullptr && !path.type) {
    return refuse(context, "a route needs a next hop (via), an interface or a type");
  }
  const Status status =
      context.model->routes().put(table, route_of(path, interface == nullptr ? 0 : interface->index));
  return router_words::report(context, status, text_of(context, path) + " is in VRF " + context.arguments[0]);
}

}  // namespace

Status router_add_route(const RouterCommandContext& context) {
  router::RouteTableId table{router::Family::kIpv4, 0};
  Path path;
  if (const Status status = read_path(context, &table, &path)) return status;
  const Status status = add(context, table, path);
  context.model->flush_route_changes();
  return status;
}

Status router_delete_route(const RouterCommandContext& context) {
  router::RouteTableId table{router::Family::kIpv4, 0};
  Path path;
  if (const Status status = read_path(context, &table, &path)) return status;
  const Status status = context.model->routes().erase(table, key_of(path));
  context.model->flush_route_changes();
  return router_words::report(context, status,
                              text_of(context, path) + " removed from VRF " + context.arguments[0],
                              "VRF " + context.arguments[0] + " has no " + text_of(context, path));
}
