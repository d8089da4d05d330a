// A row of mplsL3VpnVrfRTTable: the record, its fields on the wire, its columns. The route targets of a VRF
// are numbered from 1.
#pragma once

#include <array>
#include <cstdint>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/field_table.h"

struct mpls_vpn_mib_rt {
  std::uint32_t index;
  std::int32_t type;  // 1 import, 2 export
  char* rt;
  char* description;
  std::int32_t rowStatus;
  std::int32_t storageType;
  char* vrfName;
};
inline constexpr std::array kMibRtFields = {
    PARCEL_FIELD(mpls_vpn_mib_rt, index),     PARCEL_FIELD(mpls_vpn_mib_rt, type),
    PARCEL_FIELD(mpls_vpn_mib_rt, rt),        PARCEL_FIELD(mpls_vpn_mib_rt, description),
    PARCEL_FIELD(mpls_vpn_mib_rt, rowStatus), PARCEL_FIELD(mpls_vpn_mib_rt, storageType),
    PARCEL_FIELD(mpls_vpn_mib_rt, vrfName),
};

namespace mib {

using RouteTarget = mpls_vpn_mib_rt;

inline constexpr std::uint32_t kRouteTargetEntry[] = {2, 3, 1};

inline constexpr Column<RouteTarget> kRouteTargetColumns[] = {
    hidden<&RouteTarget::vrfName>("vrfName", kDisplayString),
    hidden<&RouteTarget::index>("index", kUnsigned32),
    hidden<&RouteTarget::type>("type", kRouteTargetType),
    column<&RouteTarget::rt>("rt", kRouteTargetEntry, 4, kRouteDistinguisher),
    column<&RouteTarget::description>("description", kRouteTargetEntry, 5, kAdminString),
    column<&RouteTarget::storageType>("storageType", kRouteTargetEntry, 7, kStorageType),
    column<&RouteTarget::rowStatus>("rowStatus", kRouteTargetEntry, 6, kRowStatus),
};

}  // namespace mib
