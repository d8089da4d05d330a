// The scalars, from the tally. While the prints of a walk over the VRF records and the interface database are
// switched on and not dropped, the walk is made, and counts the same.
//
// configuredVrfs counts complete VRF records (no forward references, not "default") that are also in the VRF
// database. connectedInterfaces and activeVrfs are counted in one walk over the interface database, whose
// primary order groups the interfaces of a VRF, so that a VRF is counted once, for its first active
// interface. Nodes without an interface name are in the walk too: they are connected, but have no record and
// are not active.
//
// A walk in steps continues after the VRF or interface that it visited last. What changes meanwhile may be
// counted or not, so that the numbers of the answer are then those of the tally at its end.
//
// Main thread. The interface database is repaired first, once without the walk.
#include "mpls/vpn/mib/src/provider/scalars.h"

#include <string>
#include <utility>

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

// What is counted so far, and where the walk is.
struct CountingWalk {
  mpls_vpn_mib_scalars scalars{};
  bool has_counted_vrfs = false;
  std::string last_vrf;         // the VRF visited last, or that of the interface visited last
  std::uint32_t if_index = 0;   // of that interface; 0 before the first
  std::string vrf;              // of the interface counted last
  bool has_active_vrf = false;  // that VRF is counted as active
};

bool is_step_over(const KvSteps* steps) {
  return steps != nullptr && steps->is_over();
}

// False if the step was over before the last VRF.
bool count_configured_vrfs(CountingWalk* walk, const KvSteps* steps) {
  const VtabVrfRecord* record =
      walk->last_vrf.empty() ? vtab_get_first_vrf_record() : vrf_record_after(walk->last_vrf.c_str());
  for (; record != nullptr; record = vtab_get_next_vrf_record(record)) {
    if (is_configured(record)) ++walk->scalars.configuredVrfs;
    if (!is_step_over(steps)) continue;
    walk->last_vrf = record->vrf_name;
    return false;
  }
  walk->has_counted_vrfs = true;
  (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are counted too
  return true;
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

void count_interface(CountingWalk* walk, const IfNode* node) {
  ++walk->scalars.connectedInterfaces;
  if (node->vrf_name != walk->vrf) {
    walk->vrf = node->vrf_name;
    walk->has_active_vrf = false;
  }
  const VtabIfRecord* record = find_if_record(node);
  if (record == nullptr || !interface_is_active(record) || walk->has_active_vrf) return;
  ++walk->scalars.activeVrfs;
  walk->has_active_vrf = true;
}

// False if the step was over before the last interface.
bool count_interfaces(CountingWalk* walk, const KvSteps* steps) {
  const IfNode* node = walk->if_index == 0
                           ? mpls_vpn_mib_if_dbase_first()
                           : mpls_vpn_mib_if_dbase_after(walk->last_vrf.c_str(), walk->if_index);
  for (; node != nullptr; node = mpls_vpn_mib_if_dbase_next(node)) {
    if (vrf_exists(node->vrf_name)) count_interface(walk, node);
    if (!is_step_over(steps)) continue;
    walk->last_vrf = node->vrf_name;
    walk->if_index = node->if_index;
    return false;
  }
  return true;
}

// False if the step was over before the end.
bool count_in_walk(CountingWalk* walk, const KvSteps* steps) {
  if (!walk->has_counted_vrfs && !count_configured_vrfs(walk, steps)) return false;
  return count_interfaces(walk, steps);
}

void read_tally(mpls_vpn_mib_scalars* scalars) {
  (void)mpls_vpn_mib_clean_if_dbase();
  const MplsVpnTotals totals = mpls_vpn_tally_totals();
  scalars->configuredVrfs = totals.configured_vrfs;
  scalars->activeVrfs = totals.active_vrfs;
  scalars->connectedInterfaces = totals.connected_interfaces;
}

bool is_walk_printed() {
  const bool is_on = debug_enabled(mpls_vpn_debug_flags[PROV]) || debug_enabled(mpls_vpn_debug_flags[DBASE]);
  return is_on && !debug_prints_are_dropped();
}

// False, with the walk stored, if the step was over before its end.
bool begin_walk_of_scalars(mpls_vpn_mib_scalars* scalars, KvSteps* steps) {
  CountingWalk walk;
  if (!count_in_walk(&walk, steps)) {
    steps->state = std::move(walk);
    return false;
  }
  *scalars = walk.scalars;
  return true;
}

// False if the answer is continued in another step.
bool fill_scalars_parcel(mpls_vpn_mib_scalars* scalars, KvSteps* steps) {
  mpls_vpn_debug(PROV, "Entering function %s", "fill_scalars_parcel");
  if (is_walk_printed()) return begin_walk_of_scalars(scalars, steps);
  read_tally(scalars);
  return true;
}

bool continue_scalars_parcel(mpls_vpn_mib_scalars* scalars, CountingWalk* walk, const KvSteps* steps) {
  if (is_walk_printed() && !count_in_walk(walk, steps)) return false;
  read_tally(scalars);
  return true;
}

}  // namespace

Status mpls_vpn_mib_prov_get_scalars(KvReply* reply, const RequestArgs* /*args*/) {
  mpls_vpn_mib_scalars scalars{};
  bool is_filled = false;
  if (auto* walk = kvtree_resumed<CountingWalk>(reply)) {
    is_filled = continue_scalars_parcel(&scalars, walk, reply->steps);
  } else {
    mpls_vpn_debug(PROV, "Entering function %s", "mpls_vpn_mib_prov_get_scalars");
    is_filled = fill_scalars_parcel(&scalars, reply->steps);
  }
  if (!is_filled) return kStatusUnfinished;
  scalars.notificationEnable = static_cast<std::int32_t>(mpls_vpn_mib_trap_info[kTrapAll].enabled);
  scalars.maxThresholdNotifTime = notif_reissue_time;
  return prov_encode_parcel(reply, &scalars, &kMibScalarsParcel);
}
