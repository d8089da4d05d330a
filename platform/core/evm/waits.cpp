#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <memory>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/manager.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

struct EventArray {
  epoll_event* events;
  int capacity;
};

// The caller's buffer as an array of events; capacity 0 when it cannot hold one.
EventArray event_array(const EventContext* context) {
  void* place = context->buffer;
  std::size_t space = context->buffer_size;
  if (place == nullptr || std::align(alignof(epoll_event), sizeof(epoll_event), place, space) == nullptr) {
    return {nullptr, 0};
  }
  return {static_cast<epoll_event*>(place),
          static_cast<int>(std::min<std::size_t>(space / sizeof(epoll_event), INT_MAX))};
}

// Nanoseconds until the first timer is due.
std::uint64_t time_to_first_timer(const EventManager* manager) {
  if (manager->timers.empty()) return kForever;
  const std::uint64_t deadline = manager->timers.begin()->first.first;
  const std::uint64_t now = clock_monotonic();
  return deadline > now ? deadline - now : 0;
}

// Rounded up, so that a timer is due when the wait for it ends.
int to_milliseconds(std::uint64_t nanoseconds) {
  if (nanoseconds == kForever) return -1;
  const std::uint64_t milliseconds =
      nanoseconds / kNanosecondsPerMillisecond + (nanoseconds % kNanosecondsPerMillisecond != 0 ? 1 : 0);
  return static_cast<int>(std::min<std::uint64_t>(milliseconds, INT_MAX));
}

// The timer descriptor ends a wait when the first timer is due, in this many nanoseconds, or earlier. False
// if it cannot be set.
bool set_timer_descriptor(EventManager* manager, std::uint64_t nanoseconds) {
  const std::uint64_t deadline = manager->timers.begin()->first.first;
  if (deadline >= manager->wake_deadline) return true;
  itimerspec when{};
  when.it_value.tv_sec = static_cast<std::time_t>(nanoseconds / kNanosecondsPerSecond);
  when.it_value.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
  if (timerfd_settime(manager->timer_fd, 0, &when, nullptr) != 0) return false;
  manager->wake_deadline = deadline;
  return true;
}

// The time-out of a wait for at most `left`.
int wait_timeout(EventManager* manager, std::uint64_t left) {
  if (!manager->deferred.empty()) return 0;
  const bool timer_ends_wait =
      manager->timers.empty() || manager->timers.begin()->first.first >= manager->wake_deadline;
  if (left == kForever && timer_ends_wait) return -1;
  const std::uint64_t to_timer = time_to_first_timer(manager);
  const bool is_limited = left != kForever || to_timer == 0;
  if (!is_limited && (to_timer == kForever || set_timer_descriptor(manager, to_timer))) return -1;
  return to_milliseconds(std::min(left, to_timer));
}

std::uint64_t elapsed_since(SteadyClock::time_point start) {
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::nanoseconds>(SteadyClock::now() - start).count());
}

int wait_for_events(EventContext* context, std::uint64_t bound) {
  context->collected = 0;
  const EventArray array = event_array(context);
  if (array.capacity == 0) {
    errno = EINVAL;
    return -1;
  }
  const bool bounded = bound != kForever && bound != 0;
  const SteadyClock::time_point start = bounded ? SteadyClock::now() : SteadyClock::time_point{};
  std::uint64_t left = bound;
  for (;;) {
    if (!context->manager->ready.empty()) return 0;
    const int timeout = wait_timeout(context->manager, left);
    const int count = epoll_wait(context->manager->epoll_fd, array.events, array.capacity, timeout);
    if (count < 0) return -1;
    context->collected = static_cast<std::uint32_t>(count);
    if (count > 0 || !context->manager->deferred.empty()) return 0;
    if (time_to_first_timer(context->manager) == 0) return 0;
    if (bounded) left = bound - std::min(bound, elapsed_since(start));
    if (left == 0) {
      errno = ETIMEDOUT;
      return -1;
    }
  }
}

}  // namespace

void event_collected_take(EventContext* context) {
  const EventArray array = event_array(context);
  const int count = std::min(static_cast<int>(context->collected), array.capacity);
  context->collected = 0;
  for (int i = 0; i < count; ++i) {
    context->manager->ready.push_back({array.events[i].data.u64, array.events[i].events});
  }
}

int event_wait(EventContext* context) {
  if (const Status status = fault_check("event_wait")) {
    context->collected = 0;
    errno = static_cast<int>(status);
    return -1;
  }
  return wait_for_events(context, kForever);
}

int event_wait_for(EventContext* context, std::uint64_t nanoseconds) {
  return wait_for_events(context, std::min(nanoseconds, kForever - 1));
}
