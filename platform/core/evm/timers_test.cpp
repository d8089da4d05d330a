// Timers of the event loop, and descriptors that are served between them.
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <numeric>
#include <vector>

#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_manager.h"

namespace {

using ::testing::ElementsAre;

TEST_F(EventManagerTest, TimersRunByDeadlineAndEqualDeadlinesInStartingOrder) {
  ManualClock clock(1'000'000);
  std::vector<int> order;
  event_timer_start(manager, 30, [&] { order.push_back(3); });
  event_timer_start(manager, 10, [&] { order.push_back(1); });
  event_timer_start(manager, 20, [&] { order.push_back(21); });
  event_timer_start(manager, 20, [&] { order.push_back(22); });
  EXPECT_FALSE(event_run_pending(manager));
  clock.advance(20);
  EXPECT_TRUE(event_run_pending(manager));
  EXPECT_THAT(order, ElementsAre(1, 21, 22));
  clock.advance(10);
  event_run_pending(manager);
  EXPECT_THAT(order, ElementsAre(1, 21, 22, 3));
  EXPECT_FALSE(event_run_pending(manager));
}

TEST_F(EventManagerTest, CancelledTimerDoesNotRun) {
  ManualClock clock(1);
  const EventTimerId timer = event_timer_start(manager, 5, [] { ADD_FAILURE() << "cancelled"; });
  EXPECT_NE(timer, 0U);
  event_timer_cancel(manager, timer);
  event_timer_cancel(manager, timer);
  event_timer_cancel(manager, 0);
  clock.advance(10);
  EXPECT_FALSE(event_run_pending(manager));
}

TEST_F(EventManagerTest, TimerMayCancelAnotherThatIsDueToo) {
  ManualClock clock(1);
  EventTimerId second = 0;
  int runs = 0;
  event_timer_start(manager, 1, [&] {
    ++runs;
    event_timer_cancel(manager, second);
  });
  second = event_timer_start(manager, 1, [] { ADD_FAILURE() << "cancelled"; });
  clock.advance(1);
  event_run_pending(manager);
  EXPECT_EQ(runs, 1);
}

TEST_F(EventManagerTest, TimerStartedByATimerWaitsForTheNextIteration) {
  const ManualClock clock(1);
  int runs = 0;
  event_timer_start(manager, 0, [&] {
    ++runs;
    event_timer_start(manager, 0, [&] { ++runs; });
  });
  Iterate();
  EXPECT_EQ(runs, 1);
  Iterate();
  EXPECT_EQ(runs, 2);
}

TEST_F(EventManagerTest, FloodOfExpiredTimersLetsOthersRunInBetween) {
  ManualClock clock(1000);
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    event_timer_start(manager, static_cast<std::uint64_t>(i), [&, i] {
      order.push_back(i);
      clock.advance(kMillisecond);
    });
  }
  clock.advance(kMillisecond);
  std::vector<std::size_t> timers_before;
  const std::function<void()> look = [&] {
    timers_before.push_back(order.size());
    if (order.size() < 100) event_post(manager, look);
  };
  event_post(manager, look);
  while (order.size() < 100) Iterate();
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  for (std::size_t i = 1; i < timers_before.size(); ++i)
    EXPECT_LE(timers_before[i] - timers_before[i - 1], 3U);
  EXPECT_GE(timers_before.size(), 33U);
}

TEST_F(EventManagerTest, SlowDescriptorsAreServedInTurnsWithTimersInBetween) {
  ManualClock clock(1000);
  constexpr int kPipes = 10;
  std::vector<std::unique_ptr<Pipe>> pipes;
  std::vector<int> calls(kPipes, 0);
  for (int i = 0; i < kPipes; ++i) {
    pipes.push_back(std::make_unique<Pipe>());
    pipes.back()->Fill();
    Watch(*pipes.back(), [&, i](int, std::uint32_t) {
      ++calls[static_cast<std::size_t>(i)];
      clock.advance(kMillisecond);
    });
  }
  bool timer_ran = false;
  event_timer_start(manager, 0, [&] { timer_ran = true; });
  Iterate();
  EXPECT_EQ(std::accumulate(calls.begin(), calls.end(), 0), 2);
  EXPECT_TRUE(timer_ran);
  for (int i = 0; i < 24; ++i) Iterate();
  EXPECT_THAT(calls, ::testing::Each(5));
}

TEST_F(EventManagerTest, DescriptorThatIsRemovedBeforeItsTurnIsNotServed) {
  ManualClock clock(1000);
  std::vector<std::unique_ptr<Pipe>> pipes;
  for (int i = 0; i < 4; ++i) {
    pipes.push_back(std::make_unique<Pipe>());
    pipes.back()->Fill();
    Watch(*pipes.back(), [&](int, std::uint32_t) { clock.advance(kMillisecond); });
  }
  Iterate();
  for (const auto& pipe : pipes) event_fd_remove(manager, pipe->read_end);
  Watch(*pipes[3], [&](int, std::uint32_t) { pipes[3]->Drain(); });
  EXPECT_TRUE(event_run_pending(manager));
  EXPECT_EQ(clock_monotonic(), 1000 + 2 * kMillisecond);
}

TEST_F(EventManagerTest, TimerEndsABlockingWait) {
  bool ran = false;
  event_timer_start(manager, 2 * kMillisecond, [&] { ran = true; });
  EventContext context = Context();
  ASSERT_EQ(event_wait(&context), 0);
  event_dispatch(&context);
  EXPECT_TRUE(ran);
}

TEST_F(EventManagerTest, EveryTimerEndsABlockingWaitWhateverTimersWaitsBeganWith) {
  EventContext context = Context();
  const auto run_until = [&](const bool& ran) {
    while (!ran) {
      ASSERT_EQ(event_wait(&context), 0);
      event_dispatch(&context);
    }
  };
  bool posted = false;
  event_timer_start(manager, 3600 * kNanosecondsPerSecond, [] { ADD_FAILURE() << "too early"; });
  event_post(manager, [&] { posted = true; });
  run_until(posted);
  bool earlier = false;
  const EventTimerId cancelled = event_timer_start(manager, 1, [] { ADD_FAILURE() << "cancelled"; });
  event_timer_start(manager, 2 * kMillisecond, [&] { earlier = true; });
  ASSERT_EQ(event_wait(&context), 0);
  event_timer_cancel(manager, cancelled);
  run_until(earlier);
  bool again = false;
  event_timer_start(manager, 2 * kMillisecond, [&] { again = true; });
  run_until(again);
}

TEST_F(EventManagerTest, TimerBeyondTheEndOfTimeIsNeverDue) {
  ManualClock clock(1000);
  event_timer_start(manager, UINT64_MAX, [] { ADD_FAILURE() << "never"; });
  clock.advance(kNanosecondsPerSecond);
  EXPECT_FALSE(event_run_pending(manager));
}

}  // namespace
