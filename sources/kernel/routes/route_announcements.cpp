// The announcements of the route follower: what each of them changes at once, and what it makes known as
// changed, on which tables may depend (dependent_tables.cpp).
//
// Announcements of one batch are collected by prefix and committed together; a change of a link, an address
// or an object commits first, because it applies to the routes that were announced before. A malformed
// announcement costs another reading of its table, or of everything if its table is unknown.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <optional>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "sources/kernel/routes/route_follower.h"

namespace kernel {
namespace {

bool is_of_objects(const nlmsghdr* message) {
  return message->nlmsg_type == RTM_NEWNEXTHOP || message->nlmsg_type == RTM_DELNEXTHOP;
}

bool is_of_routes(const nlmsghdr* message) {
  return message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE || is_of_objects(message);
}

std::optional<router::RouteTableId> table_of_malformed(const nlmsghdr* message) {
  if (fault_check("netlink_route_table_malformed") != kStatusOk) return std::nullopt;
  return find_table(message);
}

}  // namespace

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
    count_table_corrections(table->first, 1);
    log_correction("table " + std::to_string(route.table) + ": the routes to " +
                   router::format_address(prefix));
  }
  reread_soon(table);
}

}  // namespace kernel
