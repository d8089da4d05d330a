// A row of mplsL3VpnVrfRteTable: the record, its fields on the wire, its columns.
#pragma once

#include <array>
#include <cstdint>

#include "mpls/vpn/mib/src/records/column.h"
#include "platform/core/parcel/field_table.h"

inline constexpr std::size_t kRouteXcPointerMax = 24;

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
inline constexpr std::array kMibRouteFields = {
    PARCEL_FIELD(mpls_vpn_mib_route, destType),
    PARCEL_FIELD(mpls_vpn_mib_route, dest),
    PARCEL_FIELD(mpls_vpn_mib_route, mask),
    PARCEL_FIELD(mpls_vpn_mib_route, nextHopType),
    PARCEL_FIELD(mpls_vpn_mib_route, nextHop),
    PARCEL_FIELD(mpls_vpn_mib_route, ifIndex),
    PARCEL_FIELD(mpls_vpn_mib_route, type),
    PARCEL_FIELD(mpls_vpn_mib_route, proto),
    PARCEL_FIELD(mpls_vpn_mib_route, age),
    PARCEL_FIELD(mpls_vpn_mib_route, nextHopAS),
    PARCEL_FIELD(mpls_vpn_mib_route, metric1),
    PARCEL_FIELD(mpls_vpn_mib_route, metric2),
    PARCEL_FIELD(mpls_vpn_mib_route, metric3),
    PARCEL_FIELD(mpls_vpn_mib_route, metric4),
    PARCEL_FIELD(mpls_vpn_mib_route, metric5),
    PARCEL_FIELD(mpls_vpn_mib_route, xcPointer, parcel_octet_array(kRouteXcPointerMax)),
    PARCEL_FIELD(mpls_vpn_mib_route, rowStatus),
    PARCEL_FIELD(mpls_vpn_mib_route, vrfName),
};

namespace mib {

using Route = mpls_vpn_mib_route;

// MplsIndexType has at least one octet; a single zero is "no label stack".
inline Value cross_connect(const Route& record) {
  static constexpr std::uint8_t kNone[] = {0};
  const ParcelArray& octets = record.xcPointer;
  if (octets.count == 0) return {0, kNone};
  return {0, {static_cast<const std::uint8_t*>(octets.elements), octets.count}};
}

inline constexpr std::uint32_t kRouteEntry[] = {4, 1, 1};

inline constexpr Column<Route> kRouteColumns[] = {
    hidden<&Route::vrfName>("vrfName", kDisplayString),
    hidden<&Route::destType>("destType", kInetAddressType),
    hidden<&Route::dest>("dest", kInetAddress),
    hidden<&Route::mask>("mask", kUnsigned32),
    hidden<&Route::nextHopType>("nextHopType", kInetAddressType),
    hidden<&Route::nextHop>("nextHop", kInetAddress),
    column<&Route::ifIndex>("ifIndex", kRouteEntry, 7, kInteger32),
    column<&Route::type>("type", kRouteEntry, 8, kRouteType),
    column<&Route::proto>("proto", kRouteEntry, 9, kRouteProtocol),
    column<&Route::age>("age", kRouteEntry, 10, kGauge32),
    column<&Route::nextHopAS>("nextHopAS", kRouteEntry, 11, kUnsigned32),
    column<&Route::metric1>("metric1", kRouteEntry, 12, kInteger32),
    column<&Route::metric2>("metric2", kRouteEntry, 13, kInteger32),
    column<&Route::metric3>("metric3", kRouteEntry, 14, kInteger32),
    column<&Route::metric4>("metric4", kRouteEntry, 15, kInteger32),
    column<&Route::metric5>("metric5", kRouteEntry, 16, kInteger32),
    {"xcPointer", kRouteEntry, 17, kMplsIndex, cross_connect},
    column<&Route::rowStatus>("rowStatus", kRouteEntry, 18, kRowStatus),
};

}  // namespace mib
