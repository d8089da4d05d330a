// The reading side of trace buffers: any process, while the writer runs or after it died.
//
// The file is mapped read-only and is not trusted: the header must have the values that this build writes,
// and the size of the file must match the number of entries. An entry is complete if its state was the same,
// and even, before and after it was copied.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

#include "platform/core/trace/ring.h"

using namespace trace_detail;

namespace trace_detail {

std::string folder(const std::string& run_directory) {
  return run_directory + "/trace";
}

std::string file_name(const std::string& name) {
  std::string file = name;
  std::replace(file.begin(), file.end(), '/', '.');
  return file;
}

// A file name that begins with '.' is a buffer that is being created. Printable characters only, because
// names are displayed.
bool is_buffer_name(const std::string& name) {
  return !name.empty() && name.size() <= kTraceNameMax && name[0] != '.' && name[0] != '/' &&
         std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

}  // namespace trace_detail

namespace {

// A file mapped read-only for as long as the object lives.
class Mapping {
 public:
  explicit Mapping(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return;
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) size_ = static_cast<std::size_t>(status.st_size);
    if (size_ >= sizeof(Header)) data_ = mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
  }
  ~Mapping() {
    if (data_ != MAP_FAILED) munmap(data_, size_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  // Null if the file is not a trace buffer.
  const Header* header() const {
    if (data_ == MAP_FAILED) return nullptr;
    const auto* header = static_cast<const Header*>(data_);
    if (header->magic != kMagic || header->entry_size != sizeof(Entry)) return nullptr;
    const std::uint32_t count = header->entry_count;
    return count != 0 && count <= kMaxEntries && size_ == file_size(count) ? header : nullptr;
  }

 private:
  std::size_t size_ = 0;
  void* data_ = MAP_FAILED;
};

std::optional<TraceEntry> copy_entry(const Entry& entry) {
  const std::uint64_t state = entry.state.load(std::memory_order_acquire);
  if (state == 0 || (state & 1U) != 0) return std::nullopt;
  TraceEntry copy{state / 2, entry.stamp.load(std::memory_order_acquire), 0, 0, 0, {}};
  const std::uint64_t thread_and_record = entry.thread_and_record.load(std::memory_order_acquire);
  copy.thread = static_cast<std::uint32_t>(thread_and_record);
  copy.record = static_cast<std::uint32_t>(thread_and_record >> 32U);
  copy.code = static_cast<Status>(entry.code.load(std::memory_order_acquire));
  std::array<char, kTextWords * 8> text{};
  for (std::size_t i = 0; i < kTextWords; ++i) {
    const std::uint64_t word = entry.text[i].load(std::memory_order_acquire);
    std::memcpy(text.data() + 8 * i, &word, sizeof word);
  }
  if (entry.state.load(std::memory_order_relaxed) != state) return std::nullopt;
  copy.text.assign(text.data(), strnlen(text.data(), kTraceTextMax));
  return copy;
}

std::string name_in(const Header& header) {
  return {header.name.data(), strnlen(header.name.data(), header.name.size())};
}

}  // namespace

Status trace_read(const std::string& run_directory, const std::string& name,
                  std::vector<TraceEntry>* entries) {
  if (entries == nullptr) return kStatusInvalid;
  const std::string path = folder(run_directory) + "/" + file_name(name);
  if (!is_buffer_name(name) || access(path.c_str(), F_OK) != 0) return kStatusNoSuchRow;
  if (access(path.c_str(), R_OK) != 0) return static_cast<Status>(errno);
  const Mapping mapping(path);
  const Header* header = mapping.header();
  if (header == nullptr) return kStatusBadMessage;
  const auto* first = static_cast<const Entry*>(static_cast<const void*>(header + 1));
  entries->clear();
  for (std::uint32_t i = 0; i < header->entry_count; ++i) {
    if (std::optional<TraceEntry> entry = copy_entry(first[i])) entries->push_back(std::move(*entry));
  }
  std::sort(entries->begin(), entries->end(),
            [](const TraceEntry& a, const TraceEntry& b) { return a.sequence < b.sequence; });
  return kStatusOk;
}

std::vector<std::string> trace_names(const std::string& run_directory) {
  std::vector<std::string> names;
  std::error_code none;
  for (const auto& file : std::filesystem::directory_iterator(folder(run_directory), none)) {
    if (file.path().filename().string().starts_with('.')) continue;
    const Mapping mapping(file.path().string());
    if (const Header* header = mapping.header()) names.push_back(name_in(*header));
  }
  std::sort(names.begin(), names.end());
  return names;
}
