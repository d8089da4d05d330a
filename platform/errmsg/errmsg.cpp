// Error messages to the system log (syslog(3), RFC 5424 severities) and to standard error.
//
// Under a service manager standard error is the journal, which has the message from the system log already:
// the environment names the journal's stream by device and inode, and when that is our standard error nothing
// is printed there. Lines are bounded; a longer text is cut. Any thread: each post builds its line on its own
// stack, the capture is behind a mutex.
#include "platform/errmsg/errmsg.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "platform/base/standard_error.h"

namespace {

constexpr std::size_t kMaxLine = 1024;

std::mutex capture_mutex;
std::string* captured_lines = nullptr;

// JOURNAL_STREAM is "device:inode" of the stream that the service manager connected.
bool standard_error_is_journal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

void capture(const char* line) {
  const std::lock_guard lock(capture_mutex);
  if (captured_lines != nullptr) *captured_lines += std::string(line) + "\n";
}

}  // namespace

void errmsg_open(const char* identity, int options, int facility) {
  openlog(identity, options, facility);
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
  syslog(static_cast<int>(record->severity), "%s", line.data());
  if (!standard_error_is_journal()) write_error_line(line.data());
  capture(line.data());
}

void errmsg_capture(std::string* lines) {
  const std::lock_guard lock(capture_mutex);
  captured_lines = lines;
}
