// Reads a router file: VRFs, interfaces and memberships in YAML, completely checked.
//
// Grammar (keys marked * are required):
//   vrfs:          list of  name*, id, table, tables, description, rd, big, state, routes, route_targets,
//                  policies, thresholds, bgp, ospf, rip, eigrp, static
//   interfaces:    list of  name*, index*, description, state, addresses, vrf
//   generate:      vrfs*, interfaces_per_vrf*, first_id, first_index, routes_per_vrf
//   routes:        list of  prefix*, next_hop, next_hops, interface, type, protocol, metric, metrics,
//                  next_hop_as, labels, generate
//   as_format:     asplain, asdot or asdot+: how AS numbers of four octets are shown
//   traps:         switches (vrf-up, ..., all) and notif-reissue-time
//   route_targets: import, export, both, and ipv4 and ipv6 with the same three
//   policies:      import, export, each with ipv4, ipv6
//   thresholds:    ipv4, ipv6, each with maximum*, mid
//   bgp:           as*, neighbors: list of addresses or of  neighbor*, families
//   ospf:          list of  process*, area*, interfaces
//   rip:           interfaces
//   eigrp:         list of  as*, interfaces
//   static:        list of  prefix*, interface, next_hop
//
// A VRF's `table` is the routing table of both unicast families. `tables` instead sets one for each of ipv4,
// ipv6, ipv4-multicast and ipv6-multicast; families that it does not list have none. `id` and `table` are
// each the default of the other. `state: referenced` makes a VRF that is only named. An interface's `vrf` may
// name a VRF that does not exist. `generate` adds generated VRFs with interfaces.
//
// A route needs a next hop, an interface or a type; several next hops make several paths. `generate: N` makes
// N routes with consecutive prefixes from `prefix` (or 1.0.0.0/24) on; `routes` may be one such map instead
// of a list.
//
// Configuration. A VRF's description, route targets, policies, thresholds and protocols, the route
// distinguisher of a VRF that is only named, `as_format` and `traps` are nodes of the configuration tree. A
// VRF that is only named may have all of these. A route target without a family applies to the families of
// the VRF's tables. A description is also stored in the model ("router show"); an empty one is none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/router/model/router.h"
#include "platform/store/configuration/configuration.h"

namespace router_file {

inline constexpr std::size_t kFileSizeMax = 64U << 20;  // octets of a router file
inline constexpr std::size_t kDescriptionMax = 255;     // octets (SnmpAdminString)
inline constexpr std::uint32_t kFirstVrfId = 2;         // 1 is the id of "default"
inline constexpr std::uint32_t kIndexMax = 0x7fffffff;  // InterfaceIndex (RFC 2863)
inline constexpr std::uint32_t kGeneratedVrfsMax = 100'000;
inline constexpr std::uint32_t kGeneratedInterfacesPerVrfMax = 1000;
inline constexpr std::uint32_t kGeneratedInterfacesMax = 1'000'000;

// Routes in the form in which they are fed: prefixes of one length, one after the other from the first, that
// are the same otherwise. A written route is a group of one for each of its next hops. A generated group is
// never spread out in memory.
struct RouteGroup {
  router::RouteTableId table{router::Family::kIpv4, 0};
  router::Route first;
  std::uint32_t count = 1;
};

// The n-th prefix of this length after `first` (n = 0 is `first` itself); false past the last one there is.
[[nodiscard]] bool nth_prefix(const router::RouteAddress& first, std::uint8_t prefix_length, std::uint32_t n,
                              router::RouteAddress* prefix);

struct RouterFile {
  std::vector<router::Vrf> vrfs;
  std::vector<std::string> references;        // VRFs that are only named
  std::vector<router::Interface> interfaces;  // handles are 0
  std::vector<RouteGroup> routes;             // written ones first
  std::vector<KvConfigNode> configuration;    // each path once
};

// Where and why a text is not a router file. Lines and columns count from 1.
struct ParseError {
  int line = 0;
  int column = 0;
  std::string what;
};

// False, with *error set and *file unchanged, for an invalid text: YAML that does not parse, unknown keys,
// wrong types, duplicates, bad names, addresses and route distinguishers, numbers out of range.
[[nodiscard]] bool parse(const std::string& text, RouterFile* file, ParseError* error);

}  // namespace router_file
