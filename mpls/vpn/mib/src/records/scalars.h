// The scalars: the record, its fields on the wire, its columns.
#pragma once

#include <array>
#include <cstdint>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/field_table.h"

struct mpls_vpn_mib_scalars {
  std::uint32_t configuredVrfs;
  std::uint32_t activeVrfs;             // VRFs with an active interface
  std::uint32_t connectedInterfaces;    // interfaces bound to VRFs
  std::int32_t notificationEnable;      // the master trap switch, 0 or 1
  std::uint32_t maxThresholdNotifTime;  // seconds between re-issued maximum-threshold traps, 0: none
  std::uint32_t illegalLabelsThreshold;
};
inline constexpr std::array kMibScalarsFields = {
    PARCEL_FIELD(mpls_vpn_mib_scalars, configuredVrfs),
    PARCEL_FIELD(mpls_vpn_mib_scalars, activeVrfs),
    PARCEL_FIELD(mpls_vpn_mib_scalars, connectedInterfaces),
    PARCEL_FIELD(mpls_vpn_mib_scalars, notificationEnable),
    PARCEL_FIELD(mpls_vpn_mib_scalars, maxThresholdNotifTime),
    PARCEL_FIELD(mpls_vpn_mib_scalars, illegalLabelsThreshold),
};

namespace mib {

using Scalars = mpls_vpn_mib_scalars;

inline constexpr std::uint32_t kScalarGroup[] = {1};  // mplsL3VpnScalars

inline constexpr Column<Scalars> kScalarColumns[] = {
    column<&Scalars::configuredVrfs>("configuredVrfs", kScalarGroup, 1, kUnsigned32),
    column<&Scalars::activeVrfs>("activeVrfs", kScalarGroup, 2, kGauge32),
    column<&Scalars::connectedInterfaces>("connectedInterfaces", kScalarGroup, 3, kGauge32),
    column<&Scalars::notificationEnable>("notificationEnable", kScalarGroup, 4, kTruthValue),
    // mplsL3VpnVrfConfMaxPossRts: "If this value is not able to be determined, it should be set to 0".
    untracked<Scalars>(kScalarGroup, 5, kUnsigned32),
    column<&Scalars::maxThresholdNotifTime>("maxThresholdNotifTime", kScalarGroup, 6, kUnsigned32),
    column<&Scalars::illegalLabelsThreshold>("illegalLabelsThreshold", kScalarGroup, 7, kUnsigned32),
};

}  // namespace mib
