// What the kernel makes of routes without an announcement, from what it announces of links, addresses and
// next-hop objects.
#include "sources/kernel/route_state/route_history.h"

#include <gmock/gmock.h>
#include <net/if.h>

#include "sources/kernel/route_state/link_states.h"

namespace kernel {
namespace {

using LinkChange = RouteHistory::LinkChange;
using Verdict = RouteHistory::Verdict;

constexpr std::uint32_t kUp = IFF_UP | IFF_RUNNING | kFlagLowerUp;

KernelRoute Over(router::Family family, const std::vector<std::uint32_t>& interfaces) {
  KernelRoute route{.family = family};
  for (const std::uint32_t index : interfaces) route.paths.push_back({.interface_index = index});
  return route;
}
KernelRoute Ipv4(const std::vector<std::uint32_t>& interfaces) {
  return Over(router::Family::kIpv4, interfaces);
}
KernelRoute Ipv6(const std::vector<std::uint32_t>& interfaces) {
  return Over(router::Family::kIpv6, interfaces);
}
KernelRoute Named(std::uint32_t object) {
  return {.next_hop_object = object};
}

class RouteHistoryTest : public ::testing::Test {
 protected:
  Verdict Apply(KernelRoute route, RouteHistory::Moment since = 0) {
    const Verdict verdict = history_.apply(since, &route);
    dead_.clear();
    for (const RoutePath& path : route.paths) dead_.push_back(path.dead);
    return verdict;
  }
  RouteHistory history_;
  std::vector<bool> dead_;  // of the paths of the last route
};

TEST_F(RouteHistoryTest, RouteOverALinkThatIsDownIsDeleted) {
  history_.add(5, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(Ipv4({5})), Verdict::kDeleted);
  EXPECT_EQ(Apply(Ipv4({6})), Verdict::kSame);
  EXPECT_EQ(Apply(Ipv6({5})), Verdict::kSame);
}

TEST_F(RouteHistoryTest, RoutesOfObjectsThatPrecedeACutHaveChanged) {
  history_.object_removed(1);
  history_.cut();
  EXPECT_EQ(Apply(Named(1)), Verdict::kChanged);
  EXPECT_EQ(Apply(Named(2)), Verdict::kChanged);
  EXPECT_EQ(Apply(Named(2), history_.now()), Verdict::kSame);
  EXPECT_EQ(history_.size(), 0U);
}

TEST_F(RouteHistoryTest, IgnoredPathKeepsItsRouteUntilItsLinkIsDown) {
  KernelRoute route = Ipv4({5, 6});
  route.paths[0].ignored = true;
  history_.add(6, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(route), Verdict::kChanged);
  history_.add(5, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(route), Verdict::kDeleted);
}

TEST_F(RouteHistoryTest, Ipv6RouteWithAnIgnoredPathIsDeletedWithItsLink) {
  KernelRoute route = Ipv6({5});
  route.paths[0].ignored = true;
  history_.add(5, LinkChange::kIpv6Down);
  EXPECT_EQ(Apply(route), Verdict::kDeleted);
}

TEST_F(RouteHistoryTest, PathOverALinkThatIsDownIsDeadUntilTheLinkIsUp) {
  history_.add(5, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(Ipv4({5, 6})), Verdict::kChanged);
  EXPECT_THAT(dead_, ::testing::ElementsAre(true, false));
  history_.add(5, LinkChange::kIpv4Up);
  EXPECT_EQ(Apply(Ipv4({5, 6})), Verdict::kChanged);
  EXPECT_THAT(dead_, ::testing::ElementsAre(false, false));
}

// The order of the changes of different links matters.
TEST_F(RouteHistoryTest, RouteIsDeletedWhenItsLastPathDies) {
  history_.add(5, LinkChange::kIpv4Down);
  history_.add(6, LinkChange::kIpv4Down);
  history_.add(5, LinkChange::kIpv4Up);
  EXPECT_EQ(Apply(Ipv4({5, 6})), Verdict::kDeleted);
  history_ = {};
  history_.add(5, LinkChange::kIpv4Down);
  history_.add(5, LinkChange::kIpv4Up);
  history_.add(6, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(Ipv4({5, 6})), Verdict::kChanged);
  EXPECT_THAT(dead_, ::testing::ElementsAre(false, true));
}

TEST_F(RouteHistoryTest, RemovedLinkDeletesAnIpv4RouteAndAPathOfAnIpv6Route) {
  history_.add(5, LinkChange::kRemoved);
  EXPECT_EQ(Apply(Ipv4({5, 6})), Verdict::kDeleted);
  EXPECT_EQ(Apply(Ipv6({5, 6})), Verdict::kChanged);
  EXPECT_EQ(dead_.size(), 1U);
  EXPECT_EQ(Apply(Ipv6({5})), Verdict::kDeleted);
}

TEST_F(RouteHistoryTest, LaterRouteIsNotConcerned) {
  history_.add(5, LinkChange::kIpv4Down);
  EXPECT_EQ(Apply(Ipv4({5}), history_.now()), Verdict::kSame);
}

TEST_F(RouteHistoryTest, RoutesOfObjectsFollowTheirObjectsOnly) {
  history_.add(5, LinkChange::kIpv4Down);
  history_.object_changed(8);
  history_.object_removed(9);
  KernelRoute route = Ipv4({5});
  route.next_hop_object = 7;
  EXPECT_EQ(Apply(route), Verdict::kSame);
  EXPECT_EQ(Apply(Named(8)), Verdict::kChanged);
  EXPECT_EQ(Apply(Named(9)), Verdict::kDeleted);
}

TEST_F(RouteHistoryTest, ObjectThatIsRemovedAndAddedAgainHasLostItsRoutes) {
  history_.object_removed(9);
  const RouteHistory::Moment between = history_.now();
  history_.object_changed(9);
  EXPECT_EQ(Apply(Named(9)), Verdict::kDeleted);
  EXPECT_EQ(Apply(Named(9), between), Verdict::kChanged);
}

class LinkStatesTest : public ::testing::Test {
 protected:
  LinkStates::Change See(std::uint32_t flags, std::uint32_t vrf = 0) {
    return states_.seen({.link = {.index = 5, .vrf_master = vrf}, .facts = {.flags = flags}});
  }
  static LinkAddress Address(std::uint8_t last) {
    LinkAddress address{.index = 5};
    address.address = {router::Family::kIpv4, 24, {10, 0, 0, last}};
    address.peer = address.address.octets;
    return address;
  }
  LinkStates states_;
};

TEST_F(LinkStatesTest, LinkSetDownAndUp) {
  See(kUp);
  const LinkStates::Change down = See(0);
  EXPECT_TRUE(down.ipv4_down && down.ipv6_down && down.objects_lost);
  const LinkStates::Change up = See(kUp);
  EXPECT_TRUE(up.ipv4_up && up.ipv6_up);
  EXPECT_FALSE(up.ipv4_down || up.objects_lost);
  EXPECT_FALSE(See(kUp).any());
}

// IPv6 paths stay dead until the link has its carrier; next-hop objects are removed.
TEST_F(LinkStatesTest, LinkWithoutCarrier) {
  See(0);
  const LinkStates::Change up = See(IFF_UP);
  EXPECT_TRUE(up.ipv4_up && up.objects_lost && up.carrier);
  EXPECT_FALSE(up.ipv6_up);
  EXPECT_TRUE(See(kUp).ipv6_up);
  const LinkStates::Change lost = See(IFF_UP);
  EXPECT_TRUE(lost.objects_lost && lost.carrier);
  EXPECT_FALSE(lost.ipv4_down || lost.ipv6_down);
}

TEST_F(LinkStatesTest, LinkThatJoinsAVrfLosesItsRoutesThoughItIsUp) {
  See(kUp);
  const LinkStates::Change joined = See(kUp, 2);
  EXPECT_TRUE(joined.ipv4_down && joined.ipv6_down);
  EXPECT_FALSE(joined.objects_lost);
}

TEST_F(LinkStatesTest, LastIpv4AddressTakesTheRoutesWithIt) {
  See(kUp);
  EXPECT_TRUE(states_.address_seen(Address(1)).ipv4_up);
  states_.address_seen(Address(2));
  EXPECT_FALSE(states_.address_seen(Address(2)).any());  // announced again
  EXPECT_FALSE(states_.address_removed(Address(1)).any());
  const LinkStates::Change last = states_.address_removed(Address(2));
  EXPECT_TRUE(last.ipv4_down);
  EXPECT_FALSE(last.ipv6_down || last.objects_lost);
}

TEST_F(LinkStatesTest, RemovedLinkIsForgottenWithItsAddresses) {
  See(kUp);
  states_.address_seen(Address(1));
  states_.removed(5);
  EXPECT_TRUE(states_.address_removed(Address(2)).ipv4_down);
  EXPECT_TRUE(See(kUp).ipv4_up);
}

TEST_F(LinkStatesTest, LinkThatIsSeenForTheFirstTimeInAVrfKeepsItsRoutes) {
  const LinkStates::Change first = See(kUp, 2);
  EXPECT_FALSE(first.ipv4_down || first.ipv6_down);
  EXPECT_TRUE(See(kUp, 3).ipv4_down);
}

}  // namespace
}  // namespace kernel
