// When a notification of RFC 4382 (section 6) is raised, and with which values.
//
// Each procedure does nothing unless its notification's own switch or the master switch is on. Main thread.
// Texts are not null unless a comment permits it.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/interface/database.h"

// For an interface of the VRF that is now up, or joined while up. Raises mplsL3VpnVrfUp if no interface of
// the VRF counts as active yet, once per interface until the next call for a down. `node` is the interface's;
// null means that it is looked up by name.
void mpls_vpn_mib_trap_vrf_up(const char* vrf_name, const char* if_name, IfNode* node)
    MPLS_REQUIRES(mpls_vpn_mutex);
// For an interface of the VRF that is now down, or leaves while up. Raises mplsL3VpnVrfDown if no interface
// of the VRF counts as active any more. If either name is null, that is reported and nothing is raised.
void mpls_vpn_mib_trap_vrf_down(const char* vrf_name, const char* if_name) MPLS_REQUIRES(mpls_vpn_mutex);

// Numbers of routes.
void mpls_vpn_mib_trap_mid_thresh_exc(const char* vrf_name, std::uint32_t mid_thresh,
                                      std::uint32_t curr_num_routes);
void mpls_vpn_mib_trap_high_thresh_exc(const char* vrf_name, std::uint32_t high_thresh,
                                       std::uint32_t curr_num_routes);
void mpls_vpn_mib_trap_high_thresh_clr(const char* vrf_name, std::uint32_t high_thresh,
                                       std::uint32_t curr_num_routes);
// Illegal labels received. No caller yet: the forwarding plane does not report them.
void mpls_vpn_mib_trap_ilg_lbl_vltns(const char* vrf_name, std::uint32_t violations);
