// Descriptor 2 is shared with the parent process, so it must not be made non-blocking. Each kind of file gets
// a write that does not block:
//
//   socket              send(2) with MSG_DONTWAIT
//   pipe, terminal      write(2) through a non-blocking descriptor of our own, opened for this line through
//                       /proc/self/fd/2. If that fails (no permission, no /proc), poll(2) checks for room;
//                       another writer of the same pipe may then win the race, and a terminal is writable as
//                       soon as it has room for one octet.
//   everything else     a plain write: files have no reader to wait for
//
// A pipe takes a line or nothing. A terminal or a socket may take the beginning of a line; the line then
// counts as lost, and the next write starts with a line break.
//
// One mutex guards the count and the order of the lines; it is held only over system calls that do not block.
// The next line reports the count: nothing here wakes up by itself.
#include "platform/core/base/standard_error.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "platform/core/base/fault.h"

namespace {

std::mutex output_mutex;
std::uint64_t lost = 0;
bool torn = false;  // what was written last ends within a line

int open_own_description() {
  if (fault_check("standard_error_open") != kStatusOk) return -1;
  return open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

ssize_t write_to_reader(std::string_view text) {
  pollfd wanted = {STDERR_FILENO, POLLOUT, 0};
  if (poll(&wanted, 1, 0) < 0) return -1;
  if ((wanted.revents & ~POLLOUT) != 0) return -1;  // no reader: a write would raise SIGPIPE
  const int own = open_own_description();
  if (own < 0) return wanted.revents == POLLOUT ? write(STDERR_FILENO, text.data(), text.size()) : -1;
  const ssize_t written = write(own, text.data(), text.size());
  close(own);
  return written;
}

ssize_t write_at_once(std::string_view text) {
  struct stat status {};
  if (fstat(STDERR_FILENO, &status) != 0) return -1;
  if (S_ISSOCK(status.st_mode)) {
    return send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) return write_to_reader(text);
  return write(STDERR_FILENO, text.data(), text.size());
}

// True when all of it was written.
bool put(std::string_view text) {
  const ssize_t written = write_at_once(text);
  if (written <= 0) return false;
  torn = static_cast<std::size_t>(written) < text.size();
  return !torn;
}

bool report_lost() {
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "standard error: %llu line%s lost\n",
                                   static_cast<unsigned long long>(lost), lost == 1 ? " was" : "s were");
  if (!put({text.data(), static_cast<std::size_t>(length)})) return false;
  lost = 0;
  return true;
}

bool put_line(std::string_view line) {
  std::array<char, PIPE_BUF> text;
  const std::size_t length = std::min(line.size(), text.size() - 1);
  line.copy(text.data(), length);
  text[length] = '\n';
  return put({text.data(), length + 1});
}

}  // namespace

void write_error_line(std::string_view line) {
  const int callers_errno = errno;
  const std::lock_guard lock(output_mutex);
  const bool clear = (!torn || put("\n")) && (lost == 0 || report_lost());
  if (!clear || !put_line(line)) ++lost;
  errno = callers_errno;
}

std::uint64_t lost_error_lines() {
  const std::lock_guard lock(output_mutex);
  return lost;
}

bool standard_error_is_journal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}
