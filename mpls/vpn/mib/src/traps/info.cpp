// The table of notifications: one row per configuration item below the trap switches, that is six
// notifications, the master switch and the re-issue time. Rows 0 to 5 are the trap types of the trap record
// and follow the numbering of the MIB. The switches start off and change on the main thread.
#include "mpls/vpn/mib/src/traps/info.h"

MplsVpnTrapInfo mpls_vpn_mib_trap_info[kMplsVpnTrapRows] = {
    {"mplsL3VpnVrfUp", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 1}, "vrf-up", 0},
    {"mplsL3VpnVrfDown", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 2}, "vrf-down", 0},
    {"mplsL3VpnVrfRouteMidThreshExceeded", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 3}, "mid-thresh-exc", 0},
    {"mplsL3VpnVrfNumVrfRouteMaxThreshExceeded", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 4}, "max-thresh-exc", 0},
    {"mplsL3VpnNumVrfSecIllglLblThrshExcd", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 5}, "ilg-lbl-exc", 0},
    {"mplsL3VpnNumVrfRouteMaxThreshCleared", {1, 3, 6, 1, 2, 1, 10, 166, 11, 0, 6}, "max-thresh-clr", 0},
    {"", {}, "all", 0},
    {"", {}, "notif-reissue-time", 0},
};

std::uint32_t notif_reissue_time = 0;
