#include "platform/config/items.h"

#include <algorithm>
#include <array>

namespace vrf_config {

namespace {

constexpr std::array kIpv4Alone = {Family::kIpv4};
constexpr std::array kIpv4AndIpv6 = {Family::kIpv4, Family::kIpv6};

// Words that items share, and their help.
constexpr char kTargetWords[] = "vrf NAME rt import|export|both RT [ipv4|ipv6|evpn]";
constexpr char kTargetHelp[] = "ipv4 and ipv6 when left out";
constexpr char kPolicyWords[] = "vrf NAME policy import|export ipv4|ipv6 POLICY";

#define VRF_TABLE "vrf/<vrf>/ord_z/afi_safi/<afi_safi>/<=default>/"
constexpr Item kItems[] = {
    {.kind = Kind::kDescription,
     .scope = kVrfScope,
     .path = "vrf/<vrf>/ord_a/vmap/ord_k/vmap/descr",
     .value = ValueForm::kText,
     .words = "vrf NAME description TEXT"},
    {.kind = Kind::kRouteDistinguisher,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_b/bgp/ord_a/rd",
     .value = ValueForm::kText,
     .words = "vrf NAME rd RD [ipv4|ipv6|evpn]",
     .default_families = kIpv4Alone,
     .help = "ipv4 when left out"},
    {.kind = Kind::kImportTarget,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_b/bgp/ord_c/import-rt/<target>",
     .value = ValueForm::kPresent,
     .words = kTargetWords,
     .default_families = kIpv4AndIpv6,
     .direction = Direction::kImport,
     .help = kTargetHelp},
    {.kind = Kind::kExportTarget,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_b/bgp/ord_e/export-rt/<target>",
     .value = ValueForm::kPresent,
     .words = kTargetWords,
     .default_families = kIpv4AndIpv6,
     .direction = Direction::kExport,
     .help = kTargetHelp},
    {.kind = Kind::kImportPolicy,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_b/bgp/ord_b/import-policy",
     .value = ValueForm::kText,
     .words = kPolicyWords,
     .direction = Direction::kImport},
    {.kind = Kind::kExportPolicy,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_b/bgp/ord_d/export-policy",
     .value = ValueForm::kText,
     .words = kPolicyWords,
     .direction = Direction::kExport},
    {.kind = Kind::kThreshold,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_e/rib/table-prefix-limit",
     .value = ValueForm::kNumbers,
     .words = "vrf NAME threshold ipv4|ipv6 MAX MID",
     .help = "routes; MID warns before"},
    {.kind = Kind::kLowWater,
     .scope = kVrfScope,
     .path = VRF_TABLE "ord_e/rib/low-water",
     .value = ValueForm::kNumbers,
     .words = "vrf NAME low-water ipv4|ipv6 LOW HOLD",
     .help = "fewer routes for the time HOLD are too few"},
    {.kind = Kind::kWatchedPrefix,
     .scope = kVrfScope,
     .path = "vrf/<vrf>/ord_a/vmap/ord_m/watch/<prefix>",
     .value = ValueForm::kPresent,
     .words = "vrf NAME watch PREFIX",
     .help = "a prefix that must have a route"},
    {.kind = Kind::kVni,
     .scope = kVrfScope,
     .path = "vrf/<vrf>/ord_a/vmap/ord_l/evpn/vni",
     .value = ValueForm::kNumber,
     .words = "vrf NAME vni VNI",
     .help = "of the VRF's routes in EVPN"},
    {.kind = Kind::kBgp,
     .scope = kBgpScope,
     .path = "<=default>/<=0>/<as_number>/<=ord_a>/<vrf>/nbr/<=4>/prov/<neighbor>/<family>",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME bgp AS neighbor ADDRESS|NAME ipv4|ipv6"},
    {.kind = Kind::kOspf,
     .scope = kOspfScope,
     .path = "<process>/<=ord_a>/<vrf>/ord_v/area/<area>/<=int>/ord_i/name_scope/<interface>/ord_A/running",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME ospf PROCESS area AREA interface INTERFACE"},
    {.kind = Kind::kRip,
     .scope = kRipScope,
     .path = "<vrf>/ord_t/if/<rip_interface>/ord_d/enabled",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME rip interface INTERFACE"},
    {.kind = Kind::kRipng,
     .scope = kRipScope,
     .path = "<vrf>/ord_t/if/<ripng_interface>/ord_d/enabled",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME ripng interface INTERFACE"},
    {.kind = Kind::kEigrp,
     .scope = kEigrpScope,
     .path = "<as_number>/<vrf>/<=ord_a>/ord_m/af/<=ipv4>/ord_t/if/<interface>/ord_a/enabled",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME eigrp AS interface INTERFACE"},
    {.kind = Kind::kStatic,
     .scope = kStaticScope,
     .path = "<vrf>/address/<family>/<=unicast>/ord_c/<=topology>/route/<prefix>/<=->/<=->/nexthop/"
             "<interface>/<next_hop>",
     .is_counted = true,
     .value = ValueForm::kPresent,
     .words = "vrf NAME static PREFIX [interface INTERFACE] [via ADDRESS]"},
    {.kind = Kind::kAsFormat,
     .scope = kBgpCommonScope,
     .path = "as-format",
     .value = ValueForm::kText,
     .words = "bgp as-format asplain|asdot|asdot+",
     .help = "how AS numbers above 65535 are shown"},
    {.kind = Kind::kTrap,
     .scope = kTrapScope,
     .path = "<trap>",
     .value = ValueForm::kPresent,
     .words = "traps ITEM",
     .help = "notifications to send:"},
    {.kind = Kind::kReissueTime,
     .scope = kTrapScope,
     .path = kTrapReissueTime,
     .value = ValueForm::kNumber,
     .words = "traps notif-reissue-time TIME",
     .help = "after which max-thresh-exc is sent again"},
};
#undef VRF_TABLE

// The scopes of the items of which `is_wanted` is true, each once, in the order of the table.
template <typename Predicate>
std::vector<std::string_view> scopes_of(Predicate is_wanted) {
  std::vector<std::string_view> scopes;
  for (const Item& item : kItems) {
    const bool is_new = std::find(scopes.begin(), scopes.end(), item.scope) == scopes.end();
    if (is_new && is_wanted(item)) scopes.push_back(item.scope);
  }
  return scopes;
}

struct NamedFamily {
  Family family;
  const char* word;
};
constexpr NamedFamily kFamilies[] = {
    {Family::kIpv4, "ipv4"}, {Family::kIpv6, "ipv6"}, {Family::kEvpn, "evpn"}};

}  // namespace

const char* family_word(Family family) {
  for (const NamedFamily& named : kFamilies) {
    if (named.family == family) return named.word;
  }
  return "";
}

std::optional<Family> parse_family(std::string_view word) {
  for (const NamedFamily& named : kFamilies) {
    if (named.word == word) return named.family;
  }
  return std::nullopt;
}

std::span<const Item> all_items() {
  return kItems;
}

const Item& item_of(Kind kind) {
  return *std::find_if(std::begin(kItems), std::end(kItems),
                       [=](const Item& item) { return item.kind == kind; });
}

std::vector<std::string_view> scopes_of_vrfs() {
  return scopes_of([](const Item& item) { return item.path.find("<vrf>") != std::string_view::npos; });
}

std::vector<std::string_view> counted_scopes() {
  return scopes_of([](const Item& item) { return item.is_counted; });
}

}  // namespace vrf_config
