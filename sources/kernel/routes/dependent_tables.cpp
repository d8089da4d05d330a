// The tables that depend on a changed link, address or object are marked, and walks visit their routes, both
// in steps. A table that cannot be derived is marked for another reading. What changes meanwhile waits for
// the next marking.
#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "sources/kernel/links/linkdown.h"
#include "sources/kernel/routes/route_follower.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

constexpr std::size_t kPrefixesPerSlice = 128;
constexpr int kSlicesPerStep = 40;

}  // namespace

void RouteFollower::mark_soon() {
  if (mark_timer_ == 0 && manager_ != nullptr) start_marking(settings_.settle);
}

void RouteFollower::start_marking(std::uint64_t delay) {
  mark_timer_ = event_timer_start(manager_, delay, [this] {
    mark_timer_ = 0;
    mark_some();
  });
}

void RouteFollower::begin_marking() {
  marking_ = std::exchange(changed_, {});
  last_marked_ = {router::Family::kIpv4, 0};
  all_hide_ = !marking_.carriers.empty() && all_links_ignore_linkdown();
}

// False when there was not enough time. A link takes 20 microseconds.
bool RouteFollower::find_hiding(std::uint64_t end) {
  while (!marking_.carriers.empty()) {
    const std::uint32_t link = *marking_.carriers.begin();
    marking_.carriers.erase(marking_.carriers.begin());
    if (all_hide_ || ignores_linkdown(link)) marking_.hiding.insert(link);
    if (clock_monotonic() >= end) return false;
  }
  return true;
}

bool RouteFollower::mark_tables(std::uint64_t end) {
  for (auto next = tables_.upper_bound(last_marked_); next != tables_.end(); ++next) {
    mark(next->first, &next->second);
    last_marked_ = next->first;
    if (clock_monotonic() >= end) return false;
  }
  return true;
}

// Marks the tables that depend on what has changed, in steps.
void RouteFollower::mark_some() {
  if (marking_.is_empty()) begin_marking();
  const std::uint64_t end = clock_monotonic() + reconcile::kStepTime;
  const bool all = find_hiding(end) && mark_tables(end);
  walk_soon();
  wake(0);
  if (!all) return start_marking(0);
  marking_ = {};
  if (!changed_.is_empty()) mark_soon();
}

void RouteFollower::mark(router::RouteTableId id, Table* table) {
  TableRoutes& routes = table->routes;
  if (marking_.concerns(routes.usage())) {
    routes.begin_walk();
    walking_.insert(id);
  }
  const bool lost_source = std::ranges::any_of(marking_.sources, [&](std::uint32_t address) {
    return id.family == router::Family::kIpv4 && routes.has_preferred_source(address);
  });
  if (!marking_.everything && !lost_source && !marking_.may_hide_paths(routes.usage())) return;
  doubt(table);
  dirty_.insert(id);
}

void RouteFollower::walk_soon() {
  if (walk_timer_ != 0 || manager_ == nullptr || walking_.empty()) return;
  walk_timer_ = event_timer_start(manager_, 0, [this] {
    walk_timer_ = 0;
    walk();
  });
}

void RouteFollower::walk() {
  const std::uint64_t start = clock_monotonic();
  for (int slice = 0; slice < kSlicesPerStep && !walking_.empty(); ++slice) {
    const auto table = tables_.find(*walking_.begin());
    table->second.routes.walk(kPrefixesPerSlice);
    if (account(&table->second)) reread_soon(table);
    if (!table->second.routes.is_walking()) walking_.erase(walking_.begin());
    if (clock_monotonic() - start >= reconcile::kStepTime) break;
  }
  if (std::exchange(store_changed_, false)) model_->flush_route_changes();
  walk_soon();
  forget_history();
}

// Every route was compared with it.
void RouteFollower::forget_history() {
  if (phase_ == Phase::kIdle && walking_.empty() && mark_timer_ == 0) history_.clear();
}

}  // namespace kernel
