// Error messages to the system log (syslog(3), RFC 5424 severities) and to standard error.
//
// Under a service manager standard error is the journal, which already has the message from the system log:
// if the environment names standard error as the journal's stream (device and inode), nothing is printed
// there. Long texts are cut. Repeated lines are counted, so that an error that recurs with every request does
// not fill the log. Any thread: each post builds its line on its own stack; one mutex guards the capture,
// another the counts.
#include "platform/core/errmsg/errmsg.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

#include "platform/core/base/clock.h"
#include "platform/core/base/standard_error.h"

namespace {

constexpr std::size_t kMaxLine = 1024;

constexpr std::size_t kMaxCounted = 64;  // different lines

struct Written {
  std::uint64_t at;  // clock_monotonic()
  unsigned repeated;
};
std::mutex written_mutex;
std::unordered_map<std::string, Written>& written_lines() {
  static auto* const lines = new std::unordered_map<std::string, Written>;  // for posts at the process's end
  return *lines;
}

std::mutex capture_mutex;
std::string* captured_lines = nullptr;

// False when the line is a repetition, which is counted. *repeated: since it was written before.
bool may_write(const char* line, unsigned* repeated) {
  const std::lock_guard lock(written_mutex);
  const std::uint64_t now = clock_monotonic();
  auto& lines = written_lines();
  if (lines.size() >= kMaxCounted && !lines.contains(line)) lines.clear();
  const auto [entry, is_new] = lines.try_emplace(line, Written{now, 0});
  if (!is_new && now - entry->second.at < kErrmsgQuietTime) {
    ++entry->second.repeated;
    return false;
  }
  *repeated = entry->second.repeated;
  entry->second = {now, 0};
  return true;
}

void write_line(unsigned severity, const char* line) {
  syslog(static_cast<int>(severity), "%s", line);
  if (!standard_error_is_journal()) write_error_line(line);
}

void write_or_count(unsigned severity, const char* line) {
  unsigned repeated = 0;
  if (!may_write(line, &repeated)) return;
  write_line(severity, line);
  if (repeated == 0) return;
  write_line(severity, ("last message repeated " + std::to_string(repeated) + " times").c_str());
}

void capture(const char* line) {
  const std::lock_guard lock(capture_mutex);
  if (captured_lines != nullptr) *captured_lines += std::string(line) + "\n";
}

}  // namespace

void errmsg_open(const char* identity, int options, int facility) {
  openlog(identity, options, facility);
  const std::lock_guard lock(written_mutex);
  written_lines().clear();
}

void errmsg_post(const ErrmsgRecord* record, ...) {
  if (record == nullptr) return;
  std::array<char, kMaxLine> line{};
  const int heading = std::snprintf(line.data(), line.size(), "%%%s-%s-%u-%s : ", record->facility,
                                    record->category, record->severity, record->mnemonic);
  if (heading < 0) return;
  const std::size_t used = std::min(static_cast<std::size_t>(heading), line.size() - 1);
  va_list arguments;
  va_start(arguments, record);
// The formats are the callers' constant tables; the compiler cannot see through the record.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::vsnprintf(line.data() + used, line.size() - used, record->format, arguments);
#pragma GCC diagnostic pop
  va_end(arguments);
  write_or_count(record->severity, line.data());
  capture(line.data());
}

void errmsg_capture(std::string* lines) {
  const std::lock_guard lock(capture_mutex);
  captured_lines = lines;
}
