// Tests of the event loop: waiting and dispatching, descriptors.
#include "platform/core/evm/evm.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
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

}  // namespace
