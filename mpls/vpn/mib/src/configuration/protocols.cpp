// Counts of configured routing protocols.
//
// The handlers differ in the positions of the names in their path and in what they count, so they are rows of
// a table. Interface counts change under the database mutex, since the membership callbacks change the
// interface database; VRF counts belong to the main thread.
//
// Counts are not saved: an interface that leaves its VRF and returns has 0 again, until
// platform/router/config_references has replayed its items. The replay deletes each item before it creates
// it, so the deletion may find a count of 0, which is reported and changes nothing.
#include "mpls/vpn/mib/src/configuration/protocols.h"

#include <limits>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/configuration/notify_args.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/model/default_vrf.h"

namespace {

// True for what is to be counted at all.
bool is_counted(const char* vrf_name, std::uint32_t protocol) {
  if (vrf_name == router::kDefaultVrf) return false;
  if (protocol < kMplsVpnProtocols) return true;
  mpls_vpn_report_failure(ERR, kStatusInvalid, "Invalid protocol %u", protocol);
  return false;
}

// False at the end of the range, with nothing changed.
bool count(std::uint32_t* counter, std::uint32_t is_delete) {
  const std::uint32_t end = is_delete != 0 ? 0 : std::numeric_limits<std::uint32_t>::max();
  if (*counter == end) return false;
  *counter += is_delete != 0 ? UINT32_MAX : 1;  // modulo 2^32
  return true;
}

void count_on_interface(IfNode* node, std::uint32_t protocol, std::uint32_t is_delete)
    MPLS_REQUIRES(mpls_vpn_mutex) {
  std::uint32_t* counter = &node->protocol_count[protocol];
  const char* outcome = count(counter, is_delete) ? "now" : "already";
  mpls_vpn_debug(VTAB, "Protocol %u count for interface %s on VRF %sis %s %u", protocol, node->if_name,
                 node->vrf_name, outcome, *counter);
  mpls_vpn_trace(kTraceVtab, kStatusOk, "VRF %s: interfaces' count of protocol %u is %s %u", node->vrf_name,
                 protocol, outcome, *counter);
}

std::uint32_t delete_flag(const KvNotifyInfo* info) {
  return info->whichevent & kKvEventDeleted;
}

int event_of(const KvNotifyInfo* info) {
  return static_cast<int>(info->whichevent);
}

// A protocol that is configured on interfaces.
struct InterfaceProtocol {
  const char* handler;
  const char* name;
  unsigned vrf_argument;
  unsigned if_argument;
  MplsVpnProtocol protocol;
};

constexpr InterfaceProtocol kRip = {"mpls_vpn_mib_rip_notify", "RIP", 0, 1, kProtocolRip};
constexpr InterfaceProtocol kOspf = {"mpls_vpn_mib_ospf_notify", "OSPF", 2, 5, kProtocolOspf};
constexpr InterfaceProtocol kEigrp = {"mpls_vpn_mib_eigrp_notify", "EIGRP", 1, 3, kProtocolOther};
constexpr InterfaceProtocol kStatic = {"mpls_vpn_mib_static_notify", "STATIC", 0, 7, kProtocolStatic};

bool take_vrf(const InterfaceProtocol& what, const RequestArgs* args, const char** vrf_name) {
  return mpls_vpn_mib_text_argument(args, what.vrf_argument, "vrf_name", what.handler, __LINE__, vrf_name);
}

bool take_interface(const InterfaceProtocol& what, const RequestArgs* args, const char** if_name) {
  return mpls_vpn_mib_text_argument(args, what.if_argument, "if_name", what.handler, __LINE__, if_name);
}

void report_notify(const InterfaceProtocol& what, const char* if_name, const char* vrf_name,
                   const KvNotifyInfo* info) {
  mpls_vpn_debug(PROV, "%s notify for interface %s on VRF %s, event %d", what.name, if_name, vrf_name,
                 event_of(info));
}

void notify_for_interface(const InterfaceProtocol& what, const KvNotifyInfo* info, const RequestArgs* args) {
  const char* vrf_name = nullptr;
  const char* if_name = nullptr;
  if (!take_vrf(what, args, &vrf_name) || !take_interface(what, args, &if_name)) return;
  report_notify(what, if_name, vrf_name, info);
  set_interface_protocol(if_name, vrf_name, what.protocol, delete_flag(info));
}

}  // namespace

void set_vrf_protocol(const char* vrf_name, std::uint32_t protocol, std::uint32_t is_delete) {
  if (!is_counted(vrf_name, protocol)) return;
  const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf_name);
  if (record == nullptr) return;
  std::uint32_t* counter = &mpls_vpn_vrf_attributes(record)->protocol_count[protocol];
  if (!count(counter, is_delete)) {
    mpls_vpn_debug(ERR, "Protocol %u count for VRF %s is already %u", protocol, vrf_name, *counter);
    return;
  }
  mpls_vpn_debug(VTAB, "Protocol %u count for VRF %s is now %u", protocol, vrf_name, *counter);
  mpls_vpn_trace(kTraceVtab, kStatusOk, "VRF %s: count of protocol %u is now %u", vrf_name, protocol,
                 *counter);
}

void set_interface_protocol(const char* if_name, const char* vrf_name, std::uint32_t protocol,
                            std::uint32_t is_delete) {
  if (!is_counted(vrf_name, protocol)) return;
  const MplsVpnLock lock(__func__, DBASE);
  if (!lock) return;
  IfNode* node = mpls_vpn_mib_get_if_by_vrf_and_name(vrf_name, if_name);
  if (node != nullptr) count_on_interface(node, protocol, is_delete);
}

void mpls_vpn_mib_bgp_nbr_af_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  static constexpr unsigned kVrfArgument = 4;
  const char* vrf_name = nullptr;
  if (!mpls_vpn_mib_text_argument(args, kVrfArgument, "vrf_name", __func__, __LINE__, &vrf_name)) return;
  mpls_vpn_debug(PROV, "BGP neighbor af notify for VRF %s, event %d", vrf_name, event_of(info));
  set_vrf_protocol(vrf_name, kProtocolBgp, delete_flag(info));
}

void mpls_vpn_mib_rip_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  notify_for_interface(kRip, info, args);
}

void mpls_vpn_mib_ospf_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  notify_for_interface(kOspf, info, args);
}

void mpls_vpn_mib_eigrp_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  notify_for_interface(kEigrp, info, args);
}

void mpls_vpn_mib_static_notify(const KvNotifyInfo* info, const RequestArgs* args) {
  if (!kvtree_absent(args, kStatic.if_argument)) return notify_for_interface(kStatic, info, args);
  const char* vrf_name = nullptr;
  if (!take_vrf(kStatic, args, &vrf_name)) return;
  report_notify(kStatic, "<any>", vrf_name, info);
  set_vrf_protocol(vrf_name, kStatic.protocol, delete_flag(info));
}
