// Tagged allocations and text copies on the C heap.
#include "platform/core/base/memory.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/core/base/fault.h"

namespace {

// The C library's calloc does not use the thread's cache of small blocks, so that it takes longer.
constexpr std::size_t kSmallBlock = 1024;

void* cleared(std::size_t count, std::size_t size) {
  if (count > kSmallBlock || size > kSmallBlock || count * size > kSmallBlock)
    return std::calloc(count, size);
  void* const block = std::malloc(count * size);
  return block == nullptr ? nullptr : std::memset(block, 0, count * size);
}

}  // namespace

void* calloc_tagged(std::size_t count, std::size_t size, const char* tag) {
  if (fault_detail::armed_points.load(std::memory_order_relaxed) != 0) {
    if (fault_check((std::string("calloc_tagged:") + tag).c_str()) != kStatusOk) return nullptr;
  }
  return cleared(count, size);
}

// The blocks that it collects are the "fast bins".
void heap_join_freed_blocks_at_once() {
  mallopt(M_MXFAST, 0);
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
