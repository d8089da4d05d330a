// The window is at most half of the limit, so that a full queue always has a notification to drop that was
// never sent, and another one after it to report the loss. The window of a former process was not larger.
#include "platform/store/queue/notification_queue.h"

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
      state_{clock_stamp(), 1, {}} {}

Status NotificationQueue::store_in(const std::string& path) {
  file_ = std::make_unique<QueueFile>(path);
  const Status status = file_->open_or_retry(&state_);
  may_have_arrived_ = std::min(window_, size());
  return status;
}

std::uint64_t NotificationQueue::lost() const {
  std::uint64_t lost = 0;
  for (const QueuedNotification& each : state_.entries) lost += each.lost_before;
  return lost;
}

void NotificationQueue::push(std::shared_ptr<const wire::Octets> content) {
  state_.entries.push_back({state_.next_sequence++, 0, std::move(content)});
  if (file_ != nullptr) file_->added(state_);
  if (state_.entries.size() > limit_) lose_one();
}

const QueuedNotification* NotificationQueue::next() {
  if (sent_ == state_.entries.size() || sent_ == window_) return nullptr;
  may_have_arrived_ = std::max(may_have_arrived_, ++sent_);
  return &state_.entries[sent_ - 1];
}

void NotificationQueue::acknowledge(std::uint64_t sequence) {
  const std::size_t before = sent_;
  std::uint64_t last = 0;
  for (; sent_ > 0 && state_.entries.front().sequence <= sequence; --sent_) {
    last = state_.entries.front().sequence;
    state_.entries.pop_front();
    --may_have_arrived_;
  }
  if (file_ != nullptr && sent_ != before) file_->acknowledged(last, state_);
  if (burst_ == 0 || size() > limit_ / 2) return;
  log_notice("kvtree", "%s: %llu notifications were lost while the queue was full", subscriber_.c_str(),
             static_cast<unsigned long long>(burst_));
  burst_ = 0;
}

void NotificationQueue::lose_one() {
  const auto lost = state_.entries.begin() + static_cast<std::ptrdiff_t>(may_have_arrived_);
  const std::uint64_t sequence = lost->sequence;
  (lost + 1)->lost_before += lost->lost_before + 1;
  state_.entries.erase(lost);
  if (file_ != nullptr) file_->lost(sequence, state_);
  if (burst_++ > 0) return;
  log_warning("kvtree",
              "%s: %zu notifications wait and there is no room for more; the oldest are lost from here",
              subscriber_.c_str(), limit_);
}

}  // namespace kvtree
