// IPv4 routes of one table, and the label cross-connect that forwards each (mplsL3VpnVrfRteXCPointer).
//
// The module takes and returns addresses in network order, so their octets in memory are in the text's order.
// This file releases the module's route after copying its texts and octets into the row. The cross-connect is
// optional: if the label database fails, only the row's pointer is missing.
#include <cerrno>
#include <cstring>
#include <string>

#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/route/entry.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "mpls/vpn/mib/src/route/row.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/address/address.h"
#include "platform/router/lfx/lfx.h"
#include "route_modules/forwardmib.h"

namespace {

constexpr char kIpv4Route[] = "mpls_vpn_mib_rib_ipv4_route";
constexpr std::size_t kSize = 4;  // octets of an address

using Search = RouteSearch<kSize>;

std::uint32_t number_of(const std::uint8_t* octets) {
  std::uint32_t network_order = 0;
  std::memcpy(&network_order, octets, kSize);
  return network_order;
}

// For prints.
std::uint32_t host_order(std::uint32_t network_order) {
  std::uint8_t octets[kSize];
  std::memcpy(octets, &network_order, kSize);
  return static_cast<std::uint32_t>(octets[0]) << 24 | static_cast<std::uint32_t>(octets[1]) << 16 |
         static_cast<std::uint32_t>(octets[2]) << 8 | octets[3];
}

std::string shown(std::uint32_t network_order) {
  return inet::dotted_quad(host_order(network_order));
}

bool is_given(const char* text) {
  return *text != '\0' && std::strcmp(text, kNoAddressText) != 0;
}

// Skips the other paths of the prefix: asks with the greatest next hop.
void pass_over_next_hops(const RouteKeyText& key, bool exact, Search* search) {
  if (key.next_hop_type != 0 || exact || key.prefix_length == 0 || !is_given(route_text(key.dest))) return;
  std::memset(search->next_hop, 0xff, kSize);
  mpls_vpn_debug(
      RIB, "Looking for ipv4 non-remote route with dest = %s, mask = %d, next hop = %s, next hop type: %u",
      route_text(key.dest), static_cast<std::int32_t>(key.prefix_length), "255.255.255.255",
      static_cast<std::uint32_t>(key.next_hop_type));
}

bool make_search(const RouteKeyText& key, bool exact, Search* search) {
  *search = {};
  search->prefix_length = key.prefix_length;
  if (!route_read_address(route_text(key.dest), search->destination, kIpv4Route) ||
      !route_read_address(route_text(key.next_hop), search->next_hop, kIpv4Route)) {
    return false;
  }
  if (!route_fit_length(exact, kSize, &search->prefix_length, search->next_hop)) return false;
  pass_over_next_hops(key, exact, search);
  return true;
}

Ipv4RoutePointer ask_module(std::uint32_t table_id, bool exact, const Search& search) {
  const inet::Octets mask = inet::mask_of(search.prefix_length);
  errno = 0;
  return Ipv4RoutePointer(mpls_vpn_mib_rib_ipv4_find_route()(
      0, exact ? kForwardmibExact : kForwardmibNext, table_id, 0, number_of(search.destination),
      number_of(mask.data()), 0, number_of(search.next_hop)));
}

// Null, with *rc set, without a route.
Ipv4RoutePointer find_route(std::uint32_t table_id, bool exact, const Search& search, Status* rc) {
  Ipv4RoutePointer route = ask_module(table_id, exact, search);
  if (route == nullptr) {
    *rc = route_refuse_unanswered(errno, kIpv4Route, "No ipv4 route found");
    return route;
  }
  mpls_vpn_report(
      RIB, kTraceRib,
      "Found route with dest = %s, ifindex = %d, mask = 0x%x, nexthop = %s, type = %d, proto = %d",
      shown(route->destination).c_str(), route->if_index, host_order(route->mask),
      shown(route->next_hop).c_str(), static_cast<std::int32_t>(route->type),
      static_cast<std::int32_t>(route->protocol));
  return route;
}

Status fill_row(mpls_vpn_mib_route* row, const ForwardmibIpv4Route& route) {
  *row = {};
  route_fill_numbers(row, route, kInetAddressIpv4);
  row->mask = route_prefix_length(route);
  row->metric5 = route.metric4;  // deliberate: readers have always been shown metric 4 twice
  std::uint8_t octets[kSize];
  std::memcpy(octets, &route.destination, kSize);
  if (!route_copy_octets(&row->dest, octets, kSize, "route dest")) {
    return route_refuse_unfilled(row, kIpv4Route);
  }
  if (row->nextHopType == 0) return kStatusOk;
  std::memcpy(octets, &route.next_hop, kSize);
  if (!route_copy_octets(&row->nextHop, octets, kSize, "route next hop")) {
    return route_refuse_unfilled(row, kIpv4Route);
  }
  return kStatusOk;
}

}  // namespace

std::size_t route_find_cross_connect(const ForwardmibIpv4Route& route, std::uint32_t table_id,
                                     std::uint8_t (&index)[kLfxIndexMax]) {
  const auto prefix_length = route_prefix_length(route);
  mpls_vpn_report(RIB, kTraceRib, "Invoking LFX with dest = %s, mask = %d, table id = 0x%x",
                  shown(route.destination).c_str(), static_cast<std::int32_t>(prefix_length), table_id);
  const LfxRequest request = {kLfxIpv4Route, table_id, route.destination, prefix_length};
  std::size_t length = 0;
  const Status rc = lfx_c_lsr_xc_idx(index, sizeof index, &length, &request);
  if (rc == kStatusOk) return length;
  if (rc == kStatusNoCrossConnect) {
    mpls_vpn_debug(RIB, "No XC returned by LSR MIB for this route");
    mpls_vpn_trace(kTraceRib, rc, "No XC returned by LSR MIB for this route");
  } else {
    mpls_vpn_error(kIpv4Route, "LSR XC lookup failure", rc);
  }
  return 0;
}

Status mpls_vpn_mib_rib_ipv4_route(mpls_vpn_mib_route* row, std::uint32_t table_id, bool exact,
                                   const RouteKeyText& key) {
  mpls_vpn_report(RIB, kTraceRib,
                  "Looking for ipv4 route with dest = %s, mask = %d, next hop = %s, next hop type: %u",
                  route_text(key.dest), static_cast<std::int32_t>(key.prefix_length),
                  route_text(key.next_hop), static_cast<std::uint32_t>(key.next_hop_type));
  *row = {};
  if (!route_texts_fit(key.dest, key.next_hop, kSize, kIpv4Route)) return kStatusNoSuchRow;
  if (!mpls_vpn_mib_rib_ipv4_route_load_dll()) {
    mpls_vpn_debug(RIB, "%s: Load ipv4 RIB dll failed", kIpv4Route);
    return kStatusNoSuchRow;
  }
  Search search;
  if (!make_search(key, exact, &search)) return kStatusNoSuchRow;
  Status none = kStatusNoSuchRow;
  const Ipv4RoutePointer route = find_route(table_id, exact, search, &none);
  if (route == nullptr) return none;
  if (const Status rc = fill_row(row, *route)) return rc;
  std::uint8_t index[kLfxIndexMax] = {};
  const std::size_t length = route_find_cross_connect(*route, table_id, index);
  route_set_xc_pointer(row, index, length, kIpv4Route);
  return kStatusOk;
}
