// The file source when its changes cannot be stored: it tries again.
#include <cstdint>
#include <functional>

#include "sources/file/watched_router_test_support.h"

namespace {

// With a manual clock: retries happen when the test advances it.
class RouterOnAFullDisk : public WatchedRouter {
 protected:
  static constexpr Status kDiskFull = 28;  // ENOSPC
  // The change is read and its commit fails.
  void FailTo(const std::function<void()>& change) {
    change();
    while (fault_reached("kvtree_config_replace") == reached_ && event_run_pending(manager_, kEventBound)) {
    }
    EXPECT_GT(fault_reached("kvtree_config_replace"), reached_);
    reached_ = fault_reached("kvtree_config_replace");
  }
  void FailForSeconds(std::uint64_t seconds) {
    FailTo([&] { clock_.advance(seconds * kNanosecondsPerSecond); });
  }
  void Pass(std::uint64_t seconds) {
    clock_.advance(seconds * kNanosecondsPerSecond);
    event_run_pending(manager_);
  }
  ManualClock clock_{std::uint64_t{1'700'000'000} * kNanosecondsPerSecond};
  std::uint64_t reached_ = 0;
};

TEST_F(RouterOnAFullDisk, ChangeIsRetriedUntilItSucceeds) {
  StartWith(kRed);
  testing::internal::CaptureStderr();
  {
    const ScopedFault fault("kvtree_config_replace", kDiskFull, 1, 100);
    FailTo([this] { Replace(kBlue); });
    FailForSeconds(1);
    FailForSeconds(2);
    Pass(3);
    EXPECT_FALSE(source_->is_reading()) << "four seconds after the third attempt";
  }
  Pass(1);
  EXPECT_TRUE(Appears("blue"));
  EXPECT_FALSE(Has("red"));
  const std::string failure = path_ + ": cannot change the configuration: No space left on device";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            failure + " (it is tried again)\n" + path_ + " loaded: 1 VRF created, 1 VRF deleted\n");
  Pass(1000);
  EXPECT_FALSE(source_->is_reading());
}

TEST_F(RouterOnAFullDisk, RetryIntervalGrowsToAMinute) {
  StartWith(kRed);
  const ScopedFault fault("kvtree_config_replace", kDiskFull, 1, 100);
  FailTo([this] { Replace(kBlue); });
  for (const std::uint64_t seconds : {1U, 2U, 4U, 8U, 16U, 32U, 60U, 60U, 60U}) FailForSeconds(seconds);
}

TEST_F(RouterOnAFullDisk, NewFileReplacesTheRetry) {
  StartWith(kRed);
  {
    const ScopedFault fault("kvtree_config_replace", kDiskFull, 1, 100);
    FailTo([this] { Replace(kBlue); });
  }
  Replace("vrfs: [{name: green}]\n");  // invalid
  EXPECT_TRUE(event_run_pending(manager_, kEventBound));
  EXPECT_TRUE(ReadEnds());
  Pass(1000);
  EXPECT_FALSE(source_->is_reading());
  EXPECT_TRUE(Has("red"));
}

TEST_F(RouterOnAFullDisk, SuccessfulLoadEndsTheRetries) {
  StartWith(kRed);
  {
    const ScopedFault fault("kvtree_config_replace", kDiskFull, 1, 100);
    FailTo([this] { Replace(kBlue); });
  }
  std::string text;
  ASSERT_EQ(Act({"router", "reload"}, &text), kStatusOk) << text;
  EXPECT_TRUE(Has("blue"));
  Pass(1000);
  EXPECT_FALSE(source_->is_reading());
}

TEST_F(RouterOnAFullDisk, FailedReloadByTheOperatorIsRetriedToo) {
  StartWith(kRed);
  std::string text;
  ASSERT_EQ(kvtree_run_action({true}, {"router", "delete-vrf", "red"}, &text), kStatusOk) << text;
  {
    const ScopedFault fault("kvtree_config_replace", kDiskFull);
    EXPECT_EQ(Act({"router", "reload"}, &text), kDiskFull);
    EXPECT_THAT(text, testing::EndsWith("No space left on device (it is tried again)"));
  }
  EXPECT_FALSE(Has("red"));
  Pass(1);
  EXPECT_TRUE(Appears("red"));
}

}  // namespace
