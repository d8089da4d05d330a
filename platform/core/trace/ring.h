// The file format of a trace buffer, which the writer and the readers map.
//
// Every word that both sides touch is a lock-free atomic. An entry's state word is 0 while it was never
// written, 2 * sequence - 1 while it is being written and 2 * sequence when it is whole. The writer stores
// the other words with release order after the odd state; a reader loads them with acquire order between two
// loads of the state. So a reader that saw one word of a newer record sees a newer state afterwards and drops
// what it copied.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "platform/core/trace/trace.h"

namespace trace_detail {

using Word = std::atomic<std::uint64_t>;
static_assert(Word::is_always_lock_free && sizeof(Word) == 8);

inline constexpr std::uint64_t kMagic = 0x3145434152545650;  // "PVTRACE1"
inline constexpr std::uint32_t kMaxEntries = 1U << 20;
inline constexpr std::size_t kTextWords = (kTraceTextMax + 1) / 8;

struct Entry {
  Word state;
  Word stamp;
  Word thread_and_record;  // thread in the lower half
  Word code;
  std::array<Word, kTextWords> text;  // terminated; the words after that are of earlier records
};
static_assert(sizeof(Entry) == 256);

struct Header {
  std::uint64_t magic;
  std::uint32_t entry_size;
  std::uint32_t entry_count;
  std::uint32_t further;
  std::uint32_t reserved1;
  std::uint32_t reserved2;
  std::uint32_t process;  // of the writer
  std::uint64_t opened;   // clock_stamp()
  std::array<char, 72> name;
  Word last_sequence;
  Word lost;  // records dropped because a thread a whole ring earlier was still writing to their entry
};
static_assert(sizeof(Header) == 128);

constexpr std::size_t file_size(std::uint32_t entry_count) {
  return sizeof(Header) + sizeof(Entry) * std::size_t{entry_count};
}

// The folder of the buffers, and a buffer's file in it.
std::string folder(const std::string& run_directory);
std::string file_name(const std::string& name);
bool is_buffer_name(const std::string& name);

}  // namespace trace_detail
