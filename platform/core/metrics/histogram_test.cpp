#include "platform/core/metrics/histogram.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace metrics {
namespace {

using testing::HasSubstr;

constexpr Family kDuration{"duration_seconds", Type::kHistogram, "Time."};

std::string TextOf(const Histogram& histogram) {
  std::string text;
  Samples samples(kDuration, &text);
  histogram.add_to(&samples, {"request", "get"});
  return text;
}

TEST(Histogram, BucketsCountWhatIsNotAboveTheirBoundAndTheLastOneEverything) {
  Histogram histogram;
  for (const std::uint64_t nanoseconds : {1'000'000U, 1'000'001U, 4'000'000'000U})
    histogram.count(nanoseconds);
  histogram.count(60'000'000'000U);
  const std::string text = TextOf(histogram);
  EXPECT_THAT(text, HasSubstr("duration_seconds_bucket{request=\"get\",le=\"0.0005\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("duration_seconds_bucket{request=\"get\",le=\"0.001\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("duration_seconds_bucket{request=\"get\",le=\"0.005\"} 2\n"));
  EXPECT_THAT(text, HasSubstr("duration_seconds_bucket{request=\"get\",le=\"10\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("duration_seconds_bucket{request=\"get\",le=\"+Inf\"} 4\n"
                              "duration_seconds_sum{request=\"get\"} 64.002000001\n"
                              "duration_seconds_count{request=\"get\"} 4\n"));
}

TEST(Histogram, TextsOfTheBoundsAreTheirSecondsAndIncrease) {
  double former = 0;
  for (const DurationBound& bound : kDurationBounds) {
    EXPECT_DOUBLE_EQ(std::stod(std::string(bound.seconds)), static_cast<double>(bound.nanoseconds) / 1e9);
    EXPECT_LT(former, static_cast<double>(bound.nanoseconds));
    former = static_cast<double>(bound.nanoseconds);
  }
}

}  // namespace
}  // namespace metrics
