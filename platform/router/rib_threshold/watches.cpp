// A crossing is recorded only after it was published, so an event that failed is retried at the next
// evaluation.
#include "platform/router/rib_threshold/watches.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/core/base/log.h"
#include "platform/router/rib_threshold/records.h"
#include "platform/store/tree/kvtree.h"

namespace rib_threshold {

namespace {

constexpr char kMidItem[] = "mid-thresh-exc";
constexpr char kMaximumItem[] = "max-thresh-exc";
constexpr std::array<const char*, kFamilies> kSuffixes = {".ipv4.unicast", ".ipv6.unicast"};

std::string node_path(const TableWatch& watch, const char* item) {
  return kEventPath + kvtree_encode_text(watch.name) + "/" + item;
}

Status encode(const ParcelDescription& description, const void* record, KvValue* value) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  if (const Status status = parcel_encode(&description, record, &data, &length)) return status;
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(data, &std::free);
  value->type = KvValueType::kRecord;
  value->record.assign(data, data + length);
  return kStatusOk;
}

bool publish(const TableWatch& watch, const char* item, const ParcelDescription& description,
             const void* record) {
  KvValue value;
  Status status = encode(description, record, &value);
  if (status == kStatusOk) status = kvtree_set(node_path(watch, item), std::move(value));
  if (status != kStatusOk) {
    log_error("route thresholds", "cannot publish %s of %s: %s", item, watch.name.c_str(), err_text(status));
  }
  return status == kStatusOk;
}

// A node that does not exist was never set.
void withdraw(const TableWatch& watch, const char* item) {
  const Status status = kvtree_delete(node_path(watch, item));
  if (status == kStatusOk || status == kStatusNoSuchRow) return;
  log_error("route thresholds", "cannot withdraw %s of %s: %s", item, watch.name.c_str(), err_text(status));
}

bool publish_maximum(const TableWatch& watch, const TableNow& now, bool cleared) {
  const MaximumThreshold record{cleared ? 1U : 0U, now.table, now.routes, watch.configured.maximum};
  return publish(watch, kMaximumItem, kMaximumThresholdParcel, &record);
}

void forget(TableWatch* watch) {
  if (watch->table == 0) return;
  withdraw(*watch, kMidItem);
  withdraw(*watch, kMaximumItem);
  watch->table = 0;
  watch->mid_exceeded = false;
  watch->maximum_exceeded = false;
}

void evaluate_mid(TableWatch* watch, const TableNow& now) {
  const std::uint32_t mid = watch->configured.mid;
  const bool above = mid != 0 && (watch->mid_exceeded ? now.routes >= mid : now.routes > mid);
  if (above == watch->mid_exceeded) return;
  if (above) {
    const MidThreshold record{now.table, now.routes, mid};
    watch->mid_exceeded = publish(*watch, kMidItem, kMidThresholdParcel, &record);
    return;
  }
  withdraw(*watch, kMidItem);
  watch->mid_exceeded = false;
}

// True when the state has changed. settle() reports the clearing.
bool evaluate_maximum(TableWatch* watch, const TableNow& now) {
  const bool above = watch->configured.maximum != 0 && now.routes >= watch->configured.maximum;
  if (above == watch->maximum_exceeded) return false;
  if (!above) withdraw(*watch, kMaximumItem);  // it is no longer true
  watch->maximum_exceeded = above && publish_maximum(*watch, now, false);
  return watch->maximum_exceeded == above;
}

}  // namespace

VrfWatch::VrfWatch(const std::string& vrf) {
  for (std::size_t family = 0; family < kFamilies; ++family) tables_[family].name = vrf + kSuffixes[family];
}

void VrfWatch::evaluate(const std::array<TableNow, kFamilies>& now) {
  for (std::size_t family = 0; family < kFamilies; ++family) {
    TableWatch& watch = tables_[family];
    if (watch.table != now[family].table) forget(&watch);
    watch.table = now[family].table;
    if (watch.table == 0) continue;
    evaluate_mid(&watch, now[family]);
    if (!evaluate_maximum(&watch, now[family])) continue;
    crossed_last_ = family;
    reported_exceeded_ |= watch.maximum_exceeded;
  }
  settle(now);
}

void VrfWatch::settle(const std::array<TableNow, kFamilies>& now) {
  const auto at_maximum = [](const TableWatch& watch) { return watch.maximum_exceeded; };
  if (reported_exceeded_ && std::none_of(tables_.begin(), tables_.end(), at_maximum)) report_cleared(now);
}

void VrfWatch::clear_before_loss() {
  if (!reported_exceeded_) return;
  std::array<TableNow, kFamilies> emptied{};
  for (std::size_t family = 0; family < kFamilies; ++family) emptied[family].table = tables_[family].table;
  report_cleared(emptied);
}

// Published for the table that crossed last or, if the VRF no longer has it, for the VRF's other table;
// either number identifies the VRF. Without any table the clearing remains pending.
void VrfWatch::report_cleared(const std::array<TableNow, kFamilies>& now) {
  const std::size_t other = kFamilies - 1 - crossed_last_;
  const std::size_t reporting = now[crossed_last_].table != 0 ? crossed_last_ : other;
  if (now[reporting].table == 0) return;
  reported_exceeded_ = !publish_maximum(tables_[reporting], now[reporting], true);
}

void VrfWatch::forget_tables() {
  for (TableWatch& watch : tables_) forget(&watch);
}

bool VrfWatch::has_thresholds() const {
  return std::any_of(tables_.begin(), tables_.end(), [](const TableWatch& watch) {
    return watch.configured.maximum != 0 || watch.configured.mid != 0;
  });
}

}  // namespace rib_threshold
