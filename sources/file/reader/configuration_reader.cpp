// The keys follow the words of the command line ("rt import", "threshold"), as maps and lists. `both` and a
// route target without a family make several nodes, every other item makes one.
#include "sources/file/reader/configuration_reader.h"

#include <algorithm>
#include <string_view>

#include "platform/config/target_fault.h"

namespace router_file {

namespace {

using vrf_config::Direction;
using vrf_config::Family;
using vrf_config::Fields;
using vrf_config::Kind;
using vrf_config::Target;

constexpr Family kFamilies[] = {Family::kIpv4, Family::kIpv6};
const std::vector<std::string_view> kFamilyWords = {"ipv4", "ipv6"};
const std::vector<std::string_view> kDirectionWords = {"import", "export"};

Family family_of(const router::Address& address) {
  return address.family == router::Family::kIpv4 ? Family::kIpv4 : Family::kIpv6;
}

std::string read_interface_name(const Node& value) {
  std::string name = read_line(value, "an interface's name", router::kInterfaceNameMax);
  if (!router::valid_interface_name(name)) refuse(value.mark(), quoted(name) + " is not an interface name");
  return name;
}

std::uint32_t read_as_number(const Node& value) {
  return read_number(value, "an AS number", 1, UINT32_MAX);
}

// --- Route targets

Target read_target(const Node& value) {
  const std::string text = read_text(value, "a route target");
  const std::optional<Target> target = vrf_config::parse_target(text);
  if (!target)
    refuse(value.mark(), vrf_config::target_fault(text, "a route target such as 65000:100 or 192.0.2.1:100"));
  return *target;
}

void add_target(const Node& value, Direction direction, std::optional<Family> family,
                ConfiguredItems* items) {
  const Kind kind = direction == Direction::kImport ? Kind::kImportTarget : Kind::kExportTarget;
  const Target target = read_target(value);
  for (const Family each : kFamilies) {
    if (family && *family != each) continue;
    items->push_back({value.mark(),
                      kind,
                      {.family = each, .target = target},
                      family ? std::nullopt : std::optional(each)});
  }
}

// `place`: import, export or both.
void read_targets(const Node& value, std::size_t place, std::optional<Family> family,
                  ConfiguredItems* items) {
  read_sequence(value, "route targets", [&](const Node& item) {
    if (place != 1) add_target(item, Direction::kImport, family, items);
    if (place != 0) add_target(item, Direction::kExport, family, items);
  });
}

// --- BGP neighbors

struct Neighbor {
  std::string name;
  std::vector<Family> families;
  Mark mark;
};

// Interface names may contain dots and slashes, too.
bool is_neighbor(const std::string& text) {
  router::Address address;
  if (router::parse_address(text, &address)) return text.find('/') == std::string::npos;
  const bool like_an_address =
      text.find(':') != std::string::npos || text.find_first_not_of("0123456789.") == std::string::npos;
  return !like_an_address && router::valid_interface_name(text);
}

void read_neighbor_name(const Node& value, Neighbor* neighbor) {
  neighbor->name = read_line(value, "a neighbor", router::kInterfaceNameMax);
  neighbor->mark = value.mark();
  if (!is_neighbor(neighbor->name)) {
    refuse(value.mark(), quoted(neighbor->name) + " is neither an address nor the name of a neighbor");
  }
}

constexpr Key<Neighbor> kNeighborKeys[] = {
    {"neighbor", read_neighbor_name},
    {"families",
     [](const Node& value, Neighbor* neighbor) {
       read_sequence(value, "families", [&](const Node& item) {
         neighbor->families.push_back(kFamilies[read_choice(item, "a family", kFamilyWords)]);
       });
       if (neighbor->families.empty()) refuse(value.mark(), "a neighbor has one family at least");
     }},
};

Neighbor read_neighbor(const Node& item) {
  Neighbor neighbor;
  if (item.is_scalar()) {
    read_neighbor_name(item, &neighbor);
  } else {
    read_map(item, "a neighbor", kNeighborKeys, &neighbor);
  }
  if (neighbor.name.empty()) refuse(item.mark(), "a neighbor needs its address or name as neighbor");
  router::Address address;
  if (neighbor.families.empty()) {
    const bool is_address = router::parse_address(neighbor.name, &address);
    neighbor.families.push_back(is_address ? family_of(address) : Family::kIpv4);
  }
  return neighbor;
}

struct Bgp {
  std::uint32_t as_number = 0;
  std::vector<Neighbor> neighbors;
};

constexpr Key<Bgp> kBgpKeys[] = {
    {"as", [](const Node& value, Bgp* bgp) { bgp->as_number = read_as_number(value); }},
    {"neighbors",
     [](const Node& value, Bgp* bgp) {
       read_sequence(value, "neighbors",
                     [&](const Node& item) { bgp->neighbors.push_back(read_neighbor(item)); });
     }},
};

// --- OSPF, RIP, EIGRP

// An instance of a protocol with the interfaces that it runs on.
struct Instance {
  Fields fields{};
  bool has_area = false;
  std::vector<std::pair<Mark, std::string>> interfaces{};
};

void read_instance_interfaces(const Node& value, Instance* instance) {
  read_sequence(value, "interfaces", [&](const Node& item) {
    instance->interfaces.emplace_back(item.mark(), read_interface_name(item));
  });
}

void read_area(const Node& value, Instance* instance) {
  const std::string text = read_text(value, "an area");
  const std::optional<std::uint32_t> area = vrf_config::parse_area(text);
  if (!area) refuse(value.mark(), quoted(text) + " is not an area such as 0 or 0.0.0.10");
  instance->fields.area = *area;
  instance->has_area = true;
}

void read_process(const Node& value, Instance* instance) {
  instance->fields.process = read_line(value, "an OSPF process", kProcessNameMax);
}

void read_instance_as(const Node& value, Instance* instance) {
  instance->fields.as_number = read_as_number(value);
}

constexpr Key<Instance> kOspfKeys[] = {
    {"process", read_process}, {"area", read_area}, {"interfaces", read_instance_interfaces}};
constexpr Key<Instance> kRipKeys[] = {{"interfaces", read_instance_interfaces}};
constexpr Key<Instance> kEigrpKeys[] = {{"as", read_instance_as}, {"interfaces", read_instance_interfaces}};

void add_interfaces(Kind kind, Instance instance, ConfiguredItems* items) {
  for (auto& [mark, interface] : instance.interfaces) {
    instance.fields.interface = std::move(interface);
    items->push_back({mark, kind, instance.fields});
  }
}

// --- Static routes

struct StaticEntry {
  Fields fields{};
  router::Address prefix{};
  std::optional<router::Address> next_hop{};
  Mark next_hop_mark;
};

constexpr Key<StaticEntry> kStaticKeys[] = {
    {"prefix",
     [](const Node& value, StaticEntry* entry) {
       entry->fields.prefix = read_text(value, "a prefix");
       const bool has_length = entry->fields.prefix.find('/') != std::string::npos;
       if (!has_length || !router::parse_address(entry->fields.prefix, &entry->prefix)) {
         refuse(value.mark(),
                quoted(entry->fields.prefix) + " is not a prefix such as 10.1.0.0/16 or 2001:db8::/32");
       }
       entry->fields.family = family_of(entry->prefix);
     }},
    {"interface",
     [](const Node& value, StaticEntry* entry) { entry->fields.interface = read_interface_name(value); }},
    {"next_hop",
     [](const Node& value, StaticEntry* entry) {
       entry->fields.next_hop = read_text(value, "a next hop");
       entry->next_hop_mark = value.mark();
       const bool plain = entry->fields.next_hop.find('/') == std::string::npos;
       if (!plain || !router::parse_address(entry->fields.next_hop, &entry->next_hop.emplace())) {
         refuse(value.mark(), quoted(entry->fields.next_hop) + " is not an address");
       }
     }},
};

void read_static_route(const Node& item, ConfiguredItems* items) {
  StaticEntry entry;
  read_map(item, "a static route", kStaticKeys, &entry);
  if (entry.fields.prefix.empty()) refuse(item.mark(), "a static route needs a prefix");
  if (entry.fields.interface.empty() && !entry.next_hop) {
    refuse(item.mark(), "a static route needs an interface or a next hop");
  }
  if (entry.next_hop && entry.next_hop->family != entry.prefix.family) {
    refuse(entry.next_hop_mark, "the next hop is not of the family of " + entry.fields.prefix);
  }
  items->push_back({item.mark(), Kind::kStatic, entry.fields});
}

// --- Thresholds

constexpr Key<Fields> kThresholdKeys[] = {
    {"maximum",
     [](const Node& value, Fields* threshold) {
       threshold->number = read_number(value, "a maximum of routes", 1, UINT32_MAX);
     }},
    {"mid", [](const Node& value,
               Fields* threshold) { threshold->mid = read_number(value, "a mid threshold", 1, UINT32_MAX); }},
};

}  // namespace

void read_route_targets(const Node& value, ConfiguredItems* items) {
  const std::vector<std::string_view> lists = {"import", "export", "both"};
  std::vector<std::string_view> keys = lists;
  keys.insert(keys.end(), kFamilyWords.begin(), kFamilyWords.end());
  read_keys(value, "route_targets", keys, [&](std::size_t place, const Node& below) {
    if (place < lists.size()) return read_targets(below, place, std::nullopt, items);
    const Family family = kFamilies[place - lists.size()];
    read_keys(below, kFamilyWords[place - lists.size()], lists,
              [&](std::size_t list, const Node& each) { read_targets(each, list, family, items); });
  });
}

void read_policies(const Node& value, ConfiguredItems* items) {
  read_keys(value, "policies", kDirectionWords, [&](std::size_t place, const Node& below) {
    const Kind kind = place == 0 ? Kind::kImportPolicy : Kind::kExportPolicy;
    read_keys(below, kDirectionWords[place], kFamilyWords, [&](std::size_t family, const Node& each) {
      const std::string policy = read_line(each, "a route policy", kPolicyNameMax);
      if (policy.empty()) refuse(each.mark(), "a route policy has a name");
      items->push_back({each.mark(), kind, {.family = kFamilies[family], .text = policy}});
    });
  });
}

void read_thresholds(const Node& value, ConfiguredItems* items) {
  read_keys(value, "thresholds", kFamilyWords, [&](std::size_t family, const Node& below) {
    Fields threshold{.family = kFamilies[family]};
    read_map(below, "a threshold", kThresholdKeys, &threshold);
    if (threshold.number == 0) refuse(below.mark(), "a threshold needs a maximum");
    if (threshold.mid > threshold.number) refuse(below.mark(), "the mid threshold is more than the maximum");
    items->push_back({below.mark(), Kind::kThreshold, threshold});
  });
}

void read_bgp(const Node& value, ConfiguredItems* items) {
  Bgp bgp;
  read_map(value, "bgp", kBgpKeys, &bgp);
  if (bgp.as_number == 0) refuse(value.mark(), "bgp needs its AS number as as");
  for (const Neighbor& neighbor : bgp.neighbors) {
    for (const Family family : neighbor.families) {
      items->push_back({neighbor.mark,
                        Kind::kBgp,
                        {.family = family, .as_number = bgp.as_number, .neighbor = neighbor.name}});
    }
  }
}

void read_ospf(const Node& value, ConfiguredItems* items) {
  read_sequence(value, "OSPF areas", [&](const Node& item) {
    Instance ospf;
    read_map(item, "an OSPF area", kOspfKeys, &ospf);
    if (ospf.fields.process.empty() || !ospf.has_area)
      refuse(item.mark(), "an OSPF area needs a process and an area");
    add_interfaces(Kind::kOspf, std::move(ospf), items);
  });
}

void read_rip(const Node& value, ConfiguredItems* items) {
  Instance rip;
  read_map(value, "rip", kRipKeys, &rip);
  add_interfaces(Kind::kRip, std::move(rip), items);
}

void read_eigrp(const Node& value, ConfiguredItems* items) {
  read_sequence(value, "EIGRP instances", [&](const Node& item) {
    Instance eigrp;
    read_map(item, "an EIGRP instance", kEigrpKeys, &eigrp);
    if (eigrp.fields.as_number == 0) refuse(item.mark(), "an EIGRP instance needs its AS number as as");
    add_interfaces(Kind::kEigrp, std::move(eigrp), items);
  });
}

void read_static_routes(const Node& value, ConfiguredItems* items) {
  read_sequence(value, "static routes", [&](const Node& item) { read_static_route(item, items); });
}

void read_as_format(const Node& value, std::vector<KvConfigNode>* nodes) {
  const auto& formats = vrf_config::kAsFormats;
  const std::size_t place = read_choice(value, "a format of AS numbers", {formats.begin(), formats.end()});
  nodes->push_back(vrf_config::as_format(formats.at(place)));
}

// A switch is on while its item exists, with any value.
void read_traps(const Node& value, std::vector<KvConfigNode>* nodes) {
  std::vector<std::string_view> keys(vrf_config::kTrapItems.begin(), vrf_config::kTrapItems.end());
  keys.push_back(vrf_config::kTrapAll);
  keys.push_back(vrf_config::kTrapReissueTime);
  read_keys(value, "traps", keys, [&](std::size_t place, const Node& each) {
    const std::string_view item = keys[place];
    if (item == vrf_config::kTrapReissueTime) {
      const auto most = static_cast<std::uint32_t>(vrf_config::kLongestReissue);
      nodes->push_back(vrf_config::trap_switch(item, read_number(each, "the reissue time", 0, most)));
    } else if (read_switch(each, item)) {
      nodes->push_back(vrf_config::trap_switch(item, 1));
    }
  });
}

void ConfigurationCollector::add(const router::Vrf& vrf, bool only_named, const ConfiguredItems& items) {
  for (const ConfiguredItem& item : items) {
    const std::uint32_t table = item.with_table_of == Family::kIpv6 ? vrf.ipv6_table : vrf.ipv4_table;
    const bool counts = !item.with_table_of || only_named || table != 0;
    if (counts) add_node(item, vrf.name);
  }
}

void ConfigurationCollector::add_node(ConfiguredItem item, const std::string& vrf) {
  item.fields.vrf = vrf;
  KvConfigNode node = vrf_config::node_of(item.kind, item.fields);
  const auto [former, is_new] = lines_.try_emplace(node.path, item.mark.line);
  if (!is_new) refuse(item.mark, "this is written already, in line " + std::to_string(former->second));
  nodes_.push_back(std::move(node));
}

}  // namespace router_file
