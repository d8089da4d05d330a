// Files of queues that are written anew on a thread while the process serves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/store/queue/stored_queue_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The process serves.
class ServedQueue : public StoredQueue {
 protected:
  ServedQueue() { Restart(1000); }
  ~ServedQueue() override {
    queue.reset();
    event_manager_destroy(manager);
  }
  void Serve() { queue->use_thread(manager); }
  // Appends until most of the file belongs to acknowledged notifications.
  void FillFile() {
    for (int round = 0; round < 2000 && Size() < kMegabyte + 1000; ++round) {
      for (int i = 0; i < 10; ++i) Push(std::string(100, 'x'));
      TakeAll();
    }
  }
  std::size_t Size() const { return std::filesystem::file_size(File()); }
  void RunUntilSmall() const {
    for (int i = 0; i < 1000 && Size() > kMegabyte; ++i)
      event_run_pending(manager, kNanosecondsPerMillisecond);
  }

  TestRunDirectory run_directory;
  EventManager* manager = event_manager_create("/dev/queue", 0);
};

TEST_F(ServedQueue, FileIsWrittenAnewWithoutDelayingTheCaller) {
  Serve();
  FillFile();
  EXPECT_GT(Size(), kMegabyte) << "the caller has not written it anew";
  Push("after the beginning");
  RunUntilSmall();
  EXPECT_LT(Size(), kMegabyte);
  Push("after the end");
  std::vector<std::string> expected = TakeAll();
  ASSERT_GE(expected.size(), 2U);
  EXPECT_THAT(expected.back(), HasSubstr("after the end"));
}

TEST_F(ServedQueue, NextProcessHasEverythingWheneverThisOneEnds) {
  for (const bool finishes : {false, true}) {
    Restart(1000);
    Serve();
    FillFile();
    Push("a");
    if (finishes) RunUntilSmall();
    Push("b");
    Restart(1000);
    std::vector<std::string> left;
    for (const std::string& each : TakeAll()) left.push_back(each.substr(each.find(':') + 1));
    EXPECT_THAT(left, ElementsAre("a", "b")) << finishes;
  }
}

TEST_F(ServedQueue, FailureIsRepairedOnTheThread) {
  Serve();
  ::testing::internal::CaptureStderr();
  fault_arm("queue_file_append", ENOSPC);
  Push("a");
  fault_arm("replace_file", ENOSPC);
  for (const char* text : {"b", "c", "d"}) {
    clock.advance(kNanosecondsPerSecond);
    Push(text);
    queue->use_thread(manager);  // waits for the thread
  }
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("queue cannot be written"));
  EXPECT_THAT(log, HasSubstr("queue is written again\n"));
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "2-0:b", "3-0:c", "4-0:d"));
}

TEST_F(ServedQueue, FailureIsRepairedWithoutAnotherNotification) {
  Serve();
  ::testing::internal::CaptureStderr();
  fault_arm("queue_file_append", ENOSPC);
  Push("a");
  clock.advance(kNanosecondsPerSecond);
  for (int i = 0; i < 100; ++i) event_run_pending(manager, kNanosecondsPerMillisecond);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("queue is written again\n"));
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a"));
}

TEST_F(ServedQueue, FileThatCannotBeWrittenAnewIsContinued) {
  Serve();
  fault_arm("replace_file", ENOSPC, 1, 0);
  FillFile();
  Push("a");
  queue->use_thread(manager);  // waits for the thread
  Push("b");
  queue->use_thread(manager);
  fault_disarm_all();
  Restart(1000);
  std::vector<std::string> left;
  for (const std::string& each : TakeAll()) left.push_back(each.substr(each.find(':') + 1));
  EXPECT_THAT(left, ElementsAre("a", "b"));
}

// The disk does not answer while many notifications come and go.
TEST_F(ServedQueue, FormerFileIsContinuedWhenTheNewOneTakesTooLong) {
  Serve();
  FillFile();
  for (std::size_t octets = 0; octets < 20 * kMegabyte; octets += kMegabyte / 8) {
    Push(std::string(kMegabyte / 8, 'x'));
    TakeAll();
  }
  Push("a");
  ::testing::internal::CaptureStderr();
  queue->use_thread(manager);  // waits for the thread
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("so it grows: No buffer space available\n"));
  EXPECT_GT(Size(), 20 * kMegabyte);
  Push("b");
  clock.advance(kNanosecondsPerSecond);
  Push("c");
  RunUntilSmall();
  EXPECT_LT(Size(), kMegabyte);
  Restart(1000);
  std::vector<std::string> left;
  for (const std::string& each : TakeAll()) left.push_back(each.substr(each.find(':') + 1));
  EXPECT_THAT(left, ElementsAre("a", "b", "c"));
}

TEST_F(ServedQueue, FileThatCannotBeWrittenAtTheStartIsWrittenLater) {
  Push("a");
  fault_arm("replace_file", ENOSPC);
  Restart();
  Serve();
  Push("b");
  clock.advance(kNanosecondsPerSecond);
  for (int i = 0; i < 100; ++i) event_run_pending(manager, kNanosecondsPerMillisecond);
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "2-0:b"));
}

}  // namespace
