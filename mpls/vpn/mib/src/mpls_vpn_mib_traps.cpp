// The switches of the notifications follow the configuration; a notification is a record on its way to the
// SNMP agent.
//
// The switches stand in the table of mpls_vpn_mib_trap_info.cpp, which is also the list of the items that are
// known here. A notification is encoded like every answer and told on the provider's connection, which sends
// it to the subscribed clients and keeps it for the SNMP sub-agent until that one has acknowledged it.
//
// Ownership: the record's copy of the VRF name and the encoded buffer live until the notification is sent.
// Main thread; nothing here waits.
#include "mpls/vpn/mib/src/mpls_vpn_mib_traps.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "mpls/vpn/mib/src/mpls_vpn_mib_prov.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_timer.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_trap_info.h"
#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"
#include "mpls/vpn/mib/src/mpls_vpn_report.h"
#include "platform/base/memory.h"
#include "platform/parcel/parcel.h"

namespace {

constexpr char kGenerate[] = "generate_trap_notification";
constexpr std::uint32_t kNotificationClass = 2;

bool is_deleted(const KvNotifyInfo* info) {
  return (info->whichevent & kKvEventDeleted) != 0;
}

// What is no number of 32 bits is no time.
std::int32_t number_of(const KvValue* value) {
  using Limits = std::numeric_limits<std::int32_t>;
  if (value == nullptr || value->type != KvValueType::kNumber) return 0;
  if (value->number < Limits::min() || value->number > Limits::max()) return 0;
  return static_cast<std::int32_t>(value->number);
}

void set_reissue_time(const KvNotifyInfo* info) {
  const std::int32_t seconds = is_deleted(info) ? 0 : number_of(info->value);
  if (seconds > 0) {
    notif_reissue_time = static_cast<std::uint32_t>(seconds);
    mpls_vpn_mib_timer_start(notif_reissue_time);
    return;
  }
  notif_reissue_time = 0;
  mpls_vpn_mib_timer_stop();
}

MplsVpnTrapInfo* find_switch(const char* item_name) {
  for (std::uint32_t row = kTrapVrfUp; row <= kTrapAll; ++row) {
    MplsVpnTrapInfo* info = &mpls_vpn_mib_trap_info[row];
    if (std::strcmp(info->item_name, item_name) == 0) return info;
  }
  return nullptr;
}

void set_switch(const char* item_name, bool on) {
  mpls_vpn_debug(TRAPS, on ? "Enabling trap %s" : "Disabling trap %s", item_name);
  MplsVpnTrapInfo* info = find_switch(item_name);
  if (info == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusNoSuchRow, "%s: item_name does not match any trap type",
                            "traps_notify");
    return;
  }
  info->enabled = on ? 1 : 0;
}

void tell_watchers(const mpls_vpn_mib_trap& trap, const std::uint8_t* data, std::size_t length) {
  if (prov_kvtree_conn_h == nullptr) {
    mpls_vpn_debug(PROV, "prov_kvtree_conn_h is NULL");
    return;
  }
  const KvProviderNotification notification = {"trap_msg", kNotificationClass, kKvKindRecord, {}, data,
                                               length};
  const Status rc = kvtree_prov_notify(prov_kvtree_conn_h, &notification);
  if (rc != kStatusOk) {
    mpls_vpn_error(kGenerate, "Could not generate PROV notification", rc);
    return;
  }
  mpls_vpn_debug(PROV, "Generate MPLS VPN MIB trap notification. trap type = %d, vrf = %s",
                 static_cast<int>(trap.trapType), mpls_vpn_shown(trap.vrfName));
}

void release(mpls_vpn_mib_trap* trap) {
  const Status rc = parcel_free_indirections(&kMibTrapParcel, trap);
  if (rc != kStatusOk) mpls_vpn_error(kGenerate, "parcel_free_indirections", rc);
}

}  // namespace

void traps_notify(const KvNotifyInfo* info) {
  mpls_vpn_debug(TRAPS, "Entering %s. info->item_name = %s, info->whichevent = %u", "traps_notify",
                 info->item_name, info->whichevent);
  if (std::strcmp(info->item_name, mpls_vpn_mib_trap_info[kTrapNotifReissueTime].item_name) == 0) {
    set_reissue_time(info);
  } else {
    set_switch(info->item_name, !is_deleted(info));
  }
}

void generate_trap_notification(std::uint32_t trap_type, const char* vrf_name, std::uint32_t if_conf_index,
                                std::int32_t vrf_oper_status, std::int32_t if_conf_row_status,
                                std::uint32_t mid_thresh, std::uint32_t high_thresh,
                                std::uint32_t curr_num_routes, std::uint32_t illegal_label_violations) {
  mpls_vpn_debug(TRAPS, "Entering function %s", kGenerate);
  mpls_vpn_mib_trap trap = {trap_type,       text_copy(vrf_name), static_cast<std::int32_t>(if_conf_index),
                            vrf_oper_status, if_conf_row_status,  mid_thresh,
                            high_thresh,     curr_num_routes,     illegal_label_violations};
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  const Status rc = parcel_encode(&kMibTrapParcel, &trap, &data, &length);
  if (rc != kStatusOk) {
    mpls_vpn_error(kGenerate, "parcel_encode failed", rc);
  } else {
    tell_watchers(trap, data, length);
  }
  release(&trap);
  std::free(data);
}
