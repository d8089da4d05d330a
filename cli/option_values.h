// Values of options: durations and counts.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct Duration {
  double unit;  // s, of a number alone; the value is in it, too
  double least;
  double most;
  const char* range;  // in messages
};

// For an answer.
inline constexpr Duration kWaiting = {0.001, 0.001, 600, "from 1ms to 10m"};
// How long a command that shows what happens may run.
inline constexpr Duration kWatching = {1, 0.000'001, 31'536'000, "of more than 0 and at most 365d"};

inline constexpr std::uint32_t kMostCount = 4294967295U;

// Turns a duration into a number of its unit. The duration must remain live while the option is.
CLI::Validator duration_of(const Duration& duration);

// Turns an abbreviation of one of these words into the word.
CLI::Validator one_of(const std::vector<std::string>& words);

// A number in this range.
CLI::Validator number_from(std::uint32_t least, std::uint32_t most);

// 0: no limit.
void add_count(CLI::App* command, const char* name, std::uint64_t* count, const char* description);

void add_structured(CLI::App* command, bool* structured);

}  // namespace cli
