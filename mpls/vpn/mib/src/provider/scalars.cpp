// The scalars, from the tally. While the prints of a walk over the VRF records and the interface database are
// switched on, the walk is made, and counts the same.
//
// configuredVrfs counts complete VRF records (no forward references, not "default") that are also in the VRF
// database. connectedInterfaces and activeVrfs are counted in one walk over the interface database, whose
// primary order groups the interfaces of a VRF, so that a VRF is counted once, for its first active
// interface. Nodes without an interface name are in the walk too: they are connected, but have no record and
// are not active.
//
// Main thread. The interface database is repaired first, once without the walk.
#include "mpls/vpn/mib/src/provider/scalars.h"

#include <cstring>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/interface/active.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/router/model/default_vrf.h"
#include "platform/router/vtab/vtab.h"

namespace {

bool is_configured(const VtabVrfRecord* record) {
  if (record->vrf_name == router::kDefaultVrf || record->vrf_id == 0) return false;
  return vrf_in_database(record->vrf_name) != nullptr;
}

std::uint32_t count_configured_vrfs() {
  std::uint32_t count = 0;
  for (const VtabVrfRecord* record = vtab_get_first_vrf_record(); record != nullptr;
       record = vtab_get_next_vrf_record(record)) {
    if (is_configured(record)) ++count;
  }
  return count;
}

// The interface's record, or null; prints which.
const VtabIfRecord* find_if_record(const IfNode* node) {
  const VtabIfRecord* record = node->if_name == nullptr ? nullptr : vtab_get_if_record(node->if_name);
  const char* name = node->if_name == nullptr ? "(null)" : node->if_name;
  if (record == nullptr) {
    mpls_vpn_debug(DBASE, "VTAB does not have record for interface %s in VRF %s", name, node->vrf_name);
  } else {
    mpls_vpn_debug(DBASE, "VTAB have record for interface %s in VRF %s", name, node->vrf_name);
  }
  return record;
}

void count_interfaces(mpls_vpn_mib_scalars* scalars) {
  const char* current_vrf = "";
  bool counted = false;
  for (const IfNode* node = mpls_vpn_mib_if_dbase_first(); node != nullptr;
       node = mpls_vpn_mib_if_dbase_next(node)) {
    if (!vrf_exists(node->vrf_name)) continue;
    ++scalars->connectedInterfaces;
    if (std::strcmp(node->vrf_name, current_vrf) != 0) {
      current_vrf = node->vrf_name;
      counted = false;
    }
    const VtabIfRecord* record = find_if_record(node);
    if (record == nullptr || !interface_is_active(record) || counted) continue;
    ++scalars->activeVrfs;
    counted = true;
  }
}

void count_in_walk(mpls_vpn_mib_scalars* scalars) {
  scalars->configuredVrfs = count_configured_vrfs();
  (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are counted too
  count_interfaces(scalars);
}

void read_tally(mpls_vpn_mib_scalars* scalars) {
  (void)mpls_vpn_mib_clean_if_dbase();
  const MplsVpnTotals totals = mpls_vpn_tally_totals();
  scalars->configuredVrfs = totals.configured_vrfs;
  scalars->activeVrfs = totals.active_vrfs;
  scalars->connectedInterfaces = totals.connected_interfaces;
}

bool is_walk_printed() {
  return debug_enabled(mpls_vpn_debug_flags[PROV]) || debug_enabled(mpls_vpn_debug_flags[DBASE]);
}

void fill_scalars_parcel(mpls_vpn_mib_scalars* scalars) {
  mpls_vpn_debug(PROV, "Entering function %s", "fill_scalars_parcel");
  *scalars = {};
  if (is_walk_printed()) {
    count_in_walk(scalars);
  } else {
    read_tally(scalars);
  }
  scalars->notificationEnable = static_cast<std::int32_t>(mpls_vpn_mib_trap_info[kTrapAll].enabled);
  scalars->maxThresholdNotifTime = notif_reissue_time;
}

}  // namespace

Status mpls_vpn_mib_prov_get_scalars(KvReply* reply, const RequestArgs* /*args*/) {
  mpls_vpn_debug(PROV, "Entering function %s", "mpls_vpn_mib_prov_get_scalars");
  mpls_vpn_mib_scalars scalars;
  fill_scalars_parcel(&scalars);
  return prov_encode_parcel(reply, &scalars, &kMibScalarsParcel);
}
