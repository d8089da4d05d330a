// Octets as the file of a trace buffer.
//
// The first octet chooses: a sound buffer with damage (support.h), or a file of the input's own. Entries that
// are read are in order, and their texts keep to the bound.
#include <algorithm>

#include "fuzz/support.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/trace/trace.h"

namespace {

using fuzz::require;

const std::string& run_directory() {
  static const TestRunDirectory directory;
  return directory.path();
}

std::string file_name() {
  return run_directory() + "/trace/fuzz";
}

std::string make_buffer() {
  TraceBuffer* buffer = nullptr;
  (void)run_directory();  // sets the environment
  require(trace_open("fuzz", 4, 1, 0, 0, &buffer) == kStatusOk);
  for (int i = 0; i < 6; ++i) trace_write(buffer, 7, kStatusOk, "record %d", i);
  trace_close(buffer);
  std::vector<TraceEntry> entries;
  require(trace_read(run_directory(), "fuzz", &entries) == kStatusOk && entries.size() == 4);
  return fuzz::read_file(file_name());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string sound = make_buffer();
  fuzz::Input input(data, size);
  const bool whole = (fuzz::take_octet(&input) & 1U) != 0;
  fuzz::write_file(file_name(), whole ? fuzz::text_of(input) : fuzz::damaged(sound, input));
  std::vector<TraceEntry> entries;
  const Status status = trace_read(run_directory(), "fuzz", &entries);
  require(status == kStatusOk || (status == kStatusBadMessage && entries.empty()));
  require(std::ranges::is_sorted(entries, {}, &TraceEntry::sequence));
  for (const TraceEntry& entry : entries) require(entry.text.size() <= kTraceTextMax);
  require((status == kStatusOk) == (trace_names(run_directory()).size() == 1));
  return 0;
}
