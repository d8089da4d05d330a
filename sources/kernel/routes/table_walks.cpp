// Walks over all prefixes of a table, in steps: after something happened that the kernel does not announce,
// and at the end of a reading.
#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/core/base/log.h"
#include "sources/kernel/routes/table_routes.h"

namespace kernel {
namespace {

// No prefix is between the two.
TableRoutes::Prefix successor(const TableRoutes::Prefix& prefix) {
  return {prefix.destination, static_cast<std::uint8_t>(prefix.length + 1)};
}

// The kernel may show an IPv6 route twice when its table changes meanwhile. The routes are sorted.
void remove_repeated(RouteList* routes) {
  if (routes->size() < 2 || routes->front().family == router::Family::kIpv4) return;
  RouteList unique;
  for (KernelRoute& each : *routes) {
    if (!lists(unique, each)) unique.push_back(std::move(each));
  }
  *routes = std::move(unique);
}

}  // namespace

std::vector<TableRoutes::Prefix> TableRoutes::step_rows(Walk* walk, std::size_t prefixes,
                                                        const Wanted& wanted) const {
  std::vector<Prefix> found;
  const bool more =
      model_->routes().visit_from(table_, walk->next.key(), prefixes, [&](const router::RouteMark& row) {
        const Prefix prefix{row.key.destination, row.key.prefix_length};
        walk->next = successor(prefix);
        if ((found.empty() || found.back() != prefix) && wanted(prefix, &row, nullptr))
          found.push_back(prefix);
      });
  if (!more) *walk = {.is_running = true, .in_list = true};
  return found;
}

std::vector<TableRoutes::Prefix> TableRoutes::step_list(Walk* walk, std::size_t prefixes,
                                                        const Wanted& wanted) const {
  std::vector<Prefix> found;
  auto each = listed_.lower_bound(walk->next);
  for (; each != listed_.end() && prefixes > 0; ++each, --prefixes) {
    walk->next = successor(each->first);
    if (wanted(each->first, nullptr, &each->second)) found.push_back(each->first);
  }
  if (each == listed_.end()) *walk = {};
  return found;
}

// The prefixes among the next ones that are wanted.
std::vector<TableRoutes::Prefix> TableRoutes::step(Walk* walk, std::size_t prefixes,
                                                   const Wanted& wanted) const {
  return walk->in_list ? step_list(walk, prefixes, wanted) : step_rows(walk, prefixes, wanted);
}

void TableRoutes::begin_walk() {
  if (walk_.is_running) {
    walk_again_ = true;
  } else {
    walk_ = {.is_running = true};
  }
}

// By the last reading, which may still be running.
bool TableRoutes::is_read(const Prefix& prefix) const {
  if (const auto listed = listed_.find(prefix); listed != listed_.end())
    return listed->second.reading == readings_;
  bool is_current = false;
  model_->routes().visit_prefix(table_, prefix.key(),
                                [&is_current](const router::RouteMark& row) { is_current = row.current; });
  return is_current;
}

void TableRoutes::mark_unread(const Prefix& prefix) {
  model_->routes().unkeep(table_, prefix.key());
  if (const auto listed = listed_.find(prefix); listed != listed_.end()) listed->second.reading = 0;
}

// A prefix that the running reading has not shown remains one that it may remove.
void TableRoutes::walk(std::size_t prefixes) {
  const auto is_stale = [this](const Prefix&, const router::RouteMark* row, const Listed* listed) {
    return row != nullptr ? row->origin != 0 && contents_.is_stale(row->origin) : any_stale(listed->ids);
  };
  for (const Prefix& prefix : step(&walk_, prefixes, is_stale)) {
    const Ids ids = ids_of(prefix);
    const RouteList routes = routes_of(ids);
    const bool stays_unread = !routes.empty() && !is_read(prefix);
    replace(prefix, ids, routes);
    if (stays_unread) mark_unread(prefix);
  }
  if (!walk_.is_running && std::exchange(walk_again_, false)) begin_walk();
}

void TableRoutes::begin_reading(Reading reading, bool continues) {
  if (!continues) {
    model_->routes().begin_refresh(table_);
    ++readings_;
  }
  reading_ = std::make_unique<CurrentReading>();
  reading_->kind = reading;
}

// Logs the first of a reading.
void TableRoutes::count_correction(const Prefix& prefix) {
  if (reading_->kind != Reading::kVerify) return;
  ++counters_.corrections;
  if (std::exchange(reading_->correction_logged, true)) return;
  log_warning("kernel", "table %u: the routes to %s are corrected; the kernel has not announced them",
              table_.table,
              router::format_address({table_.family, prefix.length, prefix.destination}).c_str());
}

// Marks the prefix as read.
router::RouteRetention TableRoutes::keep(const Prefix& prefix, const RouteList& routes) {
  if (const auto listed = listed_.find(prefix); listed != listed_.end()) {
    listed->second.reading = readings_;
    return router::RouteRetention::kOtherOrigin;
  }
  const RouteContents::Id id = routes.size() == 1 ? contents_.find(routes.front()) : 0;
  return model_->routes().keep(table_, prefix.key(), id);
}

// True if the prefix waits for the end of the reading.
bool TableRoutes::set_apart(const Prefix& prefix, RouteList* routes) {
  const auto found = reading_->apart.find(prefix);
  const auto has_source = [](const KernelRoute& each) { return each.source_length != 0; };
  if (found == reading_->apart.end() && std::none_of(routes->begin(), routes->end(), has_source))
    return false;
  RouteList& waiting = reading_->apart[prefix];
  std::move(routes->begin(), routes->end(), std::back_inserter(waiting));
  return true;
}

void TableRoutes::compare_apart(std::size_t prefixes) {
  for (; prefixes > 0 && !reading_->apart.empty(); --prefixes) {
    auto waiting = reading_->apart.extract(reading_->apart.begin());
    compare_all(waiting.key(), std::move(waiting.mapped()), reading_->additions_only);
  }
}

void TableRoutes::compare(const Prefix& prefix, std::span<KernelRoute> routes, bool additions_only) {
  reading_->additions_only = additions_only;
  for (KernelRoute& route : routes) interpret(&route);
  if (routes.size() == 1 && compare_single(prefix, routes.front())) return;
  RouteList list(std::make_move_iterator(routes.begin()), std::make_move_iterator(routes.end()));
  if (!set_apart(prefix, &list)) compare_all(prefix, std::move(list), additions_only);
}

// True if nothing else is to be done: the prefix had this route only, or none, or was announced meanwhile.
bool TableRoutes::compare_single(const Prefix& prefix, const KernelRoute& route) {
  if (route.source_length != 0 || !reading_->apart.empty()) return false;
  if (reading_->touched.contains(prefix.destination)) return true;
  if (!listed_.empty() && listed_.contains(prefix)) return false;
  const RouteContents::Id id = contents_.find(route);
  const router::RouteRetention retention = model_->routes().keep(table_, prefix.key(), id);
  if (retention == router::RouteRetention::kAbsent) add_read(prefix, route, id);
  return retention != router::RouteRetention::kOtherOrigin;
}

// A route to a prefix without routes; the number of its content if that has one.
void TableRoutes::add_read(const Prefix& prefix, const KernelRoute& route, RouteContents::Id id) {
  count_correction(prefix);
  const bool is_new = id == 0;
  if (is_new) {
    id = contents_.hold_new();
    note_usage(route);
  } else {
    contents_.hold(id);
  }
  if (is_new || sample_.id != id || sample_.moment != basis_.history->now() || sample_.rows.empty())
    sample_ = {id, basis_.history->now(), rows_of(prefix, {route}, {id})};
  for (router::Route& row : sample_.rows) {
    row.key.destination = prefix.destination;
    row.key.prefix_length = prefix.length;
  }
  if (!store(prefix, true, sample_.rows) || sample_.rows.empty()) listed_[prefix] = {{id}, readings_};
}

void TableRoutes::compare_all(const Prefix& prefix, RouteList routes, bool additions_only) {
  if (reading_->touched.contains(prefix.destination)) return;
  const router::RouteRetention retention = keep(prefix, routes);
  if (retention == router::RouteRetention::kRetained) return;
  sort_routes(&routes);
  remove_repeated(&routes);
  const Ids ids = retention == router::RouteRetention::kAbsent ? Ids{} : ids_of(prefix);
  RouteList now = routes_of(ids);
  if (additions_only) {
    std::erase_if(routes, [&now](const KernelRoute& each) { return kernel::lists(now, each); });
    routes.insert(routes.begin(), now.begin(), now.end());
    sort_routes(&routes);
  }
  const bool is_same = std::equal(now.begin(), now.end(), routes.begin(), routes.end(), looks_same);
  if (!is_same) count_correction(prefix);
  replace(prefix, ids, is_same ? now : routes);
}

void TableRoutes::remove_unread(const Prefix& prefix) {
  const Ids ids = ids_of(prefix);
  if (!routes_of(ids).empty()) count_correction(prefix);
  replace(prefix, ids, {});
}

bool TableRoutes::end_some(std::size_t prefixes) {
  compare_apart(prefixes);
  if (!reading_->apart.empty()) return true;
  const auto is_unread = [this](const Prefix& prefix, const router::RouteMark* row, const Listed* listed) {
    if (row != nullptr && row->current) return false;
    if (reading_->touched.contains(prefix.destination)) return false;
    if (listed != nullptr) return listed->reading != readings_;
    return !listed_.contains(prefix);
  };
  for (const Prefix& prefix : step(&reading_->sweep, prefixes, is_unread)) remove_unread(prefix);
  if (reading_->sweep.is_running) return true;
  reading_.reset();
  rebuild_usage();
  return false;
}

}  // namespace kernel
