// What makes the tables dirty (see route_follower.h; route_readings.cpp has the readings).
//
//   route, next-hop and link events --> dirty marks --(settle)--> a reading of each dirty table --> route
//   store VRFs that come                  ---/
//
// Events are marks and nothing more. The kernel does not tell of the IPv4 routes that it drops when a link
// goes down, of hops of a multipath route that die or come back, of next-hop objects that go with their link
// and of what went with those; a count kept from events would be wrong from the first failure on. So every
// reading notes which interfaces and objects its routes hang on, and a change of one of them makes the table
// dirty as a route event does. Links are heard of on the same socket, so that they come in their order with
// the routes. The events of one command arrive in one burst: the reading begins `settle` after the first.
//
// An overrun (ENOBUFS) makes everything dirty, objects included. Besides, every table is read again at an
// interval, in which the tables are spread.
//
// A VRF that goes takes its tables with it: the model has closed them, whatever the kernel still keeps there
// (routes without a device stay). A table that opens is dirty.
//
// Limits: an IPv4 route that goes because its preferred source address was removed from another interface of
// the VRF, on which it does not hang, is found at the interval only.
#include "sources/kernel/routes/route_follower.h"

#include <linux/rtnetlink.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace kernel {
namespace {

constexpr std::array kGroups{RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE,
                             RTNLGRP_NEXTHOP};
constexpr std::uint64_t kLooksAnInterval = 16;  // for tables that are due

std::array<router::RouteTableId, 2> tables_of(const router::Vrf& vrf) {
  return {router::RouteTableId{router::Family::kIpv4, vrf.ipv4_table},
          router::RouteTableId{router::Family::kIpv6, vrf.ipv6_table}};
}

template <class Container>
bool intersects(const std::set<std::uint32_t>& changed, const Container& used) {
  return std::any_of(changed.begin(), changed.end(),
                     [&used](std::uint32_t each) { return used.contains(each); });
}

}  // namespace

RouteFollower::RouteFollower(router::Router* model, const KernelSourceSettings& settings)
    : model_(model), settings_(settings), reading_(model, &objects_) {}

RouteFollower::~RouteFollower() {
  stop();
}

Status RouteFollower::start(EventManager* manager) {
  manager_ = manager;
  if (Status status = open_events()) {
    manager_ = nullptr;
    return status;
  }
  model_->observe(router::ObserverRank::kOther, this);
  model_->for_each_vrf([this](const router::Vrf& vrf) { add_tables(vrf); });
  objects_dirty_ = true;
  reread_timer_ =
      event_timer_start(manager_, settings_.route_reread / kLooksAnInterval, [this] { mark_overdue(); });
  wake(0);
  return kStatusOk;
}

void RouteFollower::stop() {
  if (manager_ == nullptr) {
    return;
  }
  model_->stop_observing(this);
  abandon_reading();
  if (events_.is_open()) {
    event_fd_remove(manager_, events_.fd());
    events_.close();
  }
  for (EventTimerId* timer : {&turn_timer_, &reread_timer_, &reopen_timer_}) {
    if (*timer != 0) {
      event_timer_cancel(manager_, std::exchange(*timer, 0));
    }
  }
  manager_ = nullptr;
}

bool RouteFollower::settled() const {
  return drained_ && phase_ == Phase::kIdle && dirty_.empty() && !everything_dirty_ && !objects_dirty_ &&
         changed_links_.empty() && changed_objects_.empty() && (manager_ == nullptr || events_.is_open());
}

// Leaves the socket closed on failure.
Status RouteFollower::open_events() {
  Status status = events_.open();
  if (status == kStatusOk) {
    status = events_.set_receive_buffer(settings_.receive_buffer);
  }
  for (const int group : kGroups) {
    if (status == kStatusOk) {
      status = events_.join(group);
    }
  }
  if (status == kStatusOk) {
    status = event_fd_add(manager_, events_.fd(), EPOLLIN, [this](int, std::uint32_t) { read_events(); });
  }
  if (status != kStatusOk) {
    events_.close();
  }
  return status;
}

void RouteFollower::read_events() {
  drained_ = false;
  for (unsigned count = 0; count < settings_.batch && !drained_ && events_.is_open(); ++count) {
    std::span<const std::uint8_t> datagram;
    switch (events_.receive(&datagram)) {
      case Received::kDatagram:
        ++counters_.datagrams;
        scratch_.clear();
        counters_.malformed += parse_route_datagram(datagram, &scratch_).malformed;
        std::for_each(scratch_.begin(), scratch_.end(),
                      [this](const RouteEvent& event) { take_event(event); });
        break;
      case Received::kNothing:
        drained_ = true;
        break;
      case Received::kLost:
        ++counters_.losses;
        mark_everything();
        break;
      case Received::kFailed:
        events_failed();
        break;
    }
  }
}

