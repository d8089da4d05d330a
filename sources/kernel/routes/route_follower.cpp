// Applies the kernel's announcements; route_readings.cpp reads tables.
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

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

constexpr std::array kRouteGroups{RTNLGRP_LINK,       RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                  RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE,  RTNLGRP_NEXTHOP};
constexpr std::uint64_t kChecksPerInterval = 16;  // for tables that are due
constexpr std::size_t kPrefixesPerSlice = 128;
constexpr int kSlicesPerStep = 40;
constexpr std::size_t kContentsPerRelease = 3000;

std::array<router::RouteTableId, 2> tables_of(const router::Vrf& vrf) {
  return {router::RouteTableId{router::Family::kIpv4, vrf.ipv4_table},
          router::RouteTableId{router::Family::kIpv6, vrf.ipv6_table}};
}

// Looks the fewer up among the others: a link event concerns a few tables, and many links may change at once.
template <class Container>
bool intersects(const absl::btree_set<std::uint32_t>& changed, const Container& used) {
  const auto is_changed = [&changed](std::uint32_t each) { return changed.contains(each); };
  if (used.size() < changed.size()) return std::ranges::any_of(used, is_changed);
  return std::ranges::any_of(changed, [&used](std::uint32_t each) { return used.contains(each); });
}

bool is_of_objects(const nlmsghdr* message) {
  return message->nlmsg_type == RTM_NEWNEXTHOP || message->nlmsg_type == RTM_DELNEXTHOP;
}

bool is_of_routes(const nlmsghdr* message) {
  return message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE || is_of_objects(message);
}

constexpr std::array kFamilies{"ipv4", "ipv6"};

// "all": of all links.
bool ignores_linkdown(const std::string& device) {
  return std::any_of(kFamilies.begin(), kFamilies.end(), [&device](const char* family) {
    std::ifstream file(std::string("/proc/sys/net/") + family + "/conf/" + device +
                       "/ignore_routes_with_linkdown");
    int value = 0;
    return file >> value && value != 0;
  });
}

std::optional<router::RouteTableId> table_of_malformed(const nlmsghdr* message) {
  if (fault_check("netlink_route_table_malformed") != kStatusOk) return std::nullopt;
  return find_table(message);
}

bool ignores_linkdown(std::uint32_t link) {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(link, name.data()) != nullptr && ignores_linkdown(name.data());
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
  for (EventTimerId* timer : {&step_timer_, &mark_timer_, &walk_timer_, &retire_timer_, &reread_timer_}) {
    event_timer_cancel(manager_, std::exchange(*timer, 0));
  }
  manager_ = nullptr;
}

bool RouteFollower::settled() const {
  return events_.drained() && phase_ == Phase::kIdle && dirty_.empty() && !links_dirty_ && !objects_dirty_ &&
         mark_timer_ == 0 && walking_.empty() && (manager_ == nullptr || events_.is_open());
}

void RouteFollower::on_datagram(std::span<const std::uint8_t> datagram) {
  scratch_.clear();
  link_events_.clear();
  unsigned malformed = 0;
  const auto read = [this, &malformed](const nlmsghdr* message) {
    const char* const fault =
        is_of_routes(message) ? kRouteEventFaultPoints.malformed : "netlink_route_link_malformed";
    const bool good = fault_check(fault) == kStatusOk && parse_link_message(message, &link_events_) &&
                      parse_route_message(message, &scratch_);
    if (good) return true;
    ++malformed;
    take_malformed(message);
    return false;
  };
  if (for_each_message(datagram, read).malformed != malformed) {
    count_malformed(1, "in an announcement of " + std::to_string(datagram.size()) + " octets");
    on_events_lost();
  }
  for (const Event& event : link_events_) take_event(event);
  for (const RouteEvent& event : scratch_) take_event(event);
}

