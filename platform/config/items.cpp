#include "platform/config/items.h"

#include <algorithm>
#include <array>

namespace vrf_config {

namespace {

constexpr std::array kIpv4Alone = {Family::kIpv4};
constexpr std::array kIpv4AndIpv6 = {Family::kIpv4, Family::kIpv6};
constexpr std::span<const Family> kNamed{};  // the words always name the family, or there is none

constexpr auto kNone = std::nullopt;
constexpr auto kImport = Direction::kImport;
constexpr auto kExport = Direction::kExport;

// Words that items share, and their help.
constexpr char kTargetWords[] = "vrf NAME rt import|export|both RT [ipv4|ipv6|evpn]";
constexpr char kTargetHelp[] = "ipv4 and ipv6 when left out";
constexpr char kPolicyWords[] = "vrf NAME policy import|export ipv4|ipv6 POLICY";

// clang-format off
#define VRF_TABLE "vrf/<vrf>/ord_z/afi_safi/<afi_safi>/<=default>/"
constexpr Item kItems[] = {
    {Kind::kDescription, kVrfScope, "vrf/<vrf>/ord_a/vmap/ord_k/vmap/descr", false, ValueForm::kText,
     "vrf NAME description TEXT", kNamed, kNone, ""},
    {Kind::kRouteDistinguisher, kVrfScope, VRF_TABLE "ord_b/bgp/ord_a/rd", false, ValueForm::kText,
     "vrf NAME rd RD [ipv4|ipv6|evpn]", kIpv4Alone, kNone, "ipv4 when left out"},
    {Kind::kImportTarget, kVrfScope, VRF_TABLE "ord_b/bgp/ord_c/import-rt/<target>", false, ValueForm::kPresent,
     kTargetWords, kIpv4AndIpv6, kImport, kTargetHelp},
    {Kind::kExportTarget, kVrfScope, VRF_TABLE "ord_b/bgp/ord_e/export-rt/<target>", false, ValueForm::kPresent,
     kTargetWords, kIpv4AndIpv6, kExport, kTargetHelp},
    {Kind::kImportPolicy, kVrfScope, VRF_TABLE "ord_b/bgp/ord_b/import-policy", false, ValueForm::kText,
     kPolicyWords, kNamed, kImport, ""},
    {Kind::kExportPolicy, kVrfScope, VRF_TABLE "ord_b/bgp/ord_d/export-policy", false, ValueForm::kText,
     kPolicyWords, kNamed, kExport, ""},
    {Kind::kThreshold, kVrfScope, VRF_TABLE "ord_e/rib/table-prefix-limit", false, ValueForm::kNumbers,
     "vrf NAME threshold ipv4|ipv6 MAX MID", kNamed, kNone, "routes; MID warns before"},
    {Kind::kVni, kVrfScope, "vrf/<vrf>/ord_a/vmap/ord_l/evpn/vni", false, ValueForm::kNumber,
     "vrf NAME vni VNI", kNamed, kNone, "of the VRF's routes in EVPN"},
    {Kind::kBgp, kBgpScope, "<=default>/<=0>/<as_number>/<=ord_a>/<vrf>/nbr/<=4>/prov/<neighbor>/<family>", true,
     ValueForm::kPresent, "vrf NAME bgp AS neighbor ADDRESS|NAME ipv4|ipv6", kNamed, kNone, ""},
    {Kind::kOspf, kOspfScope, "<process>/<=ord_a>/<vrf>/ord_v/area/<area>/<=int>/ord_i/name_scope/<interface>/ord_A/running",
     true, ValueForm::kPresent, "vrf NAME ospf PROCESS area AREA interface INTERFACE", kNamed, kNone, ""},
    {Kind::kRip, kRipScope, "<vrf>/ord_t/if/<rip_interface>/ord_d/enabled", true, ValueForm::kPresent,
     "vrf NAME rip interface INTERFACE", kNamed, kNone, ""},
    {Kind::kRipng, kRipScope, "<vrf>/ord_t/if/<ripng_interface>/ord_d/enabled", true, ValueForm::kPresent,
     "vrf NAME ripng interface INTERFACE", kNamed, kNone, ""},
    {Kind::kEigrp, kEigrpScope, "<as_number>/<vrf>/<=ord_a>/ord_m/af/<=ipv4>/ord_t/if/<interface>/ord_a/enabled", true,
     ValueForm::kPresent, "vrf NAME eigrp AS interface INTERFACE", kNamed, kNone, ""},
    {Kind::kStatic, kStaticScope,
     "<vrf>/address/<family>/<=unicast>/ord_c/<=topology>/route/<prefix>/<=->/<=->/nexthop/<interface>/<next_hop>", true,
     ValueForm::kPresent, "vrf NAME static PREFIX [interface INTERFACE] [via ADDRESS]", kNamed, kNone, ""},
    {Kind::kAsFormat, kBgpCommonScope, "as-format", false, ValueForm::kText,
     "bgp as-format asplain|asdot|asdot+", kNamed, kNone, "how AS numbers above 65535 are shown"},
    {Kind::kTrap, kTrapScope, "<trap>", false, ValueForm::kPresent,
     "traps ITEM", kNamed, kNone, "notifications to send:"},
    {Kind::kReissueTime, kTrapScope, kTrapReissueTime, false, ValueForm::kNumber,
     "traps notif-reissue-time SECONDS", kNamed, kNone, "after which max-thresh-exc is sent again"},
};
#undef VRF_TABLE
// clang-format on

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
