// The index of a route and the key of a request to the daemon for it.
//
// mplsL3VpnVrfRteEntry's index (RFC 4382): the VRF's name, then as in inetCidrRouteTable (RFC 4292) the
// destination's type, the destination, the prefix length, the policy, the next hop's type and the next hop.
// There is one policy, { 0 0 }. A route without next hop has a next hop of type unknown and no octets.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "agent/rows/row_set.h"

namespace tables {

inline constexpr std::array<std::uint32_t, 3> kRoutePolicy = {2, 0, 0};  // { 0 0 }: two sub-identifiers
inline constexpr std::array kRouteIndex = {
    IndexPart{PartKind::kName},
    IndexPart{PartKind::kAddressType},
    IndexPart{PartKind::kAddress},
    IndexPart{PartKind::kPrefixLength},
    IndexPart{PartKind::kNumber, kRoutePolicy[0], kRoutePolicy[0]},
    IndexPart{PartKind::kNumber, kRoutePolicy[1], kRoutePolicy[1]},
    IndexPart{PartKind::kNumber, kRoutePolicy[2], kRoutePolicy[2]},
    IndexPart{PartKind::kNextHopType},
    IndexPart{PartKind::kAddress},
};

// The parts of an index after the VRF's name; addresses in network order, `next_hop` empty for none. False
// when they are not a route's.
struct RouteIndex {
  std::uint32_t destination_type = 0;
  std::span<const std::uint8_t> destination;
  std::uint32_t prefix_length = 0;
  std::uint32_t next_hop_type = 0;
  std::span<const std::uint8_t> next_hop;
};
[[nodiscard]] bool add_route_index(const RouteIndex& index, Window* window);

// The path components from which the daemon's walk begins with the first route at or after the index, or with
// one before it.
//
// The daemon's walk begins after a key of destination, prefix length and next hop, so the request has the
// greatest key that is smaller. The daemon has one key for "no next hop" and the next hop 0.0.0.0, the MIB
// has two indexes, the one without next hop first: a request for 0.0.0.0 may begin one row early, with the
// row without next hop.
std::string route_path(IndexShape shape, oid::View index);
inline constexpr std::size_t kRouteEarlyRows = 1;

}  // namespace tables
