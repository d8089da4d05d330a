// Read-ahead: a few windows of a row set, each filled by one batch and valid for a short time.
//
// A manager walks by column or by row, and several managers walk different places; each finds its window as
// long as there are no more of them than windows. Memory is bounded by windows times rows, whatever the size
// of the table, and rows are read only for a request and for the one that follows in its walk. A window has
// the slots that were requested at its place.
//
// While the daemon does not answer in time, rows are served until they are kOldRows old: most managers ask
// for the same rows again and again, and take an error for the loss of the rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <vector>

#include "agent/oid/oid.h"
#include "agent/rows/row_set.h"
#include "agent/rows/row_source.h"
#include "platform/core/base/clock.h"

namespace tables {

inline constexpr std::size_t kWindows = 8;       // for four walks, each with the following window
inline constexpr std::uint32_t kWalkRows = 128;  // read for a GETNEXT,
inline constexpr std::uint32_t kMostRows = 512;  // twice as many for each later window of a walk, up to these
// Read for a GET: most are for one row, few for its neighbors.
inline constexpr std::uint32_t kExactRows = 16;
inline constexpr std::size_t kFetches = 4;  // batches under way

// For how long rows are valid: unless an operator sets it, and at most.
inline constexpr std::uint32_t kRowAgeMs = 1000;
inline constexpr std::uint32_t kMostRowAgeMs = 60'000;

struct RowRef {
  const Window* window = nullptr;
  std::size_t row = 0;
  std::uint64_t filled = 0;  // the number of the window's filling

  oid::View index() const { return window->index_of(row); }
  mib::Value cell(std::size_t slot) const { return window->cell(row, slot); }
};

inline constexpr std::uint64_t kOldRows = 5 * kNanosecondsPerSecond;

enum class Lookup {
  kRow,
  kEnd,      // no row at or after the index
  kFailed,   // the source has no answer
  kPending,  // the answer needs a batch that is under way
};

class RowCache {
 public:
  // Rows are valid until `age` after their request to the source; with age 0 every request asks the source,
  // and no other row is served. The set must outlive the cache, the cache its source's batches.
  RowCache(const RowSet& set, RowSource& source, std::uint64_t age_ns);
  RowCache(const RowCache&) = delete;
  RowCache& operator=(const RowCache&) = delete;

  const RowSet& set() const { return *set_; }
  // The slots that the requests at hand need; a look-up reads them together.
  void want(Slots slots) { wanted_ |= slots; }
  // Begins with other requests, now by clock_monotonic(), with which the age of rows is computed until the
  // next batch arrives. What failed before is tried again. Returns their number, which increases.
  std::uint64_t begin_requests(std::uint64_t now);
  void set_time(std::uint64_t now) { now_ = std::max(now_, now); }
  // Returns to the requests with this number.
  void resume_requests(std::uint64_t now, std::uint64_t number);
  // The first row at or after the index, with these slots. *row stays valid until the next look-up.
  Lookup first_at_or_after(oid::View index, Slots slots, std::uint32_t rows_wanted, RowRef* row);
  // If the row has this index, and its window is still valid and has the next row with these slots, moves to
  // that: what a look-up would find, in less time.
  bool advance(RowRef* row, oid::View index, Slots slots);

 private:
  struct Slot {
    explicit Slot(const RowSet& set) : window(set) {}
    Window window;
    std::uint64_t read_at = 0;   // when its rows were requested
    std::uint64_t used = 0;      // greater is more recent
    Slots requested = 0;         // of its slots
    bool is_of_walk = false;     // it was read ahead
    bool has_following = false;  // the following rows were requested
    std::uint64_t request = 0;   // the last that had begun when its rows were requested
    std::uint64_t filled = 0;
  };
  struct Fetch {
    oid::Oid index;  // that needs it
    oid::Oid from;
    Slots slots = 0;
    std::uint32_t rows = 0;  // at most
    bool is_ahead = false;   // of the walk that is expected to need it
    std::uint64_t number = 0;
    std::uint64_t started_at = 0;
    std::uint64_t request = 0;  // the last that had begun
    Status status = kStatusOk;
  };

  // Rows that were requested at this time serve the requests at hand.
  bool is_fresh(std::uint64_t request, std::uint64_t read_at) const;
  bool is_fresh(const Slot& slot) const { return is_fresh(slot.request, slot.read_at); }
  Slot* find(oid::View index, Slots slots);
  // After a time-out.
  Slot* find_old(oid::View index, Slots slots);
  // Starts the batch that the look-up needs, unless it has failed or others are under way.
  void start_for(oid::View index, Slots slots, std::uint32_t rows_wanted);
  void start(oid::View index, oid::View from, Slots slots, std::uint32_t rows, bool is_ahead = false);
  bool is_under_way(oid::View from, Slots slots) const;
  // kStatusOk if nothing has failed.
  Status failure_of(oid::View index, Slots slots) const;
  void take(std::uint64_t number, const Batch& batch);
  Status fill(const Fetch& fetch, const Batch& batch);
  void read_ahead(Slot* slot, std::size_t row);
  Slot* least_recent();

  const RowSet* set_;
  RowSource* source_;
  std::uint64_t age_ns_;
  std::uint64_t now_ = 0;
  std::uint64_t uses_ = 0;
  std::uint64_t requests_ = 0;  // that have begun
  std::uint64_t at_hand_ = 0;   // the number of those at hand
  std::uint64_t fillings_ = 0;
  bool complained_ = false;
  Slots wanted_ = 0;
  std::vector<Slot> slots_;
  std::list<Fetch> fetches_;
  // Since the requests began; not those that failed at once, which may be one for each of thousands of
  // variables.
  std::vector<Fetch> failed_;
  std::uint64_t starts_ = 0;
  std::uint64_t starting_ = 0;         // the number of the batch whose start the source has not returned from
  Status failed_at_once_ = kStatusOk;  // of the look-up at hand
};

}  // namespace tables
