#include "platform/router/vpn_events/vpn_events.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/vpn_events/changes.h"
#include "platform/store/tree/kvtree.h"

namespace vpn_events {

namespace {

constexpr std::uint64_t kStep = kNanosecondsPerMillisecond;

class Reporter : public router::Observer {
 public:
  Reporter(router::Router* model, EventManager* manager) : model_(model), manager_(manager) {}
  ~Reporter() override;
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;
  Status start();

  void vrf_created(const router::Vrf& vrf) override { take_model(vrf.name, {}, vrf.rd); }
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override {
    if (before.rd != now.rd) take_model(now.name, before.rd, now.rd);
  }
  void vrf_deleted(const router::Vrf& vrf) override {
    counts_.erase(vrf.name);
    take_model(vrf.name, vrf.rd, {});
  }
  VpnChangeCounts counts(std::string_view vrf) const {
    const auto found = counts_.find(vrf);
    return found == counts_.end() ? VpnChangeCounts() : found->second;
  }

 private:
  void take_commit(const std::vector<KvConfigCommitChange>& commit);
  void take_model(const std::string& vrf, const std::string& before, const std::string& now);
  Held held_by_model(const std::string& rd) const { return {rd, model_->rd_owner()}; }
  using Place = std::tuple<std::string, Item, std::uint32_t, std::string>;
  static Place place_of(const Change& change, const Held& held);
  bool merge(const Change& change);
  void keep(Change change);
  void begin_sending();
  void send_some();
  void send_record();
  void count(const Change& change);
  Status send(std::vector<Change>& changes);

