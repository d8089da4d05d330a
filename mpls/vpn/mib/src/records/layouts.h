// The records of the daemon: every answer that it gives and every trap that it raises. Shared with the
// readers of those answers.
//
// Each row of the MIB has a header with its record, the fields on the wire and the columns. Members carry the
// names of their schemas. Texts, octets and arrays are on the C heap and belong to the record:
// parcel_free_indirections() releases them. Meanings and values are those of RFC 4382, section 5, unless a
// comment states others.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/interface.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/records/route.h"
#include "mpls/vpn/mib/src/records/route_target.h"
#include "mpls/vpn/mib/src/records/scalars.h"
#include "mpls/vpn/mib/src/records/trap.h"
#include "mpls/vpn/mib/src/records/vrf.h"
#include "platform/core/base/status.h"
#include "platform/core/parcel/parcel.h"

// --- Set "mpls_vpn_mib.parcel": rows of the MIB

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

struct mpls_vpn_afi_safi {
  std::uint32_t AFName;
  std::uint32_t SAFName;
  ParcelArray RouteTarget;  // of mpls_vpn_rt
  char* ImportRoutePolicy;
  char* ExportRoutePolicy;
};

struct mpls_vpn_interfaces {
  char* InterfaceName;
};

struct mpls_vpn_vrf {
  char* VRFName;
  char* VRFDescription;
  char* RouteDistinguisher;
  ParcelArray Interfaces;  // of mpls_vpn_interfaces
  ParcelArray AF;          // of mpls_vpn_afi_safi
  std::uint32_t isBigVrf;  // 0 or 1
};

extern const ParcelDescription kShowRtParcel;
extern const ParcelDescription kShowAfiSafiParcel;
extern const ParcelDescription kShowInterfacesParcel;
extern const ParcelDescription kShowVrfParcel;

// --- Registration

// Each registers its set in one batch. 0; kStatusDefinitionChanged when the registry knew another version
// (the set is registered); or the code of the first call that failed (nothing is registered).
[[nodiscard]] Status mpls_vpn_mib_parcel_register();
[[nodiscard]] Status mpls_vpn_parcel_register();
// The two events of the routing table (platform/router/rib_threshold/records.h). Only for programs that
// produce them: decoding needs no registration.
[[nodiscard]] Status rib_show_parcel_register();
