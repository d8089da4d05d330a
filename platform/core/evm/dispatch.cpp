#include <array>
#include <functional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/evm/manager.h"

namespace {

// The share of the descriptors ends after the event that exceeds this time.
constexpr std::uint64_t kDescriptorsTime = 2 * kNanosecondsPerMillisecond;

void serve_descriptors(EventManager* manager, std::uint64_t start) {
  if (manager->ready.empty()) return;
  const std::uint64_t end = start + kDescriptorsTime;
  std::uint64_t now = start;
  do {
    manager->step = {manager->step.number + 1, now};
    const EventReady next = manager->ready.front();
    manager->ready.pop_front();
    const int fd = static_cast<int>(next.key & UINT32_MAX);
    EventSlot* slot = event_slot_find(manager, fd);
    if (slot != nullptr && slot->generation == next.key >> 32) slot->handler(fd, next.events);
  } while (!manager->ready.empty() && (now = clock_monotonic()) < end);
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

}  // namespace

void event_dispatch(EventContext* context) {
  EventManager* manager = context->manager;
  const EventIteration iteration(manager);
  ++manager->dispatch_depth;
  event_collected_take(context);
  serve_descriptors(manager, iteration.start());
  event_timers_run_due(manager, iteration.start());
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
