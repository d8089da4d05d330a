// The writing side of trace buffers.
//
// Opening builds the complete file under another name and renames it: readers that still map the former file
// retain it, and no reader sees a partial header. Its space is reserved, because a full file system must fail
// the opening and not end a writer later.
//
// A write takes the next sequence number, claims the entry that belongs to it and fills it: no lock, and no
// system call except for the first record of a thread (its thread id). Two writers meet in one entry only if
// one of them is suspended while the ring is filled once; the later record is then dropped and counted.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/directories.h"
#include "platform/core/files/private_files.h"
#include "platform/core/trace/ring.h"

using namespace trace_detail;

struct TraceBuffer {
  Header* header;
  Entry* entries;
};

namespace {

using Text = std::array<char, kTextWords * 8>;

Status last_error() {
  return errno == 0 ? kStatusIo : static_cast<Status>(errno);
}

Status report(const std::string& path, Status status) {
  log_error("trace", "%s cannot be created: %s", path.c_str(), err_text(status));
  return status;
}

std::uint32_t thread_id() {
  thread_local const auto id = static_cast<std::uint32_t>(gettid());
  return id;
}

// A mapping of a new file of that size, or null and errno.
void* map_new_file(const char* path, std::size_t size) {
  unlink(path);  // left by a process that died while opening; if it remains, the next call returns the reason
  const int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kRunFileMode);
  if (fd < 0) return nullptr;
  void* mapping = MAP_FAILED;
  int full = fchmod(fd, kRunFileMode) == 0 ? 0 : errno;  // whatever the umask is
  if (full == 0) full = posix_fallocate(fd, 0, static_cast<off_t>(size));
  if (full == 0) mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  const int failure = full != 0 ? full : errno;
  close(fd);
  if (mapping != MAP_FAILED) return mapping;
  unlink(path);
  errno = failure;
  return nullptr;
}

// The information for readers that the caller of trace_open passes.
struct Parameters {
  std::uint32_t size;
  std::uint32_t further;
  std::uint32_t reserved1;
  std::uint32_t reserved2;
};

TraceBuffer* prepare(void* mapping, const std::string& name, const Parameters& parameters) {
  auto* header = new (mapping) Header{};
  header->entry_size = sizeof(Entry);
  header->entry_count = parameters.size;
  header->further = parameters.further;
  header->reserved1 = parameters.reserved1;
  header->reserved2 = parameters.reserved2;
  header->process = static_cast<std::uint32_t>(getpid());
  header->opened = clock_stamp();
  name.copy(header->name.data(), header->name.size() - 1);
  // The rest of a new file is zero octets, the form of entries that were never written.
  auto* entries = static_cast<Entry*>(static_cast<void*>(header + 1));
  return new (std::nothrow) TraceBuffer{header, entries};
}

bool publish(const std::string& beside, const std::string& path, TraceBuffer* buffer) {
  buffer->header->magic = kMagic;
  return std::rename(beside.c_str(), path.c_str()) == 0;
}

Status open_buffer(const std::string& name, const Parameters& parameters, TraceBuffer** buffer) {
  const std::string directory = folder(run_directory());
  for (const std::string& each : {run_directory(), directory}) {
    if (const Status status = prepare_directory(each, kRunDirectoryMode)) return status;
  }
  const std::string path = directory + "/" + file_name(name);
  const std::string beside = directory + "/." + file_name(name);
  void* mapping = map_new_file(beside.c_str(), file_size(parameters.size));
  if (mapping == nullptr) return report(path, last_error());
  TraceBuffer* made = prepare(mapping, name, parameters);
  if (made != nullptr && publish(beside, path, made)) {
    *buffer = made;
    return kStatusOk;
  }
  const Status status = made == nullptr ? kStatusNoMemory : last_error();
  delete made;
  munmap(mapping, file_size(parameters.size));
  unlink(beside.c_str());
  return report(path, status);
}

// Marks the entry as being written under this sequence; false if it has a newer or an unfinished record.
bool claim(Entry* entry, std::uint64_t sequence) {
  std::uint64_t state = entry->state.load(std::memory_order_relaxed);
  const std::uint64_t writing = 2 * sequence - 1;
  return (state & 1U) == 0 && state < writing &&
         entry->state.compare_exchange_strong(state, writing, std::memory_order_relaxed);
}

// The octets of the text with its terminator. One that does not fit is marked as cut.
[[gnu::format(printf, 2, 0)]] std::size_t print_text(Text* text, const char* format, va_list arguments) {
  const int wanted = std::vsnprintf(text->data(), text->size(), format, arguments);
  if (wanted < static_cast<int>(text->size())) return static_cast<std::size_t>(std::max(wanted, 0)) + 1;
  std::memcpy(text->data() + text->size() - sizeof kTraceCutMark, kTraceCutMark, sizeof kTraceCutMark);
  return text->size();
}

void fill(Entry* entry, std::uint64_t sequence, std::uint32_t record, Status code, const Text& text,
          std::size_t octets) {
  entry->stamp.store(clock_stamp(), std::memory_order_release);
  entry->thread_and_record.store(std::uint64_t{record} << 32U | thread_id(), std::memory_order_release);
  entry->code.store(code, std::memory_order_release);
  for (std::size_t i = 0; 8 * i < octets; ++i) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + 8 * i, sizeof word);
    entry->text[i].store(word, std::memory_order_release);
  }
  entry->state.store(2 * sequence, std::memory_order_release);
}

}  // namespace

Status trace_open(const char* name, std::uint32_t size, std::uint32_t further, std::uint32_t reserved1,
                  std::uint32_t reserved2, TraceBuffer** buffer) {
  if (Status s = fault_check("trace_open")) return s;
  if (name == nullptr || buffer == nullptr || size == 0 || size > kMaxEntries) return kStatusInvalid;
  if (!is_buffer_name(name)) return kStatusInvalid;
  return open_buffer(name, {size, further, reserved1, reserved2}, buffer);
}

void trace_close(TraceBuffer* buffer) {
  if (buffer == nullptr) return;
  munmap(buffer->header, file_size(buffer->header->entry_count));
  delete buffer;
}

void trace_write(TraceBuffer* buffer, std::uint32_t record, Status code, const char* format, ...) {
  if (buffer == nullptr) return;
  Text text{};
  va_list arguments;
  va_start(arguments, format);
  const std::size_t octets = print_text(&text, format, arguments);
  va_end(arguments);
  const std::uint64_t sequence = buffer->header->last_sequence.fetch_add(1, std::memory_order_relaxed) + 1;
  Entry* entry = &buffer->entries[(sequence - 1) % buffer->header->entry_count];
  if (claim(entry, sequence)) {
    fill(entry, sequence, record, code, text, octets);
  } else {
    buffer->header->lost.fetch_add(1, std::memory_order_relaxed);
  }
}
