// The attribute block: the daemon's private part of every VRF record in the record service. Main thread only;
// no lock.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/interface/database.h"
#include "platform/router/vtab/vtab.h"

inline constexpr unsigned kMplsVpnFamilies = 2;  // element 0 IPv4, element 1 IPv6

using AttributeText = char*;  // a heap copy or null; code that replaces one frees the old copy
using FamilyTexts = AttributeText[kMplsVpnFamilies];
using ProtocolCounts = std::uint32_t[kMplsVpnProtocols];

// What the daemon stores about a VRF beyond its membership, type and name of each member. A text needs no
// further place: mpls_vpn_free_attribute_texts frees all members that are texts. Times are seconds since
// 1970-01-01 00:00:00 UTC.
// clang-format off
#define MPLS_VPN_VRF_ATTRIBUTES(MEMBER)                                                                      \
  MEMBER(AttributeText, rd)                            /* route distinguisher */                             \
  MEMBER(AttributeText, description)                                                                         \
  MEMBER(std::uint32_t, creation_time)                                                                       \
  MEMBER(std::uint32_t, conf_last_changed_time)                                                              \
  MEMBER(ProtocolCounts, protocol_count)               /* effective VRF-wide enablings */                    \
  MEMBER(std::uint64_t, chkpt_objid)                   /* 0: no checkpoint record */                         \
  MEMBER(std::uint32_t, high_thresh)                   /* routes */                                          \
  MEMBER(std::uint32_t, mid_thresh)                    /* routes */                                          \
  MEMBER(FamilyTexts, import_route_policy)                                                                   \
  MEMBER(FamilyTexts, export_route_policy)                                                                   \
  MEMBER(std::uint32_t, curr_num_routes)                                                                     \
  MEMBER(std::uint32_t, high_thresh_exceeded)          /* 0 or 1 */                                          \
  MEMBER(std::uint32_t, is_big_vrf)                    /* 0 or 1 */                                          \
  MEMBER(FamilyTexts, flowspec_import_route_policy)    /* SAFI 133: shown, not configurable */           \
  MEMBER(FamilyTexts, flowspec_export_route_policy)    /* likewise */
// clang-format on

// The record service creates the block zero-filled and retains it as long as the record.
struct mpls_vpn_vrf_attr {
#define MPLS_VPN_DECLARE(type, name) type name;
  MPLS_VPN_VRF_ATTRIBUTES(MPLS_VPN_DECLARE)
#undef MPLS_VPN_DECLARE
};

// Frees the texts and sets them to null.
void mpls_vpn_free_attribute_texts(mpls_vpn_vrf_attr* attributes);

// The block of a record. REQUIRES: record is not null and was created after mpls_vpn_mib_vtab_init.
inline mpls_vpn_vrf_attr* mpls_vpn_vrf_attributes(const VtabVrfRecord* record) {
  return static_cast<mpls_vpn_vrf_attr*>(record->attributes);
}
