// The limit counts lines by kind, which is a module and a format: texts of one kind differ in names and
// numbers only. A kind is stored from its first line until the end of an interval that suppressed none.
#include "platform/core/base/log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <compare>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/base/never_destroyed.h"
#include "platform/core/base/standard_error.h"

namespace {

struct LogKind {
  std::string module;
  const char* format;
  auto operator<=>(const LogKind&) const = default;
};

struct LogCount {
  LogSeverity severity;
  std::uint64_t end;  // of the interval, clock_monotonic()
  unsigned written;
  std::uint64_t suppressed;
  std::string last;  // the text that was suppressed last
};

struct LogLimiter {
  std::mutex mutex;
  unsigned lines = 0;
  std::uint64_t interval = 0;
  std::map<LogKind, LogCount> counts;
};

// Threads may log while the process ends.
LogLimiter& limiter() {
  static NeverDestroyed<LogLimiter> the_limiter;
  return *the_limiter;
}

std::atomic<LogReceiver> log_receiver = nullptr;

void write_log_line(LogSeverity severity, const std::string& module, const std::string& text) {
  std::string line;
  if (const LogReceiver receiver = log_receiver) {
    return receiver(severity, (module.empty() ? text : module + ": " + text).c_str());
  }
  if (standard_error_is_journal()) line = "<" + std::to_string(static_cast<unsigned>(severity)) + ">";
  if (!module.empty()) line += module + ": ";
  write_error_line(line + text);
}

void write_count(const LogKind& kind, const LogCount& count) {
  const std::string lines = count.suppressed == 1 ? " similar line was" : " similar lines were";
  write_log_line(count.severity, kind.module,
                 std::to_string(count.suppressed) + lines + " suppressed, the last one: " + count.last);
}

void report_suppressed(LogLimiter* limiter, std::uint64_t now) {
  std::erase_if(limiter->counts,
                [now](const auto& entry) { return now >= entry.second.end && entry.second.suppressed == 0; });
  for (auto& [kind, count] : limiter->counts) {
    if (now < count.end) continue;
    write_count(kind, count);
    count.end = now + limiter->interval;  // the flood may last: only its count is written then
    count.suppressed = 0;
  }
}

// Returns true iff the line may be written.
bool count_line(LogLimiter* limiter, LogSeverity severity, const LogKind& kind, const std::string& text) {
  const std::uint64_t now = clock_monotonic();
  report_suppressed(limiter, now);
  LogCount& count =
      limiter->counts.try_emplace(kind, LogCount{severity, now + limiter->interval, 0, 0, {}}).first->second;
  if (count.written < limiter->lines) {
    ++count.written;
    return true;
  }
  ++count.suppressed;
  count.last = text;
  return false;
}

[[gnu::format(printf, 3, 0)]] void log_text(LogSeverity severity, const char* module, const char* format,
                                            va_list arguments) {
  std::array<char, 1024> buffer;
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  if (length < 0) return;
  const std::string text(buffer.data(), std::min(static_cast<std::size_t>(length), buffer.size() - 1));
  LogLimiter& limits = limiter();
  const std::lock_guard lock(limits.mutex);
  if (limits.lines > 0 && !count_line(&limits, severity, {module, format}, text)) return;
  write_log_line(severity, module, text);
}

}  // namespace

void log_error(const char* module, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_text(LogSeverity::kError, module, format, arguments);
  va_end(arguments);
}

void log_warning(const char* module, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_text(LogSeverity::kWarning, module, format, arguments);
  va_end(arguments);
}

void log_notice(const char* module, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_text(LogSeverity::kNotice, module, format, arguments);
  va_end(arguments);
}

void log_info(const char* module, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_text(LogSeverity::kInfo, module, format, arguments);
  va_end(arguments);
}

std::uint64_t log_report_floods() {
  LogLimiter& limits = limiter();
  const std::lock_guard lock(limits.mutex);
  report_suppressed(&limits, clock_monotonic());
  std::uint64_t next = UINT64_MAX;
  for (const auto& [kind, count] : limits.counts) {
    if (count.suppressed > 0) next = std::min(next, count.end);
  }
  return next;
}

void log_redirect(LogReceiver receiver) {
  log_receiver = receiver;
}

void log_limit(unsigned lines, std::uint64_t interval) {
  LogLimiter& limits = limiter();
  const std::lock_guard lock(limits.mutex);
  limits.lines = lines;
  limits.interval = interval;
  limits.counts.clear();
}
