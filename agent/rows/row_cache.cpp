// Why OIDs never decrease or repeat: a look-up is answered from one window only. Its rows are in strictly
// increasing order, and the answer is the first row at or after an index that is greater than the manager's.
// A row that is added or removed between two windows may be missed, but never makes a walk step back.
//
// Why a GET finds what a GETNEXT found: windows never overlap (a new one replaces those it overlaps), so an
// older window cannot deny a row that a newer one has shown.
//
// Which slots a batch has: those of the request, those of other requests of the same PDU, and, for managers
// that walk several columns side by side, those that the window at this place, or the one that ends before
// it, has been asked for. Where a window lacks a slot it is read again from its beginning, so that another
// walker of its rows keeps them; if it reaches the end of a small table, with all slots, because a manager
// that reads a second column of it usually reads every one.
#include "agent/rows/row_cache.h"

#include <algorithm>
#include <compare>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace tables {
namespace {

bool is_same(oid::View left, oid::View right) {
  return std::is_eq(oid::compare(left, right));
}

}  // namespace

RowCache::RowCache(const RowSet& set, RowSource& source, std::uint64_t age_ns)
    : set_(&set), source_(&source), age_ns_(age_ns), slots_(kWindows, Slot(set)) {}

std::uint64_t RowCache::begin_requests(std::uint64_t now) {
  resume_requests(now, ++requests_);
  failed_.clear();
  return requests_;
}

void RowCache::resume_requests(std::uint64_t now, std::uint64_t number) {
  wanted_ = 0;
  at_hand_ = number;
  set_time(now);
}

Lookup RowCache::first_at_or_after(oid::View index, Slots slots, std::uint32_t rows_wanted, RowRef* row) {
  Slot* slot = find(index, slots);
  if (slot == nullptr) {
    failed_at_once_ = kStatusOk;
    start_for(index, slots, rows_wanted);
    slot = find(index, slots);  // the source may answer at once
    Status failure = kStatusOk;
    if (slot == nullptr) failure = failed_at_once_ != kStatusOk ? failed_at_once_ : failure_of(index, slots);
    if (slot == nullptr && failure == kStatusOk) return Lookup::kPending;
    if (failure == kStatusTimedOut) slot = find_old(index, slots);
    if (slot == nullptr) return Lookup::kFailed;
  }
  slot->used = ++uses_;
  slot->requested |= slots;
  const std::size_t found = slot->window.first_at_or_after(index);
  if (rows_wanted >= kWalkRows) read_ahead(slot, found);
  if (found == slot->window.size()) return Lookup::kEnd;
  *row = {&slot->window, found, slot->filled};
  return Lookup::kRow;
}

bool RowCache::advance(RowRef* row, oid::View index, Slots slots) {
  if (row->window == nullptr || !row->window->has(slots) || row->row + 1 >= row->window->size()) return false;
  if (!oid::equal(row->index(), index)) return false;
  const auto slot =
      std::ranges::find_if(slots_, [&](const Slot& each) { return &each.window == row->window; });
  if (slot->filled != row->filled || !is_fresh(*slot)) return false;
  slot->used = ++uses_;
  slot->requested |= slots;
  ++row->row;
  read_ahead(&*slot, row->row);
  return true;
}

bool RowCache::is_fresh(std::uint64_t request, std::uint64_t read_at) const {
  return request >= at_hand_ || now_ - read_at < age_ns_;
}

RowCache::Slot* RowCache::find(oid::View index, Slots slots) {
  for (Slot& slot : slots_) {
    if (slot.window.has(slots) && slot.window.covers(index) && is_fresh(slot)) return &slot;
  }
  return nullptr;
}

RowCache::Slot* RowCache::find_old(oid::View index, Slots slots) {
  if (age_ns_ == 0) return nullptr;
  for (Slot& slot : slots_) {
    if (slot.window.has(slots) && slot.window.covers(index) && now_ - slot.read_at < kOldRows) return &slot;
  }
  return nullptr;
}

RowCache::Slot* RowCache::least_recent() {
  return &*std::min_element(slots_.begin(), slots_.end(),
                            [](const Slot& left, const Slot& right) { return left.used < right.used; });
}

bool RowCache::is_under_way(oid::View from, Slots slots) const {
  return std::ranges::any_of(fetches_, [&](const Fetch& fetch) {
    return (slots & ~fetch.slots) == 0 && is_same(fetch.from.view(), from) &&
           is_fresh(fetch.request, fetch.started_at);
  });
}

Status RowCache::failure_of(oid::View index, Slots slots) const {
  const auto found = std::ranges::find_if(failed_, [&](const Fetch& fetch) {
    return (slots & ~fetch.slots) == 0 && is_same(fetch.index.view(), index);
  });
  return found == failed_.end() ? kStatusOk : found->status;
}

