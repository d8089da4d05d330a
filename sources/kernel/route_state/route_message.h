// Decodes rtnetlink messages about routes and next hops.
//
// Pure functions over octets: no socket, no state, every length checked. Formats: linux/rtnetlink.h,
// linux/nexthop.h, linux/lwtunnel.h, linux/mpls_iptunnel.h; label stack entries as in RFC 3032 section 2.1.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "platform/router/model/route_store.h"
#include "platform/router/model/router.h"
#include "sources/kernel/netlink/message.h"

namespace kernel {

// One path of a route.
struct RoutePath {
  std::uint32_t interface_index = 0;  // 0: none
  bool has_gateway = false;
  router::Family gateway_family = router::Family::kIpv4;
  router::RouteAddress gateway{};       // all zero without a gateway
  std::vector<std::uint32_t> labels{};  // pushed, outermost first
  bool tunnel = false;                  // encapsulated for another router: labels, segments, an IP tunnel
  std::uint8_t protocol = 0;            // IPv6: RTPROT_..., each path has its own
  std::uint8_t weight = 0;              // IPv4: among the paths of a route, less one
  bool dead = false;                    // present, but the kernel does not use it (RTNH_F_DEAD)
  // Not used while the link has no carrier (ignore_routes_with_linkdown). Messages show such a path as
  // dead, too; LinkStates::ignores_paths() knows the difference.
  bool ignored = false;
  bool operator==(const RoutePath&) const = default;
};

struct KernelRoute {
  router::Family family = router::Family::kIpv4;
  std::uint32_t table = 0;  // never 0
  router::RouteAddress destination{};
  std::uint8_t prefix_length = 0;
  std::uint8_t tos = 0;               // IPv4: type of service
  std::uint8_t source_length = 0;     // IPv6: of the prefix of source addresses that the route is for
  router::RouteAddress source{};      // ... the prefix
  std::uint8_t type = 0;              // RTN_UNICAST ...
  std::uint8_t protocol = 0;          // RTPROT_...; in IPv6 that of the first path
  std::uint32_t priority = 0;         // the kernel's metric
  std::uint32_t next_hop_object = 0;  // 0: none
  bool cached = false;                // RTM_F_CLONED: an exception to a route, not a route
  // IPv4: routes that differ only in what is not decoded (scope, metrics) are different routes.
  std::uint32_t preferred_source = 0;  // address in network order
  std::uint32_t details = 0;           // digest of the rest
  std::vector<RoutePath> paths{};      // empty: those of the object, or a type that discards
  bool operator==(const KernelRoute&) const = default;
};

// A next-hop object (ip-nexthop(8)): one path, or a group of other objects.
struct NextHopObject {
  std::uint32_t id = 0;  // never 0
  bool discards = false;
  RoutePath path{};
  std::vector<std::uint32_t> members{};  // not empty: a group
  bool operator==(const NextHopObject&) const = default;
};

// The request that caused the announcement: its sender and its number.
using RequestId = std::uint64_t;

// `flags`: NLM_F_CREATE, NLM_F_EXCL, NLM_F_APPEND, NLM_F_REPLACE of the announcement.
struct RouteSeen {
  KernelRoute route;
  std::uint16_t flags = 0;
  RequestId request = 0;
};
struct RouteRemoved {
  KernelRoute route;
};
struct NextHopSeen {
  NextHopObject object;
  RequestId request = 0;
};
struct NextHopRemoved {
  std::uint32_t id = 0;
};

using RouteEvent = std::variant<RouteSeen, RouteRemoved, NextHopSeen, NextHopRemoved>;

// Appends the message's event to *events. Adds none for anything but IPv4 and IPv6 routes and next-hop
// objects. False when it is malformed.
bool parse_route_message(const nlmsghdr* message, std::vector<RouteEvent>* events);
// The table of a route that parse_route_message() finds malformed, if that can be read.
std::optional<router::RouteTableId> find_table(const nlmsghdr* message);
// As parse_route_message() for each message of a datagram. REQUIRES: as for_each_message().
ParseReport parse_route_datagram(std::span<const std::uint8_t> datagram, std::vector<RouteEvent>* events);

}  // namespace kernel
