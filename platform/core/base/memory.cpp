// Tagged allocations and text copies on the C heap.
#include "platform/core/base/memory.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/core/base/fault.h"

namespace {

bool is_refused(const char* tag) {
  if (fault_detail::armed_points.load(std::memory_order_relaxed) == 0) return false;
  return fault_check((std::string("calloc_tagged:") + tag).c_str()) != kStatusOk;
}

}  // namespace

void* calloc_tagged(std::size_t count, std::size_t size, const char* tag) {
  return is_refused(tag) ? nullptr : std::calloc(count, size);
}

void* malloc_tagged(std::size_t size, const char* tag) {
  return is_refused(tag) ? nullptr : std::malloc(size);
}

// The blocks that it collects are the "fast bins".
void heap_join_freed_blocks_at_once() {
  mallopt(M_MXFAST, 0);
}

void heap_reuse_freed_buffers() {
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
  mallopt(M_TRIM_THRESHOLD, 8 << 20);
}

void heap_return_freed_memory() {
  malloc_trim(0);
}

char* text_copy(const char* text) {
  if (text == nullptr || fault_check("text_copy") != kStatusOk) return nullptr;
  return strdup(text);
}

char* text_copy_to(char* place, const char* text) {
  if (text == nullptr || fault_check("text_copy") != kStatusOk) return nullptr;
  return std::strcpy(place, text);
}

void text_replace(char** slot, const char* text) {
  char* copy = text_copy(text);
  std::free(*slot);
  *slot = copy;
}
