// The event loop: waiting, dispatching, descriptors, posted functions and timers.
//
// A wait only collects epoll events into the caller's buffer; a dispatch runs their handlers, then the timers
// that are due. Between the two the caller may do anything, including removing descriptors: each event
// carries the descriptor and the generation of its registration, and an event of an older generation is
// dropped.
//
// A handler may remove itself or add others while it runs. Slots are therefore heap objects of their own (the
// table that holds them may grow) and a removed slot is only retired: it is freed when the outermost dispatch
// has ended.
//
// An iteration is bounded: the descriptors have a share of time, the timers another. What is left of either
// is first in the next iteration, before anything new, so that each has its turn however slow others are.
//
// Posted functions and the listening socket are ordinary descriptors of the loop. A post writes the eventfd
// only if the queue was empty; a batch that leaves functions in the queue writes it again, so that other
// descriptors are served in between. The queue's mutex is the only lock here and is never held while a
// function runs.
//
// Timers are ordered by deadline on the monotonic clock of platform/core/base/clock.h, which tests replace.
// The limit of event_wait_for is real time, so that a test with a frozen clock still returns. A wait without
// a limit blocks without a time-out, for which the kernel would set and cancel a timer each time: one timer
// descriptor is set whenever an earlier timer than before is the first.
#include "platform/core/evm/evm.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/evm/manager.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

// A batch of posted functions ends after this many, or after the one that exceeds this time.
constexpr std::size_t kPostedBatch = 64;
constexpr std::uint64_t kPostedTime = 2 * kNanosecondsPerMillisecond;
// The shares of descriptors and of timers, likewise.
constexpr std::uint64_t kDescriptorsTime = 2 * kNanosecondsPerMillisecond;
constexpr std::uint64_t kTimersTime = 2 * kNanosecondsPerMillisecond;
constexpr std::uint64_t kForever = UINT64_MAX;

std::function<void(EventManager*)>& create_hook() {
  static std::function<void(EventManager*)> hook;
  return hook;
}

std::uint64_t event_key(int fd, std::uint32_t generation) {
  return std::uint64_t{generation} << 32 | static_cast<std::uint32_t>(fd);
}

EventSlot* find_slot(const EventManager* manager, int fd) {
  if (fd < 0 || static_cast<std::size_t>(fd) >= manager->slots.size()) return nullptr;
  return manager->slots[static_cast<std::size_t>(fd)].get();
}

// The handler may be the one that runs now, so it lives on until dispatching ends.
void retire_slot(EventManager* manager, int fd) {
  std::unique_ptr<EventSlot>& slot = manager->slots[static_cast<std::size_t>(fd)];
  if (manager->dispatch_depth > 0) manager->retired.push_back(std::move(slot));
  slot.reset();
}

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

// Adds what the wait collected to what earlier dispatches have left.
void take_collected(EventContext* context) {
  const EventArray array = event_array(context);
  const int count = std::min(static_cast<int>(context->collected), array.capacity);
  context->collected = 0;
  for (int i = 0; i < count; ++i) {
    context->manager->ready.push_back({array.events[i].data.u64, array.events[i].events});
  }
}

void serve_descriptors(EventManager* manager, std::uint64_t start) {
  if (manager->ready.empty()) return;
  const std::uint64_t end = start + kDescriptorsTime;
  std::uint64_t now = start;
  do {
    manager->step = {manager->step.number + 1, now};
    const EventReady next = manager->ready.front();
    manager->ready.pop_front();
    const int fd = static_cast<int>(next.key & UINT32_MAX);
    EventSlot* slot = find_slot(manager, fd);
    if (slot != nullptr && slot->generation == next.key >> 32) slot->handler(fd, next.events);
  } while (!manager->ready.empty() && (now = clock_monotonic()) < end);
}