// What it announced is read. Malformed messages of links and addresses are counted by their own socket.
void RouteFollower::take_malformed(const nlmsghdr* message) {
  if (const auto table = table_of_malformed(message)) {
    take_malformed_route(*table);
  } else if (is_of_objects(message)) {
    count_malformed(1, "in an announcement of a next-hop object; reading all of them");
    objects_dirty_ = true;
    objects_known_ = false;
    basis_disturbed_ = true;
    wake(settings_.retry);
  } else {
    if (is_of_routes(message))
      count_malformed(1, "in an announcement of a route of an unknown table; reading all tables");
    on_events_lost();
  }
}

void RouteFollower::take_malformed_route(router::RouteTableId id) {
  const auto table = tables_.find(id);
  if (table == tables_.end()) return;
  count_malformed(1, "in an announcement of a route of " + text_of(id) + "; reading the table again");
  table->second.routes.commit();
  table->second.routes.forget_announcements();
  disturb_walk(id);
  table->second.held_lost = is_being_read(id);
  table->second.doubts_lost_one = table->second.held_lost || table->second.doubts != 0;
  doubt(&table->second);
  reread_soon(table);
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

// Several announcements of one prefix in a batch are one change of its rows.
void RouteFollower::on_batch_end() {
  commit();
  if (std::exchange(store_changed_, false)) model_->flush_route_changes();
}

// Also precedes what is added to the history, which applies to routes that were announced before.
void RouteFollower::commit() {
  for (const router::RouteTableId id : std::exchange(announced_, {})) {
    const auto table = tables_.find(id);
    if (table == tables_.end()) continue;
    table->second.routes.commit();
    if (account(&table->second)) reread_soon(table);
  }
}

void RouteFollower::on_events_lost() {
  ++counters_.losses;
  if (!std::exchange(loss_logged_, true)) {
    log_warning("kernel", "events of routes were lost (%llu times so far), reading all tables",
                static_cast<unsigned long long>(counters_.losses));
  }
  links_dirty_ = objects_dirty_ = true;
  objects_known_ = false;
  announced_.insert(reading_.table());
  for (const router::RouteTableId id : std::exchange(announced_, {})) {
    if (const auto table = tables_.find(id); table != tables_.end())
      table->second.routes.forget_announcements();
  }
  changed_.everything = true;
  mark_soon();
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
              status);
}

void RouteFollower::take_event(const Event& event) {
  commit();
  if (const auto* link = std::get_if<LinkSeen>(&event)) {
    const LinkStates::Change change = links_.seen(*link);
    if (keeps_basis_seen()) links_seen_.seen(*link);
    take_link_change(link->link.index, change);
  } else if (const auto* removed = std::get_if<LinkRemoved>(&event)) {
    links_.removed(removed->index);
    if (keeps_basis_seen()) links_seen_.removed(removed->index);
    without_ipv6_.erase(removed->index);
    history_.add(removed->index, RouteHistory::LinkChange::kRemoved);
    take_link_change(removed->index, {.objects_lost = true});
  } else if (const auto* seen = std::get_if<AddressSeen>(&event)) {
    take_link_change(seen->address.index, links_.address_seen(seen->address));
    take_ipv6_address(seen->address, false);
    if (keeps_basis_seen()) links_seen_.address_seen(seen->address);
  } else if (const auto* old = std::get_if<AddressRemoved>(&event)) {
    take_link_change(old->address.index, links_.address_removed(old->address));
    if (keeps_basis_seen()) links_seen_.address_removed(old->address);
    take_removed_address(old->address.address);
    take_ipv6_address(old->address, true);
  }
  basis_disturbed_ = basis_disturbed_ || basis_has_links_;
}

void RouteFollower::take_link_change(std::uint32_t index, const LinkStates::Change& change) {
  using LinkChange = RouteHistory::LinkChange;
  if (!change.any()) return;
  if (change.carrier) changed_.carriers.insert(index);
  if (change.ipv4_down) history_.add(index, LinkChange::kIpv4Down);
  if (change.ipv6_down) history_.add(index, LinkChange::kIpv6Down);
  if (change.ipv4_up) history_.add(index, LinkChange::kIpv4Up);
  if (change.ipv6_up) history_.add(index, LinkChange::kIpv6Up);
  if (change.objects_lost) {
    if (keeps_basis_seen()) objects_seen_.remove_over(index);
    take_affected(objects_.remove_over(index));
  }
  changed_.links.insert(index);
  meanwhile_.links.insert(index);
  mark_soon();
  limit_history();
}

