// A row of mplsL3VpnVrfTable and of the tables that augment it, mplsL3VpnVrfSecTable and
// mplsL3VpnVrfPerfTable: the record, its fields on the wire, its columns.
//
// The router has one configured maximum of routes, which is both the high threshold and the maximum. The
// daemon has no VPN ids: the column is empty.
#pragma once

#include <array>
#include <cstdint>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/field_table.h"

struct mpls_vpn_mib_vrf {
  char* name;
  char* description;
  char* rd;
  std::uint32_t creationTime;  // seconds since 1970
  std::int32_t operStatus;
  std::uint32_t activeInterfaces;
  std::uint32_t associatedInterfaces;
  std::uint32_t midThresh;   // routes
  std::uint32_t highThresh;  // routes
  char* import_route_policy;
  char* export_route_policy;
  std::uint32_t confLastChanged;  // seconds since 1970
  std::int32_t rowStatus;
  std::int32_t adminStatus;
  std::int32_t storageType;
  std::uint32_t illegalLabelViolations;
  std::uint32_t discontinuityTime;  // of the security counters
  std::uint32_t routesAdded;
  std::uint32_t routesDeleted;
  std::uint32_t currNumRoutes;
  std::uint32_t routesDropped;
  std::uint32_t discTime;  // of the performance counters
};
inline constexpr std::array kMibVrfFields = {
    PARCEL_FIELD(mpls_vpn_mib_vrf, name),
    PARCEL_FIELD(mpls_vpn_mib_vrf, description),
    PARCEL_FIELD(mpls_vpn_mib_vrf, rd),
    PARCEL_FIELD(mpls_vpn_mib_vrf, creationTime),
    PARCEL_FIELD(mpls_vpn_mib_vrf, operStatus),
    PARCEL_FIELD(mpls_vpn_mib_vrf, activeInterfaces),
    PARCEL_FIELD(mpls_vpn_mib_vrf, associatedInterfaces),
    PARCEL_FIELD(mpls_vpn_mib_vrf, midThresh),
    PARCEL_FIELD(mpls_vpn_mib_vrf, highThresh),
    PARCEL_FIELD(mpls_vpn_mib_vrf, import_route_policy),
    PARCEL_FIELD(mpls_vpn_mib_vrf, export_route_policy),
    PARCEL_FIELD(mpls_vpn_mib_vrf, confLastChanged),
    PARCEL_FIELD(mpls_vpn_mib_vrf, rowStatus),
    PARCEL_FIELD(mpls_vpn_mib_vrf, adminStatus),
    PARCEL_FIELD(mpls_vpn_mib_vrf, storageType),
    PARCEL_FIELD(mpls_vpn_mib_vrf, illegalLabelViolations),
    PARCEL_FIELD(mpls_vpn_mib_vrf, discontinuityTime),
    PARCEL_FIELD(mpls_vpn_mib_vrf, routesAdded),
    PARCEL_FIELD(mpls_vpn_mib_vrf, routesDeleted),
    PARCEL_FIELD(mpls_vpn_mib_vrf, currNumRoutes),
    PARCEL_FIELD(mpls_vpn_mib_vrf, routesDropped),
    PARCEL_FIELD(mpls_vpn_mib_vrf, discTime),
};

namespace mib {

using Vrf = mpls_vpn_mib_vrf;

inline constexpr std::uint32_t kVrfEntry[] = {2, 2, 1};
inline constexpr std::uint32_t kSecurityEntry[] = {2, 6, 1};
inline constexpr std::uint32_t kPerformanceEntry[] = {3, 1, 1};

inline constexpr Column<Vrf> kVrfColumns[] = {
    hidden<&Vrf::name>("name", kDisplayString),
    untracked<Vrf>(kVrfEntry, 2, kOctetString),
    column<&Vrf::description>("description", kVrfEntry, 3, kAdminString),
    column<&Vrf::rd>("rd", kVrfEntry, 4, kRouteDistinguisher),
    column<&Vrf::creationTime>("creationTime", kVrfEntry, 5, kTimeStamp),
    column<&Vrf::operStatus>("operStatus", kVrfEntry, 6, kVrfStatus),
    column<&Vrf::activeInterfaces>("activeInterfaces", kVrfEntry, 7, kGauge32),
    column<&Vrf::associatedInterfaces>("associatedInterfaces", kVrfEntry, 8, kUnsigned32),
    column<&Vrf::midThresh>("midThresh", kVrfEntry, 9, kUnsigned32),
    column<&Vrf::highThresh>("highThresh", kVrfEntry, 10, kUnsigned32),
    column<&Vrf::highThresh>(nullptr, kVrfEntry, 11, kUnsigned32),
    column<&Vrf::confLastChanged>("confLastChanged", kVrfEntry, 12, kTimeStamp),
    column<&Vrf::rowStatus>("rowStatus", kVrfEntry, 13, kRowStatus),
    column<&Vrf::adminStatus>("adminStatus", kVrfEntry, 14, kVrfStatus),
    column<&Vrf::storageType>("storageType", kVrfEntry, 15, kStorageType),
    column<&Vrf::illegalLabelViolations>("illegalLabelViolations", kSecurityEntry, 1, kCounter32),
    column<&Vrf::discontinuityTime>("discontinuityTime", kSecurityEntry, 2, kTimeStamp),
    column<&Vrf::routesAdded>("routesAdded", kPerformanceEntry, 1, kCounter32),
    column<&Vrf::routesDeleted>("routesDeleted", kPerformanceEntry, 2, kCounter32),
    column<&Vrf::currNumRoutes>("currNumRoutes", kPerformanceEntry, 3, kGauge32).counted(),
    column<&Vrf::routesDropped>("routesDropped", kPerformanceEntry, 4, kCounter32),
    column<&Vrf::discTime>("discTime", kPerformanceEntry, 5, kTimeStamp),
};

}  // namespace mib
