// IPv6 routes of one table: as for IPv4, with 16-octet addresses. Next-hop AS and metric 5 are the route's
// own, and the label database is not asked: its requests cover IPv4 routes only.
#include <cerrno>
#include <cstring>

#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/route/entry.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "mpls/vpn/mib/src/route/row.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/address/address.h"
#include "route_modules/forwardmib.h"

namespace {

constexpr char kIpv6Route[] = "mpls_vpn_mib_rib_ipv6_route";
constexpr std::size_t kSize = 16;  // octets of an address

using Search = RouteSearch<kSize>;

const char* shown(const char* text) {
  return text == nullptr ? "Null" : text;
}

void report_request(std::uint32_t table_id, bool exact, const RouteKeyText& key) {
  mpls_vpn_report(RIB, kTraceRib,
                  "rib_ipv6_route(0x%x,%s,dest type:%d, dest:%s, pfxLen:%d, next hop type:%d, next hop:%s)",
                  table_id, exact ? "EXACT" : "NEXT", key.dest_type, shown(key.dest),
                  static_cast<std::int32_t>(key.prefix_length), key.next_hop_type, shown(key.next_hop));
}

// Skips the other paths of the prefix: asks with a next hop greater than those in use.
void pass_over_next_hops(const RouteKeyText& key, bool exact, Search* search) {
  if (exact || key.next_hop_type != 0 || key.prefix_length == 0) return;
  if (std::strcmp(route_text(key.dest), kNoAddressText) == 0) return;
  search->next_hop[0] = 1;
  mpls_vpn_debug(
      RIB, "Looking for ipv6 non-remote route with dest = %s, mask = %d, next hop = %x, next hop type: %u",
      route_text(key.dest), static_cast<std::int32_t>(key.prefix_length),
      static_cast<unsigned>(search->next_hop[0]), static_cast<std::uint32_t>(key.next_hop_type));
}

bool make_search(const RouteKeyText& key, bool exact, Search* search) {
  *search = {};
  search->prefix_length = key.prefix_length;
  if (!route_read_address(route_text(key.dest), search->destination, kIpv6Route) ||
      !route_read_address(route_text(key.next_hop), search->next_hop, kIpv6Route)) {
    return false;
  }
  pass_over_next_hops(key, exact, search);
  return route_fit_length(exact, kSize, &search->prefix_length, search->next_hop);
}

Ipv6RoutePointer ask_module(std::uint32_t table_id, bool exact, const Search& search) {
  const inet::Octets mask = inet::mask_of(search.prefix_length);
  errno = 0;
  return Ipv6RoutePointer(mpls_vpn_mib_rib_ipv6_find_route()(0, exact ? kForwardmibExact : kForwardmibNext,
                                                             table_id, 0, search.destination, mask.data(), 0,
                                                             search.next_hop));
}

// Null, with *rc set, without a route.
Ipv6RoutePointer find_route(std::uint32_t table_id, bool exact, const Search& search, Status* rc) {
  Ipv6RoutePointer route = ask_module(table_id, exact, search);
  if (route == nullptr) *rc = route_refuse_unanswered(errno, kIpv6Route, "No ipv6 route found");
  return route;
}

Status fill_row(mpls_vpn_mib_route* row, const ForwardmibIpv6Route& route) {
  route_fill_numbers(row, route, kInetAddressIpv6);
  row->mask = route.prefix_length;
  row->nextHopAS = route.next_hop_as;
  row->metric5 = route.metric5;
  const std::size_t next_hop_length = row->nextHopType == 0 ? 0 : route.next_hop->length;
  if (!route_copy_octets(&row->dest, route.destination->octets, route.destination->length, "route dest") ||
      !route_copy_octets(&row->nextHop, route.next_hop->octets, next_hop_length, "route next hop")) {
    return route_refuse_unfilled(row, kIpv6Route);
  }
  mpls_vpn_report(RIB, kTraceRib, "rib_ipv6_route: found(%d,%d,%d,%d,%d,%d,%u)", row->destType,
                  static_cast<std::int32_t>(row->mask), row->nextHopType, row->ifIndex, row->type, row->proto,
                  row->age);
  return kStatusOk;
}

}  // namespace

Status mpls_vpn_mib_rib_ipv6_route(mpls_vpn_mib_route* row, std::uint32_t table_id, bool exact,
                                   const RouteKeyText& key) {
  report_request(table_id, exact, key);
  *row = {};
  if (!route_texts_fit(key.dest, key.next_hop, kSize, kIpv6Route)) return kStatusNoSuchRow;
  if (!mpls_vpn_mib_rib_ipv6_route_load_dll()) {
    mpls_vpn_debug(RIB, "%s: Load ipv6 RIB dll failed", kIpv6Route);
    return kStatusNoSuchRow;
  }
  Search search;
  if (!make_search(key, exact, &search)) return kStatusNoSuchRow;
  Status none = kStatusNoSuchRow;
  const Ipv6RoutePointer route = find_route(table_id, exact, search, &none);
  if (route == nullptr) return none;
  if (const Status rc = fill_row(row, *route)) return rc;
  route_set_xc_pointer(row, nullptr, 0, kIpv6Route);
  return kStatusOk;
}
