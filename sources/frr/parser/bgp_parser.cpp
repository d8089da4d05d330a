// The stanzas of BGP instances in VRFs: their VPN items and their neighbors with the active address
// families.
//
// Whether a neighbor is active in an address family is set by its own line, or else by its group's, or else
// by the instance's default (IPv4 unless "no bgp default ipv4-unicast"). A neighbor that is shut down is
// still configured. Labelled unicast and multicast count as their address family. A group with a range of
// addresses to listen on counts as a neighbor, because its members are known only while they are connected.
//
// Of the default VRF's instance only these matter: the notation of AS numbers, whether it imports from a VRF,
// and whether it advertises VNIs.
#include <optional>
#include <utility>

#include "sources/frr/parser/parser.h"

namespace frr {

namespace {

BgpInstance& instance(Parser& parser) {
  return parser.config.bgp.back();
}

constexpr std::size_t kEvpn = 2;  // of BgpInstance::families

VpnFamily& family(Parser& parser) {
  return instance(parser).families[parser.family];
}

std::optional<vrf_config::Target> read_target(Parser& parser, std::string_view word) {
  const auto target = parse_suite_target(word);
  if (!target) parser.invalid(word, "is not a route target");
  return target;
}

// Null, with an error, for a word that is neither an address nor a name.
BgpNeighbor* neighbor(Parser& parser, std::string_view name) {
  if (!router::valid_interface_name(name)) {
    parser.error("invalid neighbor name");
    return nullptr;
  }
  auto& neighbors = instance(parser).neighbors;
  const auto found = neighbors.find(name);
  return found != neighbors.end() ? &found->second : &neighbors[std::string(name)];
}

void take_neighbor(Parser& parser, const Words& words) {
  (void)neighbor(parser, words[1]);
}

void take_group(Parser& parser, const Words& words) {
  if (BgpNeighbor* group = neighbor(parser, words[1])) group->is_group = true;
}

void take_membership(Parser& parser, const Words& words) {
  if (BgpNeighbor* member = neighbor(parser, words[1])) member->group = words.back();
}

void take_router_id(Parser& parser, const Words& words) {
  instance(parser).router_id = words[2];
}

// "bgp listen range PREFIX peer-group GROUP"
void take_listen_range(Parser& parser, const Words& words) {
  if (BgpNeighbor* group = neighbor(parser, words[5])) group->listens = true;
}

void take_default_family(Parser& parser, const Words& words) {
  instance(parser).default_active[words.back() == "ipv6-unicast" ? 1 : 0] = words[0] != "no";
}

void take_activation(Parser& parser, const Words& words) {
  const bool active = words[0] != "no";
  if (BgpNeighbor* named = neighbor(parser, words[active ? 1 : 2])) {
    named->active[parser.family] = active;
  }
}

void take_rd(Parser& parser, const Words& words) {
  const auto rd = parse_suite_target(words.back());
  if (!rd) return parser.invalid(words.back(), "is not a route distinguisher");
  family(parser).rd = *rd;
}

// "route-target import RT...", a line for each or several in one; "auto" is what the suite derives.
void take_evpn_targets(Parser& parser, const Words& words) {
  for (std::size_t i = 2; i < words.size(); ++i) {
    if (words[i] == "auto") continue;
    const auto target = read_target(parser, words[i]);
    if (!target) return;
    if (words[1] != "export") family(parser).imports.push_back(*target);
    if (words[1] != "import") family(parser).exports.push_back(*target);
  }
}

void take_import_by_name(Parser& parser, const Words&) {
  parser.config.imports_by_name = true;
}

void take_vnis(Parser& parser, const Words&) {
  parser.config.has_evpn = true;
}

// Takes all of the line or nothing: an incomplete list would be a different list.
void take_targets(Parser& parser, const Words& words) {
  std::vector<vrf_config::Target> targets;
  for (std::size_t i = 3; i < words.size(); ++i) {
    const auto target = read_target(parser, words[i]);
    if (!target) return;
    targets.push_back(*target);
  }
  if (words[2] != "export") family(parser).imports = targets;
  if (words[2] != "import") family(parser).exports = targets;
}

// "import vrf route-map NAME" is the policy of routes from the VRFs that are imported by name.
void take_policy(Parser& parser, const Words& words) {
  if (words[3].size() > kTextMax) return parser.error("the route map's name is too long");
  (words[2] == "export" ? family(parser).export_policy : family(parser).import_policy) = words[3];
}

void take_family(Parser& parser, const Words& words);
void leave_family(Parser& parser, const Words& words);

constexpr LineRule kInstanceLines[] = {
    {"address-family * ...", take_family},
    {"neighbor * peer-group", take_group},
    {"neighbor * peer-group *", take_membership},
    {"neighbor * interface peer-group *", take_membership},
    {"neighbor * interface v6only peer-group *", take_membership},
    {"neighbor * remote-as ...", take_neighbor},
    {"neighbor * interface ...", take_neighbor},
    {"bgp router-id *", take_router_id},
    {"bgp listen range * peer-group *", take_listen_range},
    {"no bgp default ipv4-unicast", take_default_family},
    {"bgp default ipv4-unicast", take_default_family},
    {"bgp default ipv6-unicast", take_default_family},
    {"no bgp default ipv6-unicast", take_default_family},
};

constexpr LineRule kUnicastLines[] = {
    {"exit-address-family", leave_family},
    {"neighbor * activate", take_activation},
    {"no neighbor * activate", take_activation},
    {"rd vpn export *", take_rd},
    {"rt vpn import * ...", take_targets},
    {"rt vpn export * ...", take_targets},
    {"rt vpn both * ...", take_targets},
    {"route-target vpn import * ...", take_targets},
    {"route-target vpn export * ...", take_targets},
    {"route-target vpn both * ...", take_targets},
    {"route-map vpn import *", take_policy},
    {"route-map vpn export *", take_policy},
    {"import vrf *", take_import_by_name},
    {"import vrf route-map *", take_policy},
};
// Other subsequent families have none of the VPN items, other families nothing but their end.
constexpr std::span kOtherLines = std::span(kUnicastLines).first(3);
constexpr std::span kUnknownLines = std::span(kUnicastLines).first(1);
static_assert(kUnknownLines.back().pattern == "exit-address-family");
static_assert(kOtherLines.back().pattern == "no neighbor * activate");

constexpr LineRule kEvpnLines[] = {
    {"exit-address-family", leave_family},
    {"rd *", take_rd},
    {"route-target import * ...", take_evpn_targets},
    {"route-target export * ...", take_evpn_targets},
    {"route-target both * ...", take_evpn_targets},
};

constexpr LineRule kDefaultLines[] = {
    {"import vrf *", take_import_by_name},
    {"advertise-all-vni", take_vnis},
};

std::span<const LineRule> lines_of(const Words& words) {
  const bool is_ip = words[1] == "ipv4" || words[1] == "ipv6";
  const std::string_view further = words.size() > 2 ? words[2] : "unicast";
  if (words[1] == "l2vpn") return kEvpnLines;
  if (!is_ip || further == "vpn" || further == "flowspec") return kUnknownLines;
  return further == "unicast" ? kUnicastLines : kOtherLines;
}

void take_family(Parser& parser, const Words& words) {
  parser.family = words[1] == "ipv4" ? 0 : words[1] == "ipv6" ? 1 : kEvpn;
  parser.lines = lines_of(words);
}

void leave_family(Parser& parser, const Words&) {
  parser.lines = kInstanceLines;
}

}  // namespace

void open_bgp(Parser& parser, const Words& words) {
  if (!is_vpn(parser, words[4])) return;
  const std::optional<std::uint32_t> as_number = vrf_config::parse_as_number(words[2]);
  if (!as_number) return parser.invalid(words[2], "is not an AS number");
  parser.lines = kInstanceLines;
  BgpInstance opened;
  opened.vrf = words[4];
  opened.as_number = *as_number;
  parser.config.bgp.push_back(std::move(opened));
}

// "router bgp AS as-notation NOTATION"; plain by default.
void open_default_bgp(Parser& parser, const Words& words) {
  parser.lines = kDefaultLines;
  if (words.size() == 5) parser.config.as_notation = words[4];
}

std::optional<vrf_config::Target> parse_suite_target(std::string_view text) {
  const std::string_view administrator = text.substr(0, text.find(':'));
  const bool is_asdot_of_two_octets = administrator.substr(0, 2) == "0." && administrator.rfind('.') == 1;
  if (is_asdot_of_two_octets) return vrf_config::parse_target(text.substr(2));
  if (administrator == "*") return vrf_config::parse_target("0" + std::string(text.substr(1)));
  return vrf_config::parse_target(text);
}

}  // namespace frr
