// Watched VRFs are indexed by name, because they may be configured before they exist, and by the numbers of
// their tables. A VRF whose table is below its mark is due when its time is over. Those that change during a
// pass over the marked ones are for the next pass, so that a busy one delays no other. Attaching makes the
// only instance; the handlers of the data store have no argument and find it in service().
#include "platform/router/route_watch/route_watch.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/config/vrf_config.h"
#include "platform/core/base/log.h"
#include "platform/router/route_watch/records.h"
#include "platform/router/route_watch/service.h"
#include "platform/store/tree/tuple.h"

namespace route_watch {
namespace {

constexpr std::uint64_t kStepTime = kNanosecondsPerMillisecond;

std::unique_ptr<Service>& service() {
  static std::unique_ptr<Service> the_service;
  return the_service;
}

std::string& stored_file() {
  static std::string file;  // empty: the states end with the process
  return file;
}

HasRead& asked() {
  static HasRead has_read;
  return has_read;
}

// --- The configuration

bool is_set(const KvNotifyInfo& info) {
  return (info.whichevent & (kKvEventCreated | kKvEventSet)) != 0;
}

// The pair of a set; zeros for a deletion and for a value that is not a pair.
Pair pair_of(const KvNotifyInfo& info) {
  Pair pair;
  if (!is_set(info)) return pair;
  const Status status = tuple_unpack(info.value, "%d%d", {&pair.first, &pair.second});
  if (status == kStatusOk) return pair;
  log_warning("route watch", "%s is not a pair of numbers: %s", info.item_name, err_text(status));
  return {};
}

using SetPair = void (Service::*)(const std::string& vrf, std::size_t family, const Pair& pair);

template <SetPair kSet>
void notify_pair(const KvNotifyInfo* info, const RequestArgs* args) {
  if (kvtree_absent(args, 0) || kvtree_absent(args, 1) || kvtree_absent(args, 2)) return;
  const std::uint32_t family = *args->arg[1].number;
  if (family < 1 || family > kFamilies || *args->arg[2].number != inet::kUnicastSafi) return;
  ((*service()).*kSet)(args->arg[0].text, family - 1, pair_of(*info));
}

void notify_prefix(const KvNotifyInfo* info, const RequestArgs* args) {
  if (kvtree_absent(args, 0) || kvtree_absent(args, 1) || kvtree_absent(args, 2)) return;
  const std::string text = std::string(args->arg[1].text) + "/" + std::to_string(*args->arg[2].number);
  router::Address prefix;
  if (!router::parse_address(text, &prefix) || inet::has_host_bits(prefix.octets, prefix.prefix_length)) {
    log_warning("route watch", "%s of the VRF %s is not a prefix and is not watched", text.c_str(),
                args->arg[0].text);
    return;
  }
  service()->watch_prefix(args->arg[0].text, prefix, is_set(*info));
}

constexpr KvPathRow kItems[] = {
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_e/rib/low-water",
     {0, notify_pair<&Service::set_low>, nullptr, nullptr, nullptr}},
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_e/rib/table-prefix-limit",
     {0, notify_pair<&Service::set_thresholds>, nullptr, nullptr, nullptr}},
    {"vrf/<s>/ord_a/vmap/ord_m/watch/<ad>/<n>", {0, notify_prefix, nullptr, nullptr, nullptr}},
};
constexpr KvPathTable kItemTable{kItems, std::size(kItems)};

}  // namespace

Service::Service(router::Router* model, EventManager* manager, const std::string& file, HasRead has_read)
    : model_(model), manager_(manager), has_read_(std::move(has_read)) {
  model_->observe(router::ObserverRank::kOther, this);
  if (file.empty()) return;
  stored_ = read_states(file);
  file_ = std::make_unique<StateFile>(file, manager, [this] { return states(); });
}

Service::~Service() {
  model_->stop_observing(this);
  event_timer_cancel(manager_, timer_);
  if (connection_ == nullptr) return;
  if (const Status status = kvtree_unbind(connection_))
    log_error("kvtree", "%s is still provided: %s", kProviderPath, err_text(status));
}

