// What is watched of VRFs: low-water marks and prefixes, as they are configured and as routes change.
#include "platform/router/route_watch/test_support.h"

namespace route_watch {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::SizeIs;

// --- Low-water marks

TEST_F(RouteWatch, TableIsLowAfterItWasBelowItsMarkForTheTime) {
  SetLow(2, 30);
  AddRoute("10.0.1.0/24");
  AddRoute("10.0.2.0/24");
  Pass(200);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 2<2/30 ok"));
  RemoveRoute("10.0.1.0/24");
  Pass(200);
  EXPECT_EQ(LogOf([this] { Pass(29'000); }), "");
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<2/30 ok"));
  EXPECT_THAT(LogOf([this] { Pass(1'000); }),
              HasSubstr("VRF red: 1 IPv4 routes, below its low-water mark of 2 for 30 s"));
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<2/30 low"));
  EXPECT_EQ(LogOf([this] { Pass(100'000); }), "") << "it is logged once";
}

TEST_F(RouteWatch, TableIsNoLongerLowAtItsMark) {
  SetLow(1, 0);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/0 low"));
  EXPECT_THAT(LogOf([this] {
                AddRoute("10.0.1.0/24");
                Pass(100);
              }),
              HasSubstr("VRF red: 1 IPv4 routes, no longer below its low-water mark of 1"));
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<1/0 ok"));
}

TEST_F(RouteWatch, TimeBeginsAgainWhenTheTableHasRecovered) {
  AddRoute("10.0.1.0/24");
  SetLow(1, 10);
  Pass(100);
  for (int times = 0; times < 3; ++times) {
    RemoveRoute("10.0.1.0/24");
    Pass(100);
    Pass(8'000);
    AddRoute("10.0.1.0/24");
    Pass(100);
  }
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<1/10 ok"));
}

TEST_F(RouteWatch, VrfThatDoesNotExistHasNoRoutes) {
  SetLow(1, 0, "blue");
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("blue ipv4 0<1/0 low"));
  AddRoute("10.0.1.0/24");
  AddVrf("blue", 10);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("blue ipv4 1<1/0 ok"));
  ASSERT_EQ(router_.delete_vrf("blue"), kStatusOk);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("blue ipv4 0<1/0 low"));
}

TEST_F(RouteWatch, RemovedMarkIsNotLow) {
  SetLow(1, 0);
  Pass(100);
  EXPECT_THAT(LogOf([this] { Unset(Kind::kLowWater, {.vrf = "red"}); }),
              HasSubstr("VRF red: the low-water mark of its IPv4 routes is removed"));
  EXPECT_THAT(Shown(), IsEmpty());
  AddRoute("10.0.1.0/24");
  Pass(100);
}

TEST_F(RouteWatch, RaisedMarkIsComparedAtOnce) {
  AddRoute("10.0.1.0/24");
  SetLow(1, 0);
  Pass(100);
  SetLow(2, 0);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 1<2/0 low"));
}

TEST_F(RouteWatch, ThresholdsAreListedToo) {
  Set(Kind::kThreshold, {.vrf = "red", .family = vrf_config::Family::kIpv6, .number = 9, .mid = 7});
  std::vector<std::uint32_t> found;
  for_each_watched([&](const WatchedVrf& vrf) {
    for (std::size_t family = 0; family < kFamilies; ++family)
      found.insert(found.end(), {vrf.table(family).maximum, vrf.table(family).mid});
  });
  EXPECT_THAT(found, ElementsAre(0, 0, 9, 7));
  EXPECT_THAT(Shown(), ElementsAre("red ipv6 0<0/0 ok"));
}

// --- Prefixes

TEST_F(RouteWatch, PrefixIsPresentWhileItHasARoute) {
  WatchPrefix("10.0.1.0/24");
  WatchPrefix("2001:db8::/32");
  AddRoute("10.0.1.0/24", "192.0.2.1");
  AddRoute("10.0.1.0/24", "192.0.2.2");
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 present", "red 2001:db8::/32 absent"));
  AddRoute("2001:db8::/32");
  RemoveRoute("10.0.1.0/24", "192.0.2.1");
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 present", "red 2001:db8::/32 present"));
  EXPECT_THAT(LogOf([this] {
                RemoveRoute("10.0.1.0/24", "192.0.2.2");
                Pass(100);
              }),
              HasSubstr("VRF red: the watched prefix 10.0.1.0/24 has no route any more"));
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 absent", "red 2001:db8::/32 present"));
  EXPECT_THAT(LogOf([this] {
                AddRoute("10.0.1.0/24", "192.0.2.2");
                Pass(100);
              }),
              HasSubstr("VRF red: the watched prefix 10.0.1.0/24 has a route again"));
}

TEST_F(RouteWatch, RoutesToOtherPrefixesDoNotCount) {
  WatchPrefix("10.0.0.0/16");
  for (const char* other : {"10.0.0.0/15", "10.0.0.0/17", "10.0.0.0/24", "10.1.0.0/16"}) AddRoute(other);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.0.0/16 absent"));
}

TEST_F(RouteWatch, PrefixWithOnlyARouteThatDiscardsIsAbsent) {
  WatchPrefix("0.0.0.0/0");
  for (const auto type :
       {router::RouteType::kReject, router::RouteType::kBlackhole, router::RouteType::kOther}) {
    AddRoute("0.0.0.0/0", type);
    Pass(100);
    EXPECT_THAT(Shown(), ElementsAre("red 0.0.0.0/0 absent"));
    AddRoute("0.0.0.0/0", "192.0.2.1");
    Pass(100);
    EXPECT_THAT(Shown(), ElementsAre("red 0.0.0.0/0 present"));
    RemoveRoute("0.0.0.0/0", "192.0.2.1");
    Pass(100);
    EXPECT_THAT(Shown(), ElementsAre("red 0.0.0.0/0 absent"));
  }
}

TEST_F(RouteWatch, PrefixThatNeverHadARouteIsNotLogged) {
  const std::string log = LogOf([this] {
    WatchPrefix("10.0.1.0/24");
    Pass(100);
    AddRoute("10.0.1.0/24");
    Pass(100);
  });
  EXPECT_THAT(log, Not(HasSubstr("10.0.1.0/24")));
}

TEST_F(RouteWatch, DeletedVrfHasNoPrefixes) {
  WatchPrefix("10.0.1.0/24");
  AddRoute("10.0.1.0/24");
  Pass(100);
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 absent"));
}

TEST_F(RouteWatch, PrefixesBeyondTheLimitAreWatchedWhenOthersAreDeleted) {
  const auto prefix = [](std::size_t n) {
    return "10." + std::to_string(n / 256) + "." + std::to_string(n % 256) + ".0/24";
  };
  for (std::size_t n = 0; n < kMostPrefixes; ++n) WatchPrefix(prefix(n));
  EXPECT_THAT(LogOf([&] { WatchPrefix(prefix(kMostPrefixes)); }),
              HasSubstr("10.3.232.0/24 of the VRF red is not watched: 1000 prefixes are the limit"));
  WatchPrefix("2001:db8::/32", "blue");
  WatchPrefix(prefix(kMostPrefixes));  // known
  EXPECT_THAT(Shown(), SizeIs(kMostPrefixes + 2));
  EXPECT_THAT(Shown(), IsSupersetOf({"red 10.3.232.0/24 not watched", "blue 2001:db8::/32 not watched"}));
  AddRoute(prefix(kMostPrefixes));
  Unset(Kind::kWatchedPrefix, {.vrf = "blue", .prefix = "2001:db8::/32"});
  EXPECT_THAT(LogOf([&] { Unset(Kind::kWatchedPrefix, {.vrf = "red", .prefix = prefix(0)}); }),
              HasSubstr("10.3.232.0/24 of the VRF red is watched now"));
  Pass(100);
  EXPECT_THAT(Shown(), SizeIs(kMostPrefixes));
  EXPECT_THAT(Shown(), Contains("red 10.3.232.0/24 present"));
}

TEST_F(RouteWatch, PrefixesThatWaitAreWatchedInTheOrderOfTheConfiguration) {
  for (std::size_t n = 0; n < kMostPrefixes; ++n)
    WatchPrefix("10." + std::to_string(n / 256) + "." + std::to_string(n % 256) + ".0/24");
  for (const char* prefix : {"30.0.0.0/8", "20.0.0.0/8", "40.0.0.0/8"}) WatchPrefix(prefix, "blue");
  Unset(Kind::kWatchedPrefix, {.vrf = "red", .prefix = "10.0.0.0/24"});
  Unset(Kind::kWatchedPrefix, {.vrf = "blue", .prefix = "20.0.0.0/8"});
  const std::vector<std::string> shown = Shown();
  EXPECT_THAT(std::vector(shown.end() - 2, shown.end()),
              ElementsAre("blue 30.0.0.0/8 absent", "blue 40.0.0.0/8 not watched"));
}

// --- The cost

TEST_F(RouteWatch, ChangesWithinTheIntervalCostOneComparison) {
  WatchPrefix("10.0.1.0/24");
  Pass(100);
  AddRoute("10.0.2.0/24");
  Pass(0);
  AddRoute("10.0.1.0/24");
  Pass(0);  // too early for another comparison
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 absent"));
  RemoveRoute("10.0.1.0/24");
  AddRoute("10.0.1.0/24");
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red 10.0.1.0/24 present"));
}

TEST_F(RouteWatch, ThresholdsAloneCostNoComparison) {
  Set(Kind::kThreshold, {.vrf = "red", .number = 9, .mid = 7});
  Pass(100);
  AddRoute("10.0.1.0/24");
  clock_.advance(100 * kNanosecondsPerMillisecond);
  EXPECT_FALSE(event_run_pending(manager_));
}

TEST_F(RouteWatch, RemovedMarkBesideThresholdsIsNotLow) {
  SetLow(1, 0);
  Set(Kind::kThreshold, {.vrf = "red", .number = 9, .mid = 7});
  Pass(100);
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/0 low"));
  EXPECT_THAT(LogOf([this] { Unset(Kind::kLowWater, {.vrf = "red"}); }),
              HasSubstr("VRF red: the low-water mark of its IPv4 routes is removed"));
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<0/0 ok"));
}

TEST_F(RouteWatch, DueTablesAreComparedHoweverLongAStepTakes) {
  SetLow(1, 10);
  SetLow(1, 10, "blue");
  Pass(100);
  clock_.advance(20 * kNanosecondsPerSecond);
  clock_.tick(5 * kNanosecondsPerMillisecond);
  for (int iterations = 0; iterations < 20; ++iterations) RunIteration();
  EXPECT_THAT(Shown(), ElementsAre("red ipv4 0<1/10 low", "blue ipv4 0<1/10 low"));
  clock_.tick(0);
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(event_run_pending(manager_)) << "nothing is left to do";
}

// The tick lets each step of the service compare one VRF.
TEST_F(RouteWatch, VrfThatChangesAllTheTimeDelaysNoOther) {
  AddVrf("busy", 20);
  AddVrf("quiet", 10);
  WatchPrefix("10.0.1.0/24", "busy");
  WatchPrefix("10.0.1.0/24", "quiet");
  Pass(100);
  clock_.advance(100 * kNanosecondsPerMillisecond);
  clock_.tick(600'000);
  AddRoute("10.0.1.0/24");
  for (std::uint32_t iterations = 0; iterations < 50; ++iterations) {
    router::Route route = router::MakeRoute("10.0.2.0/24");
    route.interface_index = iterations + 1;
    PutRoute({router::Family::kIpv4, 20}, route);
    RunIteration();
  }
  EXPECT_THAT(Shown(), ElementsAre("busy 10.0.1.0/24 absent", "quiet 10.0.1.0/24 present"));
}

}  // namespace
}  // namespace route_watch
