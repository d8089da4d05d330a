// The stanzas of BGP instances in VRFs: what they say of VPNs, and their neighbours with the address families
// that these are active in.
//
// A neighbour is active in an address family when it says so itself, else when its group does, else by the
// instance's default (IPv4 unless "no bgp default ipv4-unicast"). A neighbour that is shut down is configured
// all the same. Labelled unicast and multicast count as their address family; other families (EVPN) have no
// place in a VRF's interfaces.
#include <optional>
#include <utility>

#include "sources/frr/parser.h"

namespace frr {

namespace {

BgpInstance& instance(Parser& parser) {
  return parser.config.bgp.back();
}

VpnFamily& family(Parser& parser) {
  return instance(parser).families[static_cast<std::size_t>(parser.family)];
}

// Null, and a mistake, for a word that is neither an address nor a name.
BgpNeighbour* neighbour(Parser& parser, std::string_view name) {
  if (!router::valid_interface_name(name)) {
    parser.mistake("no neighbour has such a name");
    return nullptr;
  }
  auto& neighbours = instance(parser).neighbours;
  const auto found = neighbours.find(name);
  return found != neighbours.end() ? &found->second : &neighbours[std::string(name)];
}

void take_neighbour(Parser& parser, const Words& words) {
  (void)neighbour(parser, words[1]);
}

void take_group(Parser& parser, const Words& words) {
  if (BgpNeighbour* group = neighbour(parser, words[1])) group->is_group = true;
}

void take_membership(Parser& parser, const Words& words) {
  if (BgpNeighbour* member = neighbour(parser, words[1])) member->group = words.back();
}

void take_ipv4_default(Parser& parser, const Words& words) {
  instance(parser).default_active[0] = words[0] != "no";
}

void take_ipv6_default(Parser& parser, const Words& words) {
  instance(parser).default_active[1] = words[0] != "no";
}

void take_family(Parser& parser, const Words& words) {
  parser.in_family = true;
  parser.family = words[1] == "ipv4" ? 0 : words[1] == "ipv6" ? 1 : -1;
  if (words.size() > 2 && (words[2] == "vpn" || words[2] == "flowspec")) parser.family = -1;
  parser.unicast = words.size() == 2 || words[2] == "unicast";
}

void leave_family(Parser& parser, const Words&) {
  parser.in_family = false;
}

void take_activation(Parser& parser, const Words& words) {
  const bool active = words[0] != "no";
  if (BgpNeighbour* named = neighbour(parser, words[active ? 1 : 2])) {
    named->active[static_cast<std::size_t>(parser.family)] = active;
  }
}

void take_rd(Parser& parser, const Words& words) {
  const auto rd = vrf_config::parse_target(words[3]);
  if (!rd) return parser.mistake("'" + std::string(words[3]) + "' is no route distinguisher");
  family(parser).rd = *rd;
}

// All of the line or none of it: a list with a hole would look like another list.
void take_targets(Parser& parser, const Words& words) {
  std::vector<vrf_config::Target> targets;
  for (std::size_t i = 3; i < words.size(); ++i) {
    const auto target = vrf_config::parse_target(words[i]);
    if (!target) return parser.mistake("'" + std::string(words[i]) + "' is no route target");
    targets.push_back(*target);
  }
  if (words[2] != "export") family(parser).imports = targets;
  if (words[2] != "import") family(parser).exports = targets;
}

void take_policy(Parser& parser, const Words& words) {
  if (words[3].size() > kTextMax) return parser.mistake("the route map's name is too long");
  (words[2] == "import" ? family(parser).import_policy : family(parser).export_policy) = words[3];
}

constexpr LineRule kInstanceLines[] = {
    {"address-family * ...", take_family},
    {"neighbor * peer-group", take_group},
    {"neighbor * peer-group *", take_membership},
    {"neighbor * interface peer-group *", take_membership},
    {"neighbor * interface v6only peer-group *", take_membership},
    {"neighbor * remote-as ...", take_neighbour},
    {"neighbor * interface ...", take_neighbour},
    {"no bgp default ipv4-unicast", take_ipv4_default},
    {"bgp default ipv4-unicast", take_ipv4_default},
    {"bgp default ipv6-unicast", take_ipv6_default},
    {"no bgp default ipv6-unicast", take_ipv6_default},
};

constexpr LineRule kFamilyLines[] = {
    {"neighbor * activate", take_activation},
    {"no neighbor * activate", take_activation},
};

constexpr LineRule kVpnLines[] = {
    {"rd vpn export *", take_rd},
    {"rt vpn import * ...", take_targets},
    {"rt vpn export * ...", take_targets},
    {"rt vpn both * ...", take_targets},
    {"route-target vpn import * ...", take_targets},
    {"route-target vpn export * ...", take_targets},
    {"route-target vpn both * ...", take_targets},
    {"route-map vpn import *", take_policy},
    {"route-map vpn export *", take_policy},
};

constexpr LineRule kFamilyEnd[] = {{"exit-address-family", leave_family}};

}  // namespace

void open_bgp(Parser& parser, const Words& words) {
  if (!is_vpn(parser, words[4])) return;
  const std::optional<std::uint32_t> as_number = vrf_config::parse_as_number(words[2]);
  if (!as_number) {
    return parser.mistake("'" + std::string(words[2]) + "' is no AS number");
  }
  parser.stanza = Stanza::kBgp;
  BgpInstance opened;
  opened.vrf = words[4];
  opened.as_number = *as_number;
  parser.config.bgp.push_back(std::move(opened));
}

void take_bgp_line(Parser& parser, const Words& words) {
  if (!parser.in_family) {
    take_line(kInstanceLines, parser, words);
    return;
  }
  if (take_line(kFamilyEnd, parser, words) || parser.family < 0) return;
  if (take_line(kFamilyLines, parser, words) || !parser.unicast) return;
  take_line(kVpnLines, parser, words);
}

}  // namespace frr
