// The process's function table is requested at every read: it is a constant of the executable, so caching it
// would gain nothing.
#include "route_modules/module.h"

#include <algorithm>
#include <cerrno>

#include "route_modules/forwardmib.h"

namespace forwardmib {
namespace {

const router::RouteAccess* access() {
  return mpls_vpn_mib_route_access(router::kRouteAccessVersion);
}

// False for a mask whose ones are not the first bits.
bool prefix_length_of(const router::RouteAddress& mask, std::size_t size, std::uint8_t* prefix_length) {
  for (std::size_t length = 0; length <= 8 * size; ++length) {
    if (inet::mask_of(length) == mask) {
      *prefix_length = static_cast<std::uint8_t>(length);
      return true;
    }
  }
  return false;
}

}  // namespace

bool find_route(router::RouteTableId table, std::uint32_t kind, router::RouteKey key,
                const router::RouteAddress& mask, router::Route* route, std::uint32_t* age) {
  const router::RouteAccess* routes = access();
  if (routes == nullptr || (kind != kForwardmibExact && kind != kForwardmibNext)) return false;
  if (!prefix_length_of(mask, inet::octets_of(table.family), &key.prefix_length)) return false;
  const bool next = kind == kForwardmibNext;
  if (next && key == router::RouteKey{}) return routes->find_first(table, route, age);
  return routes->find(table, next, key, route, age);
}

std::uint32_t total_active_routes(router::RouteTableId table) {
  const router::RouteAccess* routes = access();
  return routes == nullptr ? 0 : routes->count(table);
}

void* allocate(std::size_t size) {
  const router::RouteAccess* routes = access();
  void* memory = routes == nullptr ? nullptr : routes->allocate(size);
  if (memory == nullptr) errno = ENOMEM;
  return memory;
}

}  // namespace forwardmib
