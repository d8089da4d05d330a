// Tests of managed timers: starts and stops of a leaf, coalescing of expiry, freeing, faults.
#include "platform/core/timer/timer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"

namespace {

constexpr std::uint32_t kCode = 128;
constexpr std::uint64_t kSecond = kNanosecondsPerSecond;

class TimerTest : public ::testing::Test {
 protected:
  TimerTest() {
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
    EXPECT_EQ(event_async_attach(manager, kCode, [this] { ++wake_ups; }), 0);
    EXPECT_EQ(timer_signal_init(&signal, manager, kCode), 0);
    tree = timer_tree_new(&signal);
    parent = timer_parent_new(tree);
  }
  ~TimerTest() override {
    for (TimerLeaf* leaf : leaves) timer_leaf_free(leaf);
    timer_parent_free(parent);
    timer_tree_free(tree);
    event_manager_destroy(manager);
    fault_disarm_all();
  }

  TimerLeaf* MakeLeaf() { return leaves.emplace_back(timer_leaf_new(parent, nullptr)); }
  static void Start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds = 0) {
    ASSERT_EQ(timer_leaf_start(leaf, seconds, nanoseconds), kStatusOk);
  }
  void PassTime(std::uint64_t nanoseconds) {
    clock.advance(nanoseconds);
    event_run_pending(manager);
  }

  TestRunDirectory directory;
  ManualClock clock{1000 * kSecond};
  EventManager* manager = nullptr;
  TimerSignal signal{};
  TimerTree* tree = nullptr;
  TimerParent* parent = nullptr;
  std::vector<TimerLeaf*> leaves;
  int wake_ups = 0;
};

TEST_F(TimerTest, LeafExpiresOnceWhenItsTimeHasPassed) {
  Start(MakeLeaf(), 5);
  PassTime(5 * kSecond - 1);
  EXPECT_EQ(wake_ups, 0);
  PassTime(1);
  EXPECT_EQ(wake_ups, 1);
  PassTime(100 * kSecond);
  EXPECT_EQ(wake_ups, 1);
}

TEST_F(TimerTest, NanosecondsCount) {
  Start(MakeLeaf(), 0, 30);
  PassTime(29);
  EXPECT_EQ(wake_ups, 0);
  PassTime(1);
  EXPECT_EQ(wake_ups, 1);
}

TEST_F(TimerTest, StoppedLeafDoesNotExpire) {
  TimerLeaf* leaf = MakeLeaf();
  Start(leaf, 1);
  timer_leaf_stop(leaf);
  timer_leaf_stop(leaf);
  timer_leaf_stop(nullptr);
  PassTime(2 * kSecond);
  EXPECT_EQ(wake_ups, 0);
}

TEST_F(TimerTest, StartingARunningLeafRestartsIt) {
  TimerLeaf* leaf = MakeLeaf();
  Start(leaf, 2);
  PassTime(kSecond);
  Start(leaf, 2);
  PassTime(kSecond);
  EXPECT_EQ(wake_ups, 0);
  PassTime(kSecond);
  EXPECT_EQ(wake_ups, 1);
}

TEST_F(TimerTest, LeafThatItsHandlerRestartsIsPeriodic) {
  TimerLeaf* leaf = MakeLeaf();
  int periods = 0;
  event_async_detach(manager, kCode);
  ASSERT_EQ(event_async_attach(manager, kCode,
                               [&] {
                                 ++periods;
                                 Start(leaf, 10);
                               }),
            0);
  Start(leaf, 10);
  for (int i = 1; i <= 4; ++i) {
    PassTime(10 * kSecond);
    EXPECT_EQ(periods, i);
  }
}

TEST_F(TimerTest, LeavesThatExpireTogetherRaiseOneEvent) {
  for (int i = 0; i < 3; ++i) Start(MakeLeaf(), 1);
  PassTime(kSecond);
  EXPECT_EQ(wake_ups, 1);
}

TEST_F(TimerTest, FreedLeafDoesNotExpire) {
  TimerLeaf* leaf = timer_leaf_new(parent, nullptr);
  Start(leaf, 1);
  timer_leaf_free(leaf);
  PassTime(kSecond);
  EXPECT_EQ(wake_ups, 0);
}

TEST_F(TimerTest, FreeingNothingIsAllowed) {
  Start(MakeLeaf(), 1);
  timer_leaf_free(nullptr);
  timer_parent_free(nullptr);
  timer_tree_free(nullptr);
  PassTime(kSecond);
  EXPECT_EQ(wake_ups, 1);
}

TEST_F(TimerTest, BadArgumentsAreRefused) {
  TimerSignal none{};
  EXPECT_EQ(timer_signal_init(&none, nullptr, kCode), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(timer_signal_init(nullptr, manager, kCode), -1);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(timer_tree_new(&none), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(timer_tree_new(nullptr), nullptr);
  EXPECT_EQ(timer_parent_new(nullptr), nullptr);
  EXPECT_EQ(timer_leaf_new(nullptr, nullptr), nullptr);
  EXPECT_EQ(timer_leaf_start(nullptr, 1, 0), kStatusInvalid);
  EXPECT_EQ(timer_leaf_start(MakeLeaf(), 1, 1'000'000'000), kStatusInvalid);
}

TEST_F(TimerTest, EachOperationFailsAtItsFaultPoint) {
  TimerLeaf* leaf = MakeLeaf();
  const auto fails_with_enomem = [](const char* name, const auto& operation) {
    const ScopedFault fault(name, ENOMEM);
    errno = 0;
    EXPECT_FALSE(operation()) << name;
    EXPECT_EQ(errno, ENOMEM) << name;
  };
  fails_with_enomem("timer_signal_init", [&] { return timer_signal_init(&signal, manager, kCode) == 0; });
  fails_with_enomem("timer_tree_new", [&] { return timer_tree_new(&signal) != nullptr; });
  fails_with_enomem("timer_parent_new", [&] { return timer_parent_new(tree) != nullptr; });
  fails_with_enomem("timer_leaf_new", [&] { return timer_leaf_new(parent, nullptr) != nullptr; });
  const ScopedFault fault("timer_leaf_start", kStatusNoMemory);
  EXPECT_EQ(timer_leaf_start(leaf, 1, 0), kStatusNoMemory);
}

}  // namespace
