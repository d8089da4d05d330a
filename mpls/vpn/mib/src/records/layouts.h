// The records of the daemon: every answer that it gives, every trap that it raises, and the two events of the
// routing-table process that it reads. Shared with the readers of those answers.
//
// Members carry the names of their schemas. To add a member, add it here and in the field table of its record
// (layouts.cpp, show_layouts.cpp). Texts, octets and arrays are on the C heap and belong to the record:
// parcel_free_indirections() releases them. Meanings and values are those of RFC 4382, section 5, unless a
// comment states others.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/base/status.h"
#include "platform/core/parcel/parcel.h"

// --- Set "mpls_vpn_mib.parcel": rows of the MIB

struct mpls_vpn_mib_scalars {
  std::uint32_t configuredVrfs;
  std::uint32_t activeVrfs;             // VRFs with an active interface
  std::uint32_t connectedInterfaces;    // interfaces bound to VRFs
  std::int32_t notificationEnable;      // the master trap switch, 0 or 1
  std::uint32_t maxThresholdNotifTime;  // seconds between re-issued maximum-threshold traps, 0: none
  std::uint32_t illegalLabelsThreshold;
};
static_assert(sizeof(mpls_vpn_mib_scalars) == 24);

struct mpls_vpn_mib_interface {
  char* name;
  std::int32_t ifConfIndex;  // ifIndex of IF-MIB
  std::int32_t vpnClassification;
  std::uint8_t protocol;  // BITS, bit 0 being 0x80
  std::int32_t storageType;
  std::int32_t rowStatus;
  char* vrfName;
};
static_assert(sizeof(mpls_vpn_mib_interface) == 40);

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
  std::uint32_t discontinuityTime;
  std::uint32_t routesAdded;
  std::uint32_t routesDeleted;
  std::uint32_t currNumRoutes;
  std::uint32_t routesDropped;
  std::uint32_t discTime;
};
static_assert(sizeof(mpls_vpn_mib_vrf) == 112);

struct mpls_vpn_mib_rt {
  std::uint32_t index;
  std::int32_t type;  // 1 import, 2 export
  char* rt;
  char* description;
  std::int32_t rowStatus;
  std::int32_t storageType;
  char* vrfName;
};
static_assert(sizeof(mpls_vpn_mib_rt) == 40);

struct mpls_vpn_mib_route {
  std::int32_t destType;  // InetAddressType (RFC 4001)
  ParcelOctets dest;
  std::uint32_t mask;  // prefix length, bits
  std::int32_t nextHopType;
  ParcelOctets nextHop;
  std::int32_t ifIndex;
  std::int32_t type;
  std::int32_t proto;
  std::uint32_t age;  // seconds
  std::uint32_t nextHopAS;
  std::int32_t metric1;
  std::int32_t metric2;
  std::int32_t metric3;
  std::int32_t metric4;
  std::int32_t metric5;
  ParcelArray xcPointer;  // at most kRouteXcPointerMax octets: the cross-connect's index (RFC 3813)
  std::int32_t rowStatus;
  char* vrfName;
};
static_assert(sizeof(mpls_vpn_mib_route) == 120);
inline constexpr std::size_t kRouteXcPointerMax = 24;

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
static_assert(sizeof(mpls_vpn_mib_trap) == 48);

extern const ParcelDescription kMibScalarsParcel;
extern const ParcelDescription kMibInterfaceParcel;
extern const ParcelDescription kMibVrfParcel;
extern const ParcelDescription kMibRtParcel;
extern const ParcelDescription kMibRouteParcel;
extern const ParcelDescription kMibTrapParcel;

// --- Set "mpls_vpn.parcel": the show form of a VRF

struct mpls_vpn_rt {
  std::uint32_t RouteTargetType;  // 1 import, 2 export
  char* RouteTargetValue;
  std::uint32_t AFName;   // AFI: 1 IPv4, 2 IPv6
  std::uint32_t SAFName;  // SAFI: 1 unicast, 2 multicast, 133 flow rules (RFC 8955)
};
static_assert(sizeof(mpls_vpn_rt) == 24);

struct mpls_vpn_afi_safi {
  std::uint32_t AFName;
  std::uint32_t SAFName;
  ParcelArray RouteTarget;  // of mpls_vpn_rt
  char* ImportRoutePolicy;
  char* ExportRoutePolicy;
};
static_assert(sizeof(mpls_vpn_afi_safi) == 40);

struct mpls_vpn_interfaces {
  char* InterfaceName;
};
static_assert(sizeof(mpls_vpn_interfaces) == 8);

struct mpls_vpn_vrf {
  char* VRFName;
  char* VRFDescription;
  char* RouteDistinguisher;
  ParcelArray Interfaces;  // of mpls_vpn_interfaces
  ParcelArray AF;          // of mpls_vpn_afi_safi
  std::uint32_t isBigVrf;  // 0 or 1
};
static_assert(sizeof(mpls_vpn_vrf) == 64);

extern const ParcelDescription kShowRtParcel;
extern const ParcelDescription kShowAfiSafiParcel;
extern const ParcelDescription kShowInterfacesParcel;
extern const ParcelDescription kShowVrfParcel;

// --- Events of the routing-table process, read only

struct rib_prov_midthresh_exceed {
  std::uint32_t ext_table_id;
  std::uint32_t ext_curr_num_routes;
  std::uint32_t ext_conf_mid_threshold;  // routes
};
static_assert(sizeof(rib_prov_midthresh_exceed) == 12);

struct rib_prov_maxthresh {
  std::uint32_t ext_clear;  // 1: the threshold is no longer exceeded
  std::uint32_t ext_table_id;
  std::uint32_t ext_curr_num_routes;
  std::uint32_t ext_conf_max_threshold;  // routes
};
static_assert(sizeof(rib_prov_maxthresh) == 16);

extern const ParcelDescription kRibMidThreshParcel;
extern const ParcelDescription kRibMaxThreshParcel;

// --- Registration

// Each registers its set in one batch. 0; kStatusDefinitionChanged when the registry knew another version
// (the set is registered); or the code of the first call that failed (nothing is registered).
[[nodiscard]] Status mpls_vpn_mib_parcel_register();
[[nodiscard]] Status mpls_vpn_parcel_register();
// The two events. Only for programs that produce them: decoding needs no registration.
[[nodiscard]] Status rib_show_parcel_register();
