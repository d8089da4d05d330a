// Routes of a router file, in the form in which they are fed: groups of routes that differ in their prefix
// only.
//
// A written route is a group of one for each of its next hops. A generated group is `count` prefixes of one
// length, one after the other from the first. A group is never spread out in memory.
#pragma once

#include <cstdint>

#include "platform/router/model/router.h"

namespace router_file {

struct RouteGroup {
  router::RouteTableId table{router::Family::kIpv4, 0};
  router::Route first;
  std::uint32_t count = 1;
};

// The n-th prefix of this length after `first` (n = 0 is `first` itself); false past the last one there is.
[[nodiscard]] bool nth_prefix(const router::RouteAddress& first, std::uint8_t prefix_length, std::uint32_t n,
                              router::RouteAddress* prefix);

}  // namespace router_file