Status Service::start() {
  if (const Status status = provide(this, manager_, &connection_)) return status;
  const Status status = configuration_.follow(
      vrf_config::kVrfScope, manager_,
      [](const KvNotification* notification) { kvtree_match_notify(notification, &kItemTable); });
  stored_.clear();  // the rest is no longer configured
  return status;
}

void Service::write_states() {
  if (file_ != nullptr) file_->write_now();
}

StoredStates Service::states() const {
  StoredStates states;
  for (const auto& [name, watched] : watched_) {
    if (watched.is_compared()) states[name] = watched.stored();
  }
  return states;
}

WatchedVrf* Service::change(const std::string& vrf) {
  return &watched_.try_emplace(vrf, vrf).first->second;
}

void Service::end_change(const std::string& vrf) {
  const auto watched = watched_.find(vrf);
  if (file_ != nullptr) file_->write_soon();
  if (watched->second.is_compared()) return mark_changed(vrf);
  watched->second.evaluate(*model_, has_read_);  // logs the recovery
  unlink_tables(vrf);
  check_later(vrf, 0);
  marked_.erase(vrf);
  pass_.erase(vrf);
  if (!watched->second.is_configured()) watched_.erase(watched);
}

void Service::set_low(const std::string& vrf, std::size_t family, const Pair& low_and_hold) {
  WatchedVrf* watched = change(vrf);
  watched->set_low(family, low_and_hold);
  const auto stored = stored_.find(vrf);
  if (stored != stored_.end() && low_and_hold.first != 0)
    watched->restore(family, stored->second.tables[family]);
  end_change(vrf);
}

void Service::set_thresholds(const std::string& vrf, std::size_t family, const Pair& maximum_and_mid) {
  change(vrf)->set_thresholds(family, maximum_and_mid);
  end_change(vrf);
}

void Service::watch_prefix(const std::string& vrf, const router::Address& prefix, bool is_wanted) {
  is_wanted ? add_prefix(vrf, prefix) : remove_prefix(vrf, prefix);
  end_change(vrf);
  watch_waiting();
}

void Service::add_prefix(const std::string& vrf, const router::Address& prefix) {
  WatchedVrf* watched = change(vrf);
  if (watched->has_prefix(prefix)) return;
  if (prefixes_ < kMostPrefixes) {
    ++prefixes_;
    watched->add_prefix(prefix);
    const auto vrf_stored = stored_.find(vrf);
    if (vrf_stored == stored_.end()) return;
    const auto stored = vrf_stored->second.prefixes.find(router::format_address(prefix));
    if (stored != vrf_stored->second.prefixes.end()) watched->restore(prefix, stored->second);
    return;
  }
  waiting_[++last_place_] = {vrf, prefix};
  watched->add_waiting(prefix, last_place_);
  log_warning("route watch", "%s of the VRF %s is not watched: %zu prefixes are the limit",
              router::format_address(prefix).c_str(), vrf.c_str(), kMostPrefixes);
}

void Service::remove_prefix(const std::string& vrf, const router::Address& prefix) {
  WatchedVrf* watched = change(vrf);
  if (watched->remove_prefix(prefix)) {
    --prefixes_;
  } else {
    waiting_.erase(watched->remove_waiting(prefix));
  }
}

void Service::watch_waiting() {
  while (prefixes_ < kMostPrefixes && !waiting_.empty()) {
    const Waiting next = waiting_.extract(waiting_.begin()).mapped();
    WatchedVrf* watched = change(next.vrf);
    watched->remove_waiting(next.prefix);
    watched->add_prefix(next.prefix);
    ++prefixes_;
    log_notice("route watch", "%s of the VRF %s is watched now", router::format_address(next.prefix).c_str(),
               next.vrf.c_str());
    end_change(next.vrf);
  }
}

const WatchedVrf* Service::after(const std::string& vrf) const {
  const auto found = watched_.upper_bound(vrf);
  return found == watched_.end() ? nullptr : &found->second;
}

void Service::for_each(const std::function<void(const WatchedVrf&)>& visit) const {
  for (const auto& [name, watched] : watched_) visit(watched);
}

// --- The router

void Service::mark_changed(const std::string& vrf) {
  const auto watched = watched_.find(vrf);
  if (watched == watched_.end() || !watched->second.is_compared()) return;
  link_tables(vrf);
  mark(vrf);
}