void RowCache::start_for(oid::View index, Slots slots, std::uint32_t rows_wanted) {
  if (failure_of(index, slots) != kStatusOk) return;
  if (is_under_way(index, slots) || fetches_.size() >= kFetches) return;
  Slots together = set_->single ? set_->all_slots() : slots | wanted_;
  for (const Slot& slot : slots_) {
    if (!is_fresh(slot)) continue;
    if (slot.window.covers(index)) {
      const oid::Oid from(slot.window.from());
      if (is_under_way(from.view(), slots)) return;
      const auto rows = static_cast<std::uint32_t>(slot.window.size());
      const bool is_small = slot.window.ends() && rows <= kWalkRows;
      together |= is_small ? set_->all_slots() : slot.window.slots();
      start(index, from.view(), together, std::max(rows + 1, rows_wanted));
      return;
    }
    oid::Oid following;
    if (slot.window.continues() &&
        first_index(set_->index, slot.window.index_of(slot.window.size() - 1), true, &following) &&
        is_same(following.view(), index)) {
      together |= slot.requested;
    }
  }
  start(index, index, together, rows_wanted);
}

void RowCache::start(oid::View index, oid::View from, Slots slots, std::uint32_t rows, bool is_ahead) {
  const std::string path = set_->single ? set_->path : set_->path + set_->key(set_->index, from);
  const std::vector<std::uint8_t> columns = batch_columns(*set_, slots);
  fetches_.push_back({oid::Oid(index), oid::Oid(from), slots, rows, is_ahead, ++starts_, now_, requests_});
  const std::uint64_t number = starts_;
  starting_ = number;
  try {
    source_->read({path, rows, columns}, [this, number](const Batch& batch) { take(number, batch); });
  } catch (...) {
    starting_ = 0;
    std::erase_if(fetches_, [number](const Fetch& each) { return each.number == number; });
    throw;
  }
  starting_ = 0;
}

// The source may answer a batch whose start has failed.
void RowCache::take(std::uint64_t number, const Batch& batch) {
  const auto fetch =
      std::ranges::find_if(fetches_, [number](const Fetch& each) { return each.number == number; });
  if (fetch == fetches_.end()) return;
  Fetch done = *fetch;
  fetches_.erase(fetch);
  now_ = clock_monotonic();
  done.status = fill(done, batch);
  if (done.status == kStatusOk) return;
  if (done.number == starting_) {
    failed_at_once_ = done.status;
  } else {
    failed_.push_back(done);
  }
}

// A table that was read only in part must not look complete: a malformed answer discards the window.
Status RowCache::fill(const Fetch& fetch, const Batch& batch) {
  Batch rows = batch;
  if (batch.status == kStatusNoSuchRow) {
    rows = {kStatusOk, true, 0, {}};
  } else if (batch.status != kStatusOk) {
    return batch.status;
  }
  Slot* const slot = least_recent();
  slot->filled = ++fillings_;  // first: a RowRef must not refer to a window whose filling has failed
  if (rows.rows > fetch.rows || !slot->window.fill(fetch.from.view(), fetch.slots, rows) ||
      !slot->window.covers(fetch.from.view())) {
    if (!complained_) log_warning("", "%s: the daemon's answer is malformed or out of order", set_->name);
    complained_ = true;
    slot->window.discard();
    slot->used = 0;
    return kStatusBadMessage;
  }
  complained_ = false;
  slot->read_at = fetch.started_at;
  slot->used = ++uses_;
  slot->requested = 0;
  slot->has_following = false;
  slot->is_of_walk = fetch.is_ahead;
  slot->request = fetch.request;
  for (Slot& other : slots_) {
    if (&other == slot || !other.window.overlaps(slot->window)) continue;
    other.window.discard();
    other.used = 0;  // the first to be filled again
  }
  return kStatusOk;
}

// Starts the batch after this window once a walk has used half of it, or, when it continues the window before
// it, with its second row: then all columns that are walked side by side have been requested.
void RowCache::read_ahead(Slot* slot, std::size_t row) {
  const Window& window = slot->window;
  if (age_ns_ == 0 || slot->has_following || !window.continues() || fetches_.size() >= kFetches) return;
  if (row < (slot->is_of_walk ? 1 : window.size() / 2)) return;
  oid::Oid following;
  if (!first_index(set_->index, window.index_of(window.size() - 1), true, &following)) return;
  slot->has_following = true;
  const Slots slots = slot->requested | wanted_;
  const bool is_read = find(following.view(), slots) != nullptr;  // for another walk
  if (is_read || is_under_way(following.view(), slots)) return;
  const auto rows = static_cast<std::uint32_t>(2 * window.size());
  start(following.view(), following.view(), slots, std::clamp(rows, kWalkRows, kMostRows), true);
}

}  // namespace tables
