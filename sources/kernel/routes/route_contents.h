// What the routes of one table have besides their prefixes, each content once: a million routes over a few
// next hops have a few contents. Rows refer to the content of their route by its number
// (router::Route::origin).
//
// Main thread only.
#pragma once

#include <absl/container/btree_set.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sources/kernel/route_state/route_history.h"
#include "sources/kernel/route_state/route_message.h"

namespace kernel {

class RouteContents {
 public:
  using Id = std::uint32_t;  // never 0

  // The history must outlive the contents.
  explicit RouteContents(const RouteHistory* history) : history_(history) {}

  // The number of the content, which has one holder more. REQUIRES: prefix and table of `content` are zero,
  // and it is what the kernel has now.
  // *is_new is set if it had none.
  Id hold(const KernelRoute& content, bool* is_new);
  void hold(Id id) { ++slot(id).holders; }  // of a content that find() found
  // The number that hold() would return; 0 for a content without holders.
  Id find(const KernelRoute& content);
  // Holds the content that find() has just not found.
  Id hold_new();
  void release(Id id);
  // Whether the kernel has changed the content since it was held. Its number is given to no further route.
  bool is_stale(Id id);
  // What the kernel has made of it.
  RouteHistory::Verdict current(Id id, KernelRoute* content) const;

  // Whether a route prefers this source address. Looks at some of the contents only: true when it is unsure.
  bool has_preferred_source(std::uint32_t address) const;
  std::size_t size() const { return slots_.size() - unused_.size(); }
  // Frees up to `count` (> 0) contents, also those with holders; false when none is left. Nothing else may
  // follow.
  [[nodiscard]] bool release_some(std::size_t count);
  void for_each(const std::function<void(const KernelRoute&)>& visit) const;

 private:
  using Hash = std::uint32_t;
  struct Slot {
    std::string content;              // packed
    RouteHistory::Moment moment = 0;  // at which the content was valid
    Hash hash = 0;
    std::uint32_t holders = 0;  // 0: unused
    bool stale = false;
  };
  Slot& slot(Id id) { return slots_[id - 1]; }
  Id find_by_hash();
  void forget(Id id);

  const RouteHistory* history_;
  // A route may have a label of its own, and a table then has as many contents as routes: these containers
  // are never copied or hashed again as a whole.
  std::deque<Slot> slots_;  // of number n at n - 1
  std::deque<Id> unused_;
  using Numbers = absl::btree_set<std::pair<Hash, Id>>;
  Numbers numbers_;  // of contents that are not stale, by their hashes
  absl::btree_set<std::pair<std::uint32_t, Id>> by_source_;  // those that prefer a source address
  Id last_ = 0;                                              // that was found or added, unless find() failed
  KernelRoute last_content_;                                 // that find() looked for; of `last_`, if not 0
  std::string wanted_;                                       // the same, packed when `last_` was another
  Hash wanted_hash_ = 0;
  Numbers::iterator wanted_place_{};  // among the numbers, of a content that was not found
};

}  // namespace kernel