// So much has changed while tables were read: it is faster to read them all again.
void RouteFollower::limit_history() {
  if (history_.size() <= settings_.history) return;
  on_events_lost();
  history_.cut();
}

// The kernel announces the routes that it deletes with their preferred source address, older ones do not.
void RouteFollower::take_removed_address(const router::Address& address) {
  if (address.family != router::Family::kIpv4) return;
  std::uint32_t word = 0;
  std::memcpy(&word, address.octets.data(), sizeof word);
  changed_.sources.insert(word);
  mark_soon();
}

// IPv6 is disabled or enabled on a link that is up: its link-local address is removed or added, and its paths
// of IPv6 routes with other paths are dead or used again without an announcement.
void RouteFollower::take_ipv6_address(const LinkAddress& address, bool is_removed) {
  const auto& octets = address.address.octets;
  if (address.address.family != router::Family::kIpv6 || octets[0] != 0xfe || (octets[1] & 0xc0) != 0x80)
    return;
  const std::uint32_t index = address.index;
  const bool changes = is_removed ? links_.is_up(index) && without_ipv6_.insert(index).second
                                  : without_ipv6_.erase(index) != 0;
  if (!changes) return;
  changed_.links.insert(index);
  changed_.hiding.insert(index);
  meanwhile_.links.insert(index);
  mark_soon();
}

void RouteFollower::take_affected(const NextHopObjects::Affected& affected) {
  for (const std::uint32_t id : affected.removed) history_.object_removed(id);
  for (const std::uint32_t id : affected.changed) history_.object_changed(id);
  for (const auto* ids : {&affected.removed, &affected.changed}) {
    changed_.objects.insert(ids->begin(), ids->end());
    meanwhile_.objects.insert(ids->begin(), ids->end());
  }
  if (affected.removed.empty() && affected.changed.empty()) return;
  mark_soon();
  limit_history();
}

void RouteFollower::take_object(const NextHopSeen& seen) {
  object_request_ = seen.request;
  if (keeps_basis_seen()) objects_seen_.update(seen.object);
  if (objects_.update(seen.object)) take_affected({{}, objects_.users(seen.object.id)});
}

// A route is announced again when its object changes, which is known from the object. A program may give all
// its requests one number: the same announcement of a route that is not listed is that of a request of its
// own.
bool RouteFollower::repeats_object(const RouteSeen& seen) const {
  if (seen.route.next_hop_object == 0 || (seen.flags & NLM_F_REPLACE) == 0 ||
      seen.request != object_request_ || objects_.find(seen.route.next_hop_object) == nullptr) {
    return false;
  }
  const auto table = tables_.find({seen.route.family, seen.route.table});
  return table == tables_.end() || knowledge_of(table->second) == Knowledge::kNone ||
         table->second.routes.lists(seen.route);
}

void RouteFollower::take_event(const RouteEvent& event) {
  if (const auto* seen = std::get_if<RouteSeen>(&event)) {
    if (!repeats_object(*seen)) take_route(seen->route, event);
  } else if (const auto* removed = std::get_if<RouteRemoved>(&event)) {
    take_route(removed->route, event);
  } else if (const auto* object = std::get_if<NextHopSeen>(&event)) {
    commit();
    basis_disturbed_ = true;
    take_object(*object);
  } else if (const auto* old_object = std::get_if<NextHopRemoved>(&event)) {
    commit();
    basis_disturbed_ = true;
    object_request_ = 0;
    if (keeps_basis_seen()) objects_seen_.remove(old_object->id);
    take_affected(objects_.remove(old_object->id));
  }
}

// The kernel does not report that its walk over an IPv6 table is disturbed (dump.cpp).
void RouteFollower::disturb_walk(router::RouteTableId id) {
  const bool is_walked = phase_ == Phase::kTable || phase_ == Phase::kDelivery;
  if (is_walked && id.family == router::Family::kIpv6 && reading_.table() == id) reading_.disturb();
}

