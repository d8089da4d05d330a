#include "agent/tables/readable_path.h"

#include <utility>

#include "platform/core/base/clock.h"

namespace tables {

ReadablePath::ReadablePath(std::string path, RowSource& source, std::uint64_t age_ns)
    : path_(std::move(path)), source_(&source), age_ns_(age_ns) {}

bool ReadablePath::is_readable() {
  const std::uint64_t now = clock_monotonic();
  if (asked_at_ && now - *asked_at_ < age_ns_) return is_readable_;
  const Status status = source_->get(path_).status;
  is_readable_ = status == kStatusOk || status == kStatusNoSuchRow;
  asked_at_ = now;
  return is_readable_;
}

}  // namespace tables
