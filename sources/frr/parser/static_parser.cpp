// Static routes of VRFs: "ip route PREFIX [NEXTHOP] [INTERFACE | blackhole | reject | Null0] ITEM...".
//
// An address, an interface or both follow the prefix, then items in any order: a word, some with a value, or
// the distance, which is a number. A route that discards packets (blackhole, reject, Null0) has neither next
// hop nor interface. The interface of a route through another VRF ("nexthop-vrf") is left out, because it is
// not one of this VRF.
#include <algorithm>
#include <array>

#include "sources/frr/parser/parser.h"

namespace frr {

namespace {

constexpr std::array<std::string_view, 3> kDropped{"blackhole", "reject", "Null0"};
constexpr std::array<std::string_view, 8> kItems{"tag",    "label", "nexthop-vrf", "table",
                                                 "onlink", "color", "segments",    "bfd"};

bool is_one_of(std::span<const std::string_view> list, std::string_view word) {
  return std::ranges::find(list, word) != list.end();
}

bool is_address(std::string_view word) {
  router::Address address;
  return word.find('/') == std::string_view::npos && router::parse_address(word, &address);
}

// An interface's name may be a number, but the suite writes the interface first, so a number after a next hop
// is the distance.
bool is_item(std::string_view word) {
  std::uint32_t distance = 0;
  return is_one_of(kItems, word) || is_one_of(kDropped, word) || parse_number(word, 255, &distance);
}

// Where the next hop starts: an IPv6 route may be limited to packets of a source ("from PREFIX").
std::size_t first_of_next_hop(const Words& words) {
  return words.size() > 4 && words[3] == "from" ? 5 : 3;
}

void take_next_hop(const Words& words, vrf_config::StaticRoute* route) {
  std::size_t at = first_of_next_hop(words);
  if (at < words.size() && is_address(words[at])) {
    route->next_hop = words[at++];
    if (at == words.size() || is_item(words[at])) return;
  } else if (at == words.size() || is_one_of(kDropped, words[at])) {
    return;
  }
  if (!is_one_of(words, "nexthop-vrf")) route->interface = words[at];
}

}  // namespace

void take_static_route(Parser& parser, const Words& words) {
  vrf_config::StaticRoute route;
  router::Address prefix;
  const bool ipv4 = words[0] == "ip";
  const router::Family wanted = ipv4 ? router::Family::kIpv4 : router::Family::kIpv6;
  if (words.size() < 4 || !parse_network(words[2], wanted, &prefix)) {
    return parser.error("invalid static route: '" + std::string(parser.line_text) + "'");
  }
  route.family = ipv4 ? vrf_config::Family::kIpv4 : vrf_config::Family::kIpv6;
  route.prefix = words[2];
  take_next_hop(words, &route);
  if (!route.interface.empty() && !router::valid_interface_name(route.interface)) {
    return parser.error("invalid interface name");
  }
  parser.config.statics.push_back({parser.vrf, std::move(route)});
}

}  // namespace frr
