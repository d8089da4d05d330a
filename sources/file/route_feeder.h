// Feeds the routes of a router file to the model in bounded steps, so that the process answers requests while
// a million routes are added.
//
// A feed refreshes every open table: it adds the groups in their order, then removes the rows that no group
// contained. Unchanged rows keep their age. Main thread.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "sources/file/apply_router.h"

namespace router_file {

class RouteFeeder {
 public:
  explicit RouteFeeder(router::Router* model) : model_(model) {}

  // Begins a feed and abandons the previous one if it is not done. A VRF that is created afterwards may be
  // left out of its removals.
  void begin(std::vector<RouteGroup> groups);
  bool is_done() const { return stage_ == Stage::kDone; }
  // Nothing is left, or only generated routes and what follows them.
  bool written_are_done() const { return is_done() || (stage_ == Stage::kPut && group_ >= written_); }
  // Handles about `rows` VRFs, then about as many rows (> 0), and notifies the observers. Skips a table that
  // was closed since the feed began. A row that the store refuses for another reason ends the feed with its
  // status and without removals.
  [[nodiscard]] Status step(std::size_t rows);
  // What the feed has done so far.
  const RouteChanges& changes() const { return changes_; }

 private:
  enum class Stage { kBegin, kPut, kSweep, kDone };
  void begin_tables(std::size_t vrfs);
  void begin_table(router::RouteTableId table);
  Status put_some(std::size_t rows);
  Status put_group(const RouteGroup& group, std::size_t* rows);
  void sweep_some(std::size_t rows);

  router::Router* model_;
  Stage stage_ = Stage::kDone;
  std::vector<RouteGroup> groups_;
  std::size_t written_ = 0;                // groups of one route, the first ones
  std::size_t group_ = 0;                  // the group that is next
  std::uint32_t row_ = 0;                  // its row that is next
  std::string last_vrf_;                   // whose tables the feed has begun
  std::set<router::RouteTableId> tables_;  // begun and not swept; VRFs may share one
  RouteChanges changes_;
};

}  // namespace router_file
