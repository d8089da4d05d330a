// Shared by the IPv4 and the IPv6 route look-ups. Not for other files. Main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/base/status.h"
#include "platform/router/lfx/lfx.h"
#include "route_modules/forwardmib.h"

inline constexpr char kNoAddressText[] = "0";

// The text for prints and for decoding: the empty text for null.
const char* route_text(const char* text);

// What a module is asked for: addresses in network order.
template <std::size_t kSize>
struct RouteSearch {
  std::uint8_t destination[kSize];
  std::uint8_t next_hop[kSize];
  std::uint32_t prefix_length;
};

// False, traced under the function's name, for an address text of more than `size` octets.
bool route_texts_fit(const char* dest, const char* next_hop, std::size_t size, const char* function);

// Decodes digit pairs into `octets`, which the caller zeroes: at most as many as the text has; none for "0"
// and the empty text. False, reported under the function's name, for a pair that is not hexadecimal.
// REQUIRES: the text has no more than 2 * size characters.
bool route_read_address(const char* text, std::uint8_t* octets, const char* function);

// Handles a prefix length greater than an address has. False for an exact read: there is no such row. A next
// read continues after the longest prefix of the destination: the length becomes the longest, the next hop
// the greatest.
bool route_fit_length(bool exact, std::size_t size, std::uint32_t* prefix_length, std::uint8_t* next_hop);

// Stores a heap copy of the octets in *field; an empty one for none. False without memory.
[[nodiscard]] bool route_copy_octets(ParcelOctets* field, const std::uint8_t* octets, std::size_t length,
                                     const char* tag);
// Why a module returned no route, from the errno it set: kStatusNoMemory, reported under the function's name,
// or kStatusNoSuchRow, reported with the text. Only after the latter does a walk continue after the table.
Status route_refuse_unanswered(int module_errno, const char* function, const char* no_route);
// What the routes of both families have: everything but addresses, prefix length, next-hop AS and metric 5.
template <typename Route>
void route_fill_numbers(mpls_vpn_mib_route* row, const Route& route, std::int32_t address_type) {
  row->destType = address_type;
  row->nextHopType = route.type == kRouteTypeLocal ? kInetAddressUnknown : address_type;
  row->ifIndex = route.if_index < 0 ? 0 : route.if_index;
  row->type = static_cast<std::int32_t>(route.type);
  row->proto = static_cast<std::int32_t>(route.protocol);
  row->age = route.age;
  row->metric1 = route.metric1;
  row->metric2 = route.metric2;
  row->metric3 = route.metric3;
  row->metric4 = route.metric4;
  row->rowStatus = static_cast<std::int32_t>(route.row_status);
}
// A module's route, which is released with its members.
struct ReleaseForwardmibRoute {
  void operator()(ForwardmibIpv4Route* route) const {
    forwardmib_release_oid(route->route_info);
    forwardmib_release_route(route);
  }
  void operator()(ForwardmibIpv6Route* route) const {
    forwardmib_release_octets(route->destination);
    forwardmib_release_octets(route->next_hop);
    forwardmib_release_route(route);
  }
};
using Ipv4RoutePointer = std::unique_ptr<ForwardmibIpv4Route, ReleaseForwardmibRoute>;
using Ipv6RoutePointer = std::unique_ptr<ForwardmibIpv6Route, ReleaseForwardmibRoute>;

inline std::uint32_t route_prefix_length(const ForwardmibIpv4Route& route) {
  return static_cast<std::uint32_t>(__builtin_popcount(route.mask));
}

// The length of the index of the cross-connect that forwards the route, 0 for none.
std::size_t route_find_cross_connect(const ForwardmibIpv4Route& route, std::uint32_t table_id,
                                     std::uint8_t (&index)[kLfxIndexMax]);

// Frees what the look-up put into the row and clears it; reported under the function's name. kStatusNoMemory.
Status route_refuse_unfilled(mpls_vpn_mib_route* row, const char* function);

// Stores the cross-connect's index, or a single octet 0 for none (length 0). Without memory the pointer stays
// empty, which is reported.
void route_set_xc_pointer(mpls_vpn_mib_route* row, const std::uint8_t* index, std::size_t length,
                          const char* function);
