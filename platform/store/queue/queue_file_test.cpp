// Tests of queues that outlive the process.
#include "platform/store/queue/queue_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/store/queue/notification_queue.h"

namespace {

using kvtree::NotificationQueue;
using kvtree::QueuedNotification;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::size_t kMegabyte = 1U << 20;
constexpr std::size_t kLimit = 4;  // so the window is 2

class StoredQueue : public ::testing::Test {
 protected:
  StoredQueue() { Restart(); }
  ~StoredQueue() override { fault_disarm_all(); }

  std::string File() const { return directory.path() + "/queue"; }
  // The process is killed and another one begins.
  void Restart(std::size_t limit = kLimit) {
    queue = std::make_unique<NotificationQueue>("a test", limit);
    ASSERT_EQ(queue->store_in(File()), kStatusOk);
  }
  void Push(const std::string& text) {
    queue->push(std::make_shared<const wire::Octets>(text.begin(), text.end()));
  }
  // "sequence-lost:content" of all, acknowledged as they are sent. The sequence is without the part that
  // each process begins anew.
  std::vector<std::string> TakeAll() {
    std::vector<std::string> taken;
    queue->rewind();
    while (const QueuedNotification* next = queue->next()) {
      EXPECT_GT(next->sequence, last_taken);
      last_taken = next->sequence;
      taken.push_back(std::to_string(next->sequence % kvtree::kSequencesOfAProcess) + "-" +
                      std::to_string(next->lost_before) + ":" +
                      std::string(next->content->begin(), next->content->end()));
      queue->acknowledge(next->sequence);
    }
    return taken;
  }
  static std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string Read() const { return ReadFile(File()); }
  void Write(const std::string& octets) const { std::ofstream(File(), std::ios::binary) << octets; }

  ManualClock clock{1000};
  TemporaryDirectory directory;
  std::unique_ptr<NotificationQueue> queue;
  std::uint64_t last_taken = 0;
};

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

TEST_F(StoredQueue, LastRecordThatIsIncompleteOrDamagedEndsTheQueue) {
  Push("first");
  const std::size_t first = Read().size();
  Push("second");
  const std::string octets = Read();
  for (std::size_t size = first; size < octets.size(); ++size) {
    Write(octets.substr(0, size));
    Restart();
    EXPECT_THAT(TakeAll(), ElementsAre("1-0:first")) << size;
    last_taken = 0;
    std::string damaged = octets;
    damaged[size] = static_cast<char>(~damaged[size]);
    Write(damaged);
    Restart();
    EXPECT_THAT(TakeAll(), ElementsAre("1-0:first")) << size;
    last_taken = 0;
  }
  Push("third");  // is not written after the damage
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("2-0:third"));
}

TEST_F(StoredQueue, DamagedRecordCostsOnlyItself) {
  Push("first");
  const std::size_t first = Read().size();
  Push("second");
  const std::string octets = Read();
  Push("third");
  Push("fourth");
  const std::string all = Read();
  for (std::size_t place = first; place < octets.size(); ++place) {
    std::string damaged = all;
    damaged[place] = static_cast<char>(damaged[place] ^ 1);
    Write(damaged);
    ::testing::internal::CaptureStderr();
    Restart();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("damaged")) << place - first;
    EXPECT_THAT(TakeAll(), ElementsAre("1-0:first", "3-1:third", "4-0:fourth")) << place - first;
    last_taken = 0;
  }
}

TEST_F(StoredQueue, ForeignFileIsStoredUnderAnotherName) {
  for (const char* aside : {".unusable.1", ".unusable.2"}) {
    Write(std::string("something else") + aside);
    ::testing::internal::CaptureStderr();
    Restart();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("is stored as " + File() + aside));
    EXPECT_EQ(ReadFile(File() + aside), std::string("something else") + aside);
    EXPECT_THAT(TakeAll(), IsEmpty());
  }
}

