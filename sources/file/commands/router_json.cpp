#include "sources/file/commands/router_json.h"

#include <string>

#include "sources/file/reader/route_reader.h"

namespace {

RouterJson text_or_null(std::string_view text) {
  return text.empty() ? RouterJson() : RouterJson(text);
}

RouterJson number_or_null(std::uint32_t number) {
  return number == 0 ? RouterJson() : RouterJson(number);
}

RouterJson next_hop(router::RouteTableId table, const router::Route& route) {
  if (route.key.next_hop == router::RouteAddress{}) return {};
  const router::Address address{table.family, route.key.prefix_length, route.key.next_hop};
  const std::string text = router::format_address(address);
  return text.substr(0, text.find('/'));
}

}  // namespace

RouterJson vrf_json(const router::Vrf& vrf) {
  return {{"name", vrf.name},
          {"id", vrf.id},
          {"ipv4Table", number_or_null(vrf.ipv4_table)},
          {"ipv6Table", number_or_null(vrf.ipv6_table)},
          {"ipv4MulticastTable", number_or_null(vrf.ipv4_multicast_table)},
          {"ipv6MulticastTable", number_or_null(vrf.ipv6_multicast_table)},
          {"rd", text_or_null(vrf.rd)},
          {"isBig", (vrf.flags & router::kVrfFlagBig) != 0},
          {"description", text_or_null(vrf.description)}};
}

RouterJson interface_json(const router::Router& model, const router::Interface& interface) {
  RouterJson addresses = RouterJson::array();
  for (const router::Address& address : interface.addresses)
    addresses.push_back(router::format_address(address));
  return {{"name", std::string(interface.name)},
          {"index", interface.index},
          {"isUp", bool(interface.up)},
          {"vrf", std::string(interface.vrf)},
          {"hasVrf", model.find_vrf(interface.vrf) != nullptr},
          {"addresses", addresses},
          {"description", text_or_null(interface.description)}};
}

RouterJson route_json(router::RouteTableId table, const router::Route& route, const router::Router& model) {
  const router::Address address{table.family, route.key.prefix_length, route.key.destination};
  const router::Interface* const interface = model.find_interface_by_index(route.interface_index);
  const bool has_metric = route.metrics[0] != router::kMetricUnused;
  return {{"prefix", router::format_address(address)},
          {"nextHop", next_hop(table, route)},
          {"interface", interface == nullptr ? RouterJson() : RouterJson(std::string(interface->name))},
          {"type", router_file::route_type_word(route.type)},
          {"protocol", router_file::route_protocol_word(route.protocol)},
          {"metric", has_metric ? RouterJson(route.metrics[0]) : RouterJson()},
          {"labels", route.labels},
          {"age", router::route_age(route)}};
}