  router::Router* model_;
  EventManager* manager_;
  KvConnection* connection_ = nullptr;
  std::shared_ptr<const void> observed_;
  std::deque<Change> pending_;
  std::map<Place, std::size_t> removed_;  // those that removed a value
  std::deque<Change> sending_;
  std::map<std::string, VpnChangeCounts, router::ShorterFirst> counts_;  // of VRFs of the model
  bool is_posted_ = false;
  std::uint32_t sent_ = 0;
};

std::unique_ptr<Reporter>& reporter() {
  static auto* const instance = new std::unique_ptr<Reporter>;
  return *instance;
}

Reporter::~Reporter() {
  model_->stop_observing(this);
  if (connection_ == nullptr) return;
  const Status deleted = kvtree_delete(kRdOwnerPath);
  if (deleted && deleted != kStatusNoSuchRow)  // start() fails before it publishes the owner
    log_error("vpn_events", "%s is still published: %s", kRdOwnerPath, err_text(deleted));
  if (const Status status = kvtree_unbind(connection_))
    log_error("vpn_events", "%s is still provided: %s", kProviderPath, err_text(status));
}

Status Reporter::start() {
  if (const Status status = kvtree_bind(&connection_, kProviderPath, kKvBindProvider)) return status;
  if (const Status status = kvtree_set(kRdOwnerPath, {KvValueType::kText, model_->rd_owner(), 0, {}, {}}))
    return status;
  model_->observe(router::ObserverRank::kOther, this);
  const std::string vrfs = std::string(vrf_config::kVrfScope) + "vrf/";  // the changes of a VRF in one call
  observed_ = kvtree_config_observe(vrfs, [this](const auto& commit) { take_commit(commit); });
  return kStatusOk;
}

void Reporter::take_commit(const std::vector<KvConfigCommitChange>& commit) {
  const auto model_rd = [this](const std::string& name) {
    const router::Vrf* vrf = model_->find_vrf(name);
    return vrf == nullptr ? Held() : held_by_model(vrf->rd);
  };
  for (Change& change : changes_of_commit(commit, model_rd)) keep(std::move(change));
}

void Reporter::take_model(const std::string& vrf, const std::string& before, const std::string& now) {
  if (before == now) return;
  for (Change& change : changes_of_model(vrf, held_by_model(before), held_by_model(now)))
    keep(std::move(change));
}

// A VRF has one RD, so any new value replaces a removed one; a removed route target is replaced by itself
// only.
Reporter::Place Reporter::place_of(const Change& change, const Held& held) {
  const bool is_rd = change.item == Item::kRouteDistinguisher;
  return {change.vrf, change.item, change.family, is_rd ? std::string() : held.text};
}

// Merges the change into a pending removal of the value. False when it is a change of its own.
bool Reporter::merge(const Change& change) {
  if (!change.before.text.empty()) return false;
  const auto found = removed_.find(place_of(change, change.after));
  if (found == removed_.end()) return false;
  pending_[found->second].after = change.after;
  removed_.erase(found);
  return true;
}

void Reporter::keep(Change change) {
  if (merge(change)) return;
  if (change.after.text.empty()) removed_[place_of(change, change.before)] = pending_.size();
  pending_.push_back(std::move(change));
  if (std::exchange(is_posted_, true)) return;
  event_post(manager_, [] {
    if (reporter() != nullptr) reporter()->begin_sending();
  });
}

void Reporter::begin_sending() {
  is_posted_ = false;
  removed_.clear();
  sending_ = std::exchange(pending_, {});
  send_some();
}

// Posted functions wait for the end: the answer to a client's commit is one of them.
void Reporter::send_some() {
  const std::uint64_t end = clock_monotonic() + kStep;
  do {
    send_record();
  } while (!sending_.empty() && clock_monotonic() < end);
  if (sending_.empty()) return;
  event_post_first(manager_, [] {
    if (reporter() != nullptr) reporter()->send_some();
  });
}

void Reporter::send_record() {
  std::vector<Change> record;
  for (; !sending_.empty() && record.size() < kMostVpnChanges; sending_.pop_front()) {
    Change& next = sending_.front();
    if (next.before.text == next.after.text) continue;
    count(next);
    record.push_back(std::move(next));
  }
  if (record.empty()) return;
  if (const Status status = send(record))
    log_error("vpn_events", "%zu changes are not reported: %s", record.size(), err_text(status));
  sent_ += static_cast<std::uint32_t>(record.size());
}

void Reporter::count(const Change& change) {
  if (model_->find_vrf(change.vrf) == nullptr) return;  // it would be counted for a later VRF of this name
  VpnChangeCounts& counts = counts_[change.vrf];
  switch (change.item) {
    case Item::kRouteDistinguisher:
      if (change.family == 0) ++counts.rd;
      break;
    case Item::kImportTarget:
      ++counts.import_targets;
      break;
    case Item::kExportTarget:
      ++counts.export_targets;
      break;
  }
}

// The record borrows the texts of the changes.
VpnChange encoded(Change& change) {
  for (Held* held : {&change.before, &change.after})
    held->text = bgp_util_format_rd(held->text, bgp_util_asn_format_get());
  return {change.vrf.data(),
          static_cast<std::uint32_t>(change.item),
          change.family,
          change.before.text.data(),
          change.before.owner.data(),
          change.after.text.data(),
          change.after.owner.data()};
}

Status Reporter::send(std::vector<Change>& changes) {
  std::vector<VpnChange> elements;
  for (Change& change : changes) elements.push_back(encoded(change));
  const VpnChanges record{sent_, {elements.size(), elements.data()}};
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  if (const Status status = parcel_encode(&kVpnChangesParcel, &record, &data, &length)) return status;
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(data, &std::free);
  const KvProviderNotification notification{kItemName, 0, kKvKindRecord, {}, data, length};
  return kvtree_prov_notify(connection_, &notification);
}

}  // namespace

}  // namespace vpn_events

Status vpn_events_attach(router::Router* model, EventManager* manager) {
  if (const Status status = fault_check("vpn_events_attach")) return status;
  if (model == nullptr || manager == nullptr) return kStatusInvalid;
  if (vpn_events::reporter() != nullptr) return kStatusExists;
  auto made = std::make_unique<vpn_events::Reporter>(model, manager);
  if (const Status status = made->start()) return status;
  vpn_events::reporter() = std::move(made);
  return kStatusOk;
}

VpnChangeCounts vpn_events_counts(std::string_view vrf) {
  const auto& reporter = vpn_events::reporter();
  return reporter == nullptr ? VpnChangeCounts() : reporter->counts(vrf);
}

void vpn_events_detach() {
  vpn_events::reporter().reset();
}
