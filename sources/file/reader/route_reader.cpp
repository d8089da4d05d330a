// Reads one entry at a time; route_collector.cpp checks entries against each other.
#include "sources/file/reader/route_reader.h"

#include <algorithm>

namespace router_file {

namespace {

using router::Address;
using router::RouteProtocol;
using router::RouteType;

constexpr std::uint32_t kMetricMax = 0x7fffffff;

// inetCidrRouteType from 1, and IANAipRouteProtocol from 1 with one more word for netmgmt.
const std::vector<std::string_view> kTypes = {"other", "reject", "local", "remote", "blackhole"};
const std::vector<std::string_view> kProtocols = {"other", "local", "netmgmt", "icmp",  "egp",   "ggp",
                                                  "hello", "rip",   "isis",    "esis",  "igrp",  "bbn-spf",
                                                  "ospf",  "bgp",   "idpr",    "eigrp", "dvmrp", "static"};

RouteType type_at(std::size_t position) {
  return static_cast<RouteType>(position + 1);
}

RouteProtocol protocol_at(std::size_t position) {
  const bool is_static = position + 1 == kProtocols.size();
  return is_static ? RouteProtocol::kNetmgmt : static_cast<RouteProtocol>(position + 1);
}

void read_prefix(const Node& value, RouteEntry* entry) {
  const std::string text = read_text(value, "a prefix");
  if (text.find('/') == std::string::npos || !router::parse_address(text, &entry->prefix)) {
    refuse(value.mark(), quoted(text) + " is not a prefix such as 10.1.0.0/16 or 2001:db8::/32");
  }
  const Address& prefix = entry->prefix;
  if (inet::has_host_bits(prefix.octets, prefix.prefix_length)) {
    refuse(value.mark(), inet::host_bits_error(text, {{prefix.family, prefix.octets}, prefix.prefix_length}));
  }
  entry->prefix_mark = value.mark();
  entry->has_prefix = true;
}

void read_next_hop(const Node& value, RouteEntry* entry) {
  const std::string text = read_text(value, "a next hop");
  Address address;
  const bool is_address = text.find('/') == std::string::npos && router::parse_address(text, &address);
  if (!is_address || address.octets == router::RouteAddress{}) {
    refuse(value.mark(), quoted(text) + " is not a next hop such as 192.0.2.1 or 2001:db8::1");
  }
  for (const auto& [other, mark] : entry->next_hops) {
    if (other == address) refuse(value.mark(), "the next hop " + quoted(text) + " is written twice");
  }
  if (entry->next_hops.size() == kNextHopsMax) {
    refuse(value.mark(), "a route has at most " + std::to_string(kNextHopsMax) + " next hops");
  }
  entry->next_hops.emplace_back(address, value.mark());
}

void read_next_hops(const Node& value, RouteEntry* entry) {
  if (!entry->next_hops.empty()) refuse(value.mark(), "a route has next_hop or next_hops, not both");
  read_sequence(value, "next hops", [&](const Node& item) { read_next_hop(item, entry); });
}

std::int32_t read_metric_value(const Node& value) {
  if (value.is_scalar() && value.scalar() == "-1") return router::kMetricUnused;
  return static_cast<std::int32_t>(read_number(value, "a metric", 0, kMetricMax));
}

void read_metrics(const Node& value, RouteEntry* entry) {
  if (entry->has_metrics) refuse(value.mark(), "a route has a metric or metrics, not both");
  entry->has_metrics = true;
  std::size_t at = 0;
  read_sequence(value, "metrics", [&](const Node& item) {
    if (at == entry->metrics.size()) refuse(item.mark(), "a route has at most five metrics");
    entry->metrics[at++] = read_metric_value(item);
  });
}

void read_metric(const Node& value, RouteEntry* entry) {
  if (entry->has_metrics) refuse(value.mark(), "a route has a metric or metrics, not both");
  entry->has_metrics = true;
  entry->metrics[0] = read_metric_value(value);
}

void read_labels(const Node& value, RouteEntry* entry) {
  read_sequence(value, "labels", [&](const Node& item) {
    if (entry->labels.size() == router::kLabelStackMax) {
      refuse(item.mark(), "a route has at most " + std::to_string(router::kLabelStackMax) + " labels");
    }
    entry->labels.push_back(read_number(item, "a label", 0, router::kLabelMax));
  });
}

constexpr Key<RouteEntry> kRouteKeys[] = {
    {"prefix", read_prefix},
    {"next_hop",
     [](const Node& value, RouteEntry* entry) {
       if (!entry->next_hops.empty()) refuse(value.mark(), "a route has next_hop or next_hops, not both");
       read_next_hop(value, entry);
     }},
    {"next_hops", read_next_hops},
    {"interface",
     [](const Node& value, RouteEntry* entry) {
       entry->interface = read_line(value, "an interface's name", router::kInterfaceNameMax);
       entry->interface_mark = value.mark();
     }},
    {"type", [](const Node& value,
                RouteEntry* entry) { entry->type = type_at(read_choice(value, "a route's type", kTypes)); }},
    {"protocol",
     [](const Node& value, RouteEntry* entry) {
       entry->protocol = protocol_at(read_choice(value, "a route's protocol", kProtocols));
     }},
    {"metric", read_metric},
    {"metrics", read_metrics},
    {"next_hop_as",
     [](const Node& value, RouteEntry* entry) {
       entry->next_hop_as = read_number(value, "a next hop's AS", 0, UINT32_MAX);
     }},
    {"labels", read_labels},
    {"generate",
     [](const Node& value, RouteEntry* entry) {
       entry->count = read_number(value, "the number of generated routes", 0, kGeneratedRoutesMax);
       entry->generated = true;
     }},
};

Address default_address(router::Family family, const char* ipv4, const char* ipv6) {
  Address address;
  router::parse_address(family == router::Family::kIpv4 ? ipv4 : ipv6, &address);
  return address;
}

void complete_generator(RouteEntry* entry) {
  if (!entry->has_prefix) entry->prefix = default_address(router::Family::kIpv4, "1.0.0.0/24", "");
  if (entry->next_hops.empty() && entry->interface.empty() && !entry->type) {
    entry->next_hops.emplace_back(default_address(entry->prefix.family, "192.0.2.1", "2001:db8::1"),
                                  entry->mark);
  }
  if (!entry->protocol) entry->protocol = RouteProtocol::kBgp;
}

RouteType default_type(const RouteEntry& entry) {
  if (!entry.next_hops.empty()) return RouteType::kRemote;
  if (entry.interface.empty()) refuse(entry.mark, "a route needs a next_hop, an interface or a type");
  return RouteType::kLocal;
}

void check_entry(const RouteEntry& entry) {
  const bool has_next_hop = !entry.next_hops.empty();
  if (entry.type == RouteType::kLocal && has_next_hop) refuse(entry.mark, "a local route has no next hop");
  if (entry.type == RouteType::kRemote && !has_next_hop)
    refuse(entry.mark, "a remote route needs a next_hop");
  if (!entry.labels.empty() && !has_next_hop) refuse(entry.mark, "labels need a next_hop");
  for (const auto& [next_hop, mark] : entry.next_hops) {
    if (next_hop.family != entry.prefix.family) {
      refuse(mark, "the next hop is not of the family of " + router::format_address(entry.prefix));
    }
  }
}

void complete_entry(RouteEntry* entry) {
  if (entry->generated) complete_generator(entry);
  if (!entry->generated && !entry->has_prefix) refuse(entry->mark, "a route needs a prefix");
  if (!entry->type) entry->type = default_type(*entry);
  if (!entry->protocol) {
    entry->protocol = *entry->type == RouteType::kLocal ? RouteProtocol::kLocal : RouteProtocol::kNetmgmt;
  }
  check_entry(*entry);
}

RouteEntry empty_entry(const Mark& mark) {
  RouteEntry entry;
  entry.metrics.fill(router::kMetricUnused);
  entry.mark = entry.prefix_mark = mark;
  return entry;
}

RouteEntry read_route(const Node& item) {
  RouteEntry entry = empty_entry(item.mark());
  read_map(item, "a route", kRouteKeys, &entry);
  complete_entry(&entry);
  return entry;
}

}  // namespace

bool route_type_of(std::string_view word, RouteType* type) {
  const auto found = std::find(kTypes.begin(), kTypes.end(), word);
  if (found != kTypes.end()) *type = type_at(static_cast<std::size_t>(found - kTypes.begin()));
  return found != kTypes.end();
}

bool route_protocol_of(std::string_view word, RouteProtocol* protocol) {
  const auto found = std::find(kProtocols.begin(), kProtocols.end(), word);
  if (found != kProtocols.end())
    *protocol = protocol_at(static_cast<std::size_t>(found - kProtocols.begin()));
  return found != kProtocols.end();
}

std::string_view route_type_word(RouteType type) {
  return kTypes[static_cast<std::size_t>(type) - 1];
}

std::string route_protocol_word(RouteProtocol protocol) {
  if (protocol == RouteProtocol::kNetmgmt) return "static";
  const auto number = static_cast<std::size_t>(protocol);
  return number >= 1 && number < kProtocols.size() ? std::string(kProtocols[number - 1])
                                                   : std::to_string(number);
}

void read_routes(const Node& value, std::vector<RouteEntry>* routes) {
  if (value.is_map()) {
    routes->push_back(read_route(value));
    if (!routes->back().generated)
      refuse(value.mark(), "routes are written as a list, or as one map with generate");
    return;
  }
  read_sequence(value, "routes", [&](const Node& item) { routes->push_back(read_route(item)); });
}

RouteEntry generated_routes(std::uint32_t count, const Mark& mark) {
  RouteEntry entry = empty_entry(mark);
  entry.count = count;
  entry.generated = true;
  complete_entry(&entry);
  return entry;
}

}  // namespace router_file
