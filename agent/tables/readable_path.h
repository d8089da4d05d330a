// Whether the daemon can answer reads of a path at all. Asked when a value depends on it; the answer is
// cached as long as rows are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/rows/row_source.h"

namespace tables {

class ReadablePath {
 public:
  // The source must outlive it. With age 0 every call asks the source.
  ReadablePath(std::string path, RowSource& source, std::uint64_t age_ns);

  const std::string& path() const { return path_; }
  // True when a read finds a record or no such row; false for every other answer, and without one.
  bool is_readable();
  // The next call asks the source.
  void discard() { asked_at_.reset(); }

 private:
  std::string path_;
  RowSource* source_;
  std::uint64_t age_ns_;
  std::optional<std::uint64_t> asked_at_;  // by clock_monotonic()
  bool is_readable_ = false;
};

}  // namespace tables