// Those that were due when the dispatch began.
void run_due_timers(EventManager* manager, std::uint64_t start) {
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

void run_posted(EventManager* manager) {
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

void run_deferred(EventManager* manager) {
  if (manager->deferred.empty()) return;
  std::vector<EventDeferred> batch;
  batch.swap(manager->deferred);
  manager->running_deferred.push_back(&batch);
  for (EventDeferred& each : batch) {
    ++manager->step.number;
    manager->end = 0;
    const std::function<void()> function = std::move(each.function);
    if (function) function();
  }
  manager->running_deferred.pop_back();
  batch.clear();
  if (manager->deferred.empty()) manager->deferred.swap(batch);  // its memory
}

bool valid_name(const char* name) {
  if (name == nullptr || name[0] != '/' || name[1] == '\0') return false;
  const std::string_view text(name);
  return text.back() != '/' && text.find("//") == std::string_view::npos &&
         text.find("..") == std::string_view::npos;
}

// 0 or errno.
int set_up(EventManager* manager) {
  manager->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  if (manager->epoll_fd < 0) return errno;
  manager->wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (manager->wake_fd < 0) return errno;
  manager->timer_fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (manager->timer_fd < 0) return errno;
  if (const int error = event_listener_open(manager->name, &manager->listener)) return error;
  if (const Status status = event_slot_add(manager, manager->wake_fd, EPOLLIN,
                                           [manager](int, std::uint32_t) { run_posted(manager); })) {
    return static_cast<int>(status);
  }
  // Edge-triggered: an expiration needs no read.
  if (const Status status =
          event_slot_add(manager, manager->timer_fd, EPOLLIN | EPOLLET,
                         [manager](int, std::uint32_t) { manager->wake_deadline = UINT64_MAX; })) {
    return static_cast<int>(status);
  }
  return static_cast<int>(event_slot_add(manager, manager->listener.fd, EPOLLIN,
                                         [manager](int, std::uint32_t) { event_listener_accept(manager); }));
}

// The callers' messages do not have the error. The listener has reported its own.
void report_scarcity(int error, const char* name) {
  if (error != EMFILE && error != ENFILE && error != ENOMEM) return;
  log_error("evm", "%s cannot be created: %s: raise the limit (ulimit -n, LimitNOFILE=), then start again",
            name, std::strerror(error));
}

}  // namespace

EventManager* event_manager_create(const char* name, std::uint32_t /*flags*/) {
  if (const Status status = fault_check("event_manager_create")) {
    errno = static_cast<int>(status);
    return nullptr;
  }
  if (!valid_name(name)) {
    errno = EINVAL;
    return nullptr;
  }
  auto manager = std::make_unique<EventManager>();
  manager->name = name;
  if (const int error = set_up(manager.get())) {
    report_scarcity(error, name);
    event_manager_destroy(manager.release());
    errno = error;
    return nullptr;
  }
  EventManager* made = manager.release();
  if (create_hook()) create_hook()(made);
  return made;
}

void event_manager_destroy(EventManager* manager) {
  if (manager == nullptr) return;
  event_listener_close(&manager->listener);
  if (manager->timer_fd >= 0) close(manager->timer_fd);
  if (manager->wake_fd >= 0) close(manager->wake_fd);
  if (manager->epoll_fd >= 0) close(manager->epoll_fd);
  delete manager;
}

void event_manager_on_create(std::function<void(EventManager*)> hook) {
  create_hook() = std::move(hook);
}

const char* event_manager_name(const EventManager* manager) {
  return manager->name.c_str();
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

void event_dispatch(EventContext* context) {
  EventManager* manager = context->manager;
  const EventIteration iteration(manager);
  ++manager->dispatch_depth;
  take_collected(context);
  serve_descriptors(manager, iteration.start());
  run_due_timers(manager, iteration.start());
  run_deferred(manager);
  if (--manager->dispatch_depth == 0) manager->retired.clear();
}

bool event_run_pending(EventManager* manager, std::uint64_t nanoseconds) {
  std::array<unsigned char, 1024> buffer;
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  bool dispatched = false;
  while (event_wait_for(&context, dispatched ? 0 : nanoseconds) == 0) {
    event_dispatch(&context);
    dispatched = true;
  }
  return dispatched;
}

Status event_slot_add(EventManager* manager, int fd, std::uint32_t events, EventFdHandler handler) {
  auto slot = std::make_unique<EventSlot>();
  slot->handler = std::move(handler);
  slot->generation = manager->next_generation++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = event_key(fd, slot->generation);
  if (epoll_ctl(manager->epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0) return static_cast<Status>(errno);
  const auto index = static_cast<std::size_t>(fd);
  if (index >= manager->slots.size()) manager->slots.resize(index + 1);
  retire_slot(manager, fd);  // of a descriptor that was closed without being removed
  manager->slots[index] = std::move(slot);
  return kStatusOk;
}

Status event_fd_add(EventManager* manager, int fd, std::uint32_t events, EventFdHandler handler) {
  if (const Status status = fault_check("event_fd_add")) return status;
  return event_slot_add(manager, fd, events, std::move(handler));
}

Status event_fd_modify(EventManager* manager, int fd, std::uint32_t events) {
  const EventSlot* slot = find_slot(manager, fd);
  if (slot == nullptr) return kStatusNoSuchRow;
  epoll_event event{};
  event.events = events;
  event.data.u64 = event_key(fd, slot->generation);
  if (epoll_ctl(manager->epoll_fd, EPOLL_CTL_MOD, fd, &event) != 0) return static_cast<Status>(errno);
  return kStatusOk;
}

void event_fd_remove(EventManager* manager, int fd) {
  if (find_slot(manager, fd) == nullptr) return;
  // A descriptor that was closed first has left the epoll set already.
  epoll_ctl(manager->epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
  retire_slot(manager, fd);
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

void event_defer(EventManager* manager, std::function<void()> function, const void* owner) {
  manager->deferred.push_back({std::move(function), owner});
}

void event_defer_cancel(EventManager* manager, const void* owner) {
  const auto cancel = [owner](std::vector<EventDeferred>& functions) {
    for (EventDeferred& each : functions) {
      if (each.owner == owner) each.function = nullptr;
    }
  };
  cancel(manager->deferred);
  for (std::vector<EventDeferred>* const batch : manager->running_deferred) cancel(*batch);
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

void event_set_acceptor(EventManager* manager, std::function<void(int fd)> acceptor) {
  manager->acceptor = std::move(acceptor);
}
