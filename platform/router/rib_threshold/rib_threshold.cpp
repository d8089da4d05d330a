// The watches of all VRFs: fed by the configuration, evaluated when routes or VRFs change.
//
// Watches are indexed by VRF name, because thresholds may be configured before the VRF exists. A changed
// table is found by its number, which maps to the VRFs that have it. Attaching makes the only instance; the
// handlers of the data store have no argument and find it in service().
#include "platform/router/rib_threshold/rib_threshold.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/router/rib_threshold/watches.h"
#include "platform/store/server/followed_nodes.h"
#include "platform/store/tree/kvtree.h"
#include "platform/store/tree/tuple.h"

namespace {

using rib_threshold::kFamilies;
using rib_threshold::TableNow;
using rib_threshold::Thresholds;
using rib_threshold::VrfWatch;

constexpr std::uint32_t router::Vrf::*kTableOf[kFamilies] = {&router::Vrf::ipv4_table,
                                                             &router::Vrf::ipv6_table};
constexpr router::Family kFamilyOf[kFamilies] = {router::Family::kIpv4, router::Family::kIpv6};

class Service : public router::Observer {
 public:
  explicit Service(router::Router* model);
  ~Service() override;
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  Status subscribe(EventManager* manager);
  void configure(const std::string& vrf, std::size_t family, const Thresholds& thresholds);

  void vrf_changing(const std::string& name, const router::Vrf* next) override;
  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  void vrf_deleted(const router::Vrf& vrf) override;
  void vrf_unreferenced(const std::string& name) override { drop_if_unused(name); }
  void routes_changed(router::RouteTableId table) override { evaluate_owner(table.table); }

 private:
  using Names = std::set<std::string, router::ShorterFirst>;

  void add_tables(const router::Vrf& vrf);
  void remove_tables(const router::Vrf& vrf);
  bool owns(std::uint32_t table, const std::string& vrf) const;
  const std::string* owner_after(std::uint32_t table, const std::string& changing,
                                 const router::Vrf* next) const;
  bool keeps_a_table(const std::string& vrf, const std::string& changing, const router::Vrf* next) const;
  void evaluate(const std::string& vrf);
  void evaluate_sharing(const router::Vrf& vrf);
  void evaluate_owner(std::uint32_t table);
  void drop_if_unused(const std::string& vrf);

  router::Router* model_;
  FollowedNodes configuration_;
  std::map<std::string, VrfWatch, router::ShorterFirst> watches_;
  std::map<std::uint32_t, Names> vrfs_of_table_;
};

std::unique_ptr<Service>& service() {
  static std::unique_ptr<Service> the_service;
  return the_service;
}

Service::Service(router::Router* model) : model_(model) {
  model_->for_each_vrf([this](const router::Vrf& vrf) { add_tables(vrf); });
  model_->observe(router::ObserverRank::kOther, this);
}

Service::~Service() {
  model_->stop_observing(this);
  for (auto& [name, watch] : watches_) watch.forget_tables();
}

// --- The configuration

// The thresholds of a set; none for a deletion and for a value that is not a pair.
Thresholds thresholds_of(const KvNotifyInfo& info) {
  Thresholds thresholds;
  if ((info.whichevent & (kKvEventCreated | kKvEventSet)) == 0) return thresholds;
  const Status status = tuple_unpack(info.value, "%d%d", {&thresholds.maximum, &thresholds.mid});
  if (status == kStatusOk) return thresholds;
  log_warning("route thresholds", "a limit that is not a pair of numbers: %s", err_text(status));
  return {};
}

void notify_limit(const KvNotifyInfo* info, const RequestArgs* args) {
  if (kvtree_absent(args, 0) || kvtree_absent(args, 1) || kvtree_absent(args, 2)) return;
  const std::string vrf = args->arg[0].text;
  const std::uint32_t family = *args->arg[1].number;
  if (vrf == router::kDefaultVrf || family < 1 || family > kFamilies ||
      *args->arg[2].number != inet::kUnicastSafi) {
    return;
  }
  service()->configure(vrf, family - 1, thresholds_of(*info));
}

constexpr KvPathRow kLimits[] = {
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_e/rib/table-prefix-limit",
     {0, notify_limit, nullptr, nullptr, nullptr}},
};
constexpr KvPathTable kLimitTable{kLimits, std::size(kLimits)};

void take_configuration(const KvNotification* notification) {
  kvtree_match_notify(notification, &kLimitTable);
}

Status Service::subscribe(EventManager* manager) {
  return configuration_.follow(vrf_config::kVrfScope, manager, take_configuration);
}

void Service::configure(const std::string& vrf, std::size_t family, const Thresholds& thresholds) {
  const auto watch = watches_.try_emplace(vrf, vrf).first;
  watch->second.configure(family, thresholds);
  evaluate(vrf);
  drop_if_unused(vrf);
}

// --- The router

void Service::add_tables(const router::Vrf& vrf) {
  for (const auto table : kTableOf) {
    if (vrf.*table != 0) vrfs_of_table_[vrf.*table].insert(vrf.name);
  }
}

