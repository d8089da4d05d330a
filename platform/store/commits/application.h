// A commit that is in the database and is applied to the tree and to the store's nodes in steps, with
// requests in between. Readers see all of it from the beginning (config_view.h). Only for this folder and the
// store.
//
// The subscribers' notifications follow the steps: deletions first, because where one item replaces another
// the place of the new item is free when it is added. No other commit is planned meanwhile, and replays wait.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/store/configuration/config_tree.h"
#include "platform/store/server/store.h"

namespace kvtree {

class Application {
 public:
  explicit Application(std::shared_ptr<const CommitPlan> plan);

  const CommitPlan& plan() const { return *plan_; }
  // Applies changes until the time has passed. True iff everything is applied.
  bool step(std::uint64_t nanoseconds);
  std::size_t count_left() const { return plan_->changes.size() - applied_; }

 private:
  // In this order: what no longer exists, the rest, calls of the observers.
  enum class Pass : std::uint8_t { kDeletions, kSets, kObservers, kEnd };
  void take_some();
  void delete_one(const PlannedChange& change);
  void set_one(const PlannedChange& change);
  void apply_to_tree(const PlannedChange& change);
  void notify_some_observers();
  std::size_t end_of_run(std::size_t first) const;

  std::shared_ptr<const CommitPlan> plan_;
  Pass pass_ = Pass::kDeletions;
  std::size_t next_ = 0;     // change of the pass
  std::size_t applied_ = 0;  // changes
  ConfigTree::iterator tree_place_;
  Nodes::iterator node_place_;
};

}  // namespace kvtree
