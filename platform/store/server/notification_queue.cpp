// The window is at most half of the limit, so that a full queue always has an unsent notification to drop and
// another one after it to report the loss.
#include "platform/store/server/notification_queue.h"

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

NotificationQueue::NotificationQueue(std::string subscriber, std::size_t limit)
    : subscriber_(std::move(subscriber)),
      limit_(std::max<std::size_t>(limit, 2)),
      window_(std::min(kNotificationWindow, limit_ / 2)),
      instance_(clock_stamp()) {}

void NotificationQueue::push(std::shared_ptr<const wire::Octets> content) {
  entries_.push_back({next_sequence_++, 0, std::move(content)});
  if (entries_.size() > limit_) lose_one();
}

const QueuedNotification* NotificationQueue::next() {
  if (sent_ == entries_.size() || sent_ == window_) return nullptr;
  return &entries_[sent_++];
}

void NotificationQueue::acknowledge(std::uint64_t sequence) {
  while (sent_ > 0 && entries_.front().sequence <= sequence) {
    entries_.pop_front();
    --sent_;
  }
  if (burst_ == 0 || entries_.size() >= limit_) return;
  log_notice("kvtree", "%s: %llu notifications were lost while the queue was full", subscriber_.c_str(),
             static_cast<unsigned long long>(burst_));
  burst_ = 0;
}

void NotificationQueue::lose_one() {
  const auto lost = entries_.begin() + static_cast<std::ptrdiff_t>(sent_);
  (lost + 1)->lost_before += lost->lost_before + 1;
  entries_.erase(lost);
  if (burst_++ > 0) return;
  log_warning("kvtree",
              "%s: %zu notifications wait and there is no room for more; the oldest are lost from here",
              subscriber_.c_str(), limit_);
}

}  // namespace kvtree
