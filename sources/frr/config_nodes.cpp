// A VRF has a description in the MIB, but not in the suite. There, the VRF's device has one, as an interface
// with the name of the VRF ("interface red / description ..."), which is used.
//
// OSPF is enabled on an interface by a `network` line that contains its address, or by its own `ip ospf
// area`, in both cases only if its VRF has the process. A network contains the addresses under its own mask,
// whatever prefix length the interface has: 10.0.0.1/24 is in 10.0.0.0/30, and in 10.0.0.1/32. If several
// networks contain an address, the most specific one sets the area. The protocols differ in the addresses
// that they compare (NetworkRule).
#include "sources/frr/config_nodes.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace frr {

namespace {

using vrf_config::Direction;
using vrf_config::Family;
using vrf_config::Kind;

constexpr std::array<Family, 2> kFamilies{Family::kIpv4, Family::kIpv6};
constexpr std::string_view kOspf6Process = "ospf6";  // the name of OSPFv3 where OSPF has a number
constexpr std::string_view kOspf6Program = "ospf6d";

// Of two nodes with the same path, keeps the later one.
Nodes sorted(Nodes nodes) {
  std::ranges::stable_sort(nodes, {}, &KvConfigNode::path);
  Nodes once;
  once.reserve(nodes.size());
  for (KvConfigNode& node : nodes) {
    if (!once.empty() && once.back().path == node.path) once.pop_back();
    once.push_back(std::move(node));
  }
  return once;
}

// --- BGP ---

void add_family(const std::string& vrf, Family family, const VpnFamily& config, Nodes* nodes) {
  if (config.rd) nodes->push_back(vrf_config::route_distinguisher(vrf, family, *config.rd));
  const auto add_direction = [&](Direction direction, const auto& targets, const std::string& policy) {
    for (const auto& target : targets) {
      nodes->push_back(vrf_config::route_target(vrf, family, direction, target));
    }
    if (!policy.empty()) nodes->push_back(vrf_config::route_policy(vrf, family, direction, policy));
  };
  add_direction(Direction::kImport, config.imports, config.import_policy);
  add_direction(Direction::kExport, config.exports, config.export_policy);
}

bool is_active(const BgpInstance& instance, const BgpNeighbor& neighbor, std::size_t family) {
  if (neighbor.active[family]) return *neighbor.active[family];
  const auto group = instance.neighbors.find(neighbor.group);
  if (group != instance.neighbors.end() && group->second.active[family]) return *group->second.active[family];
  return instance.default_active[family];
}

void add_neighbors(const BgpInstance& instance, Nodes* nodes) {
  for (const auto& [name, neighbor] : instance.neighbors) {
    if (neighbor.is_group && !neighbor.listens) continue;
    for (std::size_t family = 0; family < kFamilies.size(); ++family) {
      if (!is_active(instance, neighbor, family)) continue;
      nodes->push_back(vrf_config::bgp_neighbor(instance.vrf, instance.as_number, name, kFamilies[family]));
    }
  }
}

// The format in which the suite shows AS numbers becomes the one of the MIB.
void add_as_format(std::string_view notation, Nodes* nodes) {
  if (notation == "plain") nodes->push_back(vrf_config::as_format("asplain"));
  if (notation == "dot") nodes->push_back(vrf_config::as_format("asdot"));
  if (notation == "dot+") nodes->push_back(vrf_config::as_format("asdot+"));
}

Nodes bgp_nodes(const RunningConfig& config, const router::Router&) {
  Nodes nodes;
  add_as_format(config.as_notation, &nodes);
  for (const BgpInstance& instance : config.bgp) {
    for (std::size_t family = 0; family < instance.families.size(); ++family) {
      add_family(instance.vrf, vrf_config::kFamiliesOfTargets[family], instance.families[family], &nodes);
    }
    add_neighbors(instance, &nodes);
  }
  return sorted(std::move(nodes));
}

// --- Descriptions and VNIs ---

Nodes device_nodes(const RunningConfig& config, const router::Router& router) {
  Nodes nodes;
  for (const auto& [name, interface] : config.interfaces) {
    if (interface.description.empty() || name == router::kDefaultVrf || router.find_vrf(name) == nullptr) {
      continue;
    }
    nodes.push_back(vrf_config::description(name, interface.description));
  }
  for (const auto& [vrf, number] : config.vnis) nodes.push_back(vrf_config::vni(vrf, number));
  return sorted(std::move(nodes));
}

// --- OSPF, RIP, EIGRP: by address ---

bool is_within(const router::Address& address, const router::Address& network) {
  return address.family == network.family &&
         inet::share_prefix(address.octets, network.octets, network.prefix_length);
}

// Which of an interface's addresses a protocol compares, as observed with versions 8.4.4 and 10.3.
struct NetworkRule {
  bool by_peer;    // the peer of an address that has one, instead of the address
  bool secondary;  // secondary addresses, too
};

constexpr NetworkRule kOspfRule{true, false};
constexpr NetworkRule kRipRule{false, true};  // RIPng, too: IPv6 has no secondary addresses
constexpr NetworkRule kEigrpRule{false, false};

bool falls_into(const router::Interface& interface, NetworkRule rule, const router::Address& network) {
  if (interface.ipv4_details.empty() || network.family == router::Family::kIpv6) {
    return std::ranges::any_of(interface.addresses,
                               [&](const auto& address) { return is_within(address, network); });
  }
  return std::ranges::any_of(interface.ipv4_details, [&](const router::Ipv4Detail& detail) {
    return (rule.secondary || !detail.secondary) &&
           is_within(rule.by_peer ? detail.peer : detail.address, network);
  });
}

// The most specific of the process's networks that an address of the interface falls into.
const Network* network_of(const IgpProcess& process, const router::Interface& interface, NetworkRule rule) {
  const Network* best = nullptr;
  for (const Network& network : process.networks) {
    if (best != nullptr && best->prefix.prefix_length >= network.prefix.prefix_length) continue;
    if (falls_into(interface, rule, network.prefix)) best = &network;
  }
  return best;
}

using Members = std::map<std::string_view, std::vector<const router::Interface*>>;  // by VRF

Members members_of(const router::Router& router) {
  Members members;
  router.for_each_interface(
      [&members](const router::Interface& interface) { members[interface.vrf].push_back(&interface); });
  return members;
}

template <typename Visit>
void visit_members(const std::vector<IgpProcess>& processes, const router::Router& router,
                   const Visit& visit) {
  if (processes.empty()) return;
  const Members members = members_of(router);
  for (const IgpProcess& process : processes) {
    const auto found = members.find(process.vrf);
    if (found == members.end()) continue;
    for (const router::Interface* interface : found->second) visit(process, *interface);
  }
}

// The areas that the interface configures; if none, the area of its network.
std::set<std::uint32_t> areas_of(const RunningConfig& config, const IgpProcess& process,
                                 const router::Interface& interface) {
  std::set<std::uint32_t> areas;
  const auto own = config.interfaces.find(interface.name);
  if (own != config.interfaces.end()) {
    for (const OspfArea& area : own->second.ospf) {
      if (area.process == process.process) areas.insert(area.area);
    }
  }
  const Network* network = network_of(process, interface, kOspfRule);
  if (areas.empty() && network != nullptr) areas.insert(network->area);
  return areas;
}

Nodes ospf_nodes(const RunningConfig& config, const router::Router& router) {
  Nodes nodes;
  visit_members(config.ospf, router, [&](const IgpProcess& process, const router::Interface& interface) {
    for (const std::uint32_t area : areas_of(config, process, interface)) {
      nodes.push_back(vrf_config::ospf_interface(process.vrf, process.process, area, interface.name));
    }
  });
  return sorted(std::move(nodes));
}

Nodes ospf6_nodes(const RunningConfig& config, const router::Router& router) {
  Nodes nodes;
  visit_members(config.ospf6, router, [&](const IgpProcess& process, const router::Interface& interface) {
    const auto own = config.interfaces.find(interface.name);
    if (own == config.interfaces.end() || !own->second.ospf6_area) return;
    nodes.push_back(
        vrf_config::ospf_interface(process.vrf, kOspf6Process, *own->second.ospf6_area, interface.name));
  });
  return sorted(std::move(nodes));
}

bool is_named(const IgpProcess& process, const router::Interface& interface) {
  return std::ranges::find(process.interfaces, interface.name.view()) != process.interfaces.end();
}

Nodes nodes_of_rip(const std::vector<IgpProcess>& processes, const router::Router& router, Kind kind) {
  Nodes nodes;
  visit_members(processes, router, [&](const IgpProcess& process, const router::Interface& interface) {
    if (!is_named(process, interface) && network_of(process, interface, kRipRule) == nullptr) return;
    nodes.push_back(vrf_config::node_of(kind, {.vrf = process.vrf, .interface = interface.name}));
  });
  return sorted(std::move(nodes));
}

Nodes rip_nodes(const RunningConfig& config, const router::Router& router) {
  return nodes_of_rip(config.rip, router, Kind::kRip);
}

Nodes ripng_nodes(const RunningConfig& config, const router::Router& router) {
  return nodes_of_rip(config.ripng, router, Kind::kRipng);
}

Nodes eigrp_nodes(const RunningConfig& config, const router::Router& router) {
  Nodes nodes;
  visit_members(config.eigrp, router, [&](const IgpProcess& process, const router::Interface& interface) {
    if (network_of(process, interface, kEigrpRule) == nullptr) return;
    const auto as_number = static_cast<std::uint32_t>(std::stoul(process.process));
    nodes.push_back(vrf_config::eigrp_interface(process.vrf, as_number, interface.name));
  });
  return sorted(std::move(nodes));
}

// --- Static routes ---

Nodes static_nodes(const RunningConfig& config, const router::Router&) {
  Nodes nodes;
  for (const VrfStaticRoute& each : config.statics) {
    nodes.push_back(vrf_config::static_route(each.vrf, each.route));
  }
  return sorted(std::move(nodes));
}

// --- The kinds of items that each program prints ---

constexpr std::array kBgpKinds = {
    Kind::kRouteDistinguisher, Kind::kImportTarget, Kind::kExportTarget, Kind::kImportPolicy,
    Kind::kExportPolicy,       Kind::kBgp,          Kind::kAsFormat};
constexpr std::array kDeviceKinds = {Kind::kDescription, Kind::kVni};
constexpr std::array kOspfKinds = {Kind::kOspf};  // of both versions
constexpr std::array kEigrpKinds = {Kind::kEigrp};
constexpr std::array kRipKinds = {Kind::kRip};
constexpr std::array kRipngKinds = {Kind::kRipng};
constexpr std::array kStaticKinds = {Kind::kStatic};
constexpr std::array kManagedKinds = {Kind::kDescription, Kind::kVni, Kind::kRip, Kind::kRipng,
                                      Kind::kStatic};

bool is_ospf6(std::string_view path) {
  static const std::string scope = std::string(vrf_config::kOspfScope).append(kOspf6Process) + "/";
  return path.starts_with(scope);
}

// --- mgmtd ---

constexpr Program kZebra{"zebra", true, device_nodes, kDeviceKinds};
constexpr Program kRipd{"ripd", true, rip_nodes, kRipKinds};
constexpr Program kRipngd{"ripngd", true, ripng_nodes, kRipngKinds};
constexpr Program kStaticd{"staticd", false, static_nodes, kStaticKinds};
constexpr std::array kManaged{kZebra, kRipd, kRipngd, kStaticd};

Nodes managed_nodes(const RunningConfig& config, const router::Router& router) {
  Nodes nodes;
  for (const Program& program : kManaged) {
    Nodes some = program.nodes(config, router);
    nodes.insert(nodes.end(), std::make_move_iterator(some.begin()), std::make_move_iterator(some.end()));
  }
  return sorted(std::move(nodes));
}

// Both versions of OSPF have items of one kind.
bool prints(const Program& program, Kind kind, std::string_view path) {
  if (std::ranges::find(program.kinds, kind) == program.kinds.end()) return false;
  return kind != Kind::kOspf || is_ospf6(path) == (program.name == kOspf6Program);
}

}  // namespace

const std::array<Program, kProgramCount> kPrograms{{
    {"bgpd", false, bgp_nodes, kBgpKinds},
    {"ospfd", true, ospf_nodes, kOspfKinds},
    {kOspf6Program, true, ospf6_nodes, kOspfKinds},
    {"eigrpd", true, eigrp_nodes, kEigrpKinds},
    kZebra,
    kRipd,
    kRipngd,
    kStaticd,
    {kManagementProgram, true, managed_nodes, kManagedKinds},
}};

std::bitset<kProgramCount> programs_of(std::string_view path) {
  std::bitset<kProgramCount> programs;
  const std::optional<Kind> kind = vrf_config::kind_of(path);
  for (std::size_t at = 0; kind && at < kPrograms.size(); ++at)
    programs[at] = prints(kPrograms[at], *kind, path);
  return programs;
}

bool owns(const Program& program, std::string_view path) {
  const std::optional<Kind> kind = vrf_config::kind_of(path);
  return kind && prints(program, *kind, path);
}

}  // namespace frr
