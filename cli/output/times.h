// Times and durations as texts.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "cli/output/json_list.h"

namespace cli {

// Seconds since 1970 as "2026-01-31 08:05:09 CET", in local time; "-" for 0.
std::string local_time_text(std::uint32_t seconds);
// The same for JSON, null for 0.
Json local_time_json(std::uint64_t seconds);
// How long ago that was, as duration_text(); "-" for 0. A time in the future counts as now.
std::string age_text(std::uint32_t seconds);
// "08:05:09" below a day, "31d08h" above.
std::string duration_text(std::uint64_t seconds);

// A time in UTC, as "2026-01-31T08:05:09.123Z".
std::string utc_text(std::uint64_t seconds, std::uint32_t milliseconds);
std::string now_text();
// "time" and "timeText" of an event that is seen now, the first members of its object.
Json now_json();

// The longest that a watch may wait next, which began at `started` and lasts `seconds` (0: no limit); zero
// when its time is over. One wait is bounded, as it is one step of the watch.
std::chrono::milliseconds next_wait(double seconds, std::chrono::steady_clock::time_point started);

}  // namespace cli
