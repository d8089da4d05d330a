// Files of queues with damage in each place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/store/queue/stored_queue_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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

}  // namespace
