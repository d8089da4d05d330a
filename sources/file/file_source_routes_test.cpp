// Routes of a router file: written ones are added at once, generated ones on the loop; reloads keep ages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/route_test_support.h"
#include "platform/store/tree/kvtree.h"
#include "sources/file/file_source.h"

namespace {

using ::testing::EndsWith;

constexpr char kMainManager[] = "/dev/mpls/vpn/main";
constexpr std::uint64_t kEventBound = 5 * kNanosecondsPerSecond;  // for expected events
constexpr router::RouteTableId kRed{router::Family::kIpv4, 10};
constexpr std::size_t kStep = 1000;  // rows of one step

class RoutesOnDisk : public ::testing::Test {
 protected:
  RoutesOnDisk() { std::filesystem::create_directory(std::filesystem::path(path_).parent_path()); }
  ~RoutesOnDisk() override {
    source_.reset();
    if (manager_ != nullptr) event_manager_destroy(manager_);
    kvtree_reset();
  }

  // VRF red with a default route and generated ones.
  static std::string Red(std::size_t generated) {
    return "vrfs: [{name: red, id: 10, routes: [{generate: " + std::to_string(generated) +
           "}, {prefix: 0.0.0.0/0, type: blackhole}]}]\n";
  }
  void Write(const std::string& text) { std::ofstream(path_) << text; }
  void LoadAtStart(const std::string& text) {
    Write(text);
    ASSERT_EQ(source_->load(&error_), kStatusOk) << error_;
  }
  void Start() {
    manager_ = event_manager_create(kMainManager, 0);
    ASSERT_NE(manager_, nullptr);
    ASSERT_EQ(source_->start(manager_), kStatusOk);
  }
  Status Reload(const std::string& text) {
    Write(text);
    KvActionContext context{};
    context.may_change = true;
    return kvtree_run_action(context, {"router", "reload"}, &answer_);
  }
  void RunAll() {
    while (event_run_pending(manager_, source_ && source_->is_reading() ? kEventBound : 0)) {
    }
  }
  std::size_t Count() const { return router_.routes().count(kRed); }
  std::uint32_t Age(const char* prefix, const char* next_hop = "192.0.2.1") {
    router::Route route;
    EXPECT_TRUE(router_.routes().find(kRed, router::MakeKey(prefix, next_hop), &route)) << prefix;
    return router::route_age(route);
  }

  const TestRunDirectory directory_;
  std::string path_ = directory_.path() + "/etc/router.yaml";
  router::Router router_;
  std::unique_ptr<FileSource> source_ = std::make_unique<FileSource>(&router_, path_);
  EventManager* manager_ = nullptr;
  std::string error_;
  std::string answer_;
};

TEST_F(RoutesOnDisk, WrittenRoutesArePresentAfterTheLoad) {
  LoadAtStart(Red(100000));
  router::Route route;
  EXPECT_TRUE(router_.routes().find(kRed, router::MakeKey("0.0.0.0/0"), &route));
  EXPECT_LE(Count(), kStep + 1);
}

TEST_F(RoutesOnDisk, AllWrittenRoutesAreAddedAtOnce) {
  std::string routes;
  for (int number = 0; number < 5000; ++number) {
    routes += "{prefix: 10." + std::to_string(number / 250) + "." + std::to_string(number % 250) +
              ".0/24, type: reject},";
  }
  LoadAtStart("vrfs: [{name: red, id: 10, routes: [" + routes + "]}]\n");
  EXPECT_EQ(Count(), 5000U);
}

TEST_F(RoutesOnDisk, GeneratedRoutesAreAddedOnTheLoop) {
  LoadAtStart(Red(100000));
  Start();
  RunAll();
  EXPECT_EQ(Count(), 100001U);
}

TEST_F(RoutesOnDisk, OtherWorkRunsBetweenBoundedSteps) {
  LoadAtStart(Red(20000));
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
  LoadAtStart(Red(5000));
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
  LoadAtStart(Red(0));
  Start();
  ASSERT_EQ(Reload(Red(3)), kStatusOk) << answer_;
  EXPECT_THAT(answer_, EndsWith(" loaded: 3 routes added"));
  ASSERT_EQ(Reload(Red(5000)), kStatusOk) << answer_;
  EXPECT_THAT(answer_, EndsWith(" loaded: 997 routes added; generated routes are still coming in"));
  RunAll();
  EXPECT_EQ(Count(), 5001U);
}

TEST_F(RoutesOnDisk, ReloadDuringAFeedStartsANewOne) {
  LoadAtStart(Red(100000));
  Start();
  ASSERT_EQ(Reload(Red(10)), kStatusOk) << answer_;
  RunAll();
  EXPECT_EQ(Count(), 11U);
}

TEST_F(RoutesOnDisk, InvalidFileDoesNotDisturbTheRunningFeed) {
  LoadAtStart(Red(10000));
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
  LoadAtStart(Red(10000));
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
  LoadAtStart(Red(100000));
  Start();
  source_.reset();
  const std::size_t before = Count();
  RunAll();
  EXPECT_EQ(Count(), before);
}

TEST_F(RoutesOnDisk, InterfaceIndexIsThatOfTheFile) {
  LoadAtStart(
      "vrfs: [{name: red, id: 10, routes: [{prefix: 10.0.0.0/8, interface: ge1}]}]\n"
      "interfaces: [{name: ge1, index: 77}]\n");
  router::Route route;
  ASSERT_TRUE(router_.routes().find_first(kRed, &route));
  EXPECT_EQ(route.interface_index, 77U);
}

}  // namespace
