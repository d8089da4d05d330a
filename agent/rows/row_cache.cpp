// Why OIDs never decrease or repeat: a look-up is answered from one window only. Its rows are in strictly
// increasing order, and the answer is the first row at or after an index that is greater than the manager's.
// A row that is added or removed between two windows may be missed, but never makes a walk step back.
//
// Why a GET finds what a GETNEXT found: windows never overlap (a new one replaces those it overlaps), so an
// older window cannot deny a row that a newer one has shown.
#include "agent/rows/row_cache.h"

#include <algorithm>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace tables {

RowCache::RowCache(const RowSet& set, RowSource& source, std::uint64_t age_ns)
    : set_(&set),
      source_(&source),
      age_ns_(age_ns),
      slots_{Slot{Window(set)}, Slot{Window(set)}, Slot{Window(set)}, Slot{Window(set)}} {
  static_assert(kWindows == 4);
}

Lookup RowCache::first_at_or_after(oid::View index, std::uint32_t rows_wanted, RowRef* row) {
  const std::uint64_t now = clock_monotonic();
  Status status = kStatusOk;
  Slot* slot = find(index, now, age_ns_);
  if (slot == nullptr) slot = fetch(index, rows_wanted, now, &status);
  if (status == kStatusTimedOut && age_ns_ > 0) slot = find(index, now, kOldRows);
  if (slot == nullptr) return Lookup::kFailed;
  slot->used = ++uses_;
  const std::size_t found = slot->window.first_at_or_after(index);
  if (found == slot->window.size()) return Lookup::kEnd;
  *row = {&slot->window, found};
  return Lookup::kRow;
}

RowCache::Slot* RowCache::find(oid::View index, std::uint64_t now, std::uint64_t age_ns) {
  for (Slot& slot : slots_) {
    if (now - slot.filled_at < age_ns && slot.window.covers(index)) return &slot;
  }
  return nullptr;
}

RowCache::Slot* RowCache::least_recent() {
  return &*std::min_element(slots_.begin(), slots_.end(),
                            [](const Slot& left, const Slot& right) { return left.used < right.used; });
}

RowCache::Slot* RowCache::fetch(oid::View index, std::uint32_t rows_wanted, std::uint64_t now,
                                Status* status) {
  Slot* const slot = least_recent();
  *status = read(index, rows_wanted, &slot->window);
  if (*status != kStatusOk) return nullptr;
  slot->filled_at = now;
  for (Slot& other : slots_) {
    if (&other == slot || !other.window.overlaps(slot->window)) continue;
    other.window.discard();
    other.used = 0;  // the first to be filled again
  }
  return slot;
}

// A table that was read only in part must not look complete: a malformed answer discards the window.
Status RowCache::read(oid::View index, std::uint32_t rows_wanted, Window* window) {
  kvtree::WalkResult result;
  if (set_->single) {
    kvtree::GetResult record = source_->get(set_->path);
    result.status = record.status;
    result.end = true;
    result.rows.push_back(std::move(record.record));
  } else {
    result = source_->walk(set_->path + set_->key(set_->index, index), rows_wanted);
    if (result.status == kStatusNoSuchRow && result.rows.empty()) {
      result.status = kStatusOk;
      result.end = true;
    }
  }
  if (result.status != kStatusOk) return result.status;
  if (window->fill(index, result.rows, result.end) && window->covers(index)) {
    complained_ = false;
    return kStatusOk;
  }
  if (!complained_) log_warning("", "%s: the daemon's answer is malformed or out of order", set_->name);
  complained_ = true;
  window->discard();
  return kStatusBadMessage;
}

}  // namespace tables
