// The commits that are not folded are applied to the tree as folding applies them to the rows: the number of
// a path's last notification changes only with a change that sets its effective value.
#include "platform/store/configuration/stored_configuration.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/core/base/log.h"

namespace kvtree {

namespace {

class StoredReading {
 public:
  StoredReading(NodeStore* node_store, ConfigTree* tree) : node_store_(node_store), tree_(tree) {}
  Status read();
  // The places of all nodes in the order of their last notifications; of equal numbers in that of the paths.
  std::vector<ConfigTree::const_iterator> in_order();

 private:
  bool take_row(std::string_view owner, std::string_view path, KvValue value, std::uint64_t notified);
  void apply(std::int64_t id, const CommitPlan& plan);

  NodeStore* node_store_;
  ConfigTree* tree_;
  std::vector<std::pair<std::uint64_t, ConfigTree::iterator>> notified_;
  // The same of the paths that commits change which are not folded; the paths are theirs.
  std::unordered_map<std::string_view, std::uint64_t> changed_;
};

Status StoredReading::read() {
  node_store_->for_each_unfolded([this](std::int64_t /*id*/, const CommitPlan& plan) {
    for (const PlannedChange& change : plan.changes) changed_.try_emplace(change.path, 0);
  });
  const Status status = node_store_->for_each(
      [this](std::string_view owner, std::string_view path, KvValue value, std::uint64_t notified) {
        return take_row(owner, path, std::move(value), notified);
      });
  node_store_->for_each_unfolded([this](std::int64_t id, const CommitPlan& plan) { apply(id, plan); });
  return status;
}

// False for a row that cannot be a node.
bool StoredReading::take_row(std::string_view owner, std::string_view path, KvValue value,
                             std::uint64_t notified) {
  const std::size_t number = find_owner(owner);
  if (check_configuration_path(path) != kStatusOk) return false;
  if (number == kNoOwner) {
    log_warning("configuration", "%.*s of \"%.*s\" is unknown and is skipped", static_cast<int>(path.size()),
                path.data(), static_cast<int>(owner.size()), owner.data());
    return true;
  }
  const auto place = tree_->try_emplace(tree_->end(), path);
  place->second.set(number, std::make_shared<const KvValue>(std::move(value)));
  if (const auto changed = changed_.find(path); changed != changed_.end()) {
    changed->second = notified;
  } else if (notified_.empty() || notified_.back().second != place) {
    notified_.emplace_back(notified, place);
  }
  return true;
}

// A node that is withdrawn may be missing: its row may be in quarantine.
void StoredReading::apply(std::int64_t id, const CommitPlan& plan) {
  auto place = tree_->end();
  for (std::size_t i = 0; i < plan.changes.size(); ++i) {
    const PlannedChange& change = plan.changes[i];
    std::uint64_t& notified = changed_[change.path];
    if (change.sets()) notified = NodeStore::notification_number(id, i);
    if (change.value == nullptr && !tree_->contains(change.path)) continue;
    place = apply_change(tree_, plan.owner, change, place);
    if (change.value == nullptr && !tree_->contains(change.path)) notified = 0;
  }
}

std::vector<ConfigTree::const_iterator> StoredReading::in_order() {
  for (const auto& [path, number] : changed_) {
    const auto node = tree_->find(path);
    if (node != tree_->end()) notified_.emplace_back(number, node);
  }
  std::ranges::sort(notified_, {}, [](const auto& each) {
    return std::pair<std::uint64_t, std::string_view>(each.first, each.second->first);
  });
  std::vector<ConfigTree::const_iterator> places;
  places.reserve(notified_.size());
  for (const auto& each : notified_) places.push_back(each.second);
  return places;
}

}  // namespace

Status read_stored(NodeStore* node_store, StoredConfiguration* stored) {
  StoredReading reading(node_store, &stored->tree);
  const Status status = reading.read();
  stored->in_order = reading.in_order();
  return status;
}

}  // namespace kvtree
