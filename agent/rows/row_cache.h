// Read-ahead: a few windows of a row set, each filled in one round trip and valid for a short time.
//
// A manager walks by column or by row, and several managers walk different places; each finds its window as
// long as there are no more of them than windows. Memory is bounded by windows times rows, whatever the size
// of the table, and rows are read only for a request.
//
// While the daemon does not answer in time, rows are served until they are kOldRows old: most managers ask
// for the same rows again and again, and take an error for the loss of the rows.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "agent/oid/oid.h"
#include "agent/rows/row_set.h"
#include "agent/rows/row_source.h"
#include "platform/core/base/clock.h"

namespace tables {

inline constexpr std::size_t kWindows = 4;
inline constexpr std::uint32_t kWalkRows = 128;  // read for a GETNEXT
// Read for a GET: most are for one row, few for its neighbors.
inline constexpr std::uint32_t kExactRows = 16;

struct RowRef {
  const Window* window = nullptr;
  std::size_t row = 0;

  oid::View index() const { return window->index_of(row); }
  mib::Value cell(std::size_t slot) const { return window->cell(row, slot); }
};

inline constexpr std::uint64_t kOldRows = 5 * kNanosecondsPerSecond;

enum class Lookup {
  kRow,
  kEnd,     // there is no row at or after the index
  kFailed,  // the source has no answer
};

class RowCache {
 public:
  // Rows are valid until they are `age` old; with age 0 every look-up asks the source, and no other row is
  // served. Both references must outlive the cache.
  RowCache(const RowSet& set, RowSource& source, std::uint64_t age_ns);

  const RowSet& set() const { return *set_; }
  // The first row at or after the index. *row stays valid until the next look-up.
  Lookup first_at_or_after(oid::View index, std::uint32_t rows_wanted, RowRef* row);

 private:
  struct Slot {
    Window window;
    std::uint64_t filled_at = 0;
    std::uint64_t used = 0;  // greater is more recent
  };

  Slot* find(oid::View index, std::uint64_t now, std::uint64_t age_ns);
  // Null without an answer, with its status.
  Slot* fetch(oid::View index, std::uint32_t rows_wanted, std::uint64_t now, Status* status);
  Slot* least_recent();
  Status read(oid::View index, std::uint32_t rows_wanted, Window* window);

  const RowSet* set_;
  RowSource* source_;
  std::uint64_t age_ns_;
  std::uint64_t uses_ = 0;
  bool complained_ = false;
  std::array<Slot, kWindows> slots_;
};

}  // namespace tables
