// See assertion.h.
#include "platform/base/assertion.h"

#include <cstdio>
#include <cstdlib>

void assertion_failed(const char* file, int line, const char* condition) {
  std::fprintf(stderr, "%s: %d %s -- assertion failed\n", file, line, condition);
  std::fflush(stderr);
  std::abort();
}
