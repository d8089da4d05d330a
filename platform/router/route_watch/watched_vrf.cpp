#include "platform/router/route_watch/watched_vrf.h"

#include <algorithm>
#include <limits>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/router/route_watch/records.h"

namespace route_watch {
namespace {

constexpr char kArea[] = "route watch";
constexpr std::array<const char*, kFamilies> kFamilyNames = {"IPv4", "IPv6"};

std::uint32_t seconds_now() {
  return static_cast<std::uint32_t>(clock_stamp() / kNanosecondsPerSecond);
}

std::size_t family_of(const std::pair<router::Family, router::RouteKey>& key) {
  return key.first == router::Family::kIpv4 ? 0 : 1;
}

// Of a table that is not read: many may stay so.
std::uint64_t reading_interval(const WatchedTable& table) {
  return seconds_unread(table) < kLongReading ? kCheckInterval : kNanosecondsPerSecond;
}

bool is_of_prefix(const router::RouteKey& key, const router::RouteKey& prefix) {
  return key.destination == prefix.destination && key.prefix_length == prefix.prefix_length;
}

bool forwards(const router::Route& route) {
  return route.type == router::RouteType::kLocal || route.type == router::RouteType::kRemote;
}

// Routes that discard packets do not count. They have no next hop and so precede the others of a prefix.
bool has_route(const router::Router& model, router::RouteTableId table, const router::RouteKey& prefix) {
  if (table.table == 0) return false;
  const router::RouteStore& routes = model.routes();
  router::Route route;
  bool is_more = routes.find(table, prefix, &route) || routes.find_next(table, prefix, &route);
  while (is_more && is_of_prefix(route.key, prefix)) {
    if (forwards(route)) return true;
    is_more = routes.find_next(table, route.key, &route);
  }
  return false;
}

}  // namespace

std::uint32_t seconds_unread(const WatchedTable& table) {
  if (table.unread_since == 0) return 0;
  return static_cast<std::uint32_t>((clock_monotonic() - table.unread_since) / kNanosecondsPerSecond);
}

router::RouteTableId table_of(const router::Vrf& vrf, std::size_t family) {
  if (family == 0) return {router::Family::kIpv4, vrf.ipv4_table};
  return {router::Family::kIpv6, vrf.ipv6_table};
}

void WatchedVrf::set_low(std::size_t family, const Pair& low_and_hold) {
  WatchedTable& table = tables_[family];
  table.low = low_and_hold.first;
  table.hold = low_and_hold.second;
  table.below_since = table.below_before = 0;
}

void WatchedVrf::set_thresholds(std::size_t family, const Pair& maximum_and_mid) {
  tables_[family].maximum = maximum_and_mid.first;
  tables_[family].mid = maximum_and_mid.second;
}

bool WatchedVrf::is_configured() const {
  return !prefixes_.empty() || !waiting_.empty() ||
         std::ranges::any_of(tables_, &WatchedTable::is_configured);
}

bool WatchedVrf::has_prefix(const router::Address& prefix) const {
  return prefixes_.contains(key_of(prefix)) || waiting_.contains(key_of(prefix));
}

std::uint64_t WatchedVrf::remove_waiting(const router::Address& prefix) {
  const auto waiting = waiting_.extract(key_of(prefix));
  return waiting ? waiting.mapped() : 0;
}

bool WatchedVrf::is_compared() const {
  return !prefixes_.empty() ||
         std::ranges::any_of(tables_, [](const WatchedTable& table) { return table.low != 0; });
}

// The clock may have been set back meanwhile.
void WatchedVrf::restore(std::size_t family, const StoredTable& stored) {
  WatchedTable& table = tables_[family];
  table.is_low = stored.is_low;
  table.changed = stored.changed;
  if (stored.below_since == 0) return;
  const std::uint64_t now = clock_stamp();
  table.below_since = clock_monotonic();
  table.below_before = now - std::min(now, stored.below_since);
}

void WatchedVrf::restore(const router::Address& prefix, const StoredPrefix& stored) {
  prefixes_[key_of(prefix)] = {stored.is_present, stored.is_reported, stored.changed};
}

StoredVrf WatchedVrf::stored() const {
  StoredVrf stored;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const WatchedTable& table = tables_[family];
    const std::uint64_t below_for =
        table.below_since == 0 ? 0 : clock_monotonic() - table.below_since + table.below_before;
    stored.tables[family] = {table.is_low, table.below_since == 0 ? 0 : clock_stamp() - below_for,
                             table.changed};
  }
  for (const auto& [key, watched] : prefixes_)
    stored.prefixes[router::format_address(address_of(key))] = {watched.is_present, watched.is_reported,
                                                                watched.changed};
  return stored;
}

WatchedVrf::PrefixKey WatchedVrf::key_of(const router::Address& prefix) {
  router::RouteKey key;
  key.destination = prefix.octets;
  key.prefix_length = prefix.prefix_length;
  return {prefix.family, key};
}