void RouteFollower::take_route(const KernelRoute& route, const RouteEvent& event) {
  const auto table = tables_.find({route.family, route.table});
  if (table == tables_.end()) return;
  disturb_walk(table->first);
  if (!is_shown(route)) return;
  if (knowledge_of(table->second) != Knowledge::kNone) {
    apply(event, history_.now(), table);
  } else if (is_being_read(table->first)) {
    hold(event, &table->second);
  }
}

void RouteFollower::hold(const RouteEvent& event, Table* table) {
  if (table->held.size() >= settings_.log) {
    table->held.clear();
    table->held_lost = true;
  }
  table->held.push_back({event, history_.now()});
}

void RouteFollower::apply(const RouteEvent& event, RouteHistory::Moment moment, Tables::iterator table) {
  bool fits = true;
  if (const auto* seen = std::get_if<RouteSeen>(&event)) {
    fits = table->second.routes.add(seen->route, seen->flags, moment);
  } else if (const auto* removed = std::get_if<RouteRemoved>(&event)) {
    table->second.routes.remove(removed->route);
  }
  announced_.insert(table->first);
  if (fits || knowledge_of(table->second) != Knowledge::kComplete) return;
  const bool lost_sources = !changed_.sources.empty() || !marking_.sources.empty();
  if (!lost_sources) {
    const KernelRoute& route = std::get<RouteSeen>(event).route;
    const router::Address prefix{route.family, route.prefix_length, route.destination};
    count_corrections(
        1, "table " + std::to_string(route.table) + ": the routes to " + router::format_address(prefix));
  }
  reread_soon(table);
}

void RouteFollower::count_corrections(std::uint64_t count, const std::string& what) {
  if (count == 0) return;
  counters_.corrections += count;
  log_warning("kernel", "%s are corrected; the kernel has not announced how they changed", what.c_str());
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
    if (auto dropped = tables_.extract(table)) retire(std::move(dropped.mapped().routes));
    dirty_.erase(table);
    walking_.erase(table);
    announced_.erase(table);
  }
}

// A table with a label for each route has as many contents as routes.
void RouteFollower::retire(TableRoutes routes) {
  retired_.push_back(std::move(routes));
  if (retired_.size() == 1) retire_timer_ = event_timer_start(manager_, 0, [this] { release_some(); });
}

void RouteFollower::release_some() {
  retire_timer_ = 0;
  if (!retired_.front().release_some(kContentsPerRelease)) retired_.pop_front();
  if (!retired_.empty()) retire_timer_ = event_timer_start(manager_, 0, [this] { release_some(); });
}

void RouteFollower::mark_soon() {
  if (mark_timer_ == 0 && manager_ != nullptr) start_marking(settings_.settle);
}

void RouteFollower::start_marking(std::uint64_t delay) {
  mark_timer_ = event_timer_start(manager_, delay, [this] {
    mark_timer_ = 0;
    mark_some();
  });
}

bool RouteFollower::Changed::concerns(const RouteUsage& usage) const {
  return intersects(links, usage.interfaces) || intersects(objects, usage.objects);
}

void RouteFollower::begin_marking() {
  marking_ = std::exchange(changed_, {});
  last_marked_ = {router::Family::kIpv4, 0};
  all_hide_ = !marking_.carriers.empty() && ignores_linkdown("all");
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
  if (!marking_.everything && !lost_source && !intersects(marking_.hiding, routes.usage().interfaces)) return;
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
  counters_.corrections += counters.corrections;
  store_changed_ = table->routes.take_changed() || store_changed_;
  objects_dirty_ = objects_dirty_ || counters.unresolved != 0;
  return table->routes.take_deferred() || counters.unresolved != 0;
}

void RouteFollower::log_failure(const char* what, Status status) {
  if (!std::exchange(failure_logged_, true)) {
    log_error("kernel", "routes: %s: %s", what, err_text(status));
  }
}

}  // namespace kernel
