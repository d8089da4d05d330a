// Posted and deferred functions of the event loop.
#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_manager.h"

namespace {

using ::testing::ElementsAre;

TEST_F(EventManagerTest, PostedFunctionsRunInOrder) {
  std::vector<int> order;
  for (int i = 0; i < 200; ++i) event_post(manager, [&order, i] { order.push_back(i); });
  EXPECT_TRUE(order.empty());
  EXPECT_TRUE(event_run_pending(manager));
  ASSERT_EQ(order.size(), 200U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(EventManagerTest, DescriptorsAreServedBetweenBatchesOfPostedFunctions) {
  Pipe pipe;
  int posted = 0;
  int posted_before_the_descriptor = -1;
  for (int i = 0; i < 1000; ++i) event_post(manager, [&] { ++posted; });
  Iterate();
  Watch(pipe, [&](int fd, std::uint32_t) {
    posted_before_the_descriptor = posted;
    event_fd_remove(manager, fd);
  });
  pipe.Fill();
  event_run_pending(manager);
  EXPECT_EQ(posted, 1000);
  EXPECT_LT(posted_before_the_descriptor, 200);
}

TEST_F(EventManagerTest, BatchOfPostedFunctionsEndsAfterItsTime) {
  ManualClock clock(1);
  int runs = 0;
  for (int i = 0; i < 10; ++i) {
    event_post(manager, [&] {
      ++runs;
      clock.advance(kMillisecond);
    });
  }
  for (const int expected : {2, 4, 6}) {
    Iterate();
    EXPECT_EQ(runs, expected);
  }
  event_run_pending(manager);
  EXPECT_EQ(runs, 10);
}

TEST_F(EventManagerTest, FunctionPostedByAPostedFunctionWaitsForTheNextIteration) {
  int runs = 0;
  event_post(manager, [&] {
    ++runs;
    event_post(manager, [&] { ++runs; });
  });
  Iterate();
  EXPECT_EQ(runs, 1);
  Iterate();
  EXPECT_EQ(runs, 2);
}

TEST_F(EventManagerTest, PostedFunctionInStepsTakesABatchForEachAndPrecedesThoseAfterIt) {
  std::vector<std::string> order;
  std::function<void()> step = [&] {
    order.push_back("step");
    if (order.size() < 3) event_post_first(manager, step);
  };
  event_post(manager, step);
  event_post(manager, [&] { order.push_back("after"); });
  for (const std::size_t steps : {1U, 2U}) {
    Iterate();
    EXPECT_THAT(order, testing::SizeIs(steps));
  }
  Iterate();
  EXPECT_THAT(order, testing::ElementsAre("step", "step", "step", "after"));
}

TEST_F(EventManagerTest, FunctionsPostedByOtherThreadsAllRunOnTheManagersThread) {
  constexpr int kThreads = 4;
  constexpr int kEach = 500;
  const std::thread::id here = std::this_thread::get_id();
  std::vector<int> next(kThreads, 0);
  int total = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) {
        event_post(manager, [&, t, i] {
          EXPECT_EQ(std::this_thread::get_id(), here);
          EXPECT_EQ(next[static_cast<std::size_t>(t)]++, i);
          ++total;
        });
      }
    });
  }
  EventContext context = Context();
  while (total < kThreads * kEach && event_wait_for(&context, kBound) == 0) event_dispatch(&context);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(total, kThreads * kEach);
}

// --- Deferred functions

TEST_F(EventManagerTest, DeferredFunctionRunsAfterTheDescriptorsAndTimersOfTheDispatch) {
  Pipe first;
  Pipe second;
  std::vector<std::string> order;
  for (const Pipe* pipe : {&first, &second}) {
    Watch(*pipe, [&order, pipe, this](int, std::uint32_t) {
      order.emplace_back("descriptor");
      event_defer(manager, [&order] { order.emplace_back("deferred"); });
      pipe->Drain();
    });
    pipe->Fill();
  }
  event_timer_start(manager, 0, [&] { order.emplace_back("timer"); });
  Iterate();
  EXPECT_THAT(order, ElementsAre("descriptor", "descriptor", "timer", "deferred", "deferred"));
}

TEST_F(EventManagerTest, FunctionDeferredByADeferredFunctionWaitsForTheNextDispatchAndNoWaitBlocksBefore) {
  int runs = 0;
  event_defer(manager, [&] {
    ++runs;
    event_defer(manager, [&] { ++runs; });
  });
  EventContext context = Context();
  ASSERT_EQ(event_wait(&context), 0);
  event_dispatch(&context);
  EXPECT_EQ(runs, 1);
  ASSERT_EQ(event_wait(&context), 0);
  event_dispatch(&context);
  EXPECT_EQ(runs, 2);
  EXPECT_FALSE(event_run_pending(manager));
}

// The others run, also those that a cancelled one waits with.
TEST_F(EventManagerTest, DeferredFunctionsOfAnOwnerAreCancelledBeforeAndWhileTheyWaitForEachOther) {
  const int owners[2] = {};
  std::vector<std::string> ran;
  event_defer(
      manager, [&] { ran.emplace_back("cancelled before"); }, &owners[0]);
  event_defer(manager, [&] { ran.emplace_back("without owner"); });
  event_defer_cancel(manager, &owners[0]);
  event_defer(manager, [&] {
    ran.emplace_back("cancels");
    event_defer_cancel(manager, &owners[1]);
  });
  event_defer(
      manager, [&] { ran.emplace_back("cancelled meanwhile"); }, &owners[1]);
  event_defer(
      manager, [&] { ran.emplace_back("last"); }, &owners[0]);
  Iterate();
  EXPECT_THAT(ran, ElementsAre("without owner", "cancels", "last"));
}

}  // namespace
