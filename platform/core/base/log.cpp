#include "platform/core/base/log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "platform/core/base/standard_error.h"

void log_line(const char* format, ...) {
  std::array<char, 1024> line;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
  va_end(arguments);
  if (length < 0) return;
  write_error_line({line.data(), std::min(static_cast<std::size_t>(length), line.size() - 1)});
}
