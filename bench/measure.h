// What the benchmarks measure with.
#pragma once

#include <algorithm>
#include <chrono>
#include <string_view>
#include <vector>

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Whether the only argument is --brief: the benchmark is only checked.
inline bool is_brief(int argc, char** argv) {
  return argc > 1 && std::string_view(argv[1]) == "--brief";
}
