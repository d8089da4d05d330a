// Threshold events of the routing table.
//
// An event is an encoded record with a routing table's id, which leads to the VRF. The VRF's attribute block
// stores the number of routes. While the maximum is exceeded, a flag in the block makes the re-issue timer
// raise the notification again (mplsL3VpnVrfConfRteMxThrshTime, RFC 4382). The first notification carries the
// event's threshold, the repeated ones the configured threshold.
//
// The routing table is authoritative: a clear event is applied even if the threshold was not exceeded before.
// Main thread; no lock.
#include "mpls/vpn/mib/src/configuration/threshold_events.h"

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "platform/core/parcel/parcel.h"
#include "platform/router/rib_threshold/records.h"

namespace {

// Decodes the item's record into *record. False, after a report, without a record of this description.
bool decode_item(const KvNotifyInfo* info, const ParcelDescription& description, const char* handler,
                 void* record) {
  const KvValue* item = info == nullptr ? nullptr : info->value;
  if (item == nullptr || item->type != KvValueType::kRecord) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "In function %s, the item received is NULL or  not a parcel",
                            handler);
    return false;
  }
  const Status rc = parcel_decode(&description, item->record.data(), item->record.size(), record);
  return mpls_vpn_checked(handler, "parcel_decode failed", rc) == kStatusOk;
}

void take_maximum_event(const VtabVrfRecord* record, const rib_threshold::MaximumThreshold& event) {
  mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  attributes->curr_num_routes = event.ext_curr_num_routes;
  attributes->high_thresh_exceeded = event.ext_clear == 0 ? 1 : 0;
  const auto raise =
      event.ext_clear == 0 ? mpls_vpn_mib_trap_high_thresh_exc : mpls_vpn_mib_trap_high_thresh_clr;
  raise(record->vrf_name, event.ext_conf_max_threshold, event.ext_curr_num_routes);
}

}  // namespace

void mpls_vpn_mib_mid_thresh_exceeded_notify(const KvNotifyInfo* info, const RequestArgs* /*args*/) {
  mpls_vpn_debug(PROV, "Entering %s", __func__);
  rib_threshold::MidThreshold event{};
  if (!decode_item(info, rib_threshold::kMidThresholdParcel, __func__, &event)) return;
  const VtabVrfRecord* record = vtab_get_vrf_record_by_table_id(event.ext_table_id);
  if (record == nullptr) return;
  mpls_vpn_vrf_attributes(record)->curr_num_routes = event.ext_curr_num_routes;
  mpls_vpn_mib_trap_mid_thresh_exc(record->vrf_name, event.ext_conf_mid_threshold, event.ext_curr_num_routes);
  prov_release_parcel(&event, &rib_threshold::kMidThresholdParcel, __func__);
}

void mpls_vpn_mib_high_thresh_exceeded_notify(const KvNotifyInfo* info, const RequestArgs* /*args*/) {
  rib_threshold::MaximumThreshold event{};
  if (!decode_item(info, rib_threshold::kMaximumThresholdParcel, __func__, &event)) return;
  const VtabVrfRecord* record = vtab_get_vrf_record_by_table_id(event.ext_table_id);
  if (record == nullptr) return;
  take_maximum_event(record, event);
  prov_release_parcel(&event, &rib_threshold::kMaximumThresholdParcel, __func__);
}