void RouteFollower::take_event(const RouteEvent& event) {
  const auto mark_table = [this](router::RouteTableId table) {
    if (tables_.contains(table)) {
      dirty_.insert(table);
    }
  };
  if (const auto* seen = std::get_if<RouteSeen>(&event)) {
    mark_table({seen->route.family, seen->route.table});
  } else if (const auto* gone = std::get_if<RouteGone>(&event)) {
    mark_table(gone->table);
  } else if (const auto* link = std::get_if<LinkFacts>(&event)) {
    const auto [known, is_new] = links_.try_emplace(link->index, *link);
    if (is_new || std::exchange(known->second, *link) != *link) {
      changed_links_.insert(link->index);
    }
  } else if (const auto* lost = std::get_if<LinkFactsGone>(&event)) {
    links_.erase(lost->index);
    changed_links_.insert(lost->index);
  } else if (const auto* address = std::get_if<Ipv4AddressLost>(&event)) {
    changed_links_.insert(address->index);
  } else if (const auto* object = std::get_if<NextHopSeen>(&event)) {
    objects_disturbed_ = true;
    objects_seen_.see(object->object);
    if (objects_.see(object->object)) {
      changed_objects_.merge(objects_.users(object->object.id));
    }
  } else if (const auto* lost_object = std::get_if<NextHopGone>(&event)) {
    objects_disturbed_ = true;
    objects_seen_.lose(lost_object->id);
    changed_objects_.merge(objects_.users(lost_object->id));
    objects_.lose(lost_object->id);
  }
  wake(settings_.settle);
}

// A socket that fails to receive is replaced; what it would have told is read.
void RouteFollower::events_failed() {
  ++counters_.failures;
  tell_failure("receiving events", static_cast<Status>(errno));
  event_fd_remove(manager_, events_.fd());
  events_.close();
  drained_ = true;
  reopen_timer_ = event_timer_start(manager_, settings_.retry, [this] { reopen_events(); });
}

void RouteFollower::reopen_events() {
  reopen_timer_ = 0;
  if (Status status = open_events()) {
    ++counters_.failures;
    tell_failure("listening for events", status);
    reopen_timer_ = event_timer_start(manager_, settings_.retry, [this] { reopen_events(); });
    return;
  }
  ++counters_.losses;
  mark_everything();
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

// Two VRFs may share a table; it stays open with the last of them.
void RouteFollower::drop_tables(const router::Vrf& vrf) {
  for (const router::RouteTableId table : tables_of(vrf)) {
    if (model_->routes().is_open(table)) {
      continue;
    }
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
  if (!std::exchange(loss_told_, true)) {
    log_line("kernel: events of routes were lost (%llu times so far), reading all tables",
             static_cast<unsigned long long>(counters_.losses));
  }
  everything_dirty_ = true;
  wake(settings_.settle);
}

bool RouteFollower::hangs_on_changes(const RouteUsage& usage) const {
  return intersects(changed_links_, usage.interfaces) || intersects(changed_objects_, usage.objects);
}

// Objects may have gone with a link without a word.
void RouteFollower::mark_dependants() {
  if (everything_dirty_ || (!changed_links_.empty() && !objects_.empty())) {
    objects_dirty_ = true;
  }
  for (const auto& [id, table] : tables_) {
    if (everything_dirty_ || hangs_on_changes(table.usage)) {
      dirty_.insert(id);
    }
  }
  everything_dirty_ = false;
  changed_links_.clear();
  changed_objects_.clear();
}

void RouteFollower::mark_overdue() {
  reread_timer_ =
      event_timer_start(manager_, settings_.route_reread / kLooksAnInterval, [this] { mark_overdue(); });
  const std::uint64_t now = clock_monotonic();
  for (const auto& [id, table] : tables_) {
    if (table.due <= now) {
      dirty_.insert(id);
    }
  }
  objects_dirty_ = objects_dirty_ || !dirty_.empty();
  wake(0);
}

void RouteFollower::tell_failure(const char* what, Status status) {
  if (!std::exchange(failure_told_, true)) {
    log_line("kernel: routes: %s: %s", what, err_text(status));
  }
}

}  // namespace kernel
