// Handlers of VRF configuration.
//
// A notification is a path and, for a set, a value. The path's arguments name the VRF. The handler looks up
// the VRF's record, or creates it for a set, and changes its attribute block. Texts in the block are heap
// copies (text_replace). Main thread; attribute blocks and the route-target database need no lock.
#include "mpls/vpn/mib/src/configuration/vrf_handlers.h"

#include <array>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/configuration/notify_args.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/address/address.h"
#include "platform/core/base/memory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/store/tree/tuple.h"

namespace {

void stamp_change(const VtabVrfRecord* record) {
  update_timestamp(record, &mpls_vpn_vrf_attributes(record)->conf_last_changed_time);
}

// Null for a set without a value, or with a value that is not a text.
const char* text_of(const KvNotifyInfo* info) {
  const bool is_text = info->value != nullptr && info->value->type == KvValueType::kText;
  return is_text ? info->value->text.c_str() : nullptr;
}

// Replaces the slot's text with a copy of `text`. Without memory: false, after a report, and an empty slot.
bool store_text(char** slot, const char* text, const char* handler) {
  text_replace(slot, text);
  if (text == nullptr || *slot != nullptr) return true;
  mpls_vpn_error(handler, "text_copy failed", kStatusNoMemory);
  return false;
}

// The VRF and the family of a path that has them.
struct FamilyArguments {
  const char* vrf_name;
  std::uint32_t afi;
  std::uint32_t safi;
};

bool take_family_arguments(const RequestArgs* args, const char* handler, FamilyArguments* family) {
  return mpls_vpn_mib_text_argument(args, 0, "vrf_name", handler, __LINE__, &family->vrf_name) &&
         mpls_vpn_mib_number_argument(args, 1, handler, __LINE__, &family->afi) &&
         mpls_vpn_mib_number_argument(args, 2, handler, __LINE__, &family->safi);
}

// The record that a notification changes: for a set one is created if there is none, a deletion takes an
// existing one. Null for another event, and without a record.
const VtabVrfRecord* changed_record(const KvNotifyInfo* info, const char* vrf_name) {
  if (mpls_vpn_mib_is_set(info)) return get_vrf_record(vrf_name);
  return mpls_vpn_mib_is_deleted(info) ? vtab_get_vrf_record_by_vrf_name(vrf_name) : nullptr;
}

// --- Route targets

constexpr std::uint32_t kRtTextSize = 50;

struct RouteTarget {
  const char* vrf_name;
  std::int32_t type;
  std::array<char, kRtTextSize> value;
  std::uint32_t afi;
  std::uint32_t safi;
};

bool extract_target(const RequestArgs* args, RouteTarget* target) {
  const Status rc = bgp_vpn_extract_rt(args, kRtTextSize, target->value.data(), &target->afi, &target->safi);
  return mpls_vpn_checked("rt_notify", "Cannot extract RT", rc) == kStatusOk;
}

// The database reports a failure; an entry that exists already, as after a replay, is harmless.
void insert_target(const RouteTarget& target) {
  const RtNode* node = mpls_vpn_mib_create_rt_wavl_node(target.vrf_name, target.type, target.value.data(),
                                                        target.afi, target.safi);
  if (node == nullptr) mpls_vpn_report(VTAB, kTraceVtab, "Could not insert RT in the WAVL tree");
}

void delete_target(const RouteTarget& target) {
  const int deleted = mpls_vpn_mib_delete_rt_wavl_node(target.vrf_name, target.type, target.value.data(),
                                                       target.afi, target.safi);
  if (deleted == 0) mpls_vpn_report(VTAB, kTraceVtab, "Could not delete RT from the WAVL tree");
}

// --- Route policies

constexpr const char* kDirections[] = {"Import", "Export"};

// Null for a family or a direction that has no policy.
char** policy_slot(const VtabVrfRecord* record, std::uint32_t direction, std::uint32_t afi) {
  if (direction >= std::size(kDirections) || (afi != inet::kIpv4Afi && afi != inet::kIpv6Afi)) return nullptr;
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  char** const slots = direction == 0 ? attributes->import_route_policy : attributes->export_route_policy;
  return &slots[afi == inet::kIpv4Afi ? 0 : 1];
}

void trace_policy(const FamilyArguments& family, std::uint32_t direction) {
  mpls_vpn_trace(kTraceVtab, kStatusOk, "%s route policy of VRF %s, AFI %u, SAFI %u", kDirections[direction],
                 family.vrf_name, family.afi, family.safi);
}

void set_policy(const KvNotifyInfo* info, const FamilyArguments& family, std::uint32_t direction) {
  const VtabVrfRecord* record = get_vrf_record(family.vrf_name);
  char** slot = record == nullptr ? nullptr : policy_slot(record, direction, family.afi);
  if (slot == nullptr) return;
  const char* policy = text_of(info);
  if (!store_text(slot, policy, "mpls_vpn_mib_route_policy_notify") || policy == nullptr) return;
  mpls_vpn_debug(VTAB, "%s route policy %s configured for VRF %s, AFI = %u, SAFI = %u",
                 kDirections[direction], policy, family.vrf_name, family.afi, family.safi);
  trace_policy(family, direction);
}

void remove_policy(const FamilyArguments& family, std::uint32_t direction) {
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(family.vrf_name);
  char** slot = record == nullptr ? nullptr : policy_slot(record, direction, family.afi);
  if (slot == nullptr) return;
  mpls_vpn_debug(VTAB, "%s route policy %s removed from VRF %s, AFI = %u, SAFI = %u", kDirections[direction],
                 mpls_vpn_shown(*slot), family.vrf_name, family.afi, family.safi);
  trace_policy(family, direction);
  text_replace(slot, nullptr);
}

// --- Route thresholds

struct Thresholds {
  std::uint32_t high;
  std::uint32_t mid;
};

bool is_unicast(const FamilyArguments& family) {
  return (family.afi == inet::kIpv4Afi || family.afi == inet::kIpv6Afi) && family.safi == inet::kUnicastSafi;
}

// The default thresholds (none) for a tuple that does not unpack.
Thresholds thresholds_of(const KvNotifyInfo* info, const char* handler) {
  Thresholds thresholds{};
  const Status rc = tuple_unpack(info->value, "%d%d", {&thresholds.high, &thresholds.mid});
  if (rc != kStatusOk) mpls_vpn_report_failure(ERR, rc, "Error in %s:Could not unpack tuple", handler);
  return thresholds;
}

void store_thresholds(const VtabVrfRecord* record, const Thresholds& thresholds) {
  if (record == nullptr) return;
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  attributes->high_thresh = thresholds.high;
  attributes->mid_thresh = thresholds.mid;
  stamp_change(record);
}

}  // namespace

