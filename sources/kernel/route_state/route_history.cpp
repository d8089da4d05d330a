// What the kernel does without an announcement, as observed on kernels 6.1 and 6.18:
//   - Link down, a master that is a VRF set or released, last IPv4 address removed: paths over the link
//   become
//     dead. An IPv4 route without a path that is not dead is deleted. (IPv6 routes are announced, unless
//     net.ipv6.route.skip_notify_on_dev_down is set. Without an address IPv6 is not concerned.)
//   - Link up, first IPv4 address added: the dead paths are used again; IPv6 waits for the carrier.
//   - Link removed: an IPv4 route with a path over it is deleted, whatever its other paths are. An IPv6 route
//     loses the path.
//   - Next-hop object removed: its routes are deleted. Their own paths, if the kernel shows any, are the
//     object's, and links have no effect on them.
#include "sources/kernel/route_state/route_history.h"

#include <algorithm>

namespace kernel {
namespace {

using Verdict = RouteHistory::Verdict;

bool kill_paths(std::uint32_t interface_index, KernelRoute* route) {
  bool changed = false;
  for (RoutePath& path : route->paths) {
    if (path.interface_index != interface_index || path.dead) continue;
    path.dead = changed = true;
    path.ignored = false;
  }
  return changed;
}

// IPv6 waits for the carrier, without which a path may be ignored.
bool revive_paths(std::uint32_t interface_index, KernelRoute* route) {
  bool changed = false;
  for (RoutePath& path : route->paths) {
    const bool is_used = !path.dead && (!path.ignored || route->family == router::Family::kIpv4);
    if (path.interface_index != interface_index || is_used) continue;
    path.dead = false;
    path.ignored = path.ignored && route->family == router::Family::kIpv4;
    changed = true;
  }
  return changed;
}

bool all_dead(const KernelRoute& route) {
  return std::all_of(route.paths.begin(), route.paths.end(), [](const RoutePath& path) { return path.dead; });
}

Verdict remove_link(std::uint32_t interface_index, KernelRoute* route) {
  const std::size_t removed = std::erase_if(
      route->paths, [&](const RoutePath& path) { return path.interface_index == interface_index; });
  if (removed == 0) return Verdict::kSame;
  const bool deleted = route->family == router::Family::kIpv4 || route->paths.empty();
  return deleted ? Verdict::kDeleted : Verdict::kChanged;
}

Verdict apply_link(std::uint32_t interface_index, RouteHistory::LinkChange change, KernelRoute* route) {
  using LinkChange = RouteHistory::LinkChange;
  const bool is_ipv4 = route->family == router::Family::kIpv4;
  if (change == LinkChange::kRemoved) return remove_link(interface_index, route);
  if (change == (is_ipv4 ? LinkChange::kIpv4Down : LinkChange::kIpv6Down)) {
    if (!kill_paths(interface_index, route)) return Verdict::kSame;
    return all_dead(*route) ? Verdict::kDeleted : Verdict::kChanged;
  }
  if (change == (is_ipv4 ? LinkChange::kIpv4Up : LinkChange::kIpv6Up) &&
      revive_paths(interface_index, route)) {
    return Verdict::kChanged;
  }
  return Verdict::kSame;
}

}  // namespace

void RouteHistory::add(std::uint32_t interface_index, LinkChange change) {
  links_.emplace(std::pair(interface_index, ++now_), change);
}

void RouteHistory::object_changed(std::uint32_t id) {
  objects_[id].changed = ++now_;
}

void RouteHistory::object_removed(std::uint32_t id) {
  objects_[id].removed = ++now_;
}

void RouteHistory::clear() {
  links_.clear();
  objects_.clear();
}

void RouteHistory::cut() {
  clear();
  cut_ = ++now_;
}

Verdict RouteHistory::apply_object(Moment since, const KernelRoute& route) const {
  const auto found = objects_.find(route.next_hop_object);
  const ObjectEntry entry = found == objects_.end() ? ObjectEntry{} : found->second;
  if (entry.removed > since) return Verdict::kDeleted;
  return std::max(entry.changed, cut_) > since ? Verdict::kChanged : Verdict::kSame;
}

// Of the links that the route uses, in their order.
std::vector<RouteHistory::LinkEntry> RouteHistory::link_entries(Moment since,
                                                                const KernelRoute& route) const {
  std::vector<LinkEntry> entries;
  for (auto path = route.paths.begin(); path != route.paths.end(); ++path) {
    const std::uint32_t index = path->interface_index;
    const bool seen = std::any_of(route.paths.begin(), path,
                                  [index](const RoutePath& each) { return each.interface_index == index; });
    if (seen) continue;
    for (auto each = links_.lower_bound({index, since + 1});
         each != links_.end() && each->first.first == index; ++each) {
      entries.push_back({each->first.second, index, each->second});
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](const LinkEntry& left, const LinkEntry& right) { return left.moment < right.moment; });
  return entries;
}

Verdict RouteHistory::apply(Moment since, KernelRoute* route) const {
  if (since >= now_) return Verdict::kSame;
  if (route->next_hop_object != 0) return apply_object(since, *route);
  Verdict verdict = Verdict::kSame;
  if (links_.empty()) return verdict;
  for (const LinkEntry& entry : link_entries(since, *route)) {
    const Verdict one = apply_link(entry.interface_index, entry.change, route);
    if (one == Verdict::kDeleted) return one;
    if (one == Verdict::kChanged) verdict = one;
  }
  return verdict;
}

}  // namespace kernel
