#include "platform/core/wire/request_counter.h"

#include <gtest/gtest.h>

namespace wire {
namespace {

constexpr std::uint64_t kStart = 77;
constexpr std::uint64_t kSecond = kNanosecondsPerSecond;

class RequestCounterTest : public ::testing::Test {
 protected:
  void Count(unsigned requests, std::uint64_t at) {
    for (unsigned i = 0; i < requests; ++i) {
      counter.add_time(10);
      counter.count(kStart + at);
    }
  }
  std::uint64_t RateAt(std::uint64_t at) const { return counter.read(kStart + at).requests_per_second; }
  RequestCounter counter{kStart};
};

TEST_F(RequestCounterTest, AddsUpRequestsAndTheirTime) {
  Count(3, 0);
  Count(4, 100 * kSecond);
  const Statistics statistics = counter.read(kStart + 200 * kSecond);
  EXPECT_EQ(statistics.opened, kStart);
  EXPECT_EQ(statistics.requests, 7U);
  EXPECT_EQ(statistics.nanoseconds, 70U);
}

TEST_F(RequestCounterTest, RateIsThatOfTheLastSecond) {
  Count(1000, kSecond / 2);
  EXPECT_EQ(RateAt(kSecond / 2), 1000U);
  EXPECT_EQ(RateAt(kSecond), 1000U);
  EXPECT_EQ(RateAt(kSecond + kSecond / 4), 750U);
  EXPECT_EQ(RateAt(2 * kSecond), 0U);
}

TEST_F(RequestCounterTest, SteadyRequestsHaveASteadyRate) {
  for (std::uint64_t at = 0; at < 5 * kSecond; at += kSecond / 100) {
    Count(1, at);
    if (at < kSecond) continue;
    EXPECT_NEAR(static_cast<double>(RateAt(at)), 100, 1) << at;
  }
}

TEST_F(RequestCounterTest, SilenceEndsTheRate) {
  Count(1000, 0);
  EXPECT_EQ(RateAt(3600 * kSecond), 0U);
  Count(1, 3600 * kSecond);
  EXPECT_EQ(RateAt(3600 * kSecond), 1U);
}

}  // namespace
}  // namespace wire
