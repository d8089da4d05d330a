// The life of the route follower and of its tables, and what is known of each. The rest is elsewhere:
// route_announcements.cpp applies the kernel's announcements, dependent_tables.cpp derives what the kernel
// does not announce, basis_reading.cpp reads links and next-hop objects, route_readings.cpp reads tables.
//
//   route announcements ---------> changes of prefixes --(end of the batch)--> route store
//   links, addresses, objects ---> history --(settle)--> walks over dependent tables --> route store
//   new VRFs, losses, interval --> readings of tables --> route store
//
// One socket receives all of them, so that they are in order. The kernel does not announce the IPv4 routes
// that it deletes when a link is set down or loses its last address, paths that become dead or alive,
// next-hop objects that are deleted with their link, and the routes of those objects. All of this is derived
// from the event of the link, the address or the object (route_history.h). What it means for a route is
// computed when the route is next used; a walk over each table that depends on the link or object begins
// `settle` after the first event and visits all of them.
//
// Readings. Until a table has been read, its announcements are ignored; those that arrive during its first
// reading are held and applied after it, because a part of the reading is newer and a part is older. An
// overrun (ENOBUFS) makes every table unknown again. Later readings, at an interval over which the tables are
// spread, only verify: announcements are applied meanwhile, and what was announced since the reading began is
// not compared. A difference is a correction.
//
// Not derived, but read again: tables with paths over a link whose carrier changes while
// ignore_routes_with_linkdown is set, and tables with routes that prefer a removed source address and were
// not announced as deleted.
//
// With a VRF its tables are dropped: the model has closed them, even if the kernel still has routes there
// (those without a device). A table that is opened is read.
#include "sources/kernel/routes/route_follower.h"

#include <linux/rtnetlink.h>
#include <algorithm>

#include <array>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace kernel {
namespace {

constexpr std::array kRouteGroups{RTNLGRP_LINK,       RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                  RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE,  RTNLGRP_NEXTHOP};
constexpr std::uint64_t kChecksPerInterval = 16;  // for tables that are due

std::array<router::RouteTableId, 2> tables_of(const router::Vrf& vrf) {
  return {router::RouteTableId{router::Family::kIpv4, vrf.ipv4_table},
          router::RouteTableId{router::Family::kIpv6, vrf.ipv6_table}};
}

}  // namespace

RouteFollower::RouteFollower(router::Router* model, const KernelSourceSettings& settings)
    : model_(model),
      settings_(settings),
      events_(this, {{kRouteGroups.begin(), kRouteGroups.end()},
                     settings.receive_buffer,
                     settings.batch,
                     settings.retry,
                     kRouteEventFaultPoints}) {}

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
  retired_.start(manager);
  model_->observe(router::ObserverRank::kOther, this);
  model_->for_each_vrf([this](const router::Vrf& vrf) { add_tables(vrf); });
  links_dirty_ = objects_dirty_ = true;
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
  for (EventTimerId* timer : {&step_timer_, &mark_timer_, &walk_timer_, &reread_timer_}) {
    event_timer_cancel(manager_, std::exchange(*timer, 0));
  }
  retired_.stop();
  manager_ = nullptr;
}

bool RouteFollower::settled() const {
  return events_.drained() && phase_ == Phase::kIdle && dirty_.empty() && !links_dirty_ && !objects_dirty_ &&
         mark_timer_ == 0 && walking_.empty() && (manager_ == nullptr || events_.is_open());
}

bool RouteFollower::has_read(router::RouteTableId table) const {
  const auto found = tables_.find(table);
  return found != tables_.end() && found->second.knowledge != Knowledge::kNone;
}

std::string RouteFollower::text_of(router::RouteTableId id) {
  return (id.family == router::Family::kIpv4 ? "IPv4" : "IPv6") + (" table " + std::to_string(id.table));
}

void RouteFollower::count_malformed(std::uint64_t messages, const std::string& where) {
  if (messages == 0) return;
  counters_.malformed += messages;
  log_warning("kernel", "malformed messages of the kernel (%llu times so far), the last one %s",
              static_cast<unsigned long long>(counters_.malformed), where.c_str());
}

RouteFollower::Knowledge RouteFollower::knowledge_of(const Table& table) const {
  return table.losses == counters_.losses ? table.knowledge : Knowledge::kNone;
}

void RouteFollower::set_knowledge(Knowledge knowledge, Table* table) {
  table->knowledge = knowledge;
  table->losses = counters_.losses;
}

// A difference that the next reading finds is not a correction.
void RouteFollower::doubt(Table* table) {
  if (table->knowledge == Knowledge::kComplete) table->knowledge = Knowledge::kUnconfirmed;
}

void RouteFollower::on_listener_failure(EventListener::Failure failure, Status status) {
  ++counters_.failures;
  log_failure(failure == EventListener::Failure::kReceiving ? "receiving events" : "listening for events",
              status, &problem_);
}

void RouteFollower::count_object_corrections(std::uint64_t count) {
  if (count == 0) return;
  counters_.corrections += count;
  counters_.object_corrections += count;
  log_correction("next-hop objects");
}

void RouteFollower::count_table_corrections(router::RouteTableId table, std::uint64_t count) {
  if (count == 0) return;
  counters_.corrections += count;
  table_corrections_[table] += count;
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
  for (const router::RouteTableId id : tables_of(vrf)) {
    if (id.table == 0 || tables_.contains(id)) continue;
    tables_.emplace(id, Table{TableRoutes(model_, {&objects_, &history_, &links_}, id)});
    dirty_.insert(id);
  }
  wake(settings_.settle);
}

// Two VRFs may share a table, which stays open until both are deleted.
void RouteFollower::drop_tables(const router::Vrf& vrf) {
  for (const router::RouteTableId table : tables_of(vrf)) {
    if (model_->routes().is_open(table)) continue;
    if (is_being_read(table)) {
      abandon_reading();
      wake(0);
    }
    if (auto dropped = tables_.extract(table)) retired_.add(std::move(dropped.mapped().routes));
    dirty_.erase(table);
    walking_.erase(table);
    announced_.erase(table);
    table_corrections_.erase(table);
  }
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

// True when a row or an object is missing that may be found later.
bool RouteFollower::account(Table* table) {
  const TableRoutes::Counters counters = table->routes.take_counters();
  counters_.refused += counters.refused;
  counters_.unresolved += counters.unresolved;
  count_table_corrections(table->routes.id(), counters.corrections);
  store_changed_ = table->routes.take_changed() || store_changed_;
  objects_dirty_ = objects_dirty_ || counters.unresolved != 0;
  return table->routes.take_deferred() || counters.unresolved != 0;
}

void RouteFollower::log_correction(const std::string& what) {
  log_warning("kernel", "%s are corrected; the kernel has not announced how they changed", what.c_str());
}

void RouteFollower::log_failure(const char* what, Status status, std::string* problem) {
  *problem = std::string("routes: ") + what + ": " + err_text(status);
  if (!std::exchange(failure_logged_, true)) log_error("kernel", "%s", problem->c_str());
}

}  // namespace kernel