void Service::link_tables(const std::string& vrf) {
  unlink_tables(vrf);
  const router::Vrf* record = model_->find_vrf(vrf);
  for (std::size_t family = 0; record != nullptr && family < kFamilies; ++family) {
    const router::RouteTableId table = table_of(*record, family);
    if (table.table == 0) continue;
    tables_of_vrf_[vrf].push_back(table);
    vrfs_of_table_[table].insert(vrf);
  }
}

void Service::unlink_tables(const std::string& vrf) {
  const auto tables = tables_of_vrf_.extract(vrf);
  if (!tables) return;
  for (const router::RouteTableId table : tables.mapped()) {
    const auto names = vrfs_of_table_.find(table);
    names->second.erase(vrf);
    if (names->second.empty()) vrfs_of_table_.erase(names);
  }
}

void Service::routes_changed(router::RouteTableId table) {
  const auto names = vrfs_of_table_.find(table);
  if (names == vrfs_of_table_.end()) return;
  for (const std::string& name : names->second) mark(name);
}

// --- Comparisons

void Service::mark(const std::string& vrf) {
  marked_.insert(vrf);
  check_at(checked_at_ + kCheckInterval);
}

void Service::check_at(std::uint64_t time) {
  if (timer_ != 0 && timer_at_ <= time) return;
  if (timer_ != 0) event_timer_cancel(manager_, timer_);
  const std::uint64_t now = clock_monotonic();
  timer_at_ = time;
  timer_ = event_timer_start(manager_, time > now ? time - now : 0, [this] {
    timer_ = 0;
    check();
  });
}

// At least one VRF in each step, however long each takes.
void Service::check() {
  const std::uint64_t now = clock_monotonic();
  if (pass_.empty() && now >= checked_at_ + kCheckInterval) pass_.swap(marked_);
  bool is_more = compare_next(now);
  while (is_more && clock_monotonic() < now + kStepTime) is_more = compare_next(now);
  if (is_more) return check_at(now);
  if (!marked_.empty()) check_at(checked_at_ + kCheckInterval);
  if (!due_order_.empty()) check_at(due_order_.begin()->first);
}

// False if there was none. A comparison takes the VRF out of the pass, and leaves no time that is over.
bool Service::compare_next(std::uint64_t now) {
  std::string vrf;
  if (!pass_.empty()) {
    vrf = pass_.extract(pass_.begin()).value();
    if (pass_.empty()) checked_at_ = now;
  } else if (!due_order_.empty() && due_order_.begin()->first <= now) {
    vrf = due_order_.begin()->second;
  } else {
    return false;
  }
  WatchedVrf& watched = watched_.at(vrf);
  check_later(vrf, watched.evaluate(*model_, has_read_));
  if (watched.take_changed() && file_ != nullptr) file_->write_soon();
  return true;
}

// 0: not without a change.
void Service::check_later(const std::string& vrf, std::uint64_t due) {
  if (const auto before = due_of_.extract(vrf)) due_order_.erase({before.mapped(), vrf});
  if (due == 0) return;
  due_of_[vrf] = due;
  due_order_.emplace(due, vrf);
}

void for_each_watched(const std::function<void(const WatchedVrf&)>& visit) {
  if (service() != nullptr) service()->for_each(visit);
}

const WatchedVrf* watched_after(const std::string& vrf) {
  return service() == nullptr ? nullptr : service()->after(vrf);
}

}  // namespace route_watch

void route_watch_store_in(const std::string& file) {
  route_watch::stored_file() = file;
}

void route_watch_ask(route_watch::HasRead has_read) {
  route_watch::asked() = std::move(has_read);
}

void route_watch_write_states() {
  if (route_watch::service() != nullptr) route_watch::service()->write_states();
}

Status route_watch_attach(router::Router* model, EventManager* manager) {
  auto& service = route_watch::service();
  if (service != nullptr) return kStatusExists;
  service = std::make_unique<route_watch::Service>(model, manager, route_watch::stored_file(),
                                                   route_watch::asked());
  const Status status = service->start();
  if (status != kStatusOk) service.reset();
  return status;
}

void route_watch_detach() {
  route_watch::service().reset();
}
