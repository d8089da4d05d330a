#include "platform/store/confirmation/undoing.h"

#include <optional>

namespace kvtree {

namespace {

const KvValue* find_first_owners_value(const ConfigTree& tree, std::string_view path) {
  const auto node = tree.find(path);
  return node == tree.end() ? nullptr : node->second.value_of(find_owner(client_owner())).get();
}

bool are_equal(const KvValue* one, const KvValue* other) {
  return one == nullptr || other == nullptr ? one == other : *one == *other;
}

// The first owner overrides every other: what it set was the effective value.
const KvValue* value_before(const PlannedChange& change) {
  return change.owner_before == find_owner(client_owner()) ? change.before.get() : nullptr;
}

}  // namespace

// Where the node has another value than the commit set, its row was damaged meanwhile: nothing is known of
// it.
std::vector<KvConfigChange> undoing_changes(const CommitPlan& made, const UnchangedPaths& unchanged,
                                            const ConfigTree& tree) {
  std::vector<KvConfigChange> changes;
  for (const PlannedChange& change : made.changes) {
    if (!unchanged.contains(change.path.view())) continue;
    const KvValue* now = find_first_owners_value(tree, change.path.view());
    const KvValue* before = value_before(change);
    if (!are_equal(now, change.value.get()) || are_equal(now, before)) continue;
    changes.push_back({std::string(change.path.view()),
                       before == nullptr ? std::nullopt : std::optional<KvValue>(*before)});
  }
  return changes;
}

}  // namespace kvtree
