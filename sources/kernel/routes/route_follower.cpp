// Marks tables as dirty; route_readings.cpp reads them.
//
//   route, next-hop and link events --> dirty marks --(settle)--> a reading of each dirty table --> route
//   store new VRFs -------------------------/
//
// Events only set marks. The kernel does not announce the IPv4 routes that it deletes when a link is set
// down, hops of a multipath route that become dead or alive, next-hop objects that are deleted with their
// link, and the routes of those objects. A table maintained from events would be wrong after the first
// failure. So every reading records the interfaces and objects that its routes depend on, and a change of one
// of them marks the table as a route event does. Links are followed on the same socket, so that their events
// are in order with those of routes. The events of one command arrive in one burst: the reading begins
// `settle` after the first.
//
// An overrun (ENOBUFS) marks everything, including objects. In addition, every table is read at an interval,
// over which the tables are spread.
//
// With a VRF its tables are dropped: the model has closed them, even if the kernel still has routes there
// (those without a device). A table that is opened is marked.
//
// Limits: an IPv4 route that is deleted because its preferred source address was removed from another
// interface of the VRF, on which it does not depend, is found at the interval only.
#include "sources/kernel/routes/route_follower.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

constexpr std::array kRouteGroups{RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE,
                                  RTNLGRP_NEXTHOP};
constexpr std::uint64_t kChecksPerInterval = 16;  // for tables that are due

std::array<router::RouteTableId, 2> tables_of(const router::Vrf& vrf) {
  return {router::RouteTableId{router::Family::kIpv4, vrf.ipv4_table},
          router::RouteTableId{router::Family::kIpv6, vrf.ipv6_table}};
}

// Looks the fewer up among the others: a link event concerns a few tables, and many links may change at once.
template <class Container>
bool intersects(const std::set<std::uint32_t>& changed, const Container& used) {
  const auto is_changed = [&changed](std::uint32_t each) { return changed.contains(each); };
  if (used.size() < changed.size()) return std::ranges::any_of(used, is_changed);
  return std::ranges::any_of(changed, [&used](std::uint32_t each) { return used.contains(each); });
}

}  // namespace

RouteFollower::RouteFollower(router::Router* model, const KernelSourceSettings& settings)
    : model_(model),
      settings_(settings),
      events_(this, {{kRouteGroups.begin(), kRouteGroups.end()},
                     settings.receive_buffer,
                     settings.batch,
                     settings.retry,
                     kRouteEventFaultPoints}),
      reading_(model, &objects_) {}

RouteFollower::~RouteFollower() {
  stop();
}

Status RouteFollower::start(EventManager* manager) {
  Status status = events_.open();
  if (status == kStatusOk) status = events_.watch(manager);
  if (status != kStatusOk) {
    events_.stop();
    return status;
  }
  manager_ = manager;
  model_->observe(router::ObserverRank::kOther, this);
  model_->for_each_vrf([this](const router::Vrf& vrf) { add_tables(vrf); });
  objects_dirty_ = true;
  reread_timer_ =
      event_timer_start(manager_, settings_.route_reread / kChecksPerInterval, [this] { mark_overdue(); });
  wake(0);
  return kStatusOk;
}

void RouteFollower::stop() {
  if (manager_ == nullptr) return;
  model_->stop_observing(this);
  abandon_reading();
  events_.stop();
  for (EventTimerId* timer : {&step_timer_, &reread_timer_}) {
    event_timer_cancel(manager_, std::exchange(*timer, 0));
  }
  manager_ = nullptr;
}

bool RouteFollower::settled() const {
  return events_.drained() && phase_ == Phase::kIdle && dirty_.empty() && !objects_dirty_ &&
         changed_.is_empty() && marking_.is_empty() && (manager_ == nullptr || events_.is_open());
}

void RouteFollower::on_datagram(std::span<const std::uint8_t> datagram) {
  scratch_.clear();
  link_events_.clear();
  const auto read = [this](const nlmsghdr* message) {
    return parse_link_message(message, &link_events_) && parse_route_message(message, &scratch_);
  };
  for_each_message(datagram, read);
  for (const Event& event : link_events_) take_event(event);
  for (const RouteEvent& event : scratch_) take_event(event);
}

void RouteFollower::on_events_lost() {
  ++counters_.losses;
  mark_everything();
}

void RouteFollower::on_listener_failure(EventListener::Failure failure, Status status) {
  ++counters_.failures;
  log_failure(failure == EventListener::Failure::kReceiving ? "receiving events" : "listening for events",
              status);
}

