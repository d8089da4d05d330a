#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/evm/manager.h"

EventIteration::EventIteration(EventManager* manager) : manager_(manager), start_(clock_monotonic()) {
  manager->end = 0;
}

EventIteration::~EventIteration() {
  // One around this iteration has not ended.
  const std::uint64_t known_end = std::exchange(manager_->end, 0);
  const std::uint64_t time = (known_end != 0 ? known_end : clock_monotonic()) - start_;
  if (time < kLongIteration || manager_->dispatch_depth > 0) return;
  EventStatistics& statistics = manager_->statistics;
  ++statistics.long_iterations;
  if (time <= statistics.longest) return;
  statistics.longest = time;
  statistics.longest_stamp = clock_stamp();
}

EventStep event_step(const EventManager* manager) {
  return manager->step;
}

void event_ends_at(EventManager* manager, std::uint64_t now) {
  manager->end = now;
}

EventStatistics event_statistics(const EventManager* manager) {
  return manager->statistics;
}
