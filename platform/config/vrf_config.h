// The configuration of VRFs as nodes of the configuration tree: what people and sources say (a description, a
// route target, a neighbour) made into the paths and values that the daemon subscribes to, and back.
//
// The paths' fixed words are the routing platform's; the daemon's routing tables have the same patterns.
// Stateless; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/store/configuration/config.h"

namespace vrf_config {

// Where configuration of a kind stands; sources use these as the scopes of what they replace.
inline constexpr std::string_view kVrfScope = "/cfg/gl/vmap/";
inline constexpr std::string_view kTrapScope = "/cfg/gl/snmp/enable/traps/l3vpnmib/";
inline constexpr std::string_view kBgpCommonScope = "/cfg/gl/bgp-common/";  // of all VRFs
inline constexpr std::string_view kBgpScope = kConfigCountedScopes[0];
inline constexpr std::string_view kRipScope = kConfigCountedScopes[1];
inline constexpr std::string_view kOspfScope = kConfigCountedScopes[2];
inline constexpr std::string_view kEigrpScope = kConfigCountedScopes[3];
inline constexpr std::string_view kStaticScope = kConfigCountedScopes[4];
// All configuration that names a VRF.
inline constexpr std::array<std::string_view, 6> kScopesOfVrfs = {kVrfScope,  kBgpScope,   kRipScope,
                                                                  kOspfScope, kEigrpScope, kStaticScope};

// Address family numbers (IANA). EVPN (RFC 7432) has RDs and route targets only.
enum class Family : std::uint32_t { kIpv4 = 1, kIpv6 = 2, kEvpn = 25 };
inline constexpr std::array<Family, 3> kFamiliesOfTargets = {Family::kIpv4, Family::kIpv6, Family::kEvpn};
const char* family_word(Family family);  // "ipv4"; empty for another number
enum class Direction { kImport, kExport };

// A route target or route distinguisher (RFC 4364 section 4.2; RFC 4360 sections 3.1, 3.2; RFC 5668).
struct Target {
  enum class Type : std::uint32_t { kTwoOctetAs = 0, kIpv4Address = 1, kFourOctetAs = 2 };
  Type type = Type::kTwoOctetAs;
  std::uint32_t administrator = 0;  // AS number, or IPv4 address in host order
  std::uint32_t assigned = 0;       // 32 bits for a two-octet AS, else 16
  bool operator==(const Target&) const = default;
};
// "65000:100", "10.0.0.1:5", "4200000000:30", "64086.59904:30" (asdot: a four-octet AS). An AS number above
// 65535 makes a four-octet type. None for anything else, and for a number that does not fit.
std::optional<Target> parse_target(std::string_view text);
std::string target_text(
    const Target& target);  // asplain, but "0.65000:30" for a small AS number in four octets

// "65000", or "1.10" for 65546 (asplain and asdot, RFC 5396).
std::optional<std::uint32_t> parse_as_number(std::string_view text);
// An OSPF area: a number, or a dotted quad for it.
std::optional<std::uint32_t> parse_area(std::string_view text);

// What a path of a route distinguisher or a route target is about; none for a path of another kind.
struct TargetPath {
  std::string vrf;
  Family family = Family::kIpv4;
  std::optional<Direction> direction;  // none: a route distinguisher, which is the node's value
  Target target;                       // of a direction
};
std::optional<TargetPath> target_path_of(std::string_view path);

// The route target that a configuration path is; none for a path of another kind.
std::optional<Target> route_target_of(std::string_view path);

KvConfigNode description(std::string_view vrf, std::string_view text);
// An RD is configured for a family; the VRF's is that of the lowest family that has one.
KvConfigNode route_distinguisher(std::string_view vrf, Family family, const Target& rd);
KvConfigNode route_target(std::string_view vrf, Family family, Direction direction, const Target& target);
KvConfigNode route_policy(std::string_view vrf, Family family, Direction direction, std::string_view policy);
// Routes of the VRF's unicast table: the maximum, and the mid threshold that warns before it.
KvConfigNode route_threshold(std::string_view vrf, Family family, std::uint32_t maximum, std::uint32_t mid);

// The VXLAN network identifier of the VRF's routes in EVPN (RFC 9135).
KvConfigNode vni(std::string_view vrf, std::uint32_t number);
inline constexpr std::uint32_t kGreatestVni = 0xffffff;

// A neighbour's address family in a VRF's BGP instance. `neighbour` is an IPv4 or IPv6 address, or the name
// of an interface (unnumbered) or a group. Addresses are written in their shortest form in the path, here and
// in static routes, so that a neighbour is one item however it was spelt.
KvConfigNode bgp_neighbour(std::string_view vrf, std::uint32_t as_number, std::string_view neighbour,
                           Family family);
KvConfigNode rip_interface(std::string_view vrf, std::string_view interface);
// RIPng is counted as RIP, in the same place. The paths there have no key that could tell the two apart, and
// both may be enabled on one interface, so the name of RIPng's interface is written with all of its octets
// escaped.
KvConfigNode ripng_interface(std::string_view vrf, std::string_view interface);
bool is_ripng(std::string_view path);
// `process` as the suite names it ("1"); the area is 32 bits.
KvConfigNode ospf_interface(std::string_view vrf, std::string_view process, std::uint32_t area,
                            std::string_view interface);
KvConfigNode eigrp_interface(std::string_view vrf, std::uint32_t as_number, std::string_view interface);
// A static route; interface and next hop may be empty (then it counts for the VRF as a whole, or the
// interface decides). Bits of the prefix beyond its length do not count.
struct StaticRoute {
  Family family = Family::kIpv4;
  std::string prefix;  // "10.1.0.0/16"
  std::string interface;
  std::string next_hop;
};
KvConfigNode static_route(std::string_view vrf, const StaticRoute& route);
// How AS numbers of four octets are shown (RFC 5396): one of kAsFormats.
KvConfigNode as_format(std::string_view format);
inline constexpr std::array<std::string_view, 3> kAsFormats = {"asplain", "asdot", "asdot+"};
// "vrf-up" and the like (number 1), and "notif-reissue-time" (seconds).
KvConfigNode trap_switch(std::string_view item, std::int64_t value);

// The items of trap_switch, by trap type (RFC 4382 section 6), and those beside them.
inline constexpr std::array<std::string_view, 6> kTrapItems = {
    "vrf-up", "vrf-down", "mid-thresh-exc", "max-thresh-exc", "ilg-lbl-exc", "max-thresh-clr"};
inline constexpr std::string_view kTrapAll = "all";
inline constexpr std::string_view kTrapReissueTime = "notif-reissue-time";
inline constexpr std::int64_t kLongestReissue = INT32_MAX;  // what the daemon keeps it in

// --- Words ----------------------------------------------------------------------------------------
//
//   vrf NAME description TEXT...
//   vrf NAME rd RD [ipv4|ipv6|evpn]                   ipv4 when left out
//   vrf NAME rt import|export|both RT [ipv4|ipv6|evpn]
//                                                     ipv4 and ipv6 when left out
//   vrf NAME policy import|export ipv4|ipv6 POLICY
//   vrf NAME threshold ipv4|ipv6 MAX MID
//   vrf NAME vni NUMBER
//   vrf NAME bgp AS neighbor ADDRESS|NAME ipv4|ipv6
//   vrf NAME ospf PROCESS area AREA interface INTERFACE
//   vrf NAME rip interface INTERFACE
//   vrf NAME ripng interface INTERFACE
//   vrf NAME eigrp AS interface INTERFACE
//   vrf NAME static PREFIX [interface INTERFACE] [via ADDRESS]
//   bgp as-format asplain|asdot|asdot+
//   traps ITEM
//   traps notif-reissue-time SECONDS

using Words = std::vector<std::string>;
struct Mistake {
  std::string text;            // for people: what is wrong with which word
  bool is_incomplete = false;  // nothing is wrong so far: words are missing at the end
};

// The nodes that the words stand for: one, or those of both families and directions.
std::variant<std::vector<KvConfigNode>, Mistake> parse_words(const Words& words);
// "vrf-up, vrf-down, ..., all and notif-reissue-time"
std::string trap_items();
// What a node says, in words that parse back to this node alone ("vrf red rt import 65000:100 ipv4"); none
// for what words cannot say: a path of another kind, a name that is too long, a value of another type.
std::optional<Words> word_list_of(const KvConfigNode& node);
// The same on one line.
std::optional<std::string> words_of(const KvConfigNode& node);

// Words on one line, and back. Words are set apart by blanks. One that is empty, or has blanks, quotes,
// backslashes, a '#' or octets that are not printable ASCII or UTF-8, stands in double quotes, within which
// \" \\ and \xNN are understood. A '#' outside of quotes begins a comment where a word may begin.
std::string join_words(const Words& words);
std::variant<Words, Mistake> split_words(std::string_view line);

// The VRF that a configuration path names; none for a path of another kind, or of no VRF.
std::optional<std::string> vrf_of(std::string_view path);
// The interface that a protocol's configuration path names, likewise.
std::optional<std::string> interface_of(std::string_view path);

}  // namespace vrf_config
