// Queues that outlive the process: what the next one continues with, and files that cannot be written or
// read.
#include "platform/store/queue/queue_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/store/queue/stored_queue_test_support.h"

namespace {

using kvtree::NotificationQueue;
using kvtree::QueuedNotification;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(StoredQueue, ContinuesInTheNextProcess) {
  for (const char* text : {"a", "", "c"}) Push(text);
  const std::uint64_t instance = queue->instance();
  const QueuedNotification* first = queue->next();
  ASSERT_NE(first, nullptr);
  queue->acknowledge(first->sequence);
  clock.advance(1);
  Restart();
  EXPECT_EQ(queue->instance(), instance);
  EXPECT_THAT(TakeAll(), ElementsAre("2-0:", "3-0:c"));
  Restart();
  EXPECT_THAT(TakeAll(), IsEmpty());
  Push("d");
  EXPECT_THAT(TakeAll(), ElementsAre("4-0:d"));
}

TEST_F(StoredQueue, LossesAreReportedByTheNextProcess) {
  ASSERT_EQ(queue->next(), nullptr);
  for (const char* text : {"a", "b"}) Push(text);
  ASSERT_NE(queue->next(), nullptr);  // what is sent is not dropped
  for (const char* text : {"c", "d", "e", "f"}) Push(text);
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "4-2:d", "5-0:e", "6-0:f"));
}

// A subscriber ignores sequence numbers that it has received.
TEST_F(StoredQueue, SequenceThatCouldNotBeStoredIsNotUsedAgain) {
  Push("a");
  fault_arm("queue_file_append", ENOSPC);
  for (const char* text : {"b", "c"}) Push(text);
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "2-0:b", "3-0:c"));
  last_taken = 0;
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a"));  // nor could its acknowledgement
  last_taken = 3;
  Push("d");
  EXPECT_THAT(TakeAll(), ElementsAre("2-0:d"));
}

TEST_F(StoredQueue, SequencesOfEachProcessAreAboveThoseOfTheFormerOnes) {
  for (int process = 0; process < 3; ++process) {
    Push("same");
    Restart(10);
  }
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:same", "2-0:same", "3-0:same"));
}

TEST_F(StoredQueue, WhatAFormerProcessMayHaveSentIsNotLost) {
  for (const char* text : {"a", "b", "c"}) Push(text);
  ASSERT_NE(queue->next(), nullptr);
  ASSERT_NE(queue->next(), nullptr);
  Restart();
  for (const char* text : {"d", "e", "f"}) Push(text);
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "2-0:b", "5-2:e", "6-0:f"));
}

TEST_F(StoredQueue, FileStaysSmallAndIsForItsOwnerAlone) {
  for (int i = 0; i < 20000; ++i) {
    Push(std::string(100, 'x'));
    ASSERT_TRUE(i % 2 == 0 || !TakeAll().empty());
    ASSERT_LE(std::filesystem::file_size(File()), 3 * kMegabyte);
  }
  struct stat status {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(StoredQueue, FailureIsLoggedOnceAndEverythingIsWrittenOnceItIsOver) {
  ::testing::internal::CaptureStderr();
  fault_arm("queue_file_append", ENOSPC);
  Push("a");
  fault_arm("replace_file", ENOSPC);
  clock.advance(kNanosecondsPerSecond);
  Push("b");
  Push("c");  // too early for another attempt
  clock.advance(kNanosecondsPerSecond);
  Push("d");
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(log,
              HasSubstr("queue cannot be written: the waiting notifications are lost if the process ends: "));
  EXPECT_THAT(log, HasSubstr("queue is written again\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a", "2-0:b", "3-0:c", "4-0:d"));
}

TEST_F(StoredQueue, FileThatCannotBeReadIsSetAsideUnchanged) {
  Push("a");
  const std::uint64_t instance = queue->instance();
  const std::string octets = Read();
  fault_arm("read_file", EIO);
  clock.advance(kNanosecondsPerSecond);
  ::testing::internal::CaptureStderr();
  Restart();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kvtree: " + File() + " cannot be read (Input/output error) and is stored as " + File() +
                ".unusable.1: the notifications in it are not sent\n");
  EXPECT_EQ(ReadFile(File() + ".unusable.1"), octets);
  EXPECT_NE(queue->instance(), instance);
  EXPECT_EQ(queue->problem(), "");
  last_taken = 0;
  Push("b");
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:b"));
}

TEST_F(StoredQueue, DirectoryInItsPlaceIsSetAside) {
  std::filesystem::remove(File());
  std::filesystem::create_directory(File());
  Restart();
  EXPECT_TRUE(std::filesystem::is_directory(File() + ".unusable.1"));
  Push("a");
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:a"));
}

TEST_F(StoredQueue, FileThatCanBeNeitherReadNorSetAsideIsLeftAsItIs) {
  Push("a");
  const std::string octets = Read();
  fault_arm("read_file", EACCES);
  fault_arm("set_aside", EROFS);
  queue = std::make_unique<NotificationQueue>("a test", kLimit);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(queue->store_in(File()), static_cast<Status>(EROFS));
  const std::string why =
      "it cannot be read (Permission denied) nor set aside (Read-only file system), and is left as it is";
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "kvtree: " + File() + " is not used: " + why +
                "; the waiting notifications are lost if the process ends\n");
  EXPECT_EQ(queue->problem(), why);
  last_taken = 0;
  Push("b");
  clock.advance(60 * kNanosecondsPerSecond);
  Push("c");
  EXPECT_THAT(TakeAll(), ElementsAre("1-0:b", "2-0:c"));
  EXPECT_EQ(queue->problem(), why);
  EXPECT_EQ(Read(), octets);
}

}  // namespace
