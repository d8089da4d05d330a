// Decides whether a notification is raised.
//
// Up and down of a VRF are decided from what is counted at that moment, so the order of a caller's updates
// matters. An interface is considered before its record shows it up, after its record shows it down, after
// its node was entered (a join), and before its node is removed (a leave). docs/traps.md shows the effect on
// what a manager sees.
//
// Two flags in the interface's node keep an interface from raising the same notification twice: considering a
// down clears the flag of the up, and vice versa. They do not change while the notification is switched off.
//
// Main thread, with the database mutex held for up and down; look-ups made here therefore never repair.
#include "mpls/vpn/mib/src/traps/procedures.h"

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "mpls/vpn/mib/src/traps/notification.h"
#include "mpls/vpn/mib/src/vrf/counters.h"

namespace {

void print_entry(const char* procedure) {
  mpls_vpn_debug(TRAPS, "Entering %s", procedure);
}

bool is_enabled(MplsVpnTrapRow row) {
  return mpls_vpn_mib_trap_info[kTrapAll].enabled != 0 || mpls_vpn_mib_trap_info[row].enabled != 0;
}

// True when no interface of the VRF is active, so that `notification` is due.
bool is_without_active_interface(const char* vrf_name, const char* notification) {
  std::uint32_t associated = 0;
  std::uint32_t active = 0;
  fill_vrf_counters(vrf_name, nullptr, &associated, &active);
  if (active != 0) {
    mpls_vpn_debug(TRAPS, "active=%u conn=%u no trap", active, associated);
    return false;
  }
  mpls_vpn_debug(TRAPS, "active=0 conn=%u generating trap %s", associated, notification);
  return true;
}

void raise_vrf_status(MplsVpnTrapRow row, const IfNode* node, std::int32_t oper_status) {
  generate_trap_notification(row, node->vrf_name, node->if_index, oper_status, kRowStatusActive, 0, 0, 0, 0);
}

// If it is switched on.
void raise_threshold(MplsVpnTrapRow row, const char* vrf_name, std::uint32_t mid_thresh,
                     std::uint32_t high_thresh, std::uint32_t curr_num_routes) {
  if (!is_enabled(row)) return;
  generate_trap_notification(row, vrf_name, 0, 0, 0, mid_thresh, high_thresh, curr_num_routes, 0);
}

}  // namespace

void mpls_vpn_mib_trap_vrf_up(const char* vrf_name, const char* if_name, IfNode* node) {
  print_entry(__func__);
  if (!is_enabled(kTrapVrfUp)) return;
  if (node == nullptr) node = mpls_vpn_mib_get_if_by_vrf_and_name(vrf_name, if_name);
  if (node == nullptr) {
    mpls_vpn_report_failure(TRAPS, kStatusNoSuchRow, "Cannot find interface node");
    return;
  }
  node->vrf_down_trap_sent = 0;
  if (node->vrf_up_trap_sent != 0) {
    mpls_vpn_trace(kTraceVmap, kStatusOk, "interface %s raised up for VRF %s already", if_name, vrf_name);
    return;
  }
  if (!is_without_active_interface(vrf_name, "VRF-Up")) return;
  raise_vrf_status(kTrapVrfUp, node, kVrfOperStatusUp);
  node->vrf_up_trap_sent = 1;
}

void mpls_vpn_mib_trap_vrf_down(const char* vrf_name, const char* if_name) {
  print_entry(__func__);
  if (!is_enabled(kTrapVrfDown)) return;
  if (vrf_name == nullptr || if_name == nullptr) {
    mpls_vpn_report_failure(ERR, kStatusInvalid, "NULL parameter");
    return;
  }
  IfNode* node = mpls_vpn_mib_get_if_by_vrf_and_name(vrf_name, if_name);
  if (node == nullptr) return;
  node->vrf_up_trap_sent = 0;
  if (node->vrf_down_trap_sent != 0) {
    mpls_vpn_trace(kTraceVmap, kStatusOk, "interface %s raised down for VRF %s already", if_name, vrf_name);
    return;
  }
  if (!is_without_active_interface(vrf_name, "VRF-Down")) return;
  raise_vrf_status(kTrapVrfDown, node, kVrfOperStatusDown);
  node->vrf_down_trap_sent = 1;
}

void mpls_vpn_mib_trap_mid_thresh_exc(const char* vrf_name, std::uint32_t mid_thresh,
                                      std::uint32_t curr_num_routes) {
  print_entry(__func__);
  raise_threshold(kTrapMidThreshExceeded, vrf_name, mid_thresh, 0, curr_num_routes);
}

void mpls_vpn_mib_trap_high_thresh_exc(const char* vrf_name, std::uint32_t high_thresh,
                                       std::uint32_t curr_num_routes) {
  print_entry(__func__);
  raise_threshold(kTrapMaxThreshExceeded, vrf_name, 0, high_thresh, curr_num_routes);
}

void mpls_vpn_mib_trap_high_thresh_clr(const char* vrf_name, std::uint32_t high_thresh,
                                       std::uint32_t curr_num_routes) {
  print_entry(__func__);
  raise_threshold(kTrapMaxThreshCleared, vrf_name, 0, high_thresh, curr_num_routes);
}

void mpls_vpn_mib_trap_ilg_lbl_vltns(const char* vrf_name, std::uint32_t violations) {
  print_entry(__func__);
  if (!is_enabled(kTrapIllegalLabels)) return;
  generate_trap_notification(kTrapIllegalLabels, vrf_name, 0, 0, 0, 0, 0, 0, violations);
}
