#include "sources/kernel/routes/table_routes.h"

#include <linux/rtnetlink.h>

#include <algorithm>

#include "platform/core/base/log.h"

namespace kernel {
namespace {

// Leaves the row of each next hop that has the lowest metric; the first one among equals. Into the order of
// keys.
void select_rows(std::vector<router::Route>* rows) {
  if (rows->size() < 2) return;
  std::ranges::stable_sort(*rows, [](const router::Route& left, const router::Route& right) {
    return std::pair(left.key, left.metrics[0]) < std::pair(right.key, right.metrics[0]);
  });
  const auto has_same_key = [](const router::Route& left, const router::Route& right) {
    return left.key == right.key;
  };
  rows->erase(std::unique(rows->begin(), rows->end(), has_same_key), rows->end());
}

constexpr std::size_t kContentsPerStep = 10'000;  // half a millisecond

}  // namespace

TableRoutes::Prefix take_prefix(KernelRoute* route) {
  const TableRoutes::Prefix prefix{route->destination, route->prefix_length};
  route->destination = {};
  route->prefix_length = 0;
  route->table = 0;
  return prefix;
}

TableRoutes::TableRoutes(router::Router* model, const Basis& basis, router::RouteTableId table)
    : model_(model), basis_(basis), table_(table), contents_(basis.history) {}

TableRoutes::Ids TableRoutes::ids_of(const Prefix& prefix) const {
  if (const auto listed = listed_.find(prefix); listed != listed_.end()) return listed->second.ids;
  Ids ids;
  model_->routes().visit_prefix(table_, prefix.key(), [&ids](const router::RouteMark& row) {
    if (ids.empty() && row.origin != 0) ids.push_back(row.origin);
  });
  return ids;
}

bool TableRoutes::any_stale(const Ids& ids) {
  return std::any_of(ids.begin(), ids.end(), [this](RouteContents::Id id) { return contents_.is_stale(id); });
}

// As they are now.
RouteList TableRoutes::routes_of(const Ids& ids) const {
  RouteList routes;
  for (const RouteContents::Id id : ids) {
    KernelRoute route;
    if (contents_.current(id, &route) == RouteHistory::Verdict::kDeleted) continue;
    normalize(&route);
    routes.push_back(std::move(route));
  }
  return routes;
}

// Whatever a route with a known object has of its own is the object's: its paths, or that it discards.
void TableRoutes::normalize(KernelRoute* route) const {
  if (route->next_hop_object == 0 || basis_.objects->find(route->next_hop_object) == nullptr) return;
  route->paths.clear();
  if (route->type == RTN_BLACKHOLE) route->type = RTN_UNICAST;
}

// A route as the kernel shows it now.
void TableRoutes::interpret(KernelRoute* route) const {
  normalize(route);
  for (RoutePath& path : route->paths) {
    if (!path.dead || !basis_.links->ignores_paths(path.interface_index)) continue;
    path.dead = false;
    path.ignored = true;
  }
}

RouteList* TableRoutes::pending(const Prefix& prefix) {
  if (reading_) reading_->touched.insert(prefix.destination);
  const auto [found, is_new] = pending_.try_emplace(prefix);
  if (is_new) found->second = routes_of(ids_of(prefix));
  return &found->second;
}

bool TableRoutes::add(KernelRoute route, std::uint16_t flags, RouteHistory::Moment moment) {
  RouteList* routes = pending(take_prefix(&route));
  interpret(&route);
  KernelRoute now = route;
  const bool is_deleted = basis_.history->apply(moment, &now) == RouteHistory::Verdict::kDeleted;
  const bool fits = announce(is_deleted ? route : now, flags, routes);
  if (is_deleted) withdraw(route, routes);
  return fits;
}

void TableRoutes::remove(KernelRoute route) {
  RouteList* routes = pending(take_prefix(&route));
  interpret(&route);
  withdraw(route, routes);
}

bool TableRoutes::lists(KernelRoute route) const {
  const Prefix prefix = take_prefix(&route);
  interpret(&route);
  const auto announced = pending_.find(prefix);
  const RouteList listed = announced == pending_.end() ? routes_of(ids_of(prefix)) : announced->second;
  return std::ranges::any_of(listed, [&route](const KernelRoute& each) { return same_route(each, route); });
}

void TableRoutes::commit() {
  for (const auto& [prefix, routes] : pending_) replace(prefix, ids_of(prefix), routes);
  pending_.clear();
}

void TableRoutes::forget_announcements() {
  pending_.clear();
  if (reading_) reading_->kind = Reading::kFirst;
}

void TableRoutes::replace(const Prefix& prefix, const Ids& before, const RouteList& routes) {
  Ids ids;
  for (const KernelRoute& route : routes) {
    bool is_new = false;
    ids.push_back(contents_.hold(route, &is_new));
    if (is_new) note_usage(route);
  }
  const std::vector<router::Route> rows = rows_of(prefix, routes, ids);
  const bool stored = store(prefix, before.empty(), rows);
  const bool rows_suffice = ids.empty() || (ids.size() == 1 && !rows.empty());
  if (stored && rows_suffice) {
    listed_.erase(prefix);
  } else {
    listed_[prefix] = {ids, readings_};
  }
  for (const RouteContents::Id id : before) contents_.release(id);
}

std::vector<router::Route> TableRoutes::rows_of(const Prefix& prefix, const RouteList& routes,
                                                const Ids& ids) {
  std::vector<router::Route> rows;
  std::vector<router::Route> of_route;
  for (std::size_t at = 0; at < routes.size(); ++at) {
    of_route.clear();
    if (!append_rows(routes[at], *basis_.objects, &of_route)) ++counters_.unresolved;
    for (router::Route& row : of_route) {
      row.key.destination = prefix.destination;
      row.key.prefix_length = prefix.length;
      row.origin = ids[at];
      rows.push_back(std::move(row));
    }
  }
  select_rows(&rows);
  return rows;
}

// False when a row is missing.
bool TableRoutes::store(const Prefix& prefix, bool is_new, const std::vector<router::Route>& rows) {
  bool complete = is_new || erase_others(prefix, rows);
  for (const router::Route& row : rows) {
    router::RouteChange change = router::RouteChange::kNone;
    if (const Status status = model_->routes().put(table_, row, &change)) {
      refuse(status);
      complete = false;
      // A route that can never be stored must not be shown as its predecessor.
      if (status == kStatusInvalid && !is_new && model_->routes().erase(table_, row.key) == kStatusOk)
        changed_ = true;
    }
    changed_ = changed_ || change != router::RouteChange::kNone;
  }
  return complete;
}

bool TableRoutes::erase_others(const Prefix& prefix, const std::vector<router::Route>& rows) {
  std::vector<router::RouteKey> others;
  model_->routes().visit_prefix(table_, prefix.key(), [&](const router::RouteMark& present) {
    if (!std::ranges::binary_search(rows, present.key, {}, &router::Route::key))
      others.push_back(present.key);
  });
  bool complete = true;
  for (const router::RouteKey& key : others) {
    if (const Status status = model_->routes().erase(table_, key)) {
      refuse(status);
      complete = false;
    }
  }
  changed_ = changed_ || !others.empty();
  return complete;
}

// An invalid row (more labels than the store accepts) stays invalid, so it is not deferred.
void TableRoutes::refuse(Status status) {
  ++counters_.refused;
  deferred_ = deferred_ || status != kStatusInvalid;
  if (!std::exchange(refusal_logged_, true)) {
    log_warning("kernel", "table %u: a route is refused: %s", table_.table, err_text(status));
  }
}

void TableRoutes::note_usage(const KernelRoute& content) {
  for (const RoutePath& path : content.paths) usage_.interfaces.insert(path.interface_index);
  if (content.next_hop_object != 0) usage_.objects.insert(content.next_hop_object);
}

void TableRoutes::rebuild_usage() {
  if (contents_.size() > kContentsPerStep) return;
  usage_ = {};
  contents_.for_each([this](const KernelRoute& content) { note_usage(content); });
}

bool TableRoutes::release_some(std::size_t count) {
  for (std::size_t freed = 0; freed < count && !listed_.empty(); ++freed) listed_.erase(listed_.begin());
  return contents_.release_some(count) || !listed_.empty();
}

}  // namespace kernel
