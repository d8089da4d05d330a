// The notifications that one subscriber has not acknowledged yet. Only for this folder.
//
// Notifications are numbered from 1 in order of arrival and sent in that order: next() returns the oldest
// that was not sent to the current subscriber, within a window, and acknowledge() removes those that the
// subscriber has processed. A full queue drops the oldest notification that was never sent; the one after it
// then reports how many are missing before it, so that the sum of the reported losses is exact. A burst of
// losses is logged when it begins and, with its size, when the queue is half empty again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/wire/wire.h"
#include "platform/store/queue/queue_file.h"

namespace kvtree {

class NotificationQueue {
 public:
  // `limit` is at least 2; `subscriber` names the queue in log lines.
  NotificationQueue(std::string subscriber, std::size_t limit);

  // From now on the queue outlives the process in this file, and continues with what an earlier process left.
  // The system's error, which is logged, if the file is not used (queue_file.h): then the queue ends with the
  // process. One that cannot be written is written later.
  [[nodiscard]] Status store_in(const std::string& path);

  // Whose thread writes the file anew (queue_file.h).
  void use_thread(EventManager* manager) {
    if (file_ != nullptr) file_->use_thread(manager);
  }

  void push(std::shared_ptr<const wire::Octets> content);
  // The next to send, which then counts as sent; null if there is none or the window is full. Valid until the
  // next push or acknowledgement.
  const QueuedNotification* next();
  // Removes everything sent up to this number. Numbers that were not sent are ignored.
  void acknowledge(std::uint64_t sequence);
  // The subscriber disconnected: the next one is sent everything again.
  void rewind() {
    sent_ = 0;
    left_at_ = clock_monotonic();
  }
  // clock_monotonic() when the last subscriber disconnected, or when the queue was made.
  std::uint64_t left_at() const { return left_at_; }

  std::size_t size() const { return state_.entries.size(); }
  std::size_t limit() const { return limit_; }
  // How many are missing before those that wait.
  std::uint64_t lost() const;
  // Of its file (queue_file.h).
  std::string problem() const { return file_ == nullptr ? "" : file_->problem(); }
  // Sequence numbers of queues with other instances are unrelated: those of other processes, if they are not
  // stored.
  std::uint64_t instance() const { return state_.instance; }

 private:
  void lose_one();

  std::string subscriber_;
  std::size_t limit_;
  std::size_t window_;
  std::uint64_t left_at_ = clock_monotonic();
  std::uint64_t burst_ = 0;  // lost since the queue was last half empty
  QueueState state_;
  std::unique_ptr<QueueFile> file_;   // may be null
  std::size_t sent_ = 0;              // how many of the first entries are sent and not acknowledged
  std::size_t may_have_arrived_ = 0;  // how many a former subscriber may have received, or this one
};

}  // namespace kvtree
