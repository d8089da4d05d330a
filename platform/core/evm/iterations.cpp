#include "platform/core/base/clock.h"
#include "platform/core/evm/manager.h"

EventIteration::EventIteration(EventManager* manager) : manager_(manager), start_(clock_monotonic()) {}

EventIteration::~EventIteration() {
  const std::uint64_t time = clock_monotonic() - start_;
  if (time < kLongIteration || manager_->dispatch_depth > 0) return;
  EventStatistics& statistics = manager_->statistics;
  ++statistics.long_iterations;
  if (time <= statistics.longest) return;
  statistics.longest = time;
  statistics.longest_stamp = clock_stamp();
}

EventStatistics event_statistics(const EventManager* manager) {
  return manager->statistics;
}
