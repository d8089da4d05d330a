#include "cli/output/times.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "platform/core/base/clock.h"

namespace cli {

namespace {

constexpr std::uint64_t kMinute = 60;
constexpr std::uint64_t kHour = 60 * kMinute;
constexpr std::uint64_t kDay = 24 * kHour;

constexpr std::chrono::milliseconds kLongestWait(500);

}  // namespace

std::string local_time_text(std::uint32_t seconds) {
  if (seconds == 0) return "-";
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  tzset();
  localtime_r(&time, &local);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %Z", &local);
  return text.data();
}

Json local_time_json(std::uint64_t seconds) {
  if (seconds == 0) return nullptr;
  return local_time_text(static_cast<std::uint32_t>(seconds));
}

std::string age_text(std::uint32_t seconds) {
  if (seconds == 0) return "-";
  const std::uint64_t now = clock_stamp() / kNanosecondsPerSecond;
  return duration_text(now > seconds ? now - seconds : 0);
}

std::string duration_text(std::uint64_t seconds) {
  if (seconds >= kDay) return fmt::format("{}d{:02}h", seconds / kDay, seconds % kDay / kHour);
  return fmt::format("{:02}:{:02}:{:02}", seconds / kHour, seconds % kHour / kMinute, seconds % kMinute);
}

std::string utc_text(std::uint64_t seconds, std::uint32_t milliseconds) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(seconds)),
                     milliseconds);
}

std::string now_text() {
  const std::uint64_t stamp = clock_stamp();
  return utc_text(stamp / kNanosecondsPerSecond,
                  static_cast<std::uint32_t>(stamp / kNanosecondsPerMillisecond % 1000));
}

Json now_json() {
  return {{"time", clock_stamp() / kNanosecondsPerSecond}, {"timeText", now_text()}};
}

std::chrono::milliseconds next_wait(double seconds, std::chrono::steady_clock::time_point started) {
  using std::chrono::milliseconds;
  if (seconds <= 0) return kLongestWait;
  const auto end = started + std::chrono::duration<double>(seconds);
  const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
  return std::clamp(left, milliseconds(0), kLongestWait);
}

}  // namespace cli
