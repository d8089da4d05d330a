// See log.h. A line is written by one call, so that lines of several threads do not mix.
#include "platform/base/log.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

void log_line(const char* format, ...) {
  std::array<char, 1024> line;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line.data(), line.size() - 1, format, arguments);
  va_end(arguments);
  if (length < 0) return;
  const std::size_t end = std::min(static_cast<std::size_t>(length), line.size() - 2);
  line[end] = '\n';
  // A log line that cannot be written has nowhere else to go.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), end + 1);
}
