// Wall and monotonic time from the kernel, or from the one ManualClock that is alive.
#include "platform/core/base/clock.h"

#include <atomic>
#include <ctime>

namespace {

std::atomic<bool> manual{false};
std::atomic<std::uint64_t> manual_stamp{0};
std::atomic<std::uint64_t> manual_tick{0};

std::uint64_t read_manual() {
  return manual_stamp.fetch_add(manual_tick.load(std::memory_order_relaxed));
}

std::uint64_t read_clock(clockid_t id) {
  timespec now{};
  clock_gettime(id, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

std::uint64_t clock_stamp() {
  return manual.load(std::memory_order_relaxed) ? read_manual() : read_clock(CLOCK_REALTIME);
}

std::uint64_t clock_monotonic() {
  return manual.load(std::memory_order_relaxed) ? read_manual() : read_clock(CLOCK_MONOTONIC);
}

ManualClock::ManualClock(std::uint64_t stamp_ns) {
  manual_stamp.store(stamp_ns);
  manual_tick.store(0);
  manual.store(true);
}

ManualClock::~ManualClock() {
  manual.store(false);
}

void ManualClock::advance(std::uint64_t nanoseconds) {
  manual_stamp.fetch_add(nanoseconds);
}

void ManualClock::tick(std::uint64_t nanoseconds) {
  manual_tick.store(nanoseconds);
}
