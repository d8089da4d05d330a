#include <unistd.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/evm/manager.h"

namespace {

// A batch of posted functions ends after this many, or after the one that exceeds this time.
constexpr std::size_t kPostedBatch = 64;
constexpr std::uint64_t kPostedTime = 2 * kNanosecondsPerMillisecond;

void wake(EventManager* manager) {
  const std::uint64_t one = 1;
  // It fails only when the counter is at its limit, and then the loop is awake anyway.
  [[maybe_unused]] const ssize_t written = write(manager->wake_fd, &one, sizeof one);
}

std::size_t posted_count(EventManager* manager) {
  const std::lock_guard lock(manager->posted_mutex);
  return manager->posted.size();
}

// REQUIRES: the queue is not empty. Manager's thread only.
std::function<void()> take_posted(EventManager* manager) {
  const std::lock_guard lock(manager->posted_mutex);
  std::function<void()> function = std::move(manager->posted.front());
  manager->posted.pop_front();
  return function;
}

}  // namespace

void event_posted_run(EventManager* manager) {
  std::uint64_t count = 0;
  // Nothing to read: an earlier batch has taken the count already. The queue has the current number.
  [[maybe_unused]] const ssize_t got = read(manager->wake_fd, &count, sizeof count);
  // Functions that this batch posts run in the next one.
  std::size_t batch = posted_count(manager);
  manager->batch_ends = false;
  const std::uint64_t end = clock_monotonic() + kPostedTime;
  for (batch = std::min(batch, kPostedBatch); batch > 0; --batch) {
    take_posted(manager)();
    if (manager->batch_ends || clock_monotonic() >= end) break;
  }
  const std::lock_guard lock(manager->posted_mutex);
  if (!manager->posted.empty()) wake(manager);
}

void event_post(EventManager* manager, std::function<void()> function) {
  const std::lock_guard lock(manager->posted_mutex);
  manager->posted.push_back(std::move(function));
  if (manager->posted.size() == 1) wake(manager);
}

void event_post_first(EventManager* manager, std::function<void()> function) {
  const std::lock_guard lock(manager->posted_mutex);
  manager->posted.push_front(std::move(function));
  manager->batch_ends = true;
  if (manager->posted.size() == 1) wake(manager);
}