// Files with a damaged octet in each place in turn, and what is delivered of them.
class DamagedQueue : public StoredQueue {
 protected:
  // The begin of each record, as the file grew, and its end.
  struct Ranges {
    std::vector<std::size_t> ends;
    std::size_t RecordOf(std::size_t place) const {
      return static_cast<std::size_t>(std::ranges::upper_bound(ends, place) - ends.begin());
    }
  };
  std::vector<std::string> TakenFrom(const std::string& octets) {
    Write(octets);
    last_taken = 0;
    clock.advance(1);  // a new queue has another instance
    Restart();
    return TakeAll();
  }
  void RemoveAside() const {
    for (const auto& file : std::filesystem::directory_iterator(directory.path())) {
      if (file.path().string().find(".unusable.") != std::string::npos) std::filesystem::remove(file);
    }
  }
};

TEST_F(DamagedQueue, EveryOctetOfAGrownFileCostsAtMostItsRecord) {
  const std::uint64_t instance = queue->instance();
  Ranges ranges{{Read().size()}};
  for (const char* text : {"first", "second", "third"}) {
    Push(text);
    ranges.ends.push_back(Read().size());
  }
  const std::vector<std::vector<std::string>> left = {{"1-0:first", "2-0:second", "3-0:third"},
                                                      {"2-1:second", "3-0:third"},
                                                      {"1-0:first", "3-1:third"},
                                                      {"1-0:first", "2-0:second"}};
  const std::string octets = Read();
  for (std::size_t place = 0; place < octets.size(); ++place) {
    for (const int bits : {1, 0x80, 0xff}) {
      std::string damaged = octets;
      damaged[place] = static_cast<char>(damaged[place] ^ bits);
      EXPECT_EQ(TakenFrom(damaged), left[ranges.RecordOf(place)]) << place;
      EXPECT_EQ(queue->instance(), instance) << place;
    }
  }
}

TEST_F(DamagedQueue, EveryOctetOfAFileThatWasWrittenAnewCostsAtMostItsRecord) {
  Ranges ranges;
  Push("first");
  Restart();  // another process: its sequence numbers are far above
  Push("second");
  Restart();
  const std::string two = Read();
  Push("third");
  Restart();
  const std::string octets = Read();
  const std::size_t record = octets.size() - two.size() + 1;  // of "second", which is an octet longer
  ranges.ends = {octets.size() - 3 * record + 2, octets.size() - 2 * record + 1, two.size(), octets.size()};
  const std::vector<std::vector<std::string>> left = {{"1-0:first", "2-0:second", "3-0:third"},
                                                      {"2-1:second", "3-0:third"},
                                                      {"1-0:first", "3-1:third"},
                                                      {"1-0:first", "2-0:second"}};
  for (std::size_t place = 0; place < octets.size(); ++place) {
    std::string damaged = octets;
    damaged[place] = static_cast<char>(~damaged[place]);
    EXPECT_EQ(TakenFrom(damaged), left[ranges.RecordOf(place)]) << place;
  }
}

TEST_F(DamagedQueue, FileWithoutItsHeaderIsStoredAsideAndItsRecordsAreDelivered) {
  Push("first");
  const std::size_t header = Read().size() - std::string("first").size();
  Push("second");
  std::string damaged = Read();
  damaged.replace(0, 40, 40, 'x');  // both
  damaged.replace(40, 20, 20, 'x');
  ASSERT_GT(header, 60U);
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(TakenFrom(damaged), ElementsAre("1-0:first", "2-0:second"));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr(File() + " is damaged and is stored as " + File() +
                        ".unusable.1; what can be read in it is used\n"));
  EXPECT_EQ(ReadFile(File() + ".unusable.1"), damaged);
  Push("third");
  Restart();
  EXPECT_THAT(TakeAll(), ElementsAre("3-0:third"));
}

// Its header is there once.
TEST_F(DamagedQueue, FileOfAFormerReleaseIsContinued) {
  const std::uint64_t instance = queue->instance();
  const std::size_t magic = 4;
  const std::size_t header = (Read().size() - magic) / 2;
  Push("first");
  Push("second");
  std::string former = Read();
  former.erase(magic + header, header);
  EXPECT_THAT(TakenFrom(former), ElementsAre("1-0:first", "2-0:second"));
  EXPECT_EQ(queue->instance(), instance);
  for (std::size_t place = 0; place < magic + header; ++place) {
    std::string damaged = former;
    damaged[place] = static_cast<char>(~damaged[place]);
    EXPECT_THAT(TakenFrom(damaged), ElementsAre("1-0:first", "2-0:second")) << place;
    RemoveAside();
  }
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
