// The attribute block: the daemon's private part of every VRF record in the record service. Main thread only;
// no lock.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/interface/database.h"
#include "platform/router/vtab/vtab.h"

inline constexpr unsigned kMplsVpnFamilies = 2;  // element 0 IPv4, element 1 IPv6

// What the daemon stores about a VRF beyond its membership. The record service creates the block zero-filled
// and retains it as long as the record. Texts are heap copies; code that replaces one frees the old copy.
// Times are seconds since 1970-01-01 00:00:00 UTC.
struct mpls_vpn_vrf_attr {
  char* rd;           // route distinguisher, may be null
  char* description;  // may be null
  std::uint32_t creation_time;
  std::uint32_t conf_last_changed_time;
  std::uint32_t protocol_count[kMplsVpnProtocols];  // effective VRF-wide enablings, by routing protocol
  std::uint64_t chkpt_objid;                        // 0: no checkpoint record
  std::uint32_t high_thresh;                        // routes
  std::uint32_t mid_thresh;                         // routes
  char* import_route_policy[kMplsVpnFamilies];
  char* export_route_policy[kMplsVpnFamilies];
  std::uint32_t curr_num_routes;
  std::uint32_t high_thresh_exceeded;                    // 0 or 1
  std::uint32_t is_big_vrf;                              // 0 or 1
  char* flowspec_import_route_policy[kMplsVpnFamilies];  // SAFI 133; never written
  char* flowspec_export_route_policy[kMplsVpnFamilies];
};

// The block of a record. REQUIRES: record is not null and was created after mpls_vpn_mib_vtab_init.
inline mpls_vpn_vrf_attr* mpls_vpn_vrf_attributes(const VtabVrfRecord* record) {
  return static_cast<mpls_vpn_vrf_attr*>(record->attributes);
}
