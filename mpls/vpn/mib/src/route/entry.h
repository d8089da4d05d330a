// Rows of the VRF route table (RFC 4382, mplsL3VpnVrfRteTable), read through the routing table's MIB modules.
//
// Destination and next hop of a request are texts of hexadecimal digit pairs, most significant octet first;
// "0" is none. Main thread.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/tree/kvtree.h"

// The key of a route read.
struct RouteKeyText {
  std::int32_t dest_type;  // InetAddressType (RFC 4001); 2 and 4 are the IPv6 ones
  const char* dest;        // null and the empty text read as all zero
  std::uint32_t prefix_length;
  std::int32_t next_hop_type;
  const char* next_hop;  // as dest
};

// Get handler of "route" and "route-next": argument 0 the VRF name, 1 the destination type, 2 the prefix
// length, 3 the next-hop type, 4 the destination, 5 the next hop. A next read (is_next_read) asks for the
// route that follows, any other for exactly this one.
//
// A next read looks in the first VRF whose name is not smaller, then in the VRFs after it from their first
// route. 0 with a mpls_vpn_mib_route record, kStatusNoSuchRow, kStatusArgumentMissing, kStatusNoMemory, or
// the encoding's status.
Status mpls_vpn_mib_prov_get_route(KvReply* reply, const RequestArgs* args);

// One VRF: its IPv4 tables with the key, then its IPv6 tables from the all-zero key; the IPv6 tables alone,
// with the key, when a type of the key is an IPv6 one. 0 with the row filled, kStatusNoSuchRow,
// kStatusNoMemory. REQUIRES: record is not null.
[[nodiscard]] Status mpls_vpn_mib_find_route_in_vrf(mpls_vpn_mib_route* row, bool exact,
                                                    const VtabVrfRecord* record, const RouteKeyText& key);

// One table. 0 with the row filled except for its VRF name; kStatusNoSuchRow (no route, no module, or a text
// that is not an address); kStatusNoMemory. On failure the row is empty. Fault points "calloc_tagged:route
// dest", "calloc_tagged:route next hop", "calloc_tagged:XC Pointer" (the row is valid without the pointer).
[[nodiscard]] Status mpls_vpn_mib_rib_ipv4_route(mpls_vpn_mib_route* row, std::uint32_t table_id, bool exact,
                                                 const RouteKeyText& key);
[[nodiscard]] Status mpls_vpn_mib_rib_ipv6_route(mpls_vpn_mib_route* row, std::uint32_t table_id, bool exact,
                                                 const RouteKeyText& key);
