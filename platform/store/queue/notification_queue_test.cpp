// A queue of notifications: order, window, acknowledgements and losses.
#include "platform/store/queue/notification_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using kvtree::NotificationQueue;
using kvtree::QueuedNotification;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Queue : public ::testing::Test {
 protected:
  void Push(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) queue.push(std::make_shared<const wire::Octets>());
  }
  // "sequence", or "sequence-lost" after a loss, of everything that may be sent.
  std::vector<std::string> SendAll() {
    std::vector<std::string> sent;
    while (const QueuedNotification* next = queue.next()) {
      sent.push_back(std::to_string(next->sequence));
      if (next->lost_before != 0) sent.back() += "-" + std::to_string(next->lost_before);
    }
    return sent;
  }
  NotificationQueue queue{"a test", 4};  // so its window is 2
};

TEST_F(Queue, SendsInOrderWithinItsWindow) {
  Push(3);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  queue.acknowledge(1);
  EXPECT_THAT(SendAll(), ElementsAre("3"));
  queue.acknowledge(3);
  EXPECT_EQ(queue.size(), 0U);
}

TEST_F(Queue, KeepsWhatIsNotAcknowledgedForTheNextSubscriber) {
  Push(3);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  queue.acknowledge(1);
  queue.rewind();
  EXPECT_THAT(SendAll(), ElementsAre("2", "3"));
}

TEST_F(Queue, DoesNotForgetWhatWasNotSent) {
  Push(3);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  queue.acknowledge(UINT64_MAX);
  EXPECT_EQ(queue.size(), 1U);
  EXPECT_THAT(SendAll(), ElementsAre("3"));
}

TEST_F(Queue, DropsTheOldestAndReportsHowManyAreMissing) {
  Push(7);
  EXPECT_THAT(SendAll(), ElementsAre("4-3", "5"));
  queue.acknowledge(5);
  EXPECT_THAT(SendAll(), ElementsAre("6", "7"));
}

TEST_F(Queue, DoesNotLoseWhatIsOnItsWay) {
  Push(4);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  Push(2);
  queue.acknowledge(2);
  EXPECT_THAT(SendAll(), ElementsAre("5-2", "6"));
}

// It may have arrived: a notification that is counted as lost must be one that no subscriber has received.
TEST_F(Queue, DoesNotLoseWhatWasSentToAFormerSubscriber) {
  Push(4);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  queue.rewind();
  Push(2);
  EXPECT_THAT(SendAll(), ElementsAre("1", "2"));
  queue.acknowledge(1);
  queue.rewind();
  Push(2);
  EXPECT_THAT(SendAll(), ElementsAre("2", "6-3"));
  queue.acknowledge(6);
  EXPECT_THAT(SendAll(), ElementsAre("7", "8"));
}

// The log is limited: of many lines with counts some are missing, and their sum is wrong.
TEST_F(Queue, LogsAFloodThatLastsOnce) {
  ::testing::internal::CaptureStderr();
  Push(4);
  for (int round = 1; round <= 1000; ++round) {
    queue.next();
    Push(3);
    queue.acknowledge(UINT64_MAX);
  }
  SendAll();
  queue.acknowledge(UINT64_MAX);
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
  EXPECT_THAT(log, HasSubstr("2001 notifications were lost while the queue was full\n"));
}

TEST_F(Queue, LogsABurstOfLossesTwice) {
  ::testing::internal::CaptureStderr();
  Push(7);
  SendAll();
  queue.acknowledge(5);
  Push(1);
  queue.acknowledge(5);
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(
      log,
      "kvtree: a test: 4 notifications wait and there is no room for more; the oldest are lost from here\n"
      "kvtree: a test: 3 notifications were lost while the queue was full\n");
}

}  // namespace
