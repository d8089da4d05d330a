#include "sources/kernel/routes/packed_route.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <vector>

namespace kernel {
namespace {

KernelRoute Plain() {
  KernelRoute route{.type = RTN_UNICAST, .protocol = RTPROT_BGP};
  route.paths.push_back({.interface_index = 5, .has_gateway = true, .gateway = {10, 0, 0, 2}});
  return route;
}

// Routes that differ in one field each, with the largest numbers.
std::vector<KernelRoute> Variants() {
  std::vector<KernelRoute> routes(21, Plain());
  auto route = routes.begin() + 1;
  (route++)->family = router::Family::kIpv6;
  (route++)->tos = 255;
  (route++)->source_length = 64;
  (route++)->source = {0x20, 1};
  (route++)->type = RTN_THROW;
  (route++)->protocol = 255;
  (route++)->priority = UINT32_MAX;
  (route++)->next_hop_object = UINT32_MAX;
  (route++)->cached = true;
  (route++)->preferred_source = UINT32_MAX;
  (route++)->details = UINT32_MAX;
  (route++)->paths.clear();
  (route++)->paths.push_back({.interface_index = UINT32_MAX, .protocol = 3, .weight = 255});
  (route++)->paths[0].labels = {0, 16, 1'048'575};
  (route++)->paths[0].labels.assign(200, 16);
  (route++)->paths[0].tunnel = true;
  (route++)->paths[0].dead = true;
  (route++)->paths[0].ignored = true;
  (route++)->paths[0] = {
      .has_gateway = true, .gateway_family = router::Family::kIpv6, .gateway = {0xfe, 0x80}};
  (route++)->paths[0].gateway = {};
  EXPECT_EQ(route, routes.end());
  return routes;
}

TEST(PackedRoute, IsUnpackedAsItWas) {
  for (const KernelRoute& route : Variants()) EXPECT_EQ(unpack(pack(route)), route) << pack(route).size();
}

TEST(PackedRoute, OctetsDifferExactlyIfRoutesDiffer) {
  const std::vector<KernelRoute> routes = Variants();
  for (const KernelRoute& one : routes) {
    for (const KernelRoute& other : routes) EXPECT_EQ(pack(one) == pack(other), one == other);
  }
}

TEST(PackedRoute, PreferredSourceIsReadAlone) {
  EXPECT_EQ(preferred_source_of(pack(Plain())), 0U);
  KernelRoute route = Plain();
  route.preferred_source = 0x0100000a;
  route.priority = 20;
  EXPECT_EQ(preferred_source_of(pack(route)), 0x0100000aU);
}

TEST(PackedRoute, GatewayAndMetricTakeNoAllocation) {
  KernelRoute route = Plain();
  route.priority = 1'000'000;
  EXPECT_LE(pack(route).size(), std::string().capacity());
}

}  // namespace
}  // namespace kernel
