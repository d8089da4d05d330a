// Handlers of the membership service's events: interfaces join and leave VRFs, VRFs are created and deleted.
//
// Every change of the interface database happens under mpls_vpn_mutex. A VRF is touched (its last-changed
// time is stamped) whenever an interface enters it, leaves it or is displaced from it. Main thread only.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/thread_safety.h"
#include "platform/router/vtab/vtab.h"

inline constexpr std::uint32_t kVrfFlagBigVrf = 0x2;  // of a VRF event's flags: a VRF of many routes

// Join and leave take the mutex themselves.
void mpls_vpn_mib_if2vrf_add(std::uint32_t if_handle, const char* vrf_name);
void mpls_vpn_mib_if2vrf_del(std::uint32_t if_handle, const char* vrf_name);

void mpls_vpn_mib_vrf_created(const char* vrf_name, std::uint32_t vrf_id, std::uint32_t flags)
    MPLS_REQUIRES(mpls_vpn_mutex);
void mpls_vpn_mib_vrf_deleted(const char* vrf_name, std::uint32_t vrf_id) MPLS_REQUIRES(mpls_vpn_mutex);

// Fetches the route distinguisher if the record has none. Request handlers call it before they report a VRF.
void mpls_vpn_mib_vrf_complete_missing(VtabVrfRecord* record);
