// Shared by the two modules; each has its own copy, since each exports only its two symbols.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/router/model/route_access.h"

namespace forwardmib {

// The read of `kind` (forwardmib.h), with the key's prefix length from the mask; false when there is no such
// row.
[[nodiscard]] bool find_route(router::RouteTableId table, std::uint32_t kind, router::RouteKey key,
                              const router::RouteAddress& mask, router::Route* route, std::uint32_t* age);
std::uint32_t total_active_routes(router::RouteTableId table);

// Zeroed, of the C heap; null, with errno set to ENOMEM, without memory.
void* allocate(std::size_t size);
template <typename T>
T* allocate() {
  return static_cast<T*>(allocate(sizeof(T)));
}

// The fields that both kinds of route have under the same names.
template <typename Answer>
void fill_common(const router::Route& route, std::uint32_t age, Answer* answer) {
  answer->if_index = static_cast<std::int32_t>(route.interface_index);
  answer->type = static_cast<std::uint32_t>(route.type);
  answer->protocol = static_cast<std::uint32_t>(route.protocol);
  answer->age = age;
  answer->metric1 = route.metrics[0];
  answer->metric2 = route.metrics[1];
  answer->metric3 = route.metrics[2];
  answer->metric4 = route.metrics[3];
  answer->metric5 = route.metrics[4];
  answer->row_status = route.row_status;
}

}  // namespace forwardmib
