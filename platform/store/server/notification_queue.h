// The notifications that one subscriber has not acknowledged yet. Not for other folders.
//
// Notifications are numbered from 1 in the order in which they came and leave in that order: next() hands out
// the oldest that the present subscriber was not sent, within a window, and acknowledge() takes away what the
// subscriber has done with. A queue that is full loses the oldest notification that is not on its way; the
// one behind it then tells how many are missing before it, so the sum of what a subscriber is told is exact.
// A burst of losses is logged when it begins and, with its size, when there is room again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "platform/core/wire/wire.h"

namespace kvtree {

struct QueuedNotification {
  std::uint64_t sequence;
  std::uint64_t lost_before;                    // notifications missing between the one before and this one
  std::shared_ptr<const wire::Octets> content;  // the message's part that is the same for every subscriber
};

class NotificationQueue {
 public:
  // `limit` is at least 2; `subscriber` names the queue in log lines.
  NotificationQueue(std::string subscriber, std::size_t limit);

  void push(std::shared_ptr<const wire::Octets> content);
  // The next to send, which then counts as sent; null when there is none or the window is full. Valid until
  // the next push or acknowledgement.
  const QueuedNotification* next();
  // Forgets everything sent up to this number. Numbers that were not sent are ignored.
  void acknowledge(std::uint64_t sequence);
  // The subscriber is gone: the next one is sent everything again.
  void rewind() { sent_ = 0; }

  std::size_t size() const { return entries_.size(); }
  // Tells this queue from one of another process or an earlier one of this: what is numbered alike is not
  // alike.
  std::uint64_t instance() const { return instance_; }

 private:
  void lose_one();

  std::string subscriber_;
  std::size_t limit_;
  std::size_t window_;
  std::uint64_t instance_;
  std::uint64_t next_sequence_ = 1;
  std::uint64_t burst_ = 0;  // lost since the queue last had room
  std::deque<QueuedNotification> entries_;
  std::size_t sent_ = 0;  // so many of the first entries are on their way
};

}  // namespace kvtree
