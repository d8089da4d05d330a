// "mib/libipv4_forwardmib.dll": the IPv4 rows of the routing tables (forwardmib.h).
//
// Addresses arrive and leave in network order, so their octets in memory are the key's.
#include <cstring>

#include "route_modules/forwardmib.h"
#include "route_modules/module.h"

namespace {

constexpr std::size_t kAddressSize = 4;

router::RouteAddress address_of(std::uint32_t network_order) {
  router::RouteAddress address{};
  std::memcpy(address.data(), &network_order, kAddressSize);
  return address;
}

std::uint32_t number_of(const router::RouteAddress& address) {
  std::uint32_t network_order = 0;
  std::memcpy(&network_order, address.data(), kAddressSize);
  return network_order;
}

void fill(const router::Route& route, std::uint32_t age, ForwardmibIpv4Route* answer) {
  answer->destination = number_of(route.key.destination);
  answer->mask = number_of(inet::mask_of(route.key.prefix_length));
  answer->next_hop = number_of(route.key.next_hop);
  forwardmib::fill_common(route, age, answer);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] ForwardmibIpv4Route* ribmib_find_route(
    std::uint32_t, std::uint32_t kind, std::uint32_t table_id, std::uint32_t, std::uint32_t destination,
    std::uint32_t mask, std::uint32_t, std::uint32_t next_hop) {
  const router::RouteKey key = {.destination = address_of(destination), .next_hop = address_of(next_hop)};
  router::Route route;
  std::uint32_t age = 0;
  const router::RouteTableId table = {router::Family::kIpv4, table_id};
  if (!forwardmib::find_route(table, kind, key, address_of(mask), &route, &age)) return nullptr;
  auto* answer = forwardmib::allocate<ForwardmibIpv4Route>();
  auto* route_info = forwardmib::allocate<ForwardmibOid>();
  if (answer == nullptr || route_info == nullptr) {
    forwardmib_release_oid(route_info);
    forwardmib_release_route(answer);
    return nullptr;
  }
  route_info->length = 2;  // 0.0
  answer->route_info = route_info;
  fill(route, age, answer);
  return answer;
}

extern "C" [[gnu::visibility("default")]] std::uint32_t ribmib_total_active_routes(std::uint32_t table_id) {
  return forwardmib::total_active_routes({router::Family::kIpv4, table_id});
}
