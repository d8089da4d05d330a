// Tests of the event loop: waiting and dispatching, descriptors, posted functions, timers.
#include "platform/core/evm/evm.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "platform/core/evm/test_manager.h"

namespace {

using ::testing::ElementsAre;

// --- Waiting and dispatching

TEST_F(EventManagerTest, WaitAndDispatchAreTwoSteps) {
  Pipe pipe;
  int calls = 0;
  Watch(pipe, [&](int, std::uint32_t events) {
    ++calls;
    EXPECT_EQ(events, static_cast<std::uint32_t>(EPOLLIN));
    pipe.Drain();
  });
  pipe.Fill();
  EventContext context = Context();
  ASSERT_EQ(event_wait(&context), 0);
  EXPECT_EQ(context.collected, 1U);
  EXPECT_EQ(calls, 0);
  event_dispatch(&context);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(context.collected, 0U);
  event_dispatch(&context);  // nothing is left in the context
  EXPECT_EQ(calls, 1);
}

TEST_F(EventManagerTest, InterruptedWaitFailsWithEintr) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  std::atomic<bool> done{false};
  const pthread_t waiter = pthread_self();
  std::thread interrupter([&] {
    // Again and again, because the signal may come before the wait has begun.
    while (!done) {
      pthread_kill(waiter, SIGUSR1);
      std::this_thread::yield();
    }
  });
  EventContext context = Context();
  const int result = event_wait(&context);
  const int error = errno;
  done = true;
  interrupter.join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, EINTR);
  EXPECT_EQ(context.collected, 0U);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(EventManagerTest, WaitFaultBecomesErrno) {
  const ScopedFault fault("event_wait", EAGAIN);
  EventContext context = Context();
  EXPECT_EQ(event_wait(&context), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(EventManagerTest, BoundedWaitEndsWithEtimedout) {
  EventContext context = Context();
  EXPECT_EQ(event_wait_for(&context, 0), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(event_wait_for(&context, kMillisecond), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(EventManagerTest, BoundedWaitReturnsWhileTheClockIsFrozen) {
  const ManualClock clock(1000);
  event_timer_start(manager, kMillisecond, [] { ADD_FAILURE() << "the clock did not move"; });
  EventContext context = Context();
  EXPECT_EQ(event_wait_for(&context, 3 * kMillisecond), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(EventManagerTest, BufferTooSmallForAnEventIsRefused) {
  EventContext context{manager, buffer.data(), sizeof(epoll_event) - 1, 0};
  EXPECT_EQ(event_wait_for(&context, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  context = {manager, nullptr, 0, 0};
  EXPECT_EQ(event_wait_for(&context, 0), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EventManagerTest, NextWaitCollectsWhatDidNotFitIntoTheBuffer) {
  std::vector<std::unique_ptr<Pipe>> pipes;
  int calls = 0;
  for (int i = 0; i < 5; ++i) {
    pipes.push_back(std::make_unique<Pipe>());
    const Pipe& pipe = *pipes.back();
    Watch(pipe, [&calls, &pipe](int, std::uint32_t) {
      ++calls;
      pipe.Drain();
    });
    pipe.Fill();
  }
  EventContext context{manager, buffer.data(), 2 * sizeof(epoll_event), 0};
  std::vector<std::uint32_t> collected;
  while (event_wait_for(&context, 0) == 0) {
    collected.push_back(context.collected);
    event_dispatch(&context);
  }
  EXPECT_THAT(collected, ElementsAre(2, 2, 1));
  EXPECT_EQ(calls, 5);
}

// --- Descriptors

TEST_F(EventManagerTest, ReadinessIsLevelTriggered) {
  Pipe pipe;
  int calls = 0;
  Watch(pipe, [&](int, std::uint32_t) {
    if (++calls == 3) pipe.Drain();
  });
  pipe.Fill();
  EXPECT_TRUE(event_run_pending(manager));
  EXPECT_EQ(calls, 3);
}

TEST_F(EventManagerTest, CollectedEventOfARemovedDescriptorIsDropped) {
  Pipe first;
  Pipe second;
  int calls = 0;
  const auto handler = [&](int, std::uint32_t) {
    ++calls;
    event_fd_remove(manager, first.read_end);
    event_fd_remove(manager, second.read_end);
  };
  Watch(first, handler);
  Watch(second, handler);
  first.Fill();
  second.Fill();
  EXPECT_TRUE(event_run_pending(manager));
  EXPECT_EQ(calls, 1);
}

TEST_F(EventManagerTest, CollectedEventIsNotDeliveredToANewRegistrationOfTheSameDescriptor) {
  Pipe pipe;
  Watch(pipe, [](int, std::uint32_t) { ADD_FAILURE() << "the old handler ran"; });
  pipe.Fill();
  EventContext context = Context();
  ASSERT_EQ(event_wait_for(&context, 0), 0);
  event_fd_remove(manager, pipe.read_end);
  int calls = 0;
  Watch(pipe, [&](int, std::uint32_t) {
    ++calls;
    pipe.Drain();
  });
  event_dispatch(&context);
  EXPECT_EQ(calls, 0);
  event_run_pending(manager);
  EXPECT_EQ(calls, 1);
}

TEST_F(EventManagerTest, HandlerMayRemoveItselfAndGoOnUsingItsState) {
  Pipe pipe;
  std::string seen;
  Watch(pipe, [&, text = std::string("captured by the handler itself")](int fd, std::uint32_t) {
    event_fd_remove(manager, fd);
    seen = text;
  });
  pipe.Fill();
  event_run_pending(manager);
  EXPECT_EQ(seen, "captured by the handler itself");
}

TEST_F(EventManagerTest, HandlerMayAddManyDescriptorsWhileItRuns) {
  Pipe pipe;
  std::vector<std::unique_ptr<Pipe>> more;
  std::string seen;
  Watch(pipe, [&, text = std::string("still there after the table grew")](int fd, std::uint32_t) {
    for (int i = 0; i < 100; ++i) {
      more.push_back(std::make_unique<Pipe>());
      Watch(*more.back(), [](int, std::uint32_t) {});
    }
    seen = text;
    event_fd_remove(manager, fd);
  });
  pipe.Fill();
  event_run_pending(manager);
  EXPECT_EQ(seen, "still there after the table grew");
}

TEST_F(EventManagerTest, DescriptorIsRegisteredOnce) {
  Pipe pipe;
  Watch(pipe, [](int, std::uint32_t) {});
  EXPECT_EQ(event_fd_add(manager, pipe.read_end, EPOLLIN, [](int, std::uint32_t) {}), kStatusExists);
}

TEST_F(EventManagerTest, BadDescriptorIsRefused) {
  EXPECT_EQ(event_fd_add(manager, -1, EPOLLIN, [](int, std::uint32_t) {}), static_cast<Status>(EBADF));
  EXPECT_EQ(event_fd_modify(manager, 9999, EPOLLIN), kStatusNoSuchRow);
  event_fd_remove(manager, 9999);
  event_fd_remove(manager, -1);
}

TEST_F(EventManagerTest, ModifyChangesTheEvents) {
  Pipe pipe;
  int calls = 0;
  Watch(pipe, [&](int, std::uint32_t) {
    ++calls;
    pipe.Drain();
  });
  ASSERT_EQ(event_fd_modify(manager, pipe.read_end, 0), kStatusOk);
  pipe.Fill();
  EXPECT_FALSE(event_run_pending(manager));
  ASSERT_EQ(event_fd_modify(manager, pipe.read_end, EPOLLIN), kStatusOk);
  EXPECT_TRUE(event_run_pending(manager));
  EXPECT_EQ(calls, 1);
}

TEST_F(EventManagerTest, DescriptorClosedWithoutRemovalCanBeRegisteredAgain) {
  auto first = std::make_unique<Pipe>();
  const int number = first->read_end;
  Watch(*first, [](int, std::uint32_t) { ADD_FAILURE() << "the old handler ran"; });
  first.reset();
  Pipe second;
  ASSERT_EQ(second.read_end, number) << "the system gives the lowest free descriptor";
  int calls = 0;
  Watch(second, [&](int, std::uint32_t) {
    ++calls;
    second.Drain();
  });
  second.Fill();
  event_run_pending(manager);
  EXPECT_EQ(calls, 1);
}

TEST_F(EventManagerTest, AddFaultFails) {
  const ScopedFault fault("event_fd_add", kStatusNoMemory);
  Pipe pipe;
  EXPECT_EQ(event_fd_add(manager, pipe.read_end, EPOLLIN, [](int, std::uint32_t) {}), kStatusNoMemory);
}

// --- Posted functions

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

// --- Timers

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
