#include "platform/core/base/log.h"

// What is wrong with an input is logged for each of millions: one line an hour is enough.
extern "C" int LLVMFuzzerInitialize(int* /*argument_count*/, char*** /*arguments*/) {
  constexpr std::uint64_t kHour = 3'600'000'000'000;
  log_limit(1, kHour);
  return 0;
}
