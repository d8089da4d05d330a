// What the flags mean, as observed on kernels 6.1 and 6.18:
//   - NLM_F_EXCL: the list had no route of this key. IPv6 omits it for multipath routes.
//   - NLM_F_REPLACE: IPv4 replaces the first route of the key. IPv6 replaces the first one that, like the new
//     one, has or has not a gateway, otherwise the first one of the key; if there is none, the route is
//     added.
//   - NLM_F_APPEND: IPv4 appends to the routes of the key. Otherwise the new route precedes them. IPv6
//     appends in any case.
//   - None of these: the attributes of a route changed.
#include "sources/kernel/route_state/route_list.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <utility>

namespace kernel {
namespace {

using Place = RouteList::iterator;

bool same_path(const RoutePath& left, const RoutePath& right) {
  return left.interface_index == right.interface_index && left.has_gateway == right.has_gateway &&
         left.gateway_family == right.gateway_family && left.gateway == right.gateway &&
         left.labels == right.labels && left.tunnel == right.tunnel;
}

bool is_used(const RoutePath& path) {
  return !path.dead && !path.ignored;
}

bool is_ipv4(const KernelRoute& route) {
  return route.family == router::Family::kIpv4;
}

bool same_key(const KernelRoute& left, const KernelRoute& right) {
  return left.priority == right.priority && left.tos == right.tos &&
         left.source_length == right.source_length && left.source == right.source;
}

// IPv4 lists higher types of service first. IPv6 walks routes with a source prefix first.
bool precedes(const KernelRoute& left, const KernelRoute& right) {
  if (left.tos != right.tos) return left.tos > right.tos;
  if (left.source_length != right.source_length) return left.source_length > right.source_length;
  if (left.source != right.source) return left.source < right.source;
  return left.priority < right.priority;
}

struct Range {
  Place begin, end;
};

// The routes of the key; where they would be if there are none.
Range range_of(const KernelRoute& key, RouteList* list) {
  const auto [begin, end] = std::equal_range(list->begin(), list->end(), key, precedes);
  return {begin, end};
}

bool has_gateway(const KernelRoute& route) {
  return route.next_hop_object == 0 && !route.paths.empty() && route.paths.front().has_gateway;
}

// Whether all paths of `part` are paths of `whole`.
bool contains(const std::vector<RoutePath>& whole, const std::vector<RoutePath>& part) {
  return std::all_of(part.begin(), part.end(), [&whole](const RoutePath& wanted) {
    return std::any_of(whole.begin(), whole.end(),
                       [&wanted](const RoutePath& each) { return same_path(each, wanted); });
  });
}

// The route of the list that the announced one is a new state of.
Place find_same(const KernelRoute& route, Range range) {
  return std::find_if(range.begin, range.end, [&route](const KernelRoute& each) {
    if (is_ipv4(route)) return same_route(each, route);
    if (route.next_hop_object != 0) return each.next_hop_object == route.next_hop_object;
    return each.next_hop_object == 0 && each.type == route.type && has_gateway(each) == has_gateway(route) &&
           each.paths.empty() == route.paths.empty() && contains(route.paths, each.paths);
  });
}

Place find_replaced(const KernelRoute& route, Range range) {
  if (is_ipv4(route)) return range.begin;
  const auto same_kind = std::find_if(range.begin, range.end, [&route](const KernelRoute& each) {
    return has_gateway(each) == has_gateway(route);
  });
  return same_kind == range.end ? range.begin : same_kind;
}

// The kernel announces an appended IPv6 path before the present ones, with its own protocol. In the list it
// is the last.
void append_paths(const KernelRoute& route, KernelRoute* present) {
  std::vector<RoutePath> paths = present->paths;
  for (RoutePath& path : paths) {
    const auto announced = std::find_if(route.paths.begin(), route.paths.end(),
                                        [&path](const RoutePath& each) { return same_path(each, path); });
    path.dead = announced->dead;
    path.ignored = announced->ignored;
  }
  for (const RoutePath& path : route.paths) {
    if (!contains(present->paths, {path})) paths.push_back(path);
  }
  present->paths = std::move(paths);
}

void put_in_place(KernelRoute route, Place place) {
  if (is_ipv4(route) || route.paths.empty() || route.next_hop_object != 0) {
    *place = std::move(route);
  } else {
    append_paths(route, &*place);
  }
}

bool same_paths(const KernelRoute& left, const KernelRoute& right, bool with_state) {
  return std::equal(left.paths.begin(), left.paths.end(), right.paths.begin(), right.paths.end(),
                    [with_state](const RoutePath& one, const RoutePath& other) {
                      return one.weight == other.weight && same_path(one, other) &&
                             (!with_state || is_used(one) == is_used(other));
                    });
}

}  // namespace

bool same_route(const KernelRoute& left, const KernelRoute& right) {
  return left.type == right.type && left.protocol == right.protocol &&
         left.next_hop_object == right.next_hop_object && same_key(left, right) &&
         left.preferred_source == right.preferred_source && left.details == right.details &&
         same_paths(left, right, false);
}

bool looks_same(const KernelRoute& left, const KernelRoute& right) {
  return same_route(left, right) && same_paths(left, right, true);
}

void sort_routes(RouteList* list) {
  if (list->size() > 1) std::stable_sort(list->begin(), list->end(), precedes);
}

bool lists(const RouteList& sorted, const KernelRoute& route) {
  const auto [begin, end] = std::equal_range(sorted.begin(), sorted.end(), route, precedes);
  return std::any_of(begin, end, [&route](const KernelRoute& each) { return same_route(each, route); });
}

bool announce(KernelRoute route, std::uint16_t flags, RouteList* list) {
  const Range range = range_of(route, list);
  if ((flags & NLM_F_REPLACE) != 0 && range.begin != range.end) {
    *find_replaced(route, range) = std::move(route);
    return true;
  }
  if ((flags & NLM_F_EXCL) != 0) {
    const bool was_empty = range.begin == range.end;
    list->insert(list->erase(range.begin, range.end), std::move(route));
    return was_empty;
  }
  if (const Place same = find_same(route, range); same != range.end) {
    put_in_place(std::move(route), same);
  } else {
    const bool appends = (flags & NLM_F_APPEND) != 0 || !is_ipv4(route);
    list->insert(appends ? range.end : range.begin, std::move(route));
  }
  return true;
}

void withdraw(const KernelRoute& route, RouteList* list) {
  const Range range = range_of(route, list);
  const bool by_path = !is_ipv4(route) && route.next_hop_object == 0 && !route.paths.empty();
  const auto found = std::find_if(range.begin, range.end, [&](const KernelRoute& each) {
    if (each.type != route.type || each.next_hop_object != route.next_hop_object) return false;
    if (by_path) return contains(each.paths, route.paths);
    return route.next_hop_object != 0 || same_route(each, route);
  });
  if (found == range.end) return;
  if (by_path)
    std::erase_if(found->paths, [&](const RoutePath& each) { return contains(route.paths, {each}); });
  if (!by_path || found->paths.empty()) {
    list->erase(found);
  } else {
    found->protocol = found->paths.front().protocol;
  }
}

}  // namespace kernel