void Service::remove_tables(const router::Vrf& vrf) {
  for (const auto table : kTableOf) {
    const auto found = vrfs_of_table_.find(vrf.*table);
    if (found == vrfs_of_table_.end()) continue;
    found->second.erase(vrf.name);
    if (found->second.empty()) vrfs_of_table_.erase(found);
  }
}

// Subscribers find the VRF of an event by the number of its table. So all queued events, and the clearing of
// VRFs that lose their last own table, are delivered before the change.
void Service::vrf_changing(const std::string& name, const router::Vrf* next) {
  Names concerned{name};
  for (const auto table : kTableOf) {
    const auto found = next == nullptr ? vrfs_of_table_.end() : vrfs_of_table_.find(next->*table);
    if (found != vrfs_of_table_.end()) concerned.insert(*found->second.begin());
  }
  for (const std::string& vrf : concerned) {
    const auto watch = watches_.find(vrf);
    if (watch != watches_.end() && !keeps_a_table(vrf, name, next)) watch->second.clear_before_loss();
  }
  kvtree_deliver(rib_threshold::kEventPath);
}

const std::string* Service::owner_after(std::uint32_t table, const std::string& changing,
                                        const router::Vrf* next) const {
  const std::string* owner = nullptr;
  if (const auto found = vrfs_of_table_.find(table); found != vrfs_of_table_.end()) {
    const Names& names = found->second;
    const auto other =
        std::find_if(names.begin(), names.end(), [&](const auto& each) { return each != changing; });
    if (other != names.end()) owner = &*other;
  }
  const bool takes = next != nullptr && (next->ipv4_table == table || next->ipv6_table == table);
  if (takes && (owner == nullptr || router::ShorterFirst()(changing, *owner))) owner = &changing;
  return owner;
}

bool Service::keeps_a_table(const std::string& vrf, const std::string& changing,
                            const router::Vrf* next) const {
  const router::Vrf* after = vrf == changing ? next : model_->find_vrf(vrf);
  if (after == nullptr) return false;
  return std::any_of(std::begin(kTableOf), std::end(kTableOf), [&](const auto table) {
    const std::string* owner = after->*table == 0 ? nullptr : owner_after(after->*table, changing, next);
    return owner != nullptr && *owner == vrf;
  });
}

void Service::vrf_created(const router::Vrf& vrf) {
  add_tables(vrf);
  evaluate_sharing(vrf);
}

void Service::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  remove_tables(before);
  add_tables(now);
  evaluate_sharing(before);
  evaluate_sharing(now);
}

void Service::vrf_deleted(const router::Vrf& vrf) {
  remove_tables(vrf);
  evaluate_sharing(vrf);
  drop_if_unused(vrf.name);
}

// The VRF, and those that share a table with it: the table may now be watched for another VRF.
void Service::evaluate_sharing(const router::Vrf& vrf) {
  evaluate(vrf.name);
  for (const auto table : kTableOf) {
    const auto found = vrfs_of_table_.find(vrf.*table);
    if (found == vrfs_of_table_.end()) continue;
    for (const std::string& name : found->second) evaluate(name);
  }
}

void Service::evaluate_owner(std::uint32_t table) {
  const auto found = vrfs_of_table_.find(table);
  if (found != vrfs_of_table_.end()) evaluate(*found->second.begin());
}

bool Service::owns(std::uint32_t table, const std::string& vrf) const {
  const auto found = vrfs_of_table_.find(table);
  return found != vrfs_of_table_.end() && *found->second.begin() == vrf;
}

// --- Evaluation

void Service::evaluate(const std::string& vrf) {
  const auto watch = watches_.find(vrf);
  if (watch == watches_.end()) return;
  std::array<TableNow, kFamilies> now{};
  const router::Vrf* record = model_->find_vrf(vrf);
  for (std::size_t family = 0; family < kFamilies && record != nullptr; ++family) {
    const std::uint32_t table = record->*kTableOf[family];
    if (!owns(table, vrf)) continue;
    constexpr std::size_t kMost = std::numeric_limits<std::uint32_t>::max();
    const std::size_t routes = model_->routes().count({kFamilyOf[family], table});
    now[family] = {table, static_cast<std::uint32_t>(std::min(routes, kMost))};
  }
  watch->second.evaluate(now);
}

// While configuration names a deleted VRF its record remains, and with it a maximum that is reported as
// exceeded: the watch remains until the clearing is published.
void Service::drop_if_unused(const std::string& vrf) {
  const auto watch = watches_.find(vrf);
  if (watch == watches_.end() || watch->second.has_thresholds()) return;
  const bool has_record = model_->find_vrf(vrf) != nullptr || model_->is_referenced(vrf);
  if (watch->second.has_pending_clearing() && has_record) return;
  watch->second.forget_tables();
  watches_.erase(watch);
}

}  // namespace

Status rib_threshold_attach(router::Router* model, EventManager* manager) {
  if (const Status status = fault_check("rib_threshold_attach")) return status;
  if (model == nullptr || manager == nullptr) return kStatusInvalid;
  if (service() != nullptr) return kStatusExists;
  service() = std::make_unique<Service>(model);
  const Status status = service()->subscribe(manager);
  if (status != kStatusOk) service().reset();
  return status;
}

void rib_threshold_detach() {
  service().reset();
}
