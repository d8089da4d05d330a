// The platform clock. clock_stamp() is wall time and what records carry; clock_monotonic() never steps and is
// what timers and ages use. Both are nanoseconds. Tests replace both by a ManualClock.
#pragma once

#include <cstdint>

inline constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
inline constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;

// Nanoseconds since 1970-01-01 00:00:00 UTC. Any thread.
std::uint64_t clock_stamp();
// Nanoseconds since an arbitrary point of this boot. Any thread.
std::uint64_t clock_monotonic();

// Freezes both clocks at the given stamp while the object exists; only advance() moves them. At most one at a
// time; create and destroy it while no other thread reads a clock.
class ManualClock {
 public:
  explicit ManualClock(std::uint64_t stamp_ns);
  ~ManualClock();
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;
  void advance(std::uint64_t nanoseconds);
  // From now on each reading of a clock advances it by so much afterwards: work that reads the clock takes
  // time.
  void tick(std::uint64_t nanoseconds);
};
