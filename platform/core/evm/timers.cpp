#include <functional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/evm/manager.h"

namespace {

// The share of the timers ends after the one that exceeds this time.
constexpr std::uint64_t kTimersTime = 2 * kNanosecondsPerMillisecond;

}  // namespace

void event_timers_run_due(EventManager* manager, std::uint64_t start) {
  if (manager->timers.empty() || manager->timers.begin()->first.first > start) return;
  const std::uint64_t now = clock_monotonic();
  // A timer that a timer starts waits for the next dispatch, even if it is due at once.
  const EventTimerId first_new = manager->next_timer;
  auto next = manager->timers.begin();
  while (next != manager->timers.end() && next->first.first <= now) {
    if (next->first.second >= first_new) {
      ++next;
      continue;
    }
    const std::function<void()> function = std::move(next->second);
    manager->timer_deadlines.erase(next->first.second);
    manager->timers.erase(next);
    ++manager->step.number;
    function();
    if (clock_monotonic() - now >= kTimersTime) return;
    next = manager->timers.begin();
  }
}

EventTimerId event_timer_start(EventManager* manager, std::uint64_t nanoseconds,
                               std::function<void()> function) {
  const EventTimerId id = manager->next_timer++;
  const std::uint64_t now = clock_monotonic();
  const std::uint64_t deadline = nanoseconds > kForever - now ? kForever : now + nanoseconds;
  manager->timers.emplace(EventManager::TimerKey{deadline, id}, std::move(function));
  manager->timer_deadlines.emplace(id, deadline);
  return id;
}

void event_timer_cancel(EventManager* manager, EventTimerId timer) {
  const auto found = manager->timer_deadlines.find(timer);
  if (found == manager->timer_deadlines.end()) return;
  manager->timers.erase({found->second, timer});
  manager->timer_deadlines.erase(found);
}
