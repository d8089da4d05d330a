// Routes of a router file: written ones are added at once, generated ones on the loop; reloads keep ages.
#include "platform/router/model/route_test_support.h"
#include "sources/file/file_source_test_support.h"

namespace {

using ::testing::EndsWith;

constexpr router::RouteTableId kRed{router::Family::kIpv4, 10};
constexpr std::size_t kStep = 1000;  // rows of one step

class RoutesOnDisk : public RouterOnDisk {
 protected:
  // VRF red with a default route and generated ones.
  static std::string Red(std::size_t generated) {
    return "vrfs: [{name: red, id: 10, routes: [{generate: " + std::to_string(generated) +
           "}, {prefix: 0.0.0.0/0, type: blackhole}]}]\n";
  }
  Status Reload(const std::string& text) {
    Write(text);
    return Act({"router", "reload"}, &answer_);
  }
  void RunAll() {
    while (event_run_pending(manager_, source_ && source_->is_reading() ? kEventBound : 0)) {
    }
  }
  std::size_t Count() const { return router_->routes().count(kRed); }
  std::uint32_t Age(const char* prefix, const char* next_hop = "192.0.2.1") {
    router::Route route;
    EXPECT_TRUE(router_->routes().find(kRed, router::MakeKey(prefix, next_hop), &route)) << prefix;
    return router::route_age(route);
  }

  std::string answer_;
};

TEST_F(RoutesOnDisk, WrittenRoutesArePresentAfterTheLoad) {
  LoadWell(Red(100000));
  router::Route route;
  EXPECT_TRUE(router_->routes().find(kRed, router::MakeKey("0.0.0.0/0"), &route));
  EXPECT_LE(Count(), kStep + 1);
}

TEST_F(RoutesOnDisk, AllWrittenRoutesAreAddedAtOnce) {
  std::string routes;
  for (int number = 0; number < 5000; ++number) {
    routes += "{prefix: 10." + std::to_string(number / 250) + "." + std::to_string(number % 250) +
              ".0/24, type: reject},";
  }
  LoadWell("vrfs: [{name: red, id: 10, routes: [" + routes + "]}]\n");
  EXPECT_EQ(Count(), 5000U);
}

TEST_F(RoutesOnDisk, OtherWorkRunsBetweenBoundedSteps) {
  LoadWell(Red(20000));
  Start();
  std::vector<std::size_t> seen = {Count()};
  const std::function<void()> look = [&] {
    seen.push_back(Count());
    if (seen.back() < 20001) event_post(manager_, look);
  };
  event_post(manager_, look);
  RunAll();
  ASSERT_EQ(seen.back(), 20001U);
  for (std::size_t at = 1; at < seen.size(); ++at) EXPECT_LE(seen[at] - seen[at - 1], kStep);
}

TEST_F(RoutesOnDisk, ReloadAppliesTheDifferenceAndKeepsAges) {
  ManualClock clock(1'700'000'000 * kNanosecondsPerSecond);
  LoadWell(Red(5000));
  Start();
  RunAll();
  ASSERT_EQ(Count(), 5001U);
  clock.advance(100 * kNanosecondsPerSecond);
  ASSERT_EQ(Reload(Red(6000)), kStatusOk) << answer_;
  RunAll();
  EXPECT_EQ(Count(), 6001U);
  EXPECT_EQ(Age("1.0.7.0/24"), 100U);
  EXPECT_EQ(Age("0.0.0.0/0", ""), 100U);
  EXPECT_EQ(Age("1.23.0.0/24"), 0U);
}

TEST_F(RoutesOnDisk, ReloadReportsWhatChangedAndWhatFollows) {
  LoadWell(Red(0));
  Start();
  ASSERT_EQ(Reload(Red(3)), kStatusOk) << answer_;
  EXPECT_THAT(answer_, EndsWith(" loaded: 3 routes added"));
  ASSERT_EQ(Reload(Red(5000)), kStatusOk) << answer_;
  EXPECT_THAT(answer_, EndsWith(" loaded: 996 routes added; routes are still coming in"));
  RunAll();
  EXPECT_EQ(Count(), 5001U);
}

TEST_F(RoutesOnDisk, ReloadDuringAFeedStartsANewOne) {
  LoadWell(Red(100000));
  Start();
  ASSERT_EQ(Reload(Red(10)), kStatusOk) << answer_;
  RunAll();
  EXPECT_EQ(Count(), 11U);
}

TEST_F(RoutesOnDisk, InvalidFileDoesNotDisturbTheRunningFeed) {
  LoadWell(Red(10000));
  Start();
  EXPECT_EQ(Reload("vrfs: [{name: red, id: 10, routes: [{prefix: 10.0.0.0/8}]}]\n"), kStatusInvalid);
  EXPECT_THAT(answer_, EndsWith(":1:37: a route needs a next_hop, an interface or a type"));
  RunAll();
  EXPECT_EQ(Count(), 10001U);
}

TEST_F(RoutesOnDisk, RefusedRouteFailsTheLoad) {
  Write(Red(10));
  const ScopedFault fault("route_store_put", kStatusNoMemory);
  EXPECT_EQ(source_->load(&error_), kStatusNoMemory);
  EXPECT_EQ(error_, path_ + ": cannot add a route: Cannot allocate memory");
}

TEST_F(RoutesOnDisk, RouteRefusedOnTheLoopEndsTheFeedAndIsLogged) {
  LoadWell(Red(10000));
  Start();
  const std::size_t before = Count();
  const ScopedFault fault("route_store_put", kStatusNoMemory, 1, 0);
  ::testing::internal::CaptureStderr();
  RunAll();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::HasSubstr("router.yaml: cannot add a route: Cannot allocate memory"));
  EXPECT_EQ(Count(), before);
}

TEST_F(RoutesOnDisk, DestroyedSourceEndsTheFeed) {
  LoadWell(Red(100000));
  Start();
  source_.reset();
  const std::size_t before = Count();
  RunAll();
  EXPECT_EQ(Count(), before);
}

}  // namespace
