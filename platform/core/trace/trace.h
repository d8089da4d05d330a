// Trace buffers: always-on records in bounded rings that outlive the process.
//
// A buffer is a file RUN_DIRECTORY/trace/NAME ('/' becomes '.') mapped into memory: a header, then a ring of
// fixed-size entries. Writing is a few stores, from any thread; readers (trace_read, `mplsvpn trace`) map the
// file read-only, while the process runs or after it died, and skip an entry that is being overwritten.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/core/base/status.h"

struct TraceBuffer;

inline constexpr std::size_t kTraceNameMax = 64;
inline constexpr std::size_t kTraceTextMax = 223;  // octets of text stored for one entry
inline constexpr char kTraceCutMark[] = "...";     // the end of a text that was longer

struct TraceEntry {
  std::uint64_t sequence;  // counts every record ever written to the buffer, from 1
  std::uint64_t stamp;     // nanoseconds, clock_stamp()
  std::uint32_t thread;    // kernel thread id
  std::uint32_t record;    // what the writer is saying, the writer's own numbering
  Status code;
  std::string text;
};

// Opens (and empties) a buffer of `size` entries. `further`, `reserved1`, `reserved2` are stored in the
// header for readers. kStatusInvalid for a name longer than kTraceNameMax; the system's errno for a directory
// or file that cannot be created. Fault point "trace_open".
[[nodiscard]] Status trace_open(const char* name, std::uint32_t size, std::uint32_t further,
                                std::uint32_t reserved1, std::uint32_t reserved2, TraceBuffer** buffer);
// Unmaps; the file stays for readers. Null is allowed.
void trace_close(TraceBuffer* buffer);
// Never fails; a null buffer is allowed and drops the record. Any thread.
[[gnu::format(printf, 4, 5)]] void trace_write(TraceBuffer* buffer, std::uint32_t record, Status code,
                                               const char* format, ...);
// All complete entries, oldest first. kStatusNoSuchRow for an unknown buffer, kStatusBadMessage for a file
// that is not a trace buffer.
[[nodiscard]] Status trace_read(const std::string& run_directory, const std::string& name,
                                std::vector<TraceEntry>* entries);
// The names of the buffers below this run directory, sorted.
std::vector<std::string> trace_names(const std::string& run_directory);
