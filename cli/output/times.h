// Times and durations as texts.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

// Seconds since 1970 as "2026-01-31 08:05:09 CET", in the time zone of who asks; "-" for 0, which is no time.
std::string local_time_text(std::uint32_t seconds);
// How long ago that was, as duration_text(); "-" for 0. Times that are still to come were just now.
std::string age_text(std::uint32_t seconds);
// "08:05:09" below a day, "31d08h" above.
std::string duration_text(std::uint64_t seconds);

// The time of now in UTC, as "2026-01-31T08:05:09.123Z".
std::string now_text();

// How long the next wait of a watch may take that began at `started` and lasts so many seconds, 0 without a
// limit; zero when its time is over. One wait is bounded: it is no more than a step of the watch.
std::chrono::milliseconds next_wait(double seconds, std::chrono::steady_clock::time_point started);

}  // namespace cli
