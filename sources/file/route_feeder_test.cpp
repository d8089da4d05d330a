// The routes of a file are added to the model in steps.
#include "sources/file/route_feeder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/router/model/route_test_support.h"

namespace router_file {
namespace {

using router::Family;
using router::RouteTableId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr RouteTableId kRed{Family::kIpv4, 10};
constexpr RouteTableId kRed6{Family::kIpv6, 10};
constexpr RouteTableId kBlue{Family::kIpv4, 20};

class FedRoutes : public ::testing::Test, public router::Observer {
 protected:
  FedRoutes() {
    AddVrf("red", 10);
    AddVrf("blue", 20);
    router_.observe(router::ObserverRank::kOther, this);
  }

  void AddVrf(const std::string& name, std::uint32_t id) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = vrf.ipv4_table = vrf.ipv6_table = id;
    EXPECT_EQ(router_.create_vrf(vrf), kStatusOk);
  }
  void routes_changed(RouteTableId table) override { notified_.push_back(table); }

  static RouteGroup Group(RouteTableId table, const std::string& prefix, std::uint32_t count = 1) {
    RouteGroup group{table, router::MakeRoute(prefix), count};
    return group;
  }
  void FeedAll(std::vector<RouteGroup> groups) {
    feeder_.begin(std::move(groups));
    while (!feeder_.is_done()) ASSERT_EQ(feeder_.step(100), kStatusOk);
  }
  void Step(std::size_t rows) { ASSERT_EQ(feeder_.step(rows), kStatusOk); }
  std::size_t Count(RouteTableId table) const { return router_.routes().count(table); }
  std::string Changes() const { return changes_text({}, feeder_.changes()); }

  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
  router::Router router_;
  RouteFeeder feeder_{&router_};
  std::vector<RouteTableId> notified_;
};

TEST_F(FedRoutes, GroupBecomesItsRows) {
  FeedAll({Group(kRed, "10.0.0.0/24", 3), Group(kRed6, "2001:db8::/32")});
  EXPECT_THAT(router::Walk(router_.routes(), kRed), ElementsAre("10.0.0.0/24", "10.0.1.0/24", "10.0.2.0/24"));
  EXPECT_THAT(router::Walk(router_.routes(), kRed6), ElementsAre("2001:db8::/32"));
  EXPECT_EQ(Changes(), "4 routes added");
}

TEST_F(FedRoutes, EveryStepIsBounded) {
  feeder_.begin({Group(kRed, "10.0.0.0/24", 25), Group(kBlue, "10.0.0.0/24", 10)});
  EXPECT_EQ(Count(kRed), 0U);
  Step(20);
  EXPECT_EQ(Count(kRed), 20U);
  Step(10);
  EXPECT_EQ(Count(kRed), 25U);
  EXPECT_EQ(Count(kBlue), 5U);
  EXPECT_FALSE(feeder_.is_done());
}

TEST_F(FedRoutes, TablesAreBegunInBoundedSteps) {
  for (std::uint32_t id = 100; id < 200; ++id) AddVrf("vrf" + std::to_string(id), id);
  feeder_.begin({Group(kRed, "10.0.0.0/24")});
  for (int step = 0; step < 10; ++step) {
    Step(10);
    EXPECT_EQ(Count(kRed), 0U);
    EXPECT_FALSE(feeder_.written_are_done());
  }
  Step(10);
  EXPECT_EQ(Count(kRed), 1U);
}

TEST_F(FedRoutes, TableOfManyVrfsIsBegunOnce) {
  FeedAll({Group(kRed, "10.0.0.0/24", 2)});
  for (std::uint32_t id = 100; id < 100 + 255; ++id) {
    router::Vrf vrf;
    vrf.name = "vrf" + std::to_string(id);
    vrf.id = id;
    vrf.ipv4_table = kRed.table;
    ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
  }
  FeedAll({Group(kRed, "10.0.0.0/24")});
  EXPECT_EQ(Changes(), "1 route removed") << "256 refreshes of a table would be none";
}

TEST_F(FedRoutes, StepsNotifyOfTheTablesThatChanged) {
  feeder_.begin({Group(kRed, "10.0.0.0/24", 15), Group(kBlue, "10.0.0.0/24", 10)});
  Step(10);
  EXPECT_THAT(notified_, ElementsAre(kRed));
  Step(10);
  EXPECT_THAT(notified_, ElementsAre(kRed, kRed, kBlue));
}

TEST_F(FedRoutes, SameRoutesAgainKeepTheirAgeAndNotifyNoObserver) {
  const std::vector<RouteGroup> groups = {Group(kRed, "10.0.0.0/24", 300)};
  FeedAll(groups);
  notified_.clear();
  clock_.advance(60 * kNanosecondsPerSecond);
  FeedAll(groups);
  EXPECT_EQ(Changes(), "nothing changed");
  EXPECT_THAT(notified_, IsEmpty());
  router::Route route;
  ASSERT_TRUE(router_.routes().find(kRed, router::MakeKey("10.0.7.0/24"), &route));
  EXPECT_EQ(router::route_age(route), 60U);
}

TEST_F(FedRoutes, OnlyTheDifferenceIsChanged) {
  FeedAll({Group(kRed, "10.0.0.0/24", 300), Group(kBlue, "10.0.0.0/8")});
  RouteGroup changed = Group(kRed, "10.0.0.0/24", 1);
  changed.first.interface_index = 9;
  FeedAll({changed, Group(kRed, "10.0.1.0/24", 309)});
  EXPECT_EQ(Changes(), "10 routes added, 1 route changed, 1 route removed");
  EXPECT_EQ(Count(kRed), 310U);
  EXPECT_EQ(Count(kBlue), 0U);
}

TEST_F(FedRoutes, RemovalIsInBoundedStepsToo) {
  FeedAll({Group(kRed, "10.0.0.0/24", 1000), Group(kBlue, "10.0.0.0/24", 1000)});
  feeder_.begin({});
  Step(100);
  EXPECT_EQ(Count(kRed), 900U);
  int steps = 1;
  while (!feeder_.is_done()) {
    const std::size_t before = Count(kRed) + Count(kBlue);
    Step(100);
    EXPECT_LE(before - Count(kRed) - Count(kBlue), 200U);
    ++steps;
  }
  EXPECT_GE(steps, 20);
  EXPECT_EQ(Changes(), "2000 routes removed");
}

TEST_F(FedRoutes, VrfDeletedDuringTheFeedIsSkipped) {
  feeder_.begin({Group(kRed, "10.0.0.0/24", 50), Group(kBlue, "10.0.0.0/24", 5)});
  Step(20);
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  while (!feeder_.is_done()) Step(20);
  EXPECT_EQ(Count(kBlue), 5U);
}

TEST_F(FedRoutes, RefusedRowEndsTheFeedWithoutRemovals) {
  FeedAll({Group(kRed, "10.0.0.0/24", 3)});
  feeder_.begin({Group(kRed, "11.0.0.0/24", 3)});
  const ScopedFault fault("route_store_put", kStatusNoMemory, 2);
  EXPECT_EQ(feeder_.step(100), kStatusNoMemory);
  EXPECT_TRUE(feeder_.is_done());
  EXPECT_EQ(Count(kRed), 4U);
}

TEST_F(FedRoutes, NothingToDoIsDoneAtOnce) {
  EXPECT_TRUE(feeder_.is_done());
  feeder_.begin({});
  Step(1000);
  EXPECT_TRUE(feeder_.is_done());
  EXPECT_EQ(Changes(), "nothing changed");
}

}  // namespace
}  // namespace router_file
