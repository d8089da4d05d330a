// Tagged allocations and text copies on the C heap.
#include "platform/core/base/memory.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/core/base/fault.h"

void* calloc_tagged(std::size_t count, std::size_t size, const char* tag) {
  if (fault_detail::armed_points.load(std::memory_order_relaxed) != 0) {
    if (fault_check((std::string("calloc_tagged:") + tag).c_str()) != kStatusOk) return nullptr;
  }
  return std::calloc(count, size);
}

char* text_copy(const char* text) {
  if (text == nullptr || fault_check("text_copy") != kStatusOk) return nullptr;
  return strdup(text);
}

void text_replace(char** slot, const char* text) {
  char* copy = text_copy(text);
  std::free(*slot);
  *slot = copy;
}