router::Address WatchedVrf::address_of(const PrefixKey& key) {
  return {key.first, key.second.prefix_length, key.second.destination};
}

std::uint32_t WatchedVrf::routes_of(const router::Router& model, const std::string& vrf, std::size_t family) {
  const router::Vrf* record = model.find_vrf(vrf);
  if (record == nullptr) return 0;
  constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::uint32_t>(std::min(model.routes().count(table_of(*record, family)), kMost));
}

std::uint64_t WatchedVrf::evaluate(const router::Router& model, const HasRead& has_read) {
  const router::Vrf* vrf = model.find_vrf(name_);
  std::uint64_t due = 0;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const router::RouteTableId table =
        vrf == nullptr ? router::RouteTableId{router::Family::kIpv4, 0} : table_of(*vrf, family);
    const bool is_wanted = table.table != 0 && is_compared(family);
    if (!is_wanted) tables_[family].is_unread_reported = false;  // nothing is compared later, either
    const bool is_read = !is_wanted || !has_read || has_read(table);
    const std::uint64_t each = note_reading(family, is_read)
                                   ? evaluate_low(family, routes_of(model, name_, family))
                                   : clock_monotonic() + reading_interval(tables_[family]);
    if (each != 0) due = due == 0 ? each : std::min(due, each);
  }
  for (auto& [key, watched] : prefixes_) {
    const std::size_t family = family_of(key);
    if (tables_[family].unread_since != 0) continue;
    evaluate_prefix(key, vrf != nullptr && has_route(model, table_of(*vrf, family), key.second), &watched);
  }
  return due;
}

bool WatchedVrf::is_compared(std::size_t family) const {
  return tables_[family].low != 0 || std::ranges::any_of(prefixes_, [family](const auto& each) {
           return family_of(each.first) == family;
         });
}

bool WatchedVrf::note_reading(std::size_t family, bool is_read) {
  WatchedTable& table = tables_[family];
  if (is_read) {
    table.unread_since = 0;
    if (std::exchange(table.is_unread_reported, false))
      log_notice(kArea, "VRF %s: its %s routes are read and compared now", name_.c_str(),
                 kFamilyNames[family]);
    return true;
  }
  if (table.unread_since == 0) table.unread_since = clock_monotonic();
  if (table.is_unread_reported || seconds_unread(table) < kLongReading) return false;
  table.is_unread_reported = true;
  log_warning(kArea,
              "VRF %s: its %s routes are not read after %u s; until they are, its low-water mark and "
              "watched prefixes are not compared",
              name_.c_str(), kFamilyNames[family], kLongReading);
  return false;
}

std::uint64_t WatchedVrf::evaluate_low(std::size_t family, std::uint32_t routes) {
  WatchedTable& table = tables_[family];
  if (routes >= table.low) {
    set_below(0, &table);
    if (std::exchange(table.is_low, false)) report_low(family, routes);
    return 0;
  }
  if (table.is_low) return 0;
  const std::uint64_t now = clock_monotonic();
  if (table.below_since == 0) set_below(now, &table);
  const std::uint64_t hold = table.hold * kNanosecondsPerSecond;
  const std::uint64_t due = table.below_since + hold - std::min(hold, table.below_before);
  if (now < due) return due;
  table.is_low = true;
  report_low(family, routes);
  return 0;
}

void WatchedVrf::set_below(std::uint64_t since, WatchedTable* table) {
  is_changed_ = is_changed_ || table->below_since != since;
  table->below_since = since;
  table->below_before = 0;
}

void WatchedVrf::report_low(std::size_t family, std::uint32_t routes) {
  WatchedTable& table = tables_[family];
  table.changed = seconds_now();
  is_changed_ = true;
  if (table.is_low) {
    log_warning(kArea, "VRF %s: %u %s routes, below its low-water mark of %u for %u s", name_.c_str(), routes,
                kFamilyNames[family], table.low, table.hold);
  } else if (table.low == 0) {
    log_notice(kArea, "VRF %s: the low-water mark of its %s routes is removed", name_.c_str(),
               kFamilyNames[family]);
  } else {
    log_notice(kArea, "VRF %s: %u %s routes, no longer below its low-water mark of %u", name_.c_str(), routes,
               kFamilyNames[family], table.low);
  }
}

// One that was never there is not logged.
void WatchedVrf::evaluate_prefix(const PrefixKey& key, bool is_present, WatchedPrefix* watched) {
  if (watched->is_present == is_present) return;
  is_changed_ = true;
  watched->is_present = is_present;
  watched->changed = seconds_now();
  const std::string prefix = router::format_address(address_of(key));
  if (!is_present) {
    log_warning(kArea, "VRF %s: the watched prefix %s has no route any more", name_.c_str(), prefix.c_str());
  } else if (watched->is_reported) {
    log_notice(kArea, "VRF %s: the watched prefix %s has a route again", name_.c_str(), prefix.c_str());
  }
  watched->is_reported = !is_present;
}

}  // namespace route_watch
