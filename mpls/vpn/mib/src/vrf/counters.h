// How many interfaces a VRF has, and how many of them are active (mplsL3VpnVrfAssociatedInterfaces and
// mplsL3VpnVrfActiveInterfaces, RFC 4382).
#pragma once

#include <cstdint>

// Counts the interface-database nodes of the VRF as they are at this moment; the interface database is
// repaired first. The interface named `skip_if_name` (null: none) is in neither count. A node whose interface
// has no record, or no name yet, is associated and not active. Both counts are always set. Main thread;
// O(interfaces of the VRF). REQUIRES: vrf_name, associated and active are not null.
void fill_vrf_counters(const char* vrf_name, const char* skip_if_name, std::uint32_t* associated,
                       std::uint32_t* active);
