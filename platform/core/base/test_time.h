// For tests of costs that can be compared with each other only by time.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>

// The least of several measurements, in nanoseconds of the real clock.
inline std::int64_t least_time(const std::function<void()>& call) {
  std::int64_t least = INT64_MAX;
  for (int i = 0; i < 20; ++i) {
    const auto start = std::chrono::steady_clock::now();
    call();
    const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
    least = std::min<std::int64_t>(least, taken.count());
  }
  return least;
}
