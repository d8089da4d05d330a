#include "daemon/metrics/route_totals.h"

#include <gtest/gtest.h>

#include "platform/router/model/route_test_support.h"

namespace daemon_metrics {
namespace {

using router::RouteProtocol;

class RouteTotalsOfAVrf : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(model_.create_vrf(Vrf("red", 11, 10)), kStatusOk); }

  static router::Vrf Vrf(const std::string& name, std::uint32_t id, std::uint32_t table) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = id;
    vrf.ipv4_table = table;
    return vrf;
  }
  void Put(std::uint32_t table, const std::string& prefix, RouteProtocol protocol) {
    router::Route route = router::MakeRoute(prefix, "192.0.2.1");
    route.protocol = protocol;
    ASSERT_EQ(model_.routes().put({router::Family::kIpv4, table}, route), kStatusOk);
  }
  void Erase(std::uint32_t table, const std::string& prefix) {
    ASSERT_EQ(model_.routes().erase({router::Family::kIpv4, table}, router::MakeKey(prefix, "192.0.2.1")),
              kStatusOk);
  }
  router::RouteCounts Red() const { return totals_.of(*model_.find_vrf("red"), 0); }
  std::uint32_t RedOf(RouteProtocol protocol) const {
    return Red().by_protocol[static_cast<std::size_t>(protocol)];
  }
  bool HasSeen(RouteProtocol protocol) const {
    return (Red().protocols_seen >> static_cast<unsigned>(protocol) & 1U) != 0;
  }

  router::Router model_;
  RouteTotals totals_{&model_};
};

TEST_F(RouteTotalsOfAVrf, RoutesAreCountedByProtocol) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  Put(10, "10.2.0.0/16", RouteProtocol::kBgp);
  Put(10, "10.3.0.0/16", RouteProtocol::kOspf);
  EXPECT_EQ(RedOf(RouteProtocol::kBgp), 2U);
  EXPECT_EQ(RedOf(RouteProtocol::kOspf), 1U);
  EXPECT_EQ(Red().added, 3U);
  EXPECT_EQ(Red().removed, 0U);
}

TEST_F(RouteTotalsOfAVrf, ProtocolWithoutRoutesIsStillSeen) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  Erase(10, "10.1.0.0/16");
  EXPECT_EQ(RedOf(RouteProtocol::kBgp), 0U);
  EXPECT_TRUE(HasSeen(RouteProtocol::kBgp));
  EXPECT_FALSE(HasSeen(RouteProtocol::kOspf));
  EXPECT_EQ(Red().removed, 1U);
}

TEST_F(RouteTotalsOfAVrf, ChangedRouteIsRemovedAndAdded) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  Put(10, "10.1.0.0/16", RouteProtocol::kOspf);
  EXPECT_EQ(RedOf(RouteProtocol::kBgp), 0U);
  EXPECT_EQ(RedOf(RouteProtocol::kOspf), 1U);
  EXPECT_EQ(Red().added, 2U);
  EXPECT_EQ(Red().removed, 1U);
  Put(10, "10.1.0.0/16", RouteProtocol::kOspf);
  EXPECT_EQ(Red().added, 2U) << "nothing changed";
}

TEST_F(RouteTotalsOfAVrf, RoutesThatARefreshDoesNotFindAreRemoved) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  Put(10, "10.2.0.0/16", RouteProtocol::kOspf);
  model_.routes().begin_refresh({router::Family::kIpv4, 10});
  Put(10, "10.2.0.0/16", RouteProtocol::kOspf);
  while (model_.routes().end_refresh({router::Family::kIpv4, 10}, 1)) {
  }
  EXPECT_EQ(RedOf(RouteProtocol::kBgp), 0U);
  EXPECT_EQ(RedOf(RouteProtocol::kOspf), 1U);
  EXPECT_EQ(Red().added, 2U);
  EXPECT_EQ(Red().removed, 1U);
}

// A rate of a counter that fell would count everything again.
TEST_F(RouteTotalsOfAVrf, CountersNeverDecreaseWhenTheVrfGetsAnotherTable) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  Erase(10, "10.1.0.0/16");
  ASSERT_EQ(model_.change_vrf(Vrf("red", 11, 11)), kStatusOk);
  EXPECT_EQ(Red().added, 1U);
  EXPECT_EQ(Red().removed, 1U);
  EXPECT_TRUE(HasSeen(RouteProtocol::kBgp));
  Put(11, "10.2.0.0/16", RouteProtocol::kOspf);
  EXPECT_EQ(Red().added, 2U);
  ASSERT_EQ(model_.change_vrf(Vrf("red", 11, 0)), kStatusOk);
  EXPECT_EQ(Red().added, 2U);
}

TEST_F(RouteTotalsOfAVrf, WhatAnotherVrfHadInATableBeforeIsNotCounted) {
  ASSERT_EQ(model_.create_vrf(Vrf("blue", 12, 20)), kStatusOk);
  Put(20, "10.1.0.0/16", RouteProtocol::kBgp);
  Put(20, "10.2.0.0/16", RouteProtocol::kBgp);
  ASSERT_EQ(model_.change_vrf(Vrf("red", 11, 20)), kStatusOk);
  EXPECT_EQ(Red().added, 0U);
  EXPECT_EQ(RedOf(RouteProtocol::kBgp), 2U);
  Put(20, "10.3.0.0/16", RouteProtocol::kBgp);
  EXPECT_EQ(Red().added, 1U);
}

TEST_F(RouteTotalsOfAVrf, VrfThatIsCreatedAgainBeginsAtZero) {
  Put(10, "10.1.0.0/16", RouteProtocol::kBgp);
  ASSERT_EQ(model_.change_vrf(Vrf("red", 11, 11)), kStatusOk);
  ASSERT_EQ(model_.delete_vrf("red"), kStatusOk);
  ASSERT_EQ(model_.create_vrf(Vrf("red", 11, 10)), kStatusOk);
  EXPECT_EQ(Red().added, 0U);
  EXPECT_FALSE(HasSeen(RouteProtocol::kBgp));
}

TEST_F(RouteTotalsOfAVrf, ProtocolWithoutANameIsCountedAsOther) {
  Put(10, "10.1.0.0/16", static_cast<RouteProtocol>(200));
  EXPECT_EQ(RedOf(RouteProtocol::kOther), 1U);
  Erase(10, "10.1.0.0/16");
  EXPECT_EQ(RedOf(RouteProtocol::kOther), 0U);
}

}  // namespace
}  // namespace daemon_metrics
