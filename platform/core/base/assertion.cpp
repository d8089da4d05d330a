// The message must not keep the process from ending, so writing it does not wait for a reader.
#include "platform/core/base/assertion.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "platform/core/base/standard_error.h"

void assertion_failed(const char* file, int line, const char* condition) {
  std::array<char, 1024> text{};
  std::snprintf(text.data(), text.size(), "%s: %d %s -- assertion failed", file, line, condition);
  write_error_line(text.data());
  std::abort();
}
