// A trap: the record and its fields on the wire.
#pragma once

#include <array>
#include <cstdint>

#include "platform/core/parcel/field_table.h"

struct mpls_vpn_mib_trap {
  // 0 VRF up, 1 VRF down, 2 mid threshold, 3 maximum threshold, 4 illegal labels, 5 maximum cleared.
  std::uint32_t trapType;
  char* vrfName;
  std::int32_t ifConfIndex;
  std::int32_t vrfOperStatus;
  std::int32_t ifConfRowStatus;
  std::uint32_t midThresh;
  std::uint32_t highThresh;
  std::uint32_t currNumRoutes;
  std::uint32_t illegalLabelViolations;
};
inline constexpr std::array kMibTrapFields = {
    PARCEL_FIELD(mpls_vpn_mib_trap, trapType),
    PARCEL_FIELD(mpls_vpn_mib_trap, vrfName),
    PARCEL_FIELD(mpls_vpn_mib_trap, ifConfIndex),
    PARCEL_FIELD(mpls_vpn_mib_trap, vrfOperStatus),
    PARCEL_FIELD(mpls_vpn_mib_trap, ifConfRowStatus),
    PARCEL_FIELD(mpls_vpn_mib_trap, midThresh),
    PARCEL_FIELD(mpls_vpn_mib_trap, highThresh),
    PARCEL_FIELD(mpls_vpn_mib_trap, currNumRoutes),
    PARCEL_FIELD(mpls_vpn_mib_trap, illegalLabelViolations),
};
