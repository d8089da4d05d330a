// Encodes a notification like every answer and sends it on the provider's connection. The data store delivers
// it to the subscribed clients and retains it for the SNMP sub-agent until the sub-agent has acknowledged it.
//
// The record's copy of the VRF name and the encoded buffer live until the notification is sent. Sending does
// not block.
#include "mpls/vpn/mib/src/traps/notification.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/provider/connection.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/base/memory.h"
#include "platform/core/parcel/parcel.h"

namespace {

constexpr char kGenerate[] = "generate_trap_notification";
constexpr std::uint32_t kNotificationClass = 2;

void notify_watchers(const mpls_vpn_mib_trap& trap, const std::uint8_t* data, std::size_t length) {
  if (prov_kvtree_conn_h == nullptr) {
    mpls_vpn_debug(PROV, "prov_kvtree_conn_h is NULL");
    return;
  }
  const KvProviderNotification notification = {"trap_msg", kNotificationClass, kKvKindRecord, {}, data,
                                               length};
  const Status rc = kvtree_prov_notify(prov_kvtree_conn_h, &notification);
  if (mpls_vpn_checked(kGenerate, "Could not generate PROV notification", rc) != kStatusOk) return;
  mpls_vpn_debug(PROV, "Generate MPLS VPN MIB trap notification. trap type = %d, vrf = %s",
                 static_cast<int>(trap.trapType), mpls_vpn_shown(trap.vrfName));
}

}  // namespace

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
  if (mpls_vpn_checked(kGenerate, "parcel_encode failed", rc) == kStatusOk) {
    notify_watchers(trap, data, length);
  }
  prov_release_parcel(&trap, &kMibTrapParcel, kGenerate);
  std::free(data);
}
