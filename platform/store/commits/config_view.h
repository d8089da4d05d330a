// The configuration as readers see it: the tree, with the commit that is being applied to it. Only for the
// store.
#pragma once

#include <algorithm>
#include <string_view>

#include "platform/store/commits/application.h"
#include "platform/store/configuration/config_tree.h"
#include "platform/store/server/store.h"

namespace kvtree {

// A path of a tree, of the commit, or of both. `node` and `change` may be null, but not both.
template <typename Node>
struct Viewed {
  std::string_view path;
  const Node* node;
  const PlannedChange* change;
};

// The owner's value, or null.
inline const SharedValue& value_of(const Viewed<OwnedNode>& viewed, std::size_t owner) {
  const bool is_committed = viewed.change != nullptr && store().application->plan().owner == owner;
  if (is_committed) return viewed.change->value;
  static const SharedValue kNone;
  return viewed.node == nullptr ? kNone : viewed.node->value_of(owner);
}

struct EffectiveValue {
  SharedValue value;  // null for none
  std::size_t owner = kNoOwner;
};
inline EffectiveValue effective_value_of(const Viewed<OwnedNode>& viewed) {
  if (viewed.change != nullptr) return {seen_value(viewed.change->after), viewed.change->owner_after};
  return {viewed.node->effective_value(), viewed.node->effective_owner()};
}

// Visits the paths from `first` on, or after it, in order, until `visit` returns false: bool visit(const
// Viewed<Node>&). The map is the tree or the store's nodes.
template <typename Map, typename Visit>
void visit_view(const Map& map, std::string_view first, bool after, const Visit& visit) {
  static const std::vector<const PlannedChange*> kNone;
  const auto& changes = store().application == nullptr ? kNone : store().application->plan().by_path;
  const auto is_before = [first, after](const PlannedChange* change) {
    const int order = change->path.view().compare(first);
    return after ? order <= 0 : order < 0;
  };
  auto change = std::partition_point(changes.begin(), changes.end(), is_before);
  auto node = after ? map.upper_bound(first) : map.lower_bound(first);
  while (node != map.end() || change != changes.end()) {
    const bool has_node = node != map.end() && (change == changes.end() || node->first <= (*change)->path);
    const bool has_change = change != changes.end() && (!has_node || node->first == (*change)->path);
    const Viewed<typename Map::mapped_type> viewed{has_node ? node->first : (*change)->path,
                                                   has_node ? &node->second : nullptr,
                                                   has_change ? *change : nullptr};
    if (!visit(viewed)) return;
    if (has_node) ++node;
    if (has_change) ++change;
  }
}

// The effective value of this path.
EffectiveValue find_effective(std::string_view path);

}  // namespace kvtree
