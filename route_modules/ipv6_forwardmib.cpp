// "mib/libipv6_forwardmib.dll": the IPv6 rows of the routing tables (forwardmib.h).
#include <algorithm>

#include "route_modules/forwardmib.h"
#include "route_modules/module.h"

namespace {

constexpr std::size_t kAddressSize = 16;

router::RouteAddress address_of(const std::uint8_t* octets) {
  router::RouteAddress address;
  std::copy_n(octets, kAddressSize, address.begin());
  return address;
}

ForwardmibOctets* octets_of(const router::RouteAddress& address, std::uint32_t length) {
  auto* octets = forwardmib::allocate<ForwardmibOctets>();
  if (octets == nullptr) return nullptr;
  octets->length = length;
  std::copy_n(address.begin(), length, octets->octets);
  return octets;
}

void release(ForwardmibIpv6Route* answer) {
  if (answer == nullptr) return;
  forwardmib_release_octets(answer->destination);
  forwardmib_release_octets(answer->next_hop);
  forwardmib_release_route(answer);
}

ForwardmibIpv6Route* answer_of(const router::Route& route, std::uint32_t age) {
  auto* answer = forwardmib::allocate<ForwardmibIpv6Route>();
  if (answer == nullptr) return nullptr;
  const bool has_next_hop = route.type != router::RouteType::kLocal;
  answer->destination = octets_of(route.key.destination, kAddressSize);
  answer->next_hop = octets_of(route.key.next_hop, has_next_hop ? kAddressSize : 0);
  if (answer->destination == nullptr || answer->next_hop == nullptr) {
    release(answer);
    return nullptr;
  }
  answer->prefix_length = route.key.prefix_length;
  answer->next_hop_as = route.next_hop_as;
  forwardmib::fill_common(route, age, answer);
  return answer;
}

}  // namespace

extern "C" [[gnu::visibility("default")]] ForwardmibIpv6Route* ribmib_find_route(
    std::uint32_t, std::uint32_t kind, std::uint32_t table_id, std::uint32_t, const std::uint8_t* destination,
    const std::uint8_t* mask, std::uint32_t, const std::uint8_t* next_hop) {
  const router::RouteKey key = {.destination = address_of(destination), .next_hop = address_of(next_hop)};
  router::Route route;
  std::uint32_t age = 0;
  const router::RouteTableId table = {router::Family::kIpv6, table_id};
  if (!forwardmib::find_route(table, kind, key, address_of(mask), &route, &age)) return nullptr;
  return answer_of(route, age);
}

extern "C" [[gnu::visibility("default")]] std::uint32_t ribmib_total_active_routes(std::uint32_t table_id) {
  return forwardmib::total_active_routes({router::Family::kIpv6, table_id});
}
