// What the benchmarks measure with.
#pragma once

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <string_view>
#include <vector>

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Of the calling thread: other programs on the machine do not count.
inline double processor_seconds() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Where it is permitted, other programs do not interrupt this one.
inline void precede_other_programs() {
  const sched_param first{sched_get_priority_min(SCHED_FIFO)};
  static_cast<void>(sched_setscheduler(0, SCHED_FIFO, &first));
}

// Whether the only argument is --brief: the benchmark is only checked.
inline bool is_brief(int argc, char** argv) {
  return argc > 1 && std::string_view(argv[1]) == "--brief";
}
