// Heap memory of the plain records: allocations with a tag that names their purpose, and text copies.
//
// Every tagged allocation is a fault point "calloc_tagged:TAG" and every text copy is one ("text_copy"), so
// that tests reach each out-of-memory path. All memory is the C heap's: release it with free() or
// text_replace().
#pragma once

#include <cstddef>

// count * size zeroed octets, or null if memory is exhausted (or the fault point is armed).
[[nodiscard]] void* calloc_tagged(std::size_t count, std::size_t size, const char* tag);
// The same without zeroing, for memory that is written before it is read: unlike calloc, malloc uses the C
// library's cache of small blocks.
[[nodiscard]] void* malloc_tagged(std::size_t size, const char* tag);

// From now on freed memory is available at once. Otherwise the C library collects small blocks, and joins
// those of a whole configuration in one call later: 50 ms for 10,000 VRFs, in whatever allocates next.
void heap_join_freed_blocks_at_once();

// From now on freed buffers of up to 4 MB are available to what is allocated next, and up to 8 MB of them at
// the end of the heap. Otherwise the C library maps each buffer of more than 128 KB anew and returns it, and
// each of its pages costs a page fault, more than a microsecond.
void heap_reuse_freed_buffers();

// Returns freed memory to the kernel, whole pages of it. Takes milliseconds for a large heap: at start-up
// only.
void heap_return_freed_memory();

// A heap copy of text; null for null or when memory is exhausted. The caller frees it.
[[nodiscard]] char* text_copy(const char* text);
// The same into memory that the caller has for it. The fault point is text_copy's.
[[nodiscard]] char* text_copy_to(char* place, const char* text);

// Frees what *slot owns and stores a copy of text (null clears the slot).
void text_replace(char** slot, const char* text);