// With its last IPv4 address an interface loses its IPv4 routes, in every table, without an event.
void RouteFollower::take_event(const Event& event) {
  if (const auto* seen = std::get_if<LinkSeen>(&event)) {
    const auto [known, is_new] = links_.try_emplace(seen->link.index, seen->facts);
    if (!is_new && std::exchange(known->second, seen->facts) == seen->facts) return;
    changed_.links.insert(seen->link.index);
  } else if (const auto* removed = std::get_if<LinkRemoved>(&event)) {
    links_.erase(removed->index);
    changed_.links.insert(removed->index);
  } else if (const auto* address = std::get_if<AddressRemoved>(&event)) {
    changed_.links.insert(address->address.index);
  } else {
    return;
  }
  wake(settings_.settle);
}

void RouteFollower::take_event(const RouteEvent& event) {
  const auto mark_table = [this](router::RouteTableId table) {
    if (tables_.contains(table)) {
      dirty_.insert(table);
    }
  };
  if (const auto* seen = std::get_if<RouteSeen>(&event)) {
    mark_table({seen->route.family, seen->route.table});
  } else if (const auto* removed = std::get_if<RouteRemoved>(&event)) {
    mark_table(removed->table);
  } else if (const auto* object = std::get_if<NextHopSeen>(&event)) {
    objects_disturbed_ = true;
    objects_seen_.update(object->object);
    if (objects_.update(object->object)) {
      changed_.objects.merge(objects_.users(object->object.id));
    }
  } else if (const auto* old_object = std::get_if<NextHopRemoved>(&event)) {
    objects_disturbed_ = true;
    objects_seen_.remove(old_object->id);
    changed_.objects.merge(objects_.users(old_object->id));
    objects_.remove(old_object->id);
  }
  wake(settings_.settle);
}

void RouteFollower::vrf_created(const router::Vrf& vrf) {
  add_tables(vrf);
}

void RouteFollower::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  drop_tables(before);
  add_tables(now);
}

void RouteFollower::vrf_deleted(const router::Vrf& vrf) {
  drop_tables(vrf);
}

void RouteFollower::add_tables(const router::Vrf& vrf) {
  for (const router::RouteTableId table : tables_of(vrf)) {
    if (table.table != 0 && tables_.try_emplace(table).second) {
      dirty_.insert(table);
    }
  }
  wake(settings_.settle);
}

// Two VRFs may share a table, which stays open until both are deleted.
void RouteFollower::drop_tables(const router::Vrf& vrf) {
  for (const router::RouteTableId table : tables_of(vrf)) {
    if (model_->routes().is_open(table)) continue;
    const bool is_being_read = phase_ == Phase::kTable || phase_ == Phase::kSweep;
    if (is_being_read && reading_.table() == table) {
      abandon_reading();
      wake(0);
    }
    tables_.erase(table);
    dirty_.erase(table);
  }
}

void RouteFollower::mark_everything() {
  if (!std::exchange(loss_logged_, true)) {
    log_warning("kernel", "events of routes were lost (%llu times so far), reading all tables",
                static_cast<unsigned long long>(counters_.losses));
  }
  changed_.everything = true;
  wake(settings_.settle);
}

bool RouteFollower::Changed::concerns(const RouteUsage& usage) const {
  return everything || intersects(links, usage.interfaces) || intersects(objects, usage.objects);
}

// The kernel may have deleted objects with a link without an event.
void RouteFollower::begin_marking() {
  marking_ = std::exchange(changed_, {});
  last_marked_ = {router::Family::kIpv4, 0};
  if (marking_.everything || (!marking_.links.empty() && !objects_.empty())) objects_dirty_ = true;
}

// Marks the tables that depend on what has changed. False if the step was over before the last.
bool RouteFollower::mark_some() {
  if (marking_.is_empty()) begin_marking();
  if (marking_.is_empty()) return true;
  const std::uint64_t end = clock_monotonic() + reconcile::kStepTime;
  for (auto next = tables_.upper_bound(last_marked_); next != tables_.end(); ++next) {
    if (marking_.concerns(next->second.usage)) dirty_.insert(next->first);
    last_marked_ = next->first;
    if (clock_monotonic() >= end) return false;
  }
  marking_ = {};
  return true;
}

void RouteFollower::mark_overdue() {
  reread_timer_ =
      event_timer_start(manager_, settings_.route_reread / kChecksPerInterval, [this] { mark_overdue(); });
  const std::uint64_t now = clock_monotonic();
  for (const auto& [id, table] : tables_) {
    if (table.due <= now) {
      dirty_.insert(id);
    }
  }
  objects_dirty_ = objects_dirty_ || !dirty_.empty();
  wake(0);
}

void RouteFollower::log_failure(const char* what, Status status) {
  if (!std::exchange(failure_logged_, true)) {
    log_error("kernel", "routes: %s: %s", what, err_text(status));
  }
}

}  // namespace kernel
