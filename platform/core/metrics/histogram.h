// Durations in buckets, as a histogram of Prometheus. One thread.
#pragma once

#include <array>
#include <cstdint>
#include <iterator>

#include "platform/core/metrics/text_format.h"

namespace metrics {

struct DurationBound {
  std::uint64_t nanoseconds;
  std::string_view seconds;  // the same
};
// A server identifies a bucket by its text: changing one begins new series.
inline constexpr DurationBound kDurationBounds[] = {
    {10'000, "1e-05"},    {100'000, "0.0001"},    {500'000, "0.0005"},  {1'000'000, "0.001"},
    {5'000'000, "0.005"}, {10'000'000, "0.01"},   {50'000'000, "0.05"}, {100'000'000, "0.1"},
    {1'000'000'000, "1"}, {10'000'000'000, "10"},
};

class Histogram {
 public:
  void count(std::uint64_t nanoseconds);
  // The samples of one series with this label.
  void add_to(Samples* samples, const Label& label) const;

 private:
  std::array<std::uint64_t, std::size(kDurationBounds) + 1> buckets_{};  // those above the last bound, too
  std::uint64_t nanoseconds_ = 0;
};

}  // namespace metrics
