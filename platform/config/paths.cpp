// See paths.h. The patterns are those of the daemon's routing tables, with a '*' for each of their keys; a
// literal that a builder puts where the daemon takes any text is a key here, too.
#include "platform/config/paths.h"

#include <cstdlib>
#include <memory>

#include "platform/config/vrf_config.h"
#include "platform/store/tree/kvtree.h"

namespace vrf_config {

namespace {

constexpr std::size_t kNoKey = SIZE_MAX;

struct Pattern {
  Kind kind;
  std::string_view scope;
  std::string_view rest;
  std::size_t vrf;
  std::size_t interface = kNoKey;
};

#define VRF_TABLE "vrf/*/ord_z/afi_safi/*/*/*/"
#define TARGET "*/*/*/*/*/*/*"
constexpr Pattern kPatterns[] = {
    {Kind::kDescription, kVrfScope, "vrf/*/ord_a/vmap/ord_k/vmap/descr", 0},
    {Kind::kRouteDistinguisher, kVrfScope, VRF_TABLE "ord_b/bgp/ord_a/rd", 0},
    {Kind::kImportTarget, kVrfScope, VRF_TABLE "ord_b/bgp/ord_c/import-rt/" TARGET, 0},
    {Kind::kExportTarget, kVrfScope, VRF_TABLE "ord_b/bgp/ord_e/export-rt/" TARGET, 0},
    {Kind::kImportPolicy, kVrfScope, VRF_TABLE "ord_b/bgp/ord_b/import-policy", 0},
    {Kind::kExportPolicy, kVrfScope, VRF_TABLE "ord_b/bgp/ord_d/export-policy", 0},
    {Kind::kThreshold, kVrfScope, VRF_TABLE "ord_e/rib/table-prefix-limit", 0},
    {Kind::kVni, kVrfScope, "vrf/*/ord_a/vmap/ord_l/evpn/vni", 0},
    {Kind::kBgp, kBgpScope, "*/*/*/*/*/nbr/*/prov/*/*/*/*", 4},
    {Kind::kRip, kRipScope, "*/ord_t/if/*/ord_d/enabled", 0, 1},
    {Kind::kOspf, kOspfScope, "*/*/*/ord_v/area/*/*/ord_i/name_scope/*/ord_A/running", 2, 5},
    {Kind::kEigrp, kEigrpScope, "*/*/*/ord_m/af/*/ord_t/if/*/ord_a/enabled", 1, 4},
    {Kind::kStatic, kStaticScope, "*/address/*/*/ord_c/*/route/*/*/*/*/nexthop/*/*", 0, 8},
    {Kind::kAsFormat, kBgpCommonScope, "as-format", kNoKey},
    {Kind::kTrap, kTrapScope, "*", kNoKey},
};
#undef VRF_TABLE
#undef TARGET

std::string_view take_component(std::string_view* rest) {
  const std::size_t slash = rest->find('/');
  const std::string_view component = rest->substr(0, slash);
  rest->remove_prefix(slash == std::string_view::npos ? rest->size() : slash + 1);
  return component;
}

// False when the components differ in a literal or in number.
bool fits(const Pattern& pattern, std::string_view path, std::vector<std::string_view>* keys) {
  if (path.substr(0, pattern.scope.size()) != pattern.scope) return false;
  path.remove_prefix(pattern.scope.size());
  std::string_view wanted = pattern.rest;
  while (!wanted.empty() && !path.empty()) {
    const std::string_view literal = take_component(&wanted);
    const std::string_view component = take_component(&path);
    if (literal == "*") {
      keys->push_back(component);
    } else if (literal != component) {
      return false;
    }
  }
  return wanted.empty() && path.empty();
}

std::optional<std::size_t> place(std::size_t key) {
  return key == kNoKey ? std::nullopt : std::optional(key);
}

std::optional<std::string> named_key(std::string_view path, std::optional<std::size_t> ParsedPath::*which) {
  const std::optional<ParsedPath> parsed = parse_path(path);
  if (!parsed || !((*parsed).*which)) return std::nullopt;
  return decode_key(parsed->keys.at(*((*parsed).*which)));
}

}  // namespace

std::optional<ParsedPath> parse_path(std::string_view path) {
  for (const Pattern& pattern : kPatterns) {
    ParsedPath parsed;
    if (!fits(pattern, path, &parsed.keys)) continue;
    parsed.kind = pattern.kind;
    parsed.vrf = place(pattern.vrf);
    parsed.interface = place(pattern.interface);
    return parsed;
  }
  return std::nullopt;
}

std::optional<std::string> decode_key(std::string_view key) {
  if (key.empty() || key == "-") return std::nullopt;
  char* text = nullptr;
  const Status status = kvtree_string_decode(std::string(key).c_str(), &text);
  const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
  if (status || text == nullptr) return std::nullopt;
  return text;
}

std::optional<std::string> vrf_of(std::string_view path) {
  return named_key(path, &ParsedPath::vrf);
}

std::optional<std::string> interface_of(std::string_view path) {
  return named_key(path, &ParsedPath::interface);
}

}  // namespace vrf_config
