// The process's log: lines on standard error (the journal, under a service manager) for what concerns the
// process and not one of the daemon's debug areas: a client that was closed, a database that is unusable.
//
// A line is "MODULE: text"; where standard error is the journal it begins with the priority of its severity
// ("<3>"), which the journal removes. Writing never blocks (standard_error.h). Any thread.
#pragma once

#include <cstdint>

// RFC 5424 section 6.2.1.
enum class LogSeverity : std::uint8_t {
  kError = 3,    // an operation failed: something is lost, or a user must act
  kWarning = 4,  // something is refused or degraded, or will be tried again
  kNotice = 5,   // a significant change: recovered, migrated, loaded
  kInfo = 6,     // normal operation
};

// printf style, without a line break. The module may be empty if the text begins with what it concerns.
[[gnu::format(printf, 2, 3)]] void log_error(const char* module, const char* format, ...);
[[gnu::format(printf, 2, 3)]] void log_warning(const char* module, const char* format, ...);
[[gnu::format(printf, 2, 3)]] void log_notice(const char* module, const char* format, ...);
[[gnu::format(printf, 2, 3)]] void log_info(const char* module, const char* format, ...);

// Limits floods: of the lines of one module with one format, at most `lines` are written in `interval`
// nanoseconds. The rest are counted; log_report_floods(), or the next line of any kind, first writes the
// count and the last text when the interval has ended. While a flood lasts, the count is the only line of its
// kind in each interval. 0 lines, the default, means no limit.
void log_limit(unsigned lines, std::uint64_t interval);
// Writes the counts of the intervals that have ended. Returns when the next one ends of which lines are
// suppressed (clock_monotonic()); UINT64_MAX without one.
std::uint64_t log_report_floods();

// For code that is a part of another process: its lines (without a line break) go to that process's log. Null
// ends this.
using LogReceiver = void (*)(LogSeverity severity, const char* line);
void log_redirect(LogReceiver receiver);

// The limit for programs that run for long: 100 lines in 10 seconds.
inline constexpr unsigned kLogLines = 100;
inline constexpr std::uint64_t kLogInterval = 10'000'000'000;
