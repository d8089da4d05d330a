#include "platform/store/confirmation/undoing.h"

namespace kvtree {

namespace {

const KvValue* find_first_owners_value(const ConfigTree& tree, const std::string& path) {
  const auto node = tree.find(path);
  return node == tree.end() ? nullptr : node->second.value_of(find_owner(client_owner())).get();
}

bool is_value(const KvValue* value, const std::optional<KvValue>& expected) {
  return value == nullptr ? !expected : expected && *value == *expected;
}

// The first owner overrides every other: what it set was the effective value.
std::optional<KvValue> of_first_owner(const std::optional<KvValue>& value, const std::string& owner) {
  return owner == client_owner() ? value : std::nullopt;
}

}  // namespace

std::vector<KvConfigChange> undoing_changes(const std::vector<KvConfigCommitChange>& made,
                                            const ConfigTree& tree) {
  std::vector<KvConfigChange> changes;
  for (const KvConfigCommitChange& change : made) {
    const KvValue* now = find_first_owners_value(tree, change.path);
    if (!is_value(now, of_first_owner(change.after, change.owner_after))) continue;
    const std::optional<KvValue> before = of_first_owner(change.before, change.owner_before);
    if (!is_value(now, before)) changes.push_back({change.path, before});
  }
  return changes;
}

}  // namespace kvtree