void rt_notify(const KvNotifyInfo* info, const RequestArgs* args, std::int32_t type) {
  RouteTarget target{};
  target.type = type;
  if (!mpls_vpn_mib_text_argument(args, 0, "vrf_name", __func__, __LINE__, &target.vrf_name)) return;
  mpls_vpn_report(VTAB, kTraceVtab, "notify for RT change on VRF %s, event %d", target.vrf_name,
                  static_cast<int>(info->whichevent));
  if (!extract_target(args, &target)) return;
  if (mpls_vpn_mib_is_set(info)) {
    insert_target(target);
  } else if (mpls_vpn_mib_is_deleted(info)) {
    delete_target(target);
  }
  const VtabVrfRecord* record = changed_record(info, target.vrf_name);
  if (record != nullptr) stamp_change(record);
}

void mpls_vpn_mib_import_rt_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  rt_notify(info, args, kRtImport);
}

void mpls_vpn_mib_export_rt_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  rt_notify(info, args, kRtExport);
}

void mpls_vpn_mib_rd_notify(std::uint32_t set, const char* vrf_name, const char* rd) {
  mpls_vpn_debug(
      VTAB, set != 0 ? "notify for RD set on vrf %s, RD = %s" : "notify for RD deletion on vrf %s, RD = %s",
      mpls_vpn_shown(vrf_name), mpls_vpn_shown(rd));
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  if (record == nullptr) return;
  static_cast<void>(store_text(&mpls_vpn_vrf_attributes(record)->rd, rd, __func__));
  stamp_change(record);
}

void mpls_vpn_mib_route_policy_notify(const KvNotifyInfo* info, const RequestArgs* args,
                                      std::uint32_t direction) {
  FamilyArguments family{};
  if (!take_family_arguments(args, __func__, &family)) return;
  if (mpls_vpn_mib_is_set(info)) {
    set_policy(info, family, direction);
  } else if (mpls_vpn_mib_is_deleted(info)) {
    remove_policy(family, direction);
  }
}

void mpls_vpn_mib_import_policy_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  mpls_vpn_mib_route_policy_notify(info, args, 0);
}

void mpls_vpn_mib_export_policy_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  mpls_vpn_mib_route_policy_notify(info, args, 1);
}

void mpls_vpn_mib_vrf_descr_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  const char* vrf_name = nullptr;
  if (!mpls_vpn_mib_text_argument(args, 0, "vrf_name", __func__, __LINE__, &vrf_name)) return;
  mpls_vpn_report(VTAB, kTraceVtab, "notify for description change on VRF %s", vrf_name);
  const VtabVrfRecord* record = changed_record(info, vrf_name);
  if (record == nullptr) return;
  const char* description = mpls_vpn_mib_is_set(info) ? text_of(info) : nullptr;
  static_cast<void>(store_text(&mpls_vpn_vrf_attributes(record)->description, description, __func__));
  stamp_change(record);
}

void mpls_vpn_mib_thresh_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  mpls_vpn_debug(VTAB, "Entering %s", __func__);
  FamilyArguments family{};
  if (!take_family_arguments(args, __func__, &family) || !is_unicast(family)) return;
  if (mpls_vpn_mib_is_set(info)) {
    const Thresholds thresholds = thresholds_of(info, __func__);
    mpls_vpn_report(VTAB, kTraceVtab,
                    "notify for threshold change on VRF %s, high_tresh = %u, mid_thresh = %u ",
                    family.vrf_name, thresholds.high, thresholds.mid);
    store_thresholds(get_vrf_record(family.vrf_name), thresholds);
  } else if (mpls_vpn_mib_is_deleted(info)) {
    store_thresholds(vtab_get_vrf_record_by_vrf_name(family.vrf_name), {0, 0});
  }
}
