// The tally has the counts. The VRF's nodes are walked only for what the walk prints or traces: while the
// area is on, for interfaces without a record, and for nodes without a name, which end a walk that begins at
// them. Membership is read from the interface database and the state of an interface from its record; the two
// can differ for a moment, while one has the interface and the other does not. If the caller holds the
// database mutex, the next look-up repairs a dirty database.
#include "mpls/vpn/mib/src/vrf/counters.h"

#include <cstring>

#include "mpls/vpn/mib/src/interface/active.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/tally/tally.h"
#include "platform/router/vtab/vtab.h"

namespace {

void report_skipped(const char* if_name) {
  mpls_vpn_report(DBASE, kTraceDbase, "fill_vrf_counters: skip(%s)", if_name);
}

bool is_skipped(const IfNode* node, const char* skip_if_name) {
  if (skip_if_name == nullptr || node->if_name == nullptr) return false;
  if (std::strcmp(node->if_name, skip_if_name) != 0) return false;
  report_skipped(node->if_name);
  return true;
}

bool is_active(const IfNode* node) {
  const char* name = mpls_vpn_shown(node->if_name);
  const VtabIfRecord* record = node->if_name == nullptr ? nullptr : vtab_get_if_record(node->if_name);
  if (record == nullptr) {
    mpls_vpn_report_failure(DBASE, kStatusNoSuchRow, "VTAB does not have record for interface %s in VRF %s",
                            name, node->vrf_name);
    return false;
  }
  mpls_vpn_debug(DBASE, "VTAB have record for interface %s in VRF %s", name, node->vrf_name);
  return interface_is_active(record);
}

void count_in_walk(const char* vrf_name, const char* skip_if_name, std::uint32_t* associated,
                   std::uint32_t* active) {
  for (const IfNode* node = mpls_vpn_mib_get_first_if_of_vrf(vrf_name); node != nullptr;
       node = mpls_vpn_mib_get_next_if_of_vrf(node, vrf_name)) {
    if (is_skipped(node, skip_if_name)) continue;
    ++*associated;
    if (is_active(node)) ++*active;
  }
}

// The counts without the interface, whose passing over is traced.
MplsVpnVrfTally without(MplsVpnVrfTally all, const char* vrf_name, const char* skip_if_name) {
  if (skip_if_name == nullptr) return all;
  const MplsVpnVrfTally skipped = mpls_vpn_tally_of_name(vrf_name, skip_if_name);
  for (std::uint32_t i = 0; i < skipped.interfaces; ++i) report_skipped(skip_if_name);
  return {all.interfaces - skipped.interfaces, all.active - skipped.active, 0};
}

}  // namespace

void fill_vrf_counters(const char* vrf_name, const char* skip_if_name, std::uint32_t* associated,
                       std::uint32_t* active) {
  *associated = 0;
  *active = 0;
  (void)mpls_vpn_mib_clean_if_dbase();  // nodes that could not be repaired are counted too
  const MplsVpnVrfTally all = mpls_vpn_tally_of(vrf_name);
  if (debug_enabled(mpls_vpn_debug_flags[DBASE]) || all.without_record != 0 ||
      mpls_vpn_tally_has_nameless()) {
    return count_in_walk(vrf_name, skip_if_name, associated, active);
  }
  const MplsVpnVrfTally counted = without(all, vrf_name, skip_if_name);
  *associated = counted.interfaces;
  *active = counted.active;
}
