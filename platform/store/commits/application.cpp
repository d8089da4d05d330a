// The places of the last change are hints for the next one: changes are mostly in the order of the paths.
// Only commits change the tree, so its place stays valid between steps.
#include "platform/store/commits/application.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/core/base/clock.h"

namespace kvtree {

namespace {

constexpr std::size_t kChangesAtOnce = 32;  // between two looks at the clock
constexpr std::size_t kObservedAtOnce = 256;

// The path up to the end of the component after the observer's path; empty for a path that is elsewhere.
std::string_view observed_part(const ConfigObserver& observer, std::string_view path) {
  if (!path.starts_with(observer.path)) return {};
  return path.substr(0, path.find('/', observer.path.size()));
}

using Changes = std::vector<KvConfigCommitChange>;

template <typename ChangeOf>
void notify_observer(const ConfigObserver& observer, std::size_t first, std::size_t end,
                     const ChangeOf& change_of) {
  Changes changes;
  for (std::size_t i = first; i < end; ++i) {
    const PlannedChange& change = change_of(i);
    if (change.is_effective && change.path.view().starts_with(observer.path))
      changes.push_back(to_observed(change));
  }
  if (!changes.empty()) observer.function(changes);
}

}  // namespace

Application::Application(std::shared_ptr<const CommitPlan> plan)
    : plan_(std::move(plan)), tree_place_(store().configuration.begin()) {}

bool Application::step(std::uint64_t nanoseconds) {
  node_place_ = store().nodes.end();  // the process may have changed nodes since the last step
  const std::uint64_t start = clock_monotonic();
  while (pass_ != Pass::kEnd) {
    take_some();
    if (clock_monotonic() - start >= nanoseconds) break;
  }
  return pass_ == Pass::kEnd;
}

void Application::take_some() {
  if (next_ == plan_->changes.size()) {
    pass_ = static_cast<Pass>(static_cast<std::uint8_t>(pass_) + 1);
    next_ = 0;
    tree_place_ = store().configuration.begin();
    node_place_ = store().nodes.end();
    return;
  }
  if (pass_ == Pass::kObservers) return notify_some_observers();
  const std::size_t end = std::min(plan_->changes.size(), next_ + kChangesAtOnce);
  const DeliveryRun run;
  for (; next_ < end; ++next_) {
    const PlannedChange& change = plan_->changes[next_];
    if (change.deletes() != (pass_ == Pass::kDeletions)) continue;
    ++applied_;
    if (pass_ == Pass::kDeletions) {
      delete_one(change);
    } else {
      set_one(change);
    }
  }
}

void Application::delete_one(const PlannedChange& change) {
  apply_to_tree(change);
  erase_node(change.path);
}

void Application::set_one(const PlannedChange& change) {
  apply_to_tree(change);
  if (!change.is_effective) return;
  const bool is_quiet = seen_value(change.before) != nullptr && is_counted(change.path);
  node_place_ = std::next(put_node(change.path, change.after, node_place_, is_quiet));
}

void Application::apply_to_tree(const PlannedChange& change) {
  tree_place_ = apply_change(&store().configuration, plan_->owner, change, tree_place_);
}

// A small commit is one call, with the changes in the order of the commit.
void Application::notify_some_observers() {
  auto& observers = store().observers;
  std::erase_if(observers, [](const auto& observer) { return observer.expired(); });
  const bool is_small = plan_->changes.size() <= kObservedAtOnce;
  const std::size_t end = is_small ? plan_->changes.size() : end_of_run(next_);
  const auto current = observers;  // an observer may end itself
  for (const auto& weak : current) {
    const auto observer = weak.lock();
    if (observer == nullptr) continue;
    notify_observer(*observer, next_, end, [this, is_small](std::size_t i) -> const PlannedChange& {
      return is_small ? plan_->changes[i] : *plan_->by_path[i];
    });
  }
  next_ = end;
}

// So many changes, and those after them that an observer expects in the same call.
std::size_t Application::end_of_run(std::size_t first) const {
  const auto& all = plan_->by_path;
  std::size_t end = std::min(all.size(), first + kObservedAtOnce);
  const auto belongs_to_previous = [&](const std::weak_ptr<const ConfigObserver>& weak) {
    const auto observer = weak.lock();
    if (observer == nullptr) return false;
    const std::string_view part = observed_part(*observer, all[end]->path);
    return !part.empty() && part == observed_part(*observer, all[end - 1]->path);
  };
  while (end < all.size() && std::ranges::any_of(store().observers, belongs_to_previous)) ++end;
  return end;
}

}  // namespace kvtree
