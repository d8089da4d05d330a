#include "sources/kernel/routes/route_changes.h"

#include <algorithm>

namespace kernel {
namespace {

// Looks the fewer up among the others: a link event concerns a few tables, and many links may change at once.
template <class Container>
bool intersects(const absl::btree_set<std::uint32_t>& changed, const Container& used) {
  const auto is_changed = [&changed](std::uint32_t each) { return changed.contains(each); };
  if (used.size() < changed.size()) return std::ranges::any_of(used, is_changed);
  return std::ranges::any_of(changed, [&used](std::uint32_t each) { return used.contains(each); });
}

}  // namespace

bool RouteChanges::concerns(const RouteUsage& usage) const {
  return intersects(links, usage.interfaces) || intersects(objects, usage.objects);
}

bool RouteChanges::may_hide_paths(const RouteUsage& usage) const {
  return intersects(hiding, usage.interfaces);
}

}  // namespace kernel
