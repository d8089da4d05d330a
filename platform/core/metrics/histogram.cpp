#include "platform/core/metrics/histogram.h"

#include <algorithm>

namespace metrics {

namespace {

constexpr double kNanosecondsOfASecond = 1e9;

}  // namespace

void Histogram::count(std::uint64_t nanoseconds) {
  const auto* const bound =
      std::ranges::lower_bound(kDurationBounds, nanoseconds, {}, &DurationBound::nanoseconds);
  ++buckets_[static_cast<std::size_t>(bound - kDurationBounds)];
  nanoseconds_ += nanoseconds;
}

void Histogram::add_to(Samples* samples, const Label& label) const {
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < buckets_.size(); ++at) {
    sum += buckets_[at];
    const std::string_view bound = at < std::size(kDurationBounds) ? kDurationBounds[at].seconds : "+Inf";
    samples->add_part("_bucket", {label, {"le", bound}}, sum);
  }
  samples->add_seconds("_sum", {label}, static_cast<double>(nanoseconds_) / kNanosecondsOfASecond);
  samples->add_part("_count", {label}, sum);
}

}  // namespace metrics
