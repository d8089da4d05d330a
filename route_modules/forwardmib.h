// The interface of the routing table's MIB modules "mib/libipv4_forwardmib.dll" and
// "mib/libipv6_forwardmib.dll" below the library directory, each with the two symbols declared here.
//
// Reads are those of inetCidrRouteTable (RFC 4292) in one routing table. Kind kForwardmibExact answers the
// row of exactly this destination, mask and next hop. Kind kForwardmibNext answers the first row greater than
// them, by destination, prefix length and next hop, each unsigned in network order; the all-zero key is the
// start and answers the table's first row, even when that row's key is all zero itself (a default route
// without next hop; many VRFs have one). A mask that is not a prefix mask has no rows. A route without next
// hop (type 3, local) is requested with an all-zero next hop.
//
// A route is newly allocated; the caller releases first its members, then the route. Null means no such row,
// or no memory: then errno is ENOMEM. A caller that must distinguish them sets errno to 0 before the call.
// Main thread only, like the route store.
//
// The modules hold no state. They reach the routes of the process that loads them through the function table
// that platform/router/model/route_access.h declares; a process that does not export it cannot load them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

inline constexpr std::uint32_t kForwardmibExact = 160;  // GetRequest-PDU (RFC 3416)
inline constexpr std::uint32_t kForwardmibNext = 161;   // GetNextRequest-PDU

inline constexpr char kForwardmibFindRouteSymbol[] = "ribmib_find_route";
inline constexpr char kForwardmibTotalActiveRoutesSymbol[] = "ribmib_total_active_routes";

// The route-information object identifier (inetCidrRouteTable's route info; 0.0 when there is none).
struct ForwardmibOid {
  std::uint32_t length;
  std::uint32_t ids[2];
};

struct ForwardmibOctets {
  std::uint32_t length;
  std::uint8_t octets[16];  // the first `length` of them
};

struct ForwardmibIpv4Route {
  std::uint32_t destination;  // network order, as the following two
  std::uint32_t mask;
  std::uint32_t next_hop;  // 0 when there is none
  std::int32_t if_index;   // 0 when there is none
  std::uint32_t type;      // inetCidrRouteType: 3 is local, a route without next hop
  std::uint32_t protocol;  // IANAipRouteProtocol
  std::uint32_t age;       // seconds since the last change
  ForwardmibOid* route_info;
  std::int32_t metric1;  // -1 when unused, as the others
  std::int32_t metric2;
  std::int32_t metric3;
  std::int32_t metric4;
  std::int32_t metric5;
  std::uint32_t row_status;
};

struct ForwardmibIpv6Route {
  ForwardmibOctets* destination;  // 16 octets
  std::uint32_t prefix_length;
  ForwardmibOctets* next_hop;  // 16 octets, or none for a route of type 3
  std::int32_t if_index;
  std::uint32_t type;
  std::uint32_t protocol;
  std::uint32_t age;
  std::uint32_t next_hop_as;
  std::int32_t metric1;
  std::int32_t metric2;
  std::int32_t metric3;
  std::int32_t metric4;
  std::int32_t metric5;
  std::uint32_t row_status;
};

// "ribmib_find_route" of the IPv4 module; addresses and mask in network order. The zeros are the PDU's
// context, the policy and the interface, which this table ignores.
using ForwardmibFindIpv4Route = ForwardmibIpv4Route* (*)(std::uint32_t zero1, std::uint32_t kind,
                                                         std::uint32_t table_id, std::uint32_t zero2,
                                                         std::uint32_t destination, std::uint32_t mask,
                                                         std::uint32_t zero3, std::uint32_t next_hop);
// "ribmib_find_route" of the IPv6 module; each address and the mask are 16 octets.
using ForwardmibFindIpv6Route = ForwardmibIpv6Route* (*)(std::uint32_t zero1, std::uint32_t kind,
                                                         std::uint32_t table_id, std::uint32_t zero2,
                                                         const std::uint8_t* destination,
                                                         const std::uint8_t* mask, std::uint32_t zero3,
                                                         const std::uint8_t* next_hop);
// "ribmib_total_active_routes": the number of rows of the table, from a counter.
using ForwardmibTotalActiveRoutes = std::uint32_t (*)(std::uint32_t table_id);

// The modules allocate from the C heap. Null is allowed.
inline void forwardmib_release_oid(ForwardmibOid* oid) {
  std::free(oid);
}
inline void forwardmib_release_octets(ForwardmibOctets* octets) {
  std::free(octets);
}
inline void forwardmib_release_route(ForwardmibIpv4Route* route) {
  std::free(route);
}
inline void forwardmib_release_route(ForwardmibIpv6Route* route) {
  std::free(route);
}
