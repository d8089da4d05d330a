// The configuration of VRFs as nodes of the configuration tree: converts what users and sources configure (a
// description, a route target, a neighbor) to the paths and values that the daemon subscribes to, and back.
//
// items.cpp has the table of items; the daemon's tables of paths have the same patterns. Stateless; any
// thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/core/address/address.h"
#include "platform/store/configuration/configuration.h"

namespace vrf_config {

// Paths below which the items are. A source replaces its own nodes in such a scope.
inline constexpr std::string_view kVrfScope = "/cfg/gl/vmap/";
inline constexpr std::string_view kTrapScope = "/cfg/gl/snmp/enable/traps/l3vpnmib/";
inline constexpr std::string_view kBgpCommonScope = "/cfg/gl/bgp-common/";  // of all VRFs
inline constexpr std::string_view kBgpScope = "/cfg/gl/ip-bgp/";
inline constexpr std::string_view kRipScope = "/cfg/gl/rip/ord_B/";
inline constexpr std::string_view kOspfScope = "/cfg/gl/ipv4-ospf/proc/";
inline constexpr std::string_view kEigrpScope = "/cfg/gl/eigrp/proc/";
inline constexpr std::string_view kStaticScope = "/cfg/gl/static/router/ord_v/";
// All configuration that names a VRF.
std::vector<std::string_view> scopes_of_vrfs();
// Configuration whose subscribers count items: only the presence of a node counts for them, not its value.
std::vector<std::string_view> counted_scopes();

// Address family numbers (IANA). EVPN (RFC 7432) has RDs and route targets only.
enum class Family : std::uint32_t { kIpv4 = inet::kIpv4Afi, kIpv6 = inet::kIpv6Afi, kEvpn = inet::kL2VpnAfi };
inline constexpr std::array<Family, 3> kFamiliesOfTargets = {Family::kIpv4, Family::kIpv6, Family::kEvpn};
const char* family_word(Family family);  // "ipv4"; empty for another number
std::optional<Family> parse_family(std::string_view word);
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
// In asplain, but "0.65000:30" for a small AS number in four octets.
std::string target_text(const Target& target);

// "65000", or "1.10" for 65546 (asplain and asdot, RFC 5396).
std::optional<std::uint32_t> parse_as_number(std::string_view text);
// An OSPF area: a number or a dotted quad.
std::optional<std::uint32_t> parse_area(std::string_view text);

// The contents of the path of a route distinguisher or route target; none for a path of another kind.
struct TargetPath {
  std::string vrf;
  Family family = Family::kIpv4;
  std::optional<Direction> direction;  // none: a route distinguisher, which is the node's value
  Target target;                       // of a direction
};
std::optional<TargetPath> target_path_of(std::string_view path);

// The route target in a path; none for a path of another kind.
std::optional<Target> route_target_of(std::string_view path);

KvConfigNode description(std::string_view vrf, std::string_view text);
// An RD is configured for a family.
KvConfigNode route_distinguisher(std::string_view vrf, Family family, const Target& rd);
// The paths of a VRF's RDs. The RD of the VRF is the first of them that is configured: that of its lowest
// address family.
std::vector<std::string> rd_paths(std::string_view vrf);
KvConfigNode route_target(std::string_view vrf, Family family, Direction direction, const Target& target);
KvConfigNode route_policy(std::string_view vrf, Family family, Direction direction, std::string_view policy);
// Routes of the VRF's unicast table: the maximum, and the mid threshold that warns before it.
KvConfigNode route_threshold(std::string_view vrf, Family family, std::uint32_t maximum, std::uint32_t mid);

// The VXLAN network identifier of the VRF's routes in EVPN (RFC 9135).
KvConfigNode vni(std::string_view vrf, std::uint32_t number);
inline constexpr std::uint32_t kGreatestVni = 0xffffff;

// A neighbor's address family in a VRF's BGP instance. `neighbor` is an IPv4 or IPv6 address, or the name
// of an interface (unnumbered) or a group. Here and in static routes the path has addresses in their shortest
// form, so that one neighbor is one item in every spelling.
KvConfigNode bgp_neighbor(std::string_view vrf, std::uint32_t as_number, std::string_view neighbor,
                          Family family);
KvConfigNode rip_interface(std::string_view vrf, std::string_view interface);
// RIPng counts as RIP and has the same paths, which have no key for the protocol. Both may be enabled on one
// interface, so the name of a RIPng interface is written with all its octets escaped.
KvConfigNode ripng_interface(std::string_view vrf, std::string_view interface);
// `process` is the suite's name of it ("1").
KvConfigNode ospf_interface(std::string_view vrf, std::string_view process, std::uint32_t area,
                            std::string_view interface);
KvConfigNode eigrp_interface(std::string_view vrf, std::uint32_t as_number, std::string_view interface);
// A static route. Interface and next hop may be empty: without an interface it counts for the whole VRF. Host
// bits of the prefix are ignored.
struct StaticRoute {
  Family family = Family::kIpv4;
  std::string prefix;  // "10.1.0.0/16"
  std::string interface;
  std::string next_hop;
};
KvConfigNode static_route(std::string_view vrf, const StaticRoute& route);
// How AS numbers of four octets are shown (RFC 5396); one of kAsFormats.
KvConfigNode as_format(std::string_view format);
inline constexpr std::array<std::string_view, 3> kAsFormats = {"asplain", "asdot", "asdot+"};
// "vrf-up" and the like (number 1), and "notif-reissue-time" (seconds).
KvConfigNode trap_switch(std::string_view item, std::int64_t value);

// The items of trap_switch: by trap type (RFC 4382 section 6), the master switch and the re-issue time.
inline constexpr std::array<std::string_view, 6> kTrapItems = {
    "vrf-up", "vrf-down", "mid-thresh-exc", "max-thresh-exc", "ilg-lbl-exc", "max-thresh-clr"};
inline constexpr std::string_view kTrapAll = "all";
inline constexpr std::string_view kTrapReissueTime = "notif-reissue-time";
inline constexpr std::int64_t kLongestReissue = INT32_MAX;  // the daemon stores 31 bits

// --- Words: one line of words is an item; items.cpp has their syntax ---

using Words = std::vector<std::string>;
struct WordError {
  std::string text;            // for users: what is wrong with which word
  bool is_incomplete = false;  // the words are correct so far: more have to follow
};

// The nodes that the words configure: one, or those of both families and directions.
std::variant<std::vector<KvConfigNode>, WordError> parse_words(const Words& words);
// What may follow the words: literals, and in upper case the names of what users choose ("NAME"). Empty when
// nothing may follow or a word is wrong.
std::vector<std::string> words_after(const Words& words);
// The words with those written out that abbreviate one of the words that may be there, up to the first that
// is wrong or ambiguous. For what users type: a stored line has whole words, so that later words make none
// ambiguous.
Words whole_words(const Words& words);
// The syntax of all items, a line each, for help texts.
std::string words_help();
// What a node configures, in words that parse to this node alone ("vrf red rt import 65000:100 ipv4"); none
// for what words cannot express: a path of another kind, a name that is too long, a value of another type.
std::optional<Words> word_list_of(const KvConfigNode& node);
// The same on one line.
std::optional<std::string> words_of(const KvConfigNode& node);

// Converts words to a line and back. Blanks separate words. A word that is empty, or that has blanks, quotes,
// backslashes, a '#' or octets that are not printable ASCII or UTF-8, is in double quotes, in which \" \\ and
// \xNN are escapes. Outside of quotes a '#' at the beginning of a word begins a comment.
std::string join_words(const Words& words);
std::variant<Words, WordError> split_words(std::string_view line);

// The VRF that a configuration path names; none for a path of another kind, or of no VRF.
std::optional<std::string> vrf_of(std::string_view path);
// The interface that a protocol's configuration path names, likewise.
std::optional<std::string> interface_of(std::string_view path);

}  // namespace vrf_config
