#include "platform/core/evm/worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_manager.h"

namespace {

using ::testing::ElementsAre;

class EventWorkerTest : public EventManagerTest {
 protected:
  void RunUntilIdle() {
    while (worker->is_busy()) event_run_pending(manager, 1'000'000);
  }
  void Run(int number) {
    worker->run([this] { thread = std::this_thread::get_id(); }, [this, number] { done.push_back(number); });
  }
  std::unique_ptr<EventWorker> worker = std::make_unique<EventWorker>(manager);
  std::vector<int> done;
  std::thread::id thread;
};

TEST_F(EventWorkerTest, WorkRunsOnAnotherThreadAndDoneOnTheLoop) {
  for (const int number : {1, 2, 3}) Run(number);
  EXPECT_THAT(done, ElementsAre());
  RunUntilIdle();
  EXPECT_THAT(done, ElementsAre(1, 2, 3));
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(EventWorkerTest, FinishCallsWhatIsDoneWithoutTheLoop) {
  Run(1);
  worker->run([] {}, [this] { Run(2); });
  worker->finish();
  EXPECT_THAT(done, ElementsAre(1, 2));
  event_run_pending(manager);
  EXPECT_THAT(done, ElementsAre(1, 2));
}

TEST_F(EventWorkerTest, EndWaitsForTheWorkThatRunsAndDropsTheRest) {
  std::promise<void> begun;
  std::atomic<bool> ended{false};
  worker->run(
      [&] {
        begun.set_value();
        std::this_thread::yield();
        ended = true;
      },
      [this] { done.push_back(1); });
  begun.get_future().wait();
  worker.reset();
  EXPECT_TRUE(ended);
  event_run_pending(manager);
  EXPECT_THAT(done, ElementsAre());
}

TEST_F(EventWorkerTest, DoneMayEndTheWorker) {
  worker->run([] {}, [this] { worker.reset(); });
  worker->run([] {}, [this] { done.push_back(2); });
  while (worker != nullptr) event_run_pending(manager, 1'000'000);
  EXPECT_THAT(done, ElementsAre());
}

TEST_F(EventWorkerTest, WithoutAThreadTheWorkRunsInTheCaller) {
  fault_arm("event_worker", kStatusIo);
  Run(1);
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_THAT(done, ElementsAre());
  RunUntilIdle();
  EXPECT_THAT(done, ElementsAre(1));
  Run(2);
  RunUntilIdle();
  EXPECT_NE(thread, std::this_thread::get_id());
}

}  // namespace
