// The function table through which a loaded module reads the process's routes.
//
// A module calls mpls_vpn_mib_route_access(kRouteAccessVersion), which the executable exports
// (ENABLE_EXPORTS), and gets the table of that version, or null when the process has another one. Versions
// exist because a module and the executable are separate files that may be of different builds.
//
// Main thread only; the process attaches its model first. Before that there are no routes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/router/model/router.h"

namespace router {

inline constexpr std::uint32_t kRouteAccessVersion = 1;

struct RouteAccess {
  std::uint32_t version;
  // The row of `key`, or with `next` the first row whose key is greater; false when there is none. *age is in
  // seconds. Fault point "ribmib_find_route" (any status is "none").
  bool (*find)(RouteTableId table, bool next, const RouteKey& key, Route* route, std::uint32_t* age);
  bool (*find_first)(RouteTableId table, Route* route, std::uint32_t* age);
  std::uint32_t (*count)(RouteTableId table);
  // Zeroed octets of the C heap, null without memory. Fault point "calloc_tagged:forwardmib".
  void* (*allocate)(std::size_t size);
};

void route_access_attach(Router* model);  // called once by the process; null detaches

}  // namespace router

extern "C" [[gnu::visibility("default")]] const router::RouteAccess* mpls_vpn_mib_route_access(
    std::uint32_t version);
