// Descriptions of the MIB's rows and traps, and of the two routing-table events.
//
// A description says one thing three times, and parcel_check_description() holds the three against each other
// in the tests: the annotated schema (field names and types), the compact schema (types alone), and the
// layout (size and offset of every field slot in memory; an octet string and an array have two slots).
// Offsets are taken from the record declarations, so a member can be moved in one place only, and a test
// states them as numbers.
//
// Readers in other processes compare schemas and version numbers; a change here is a change of the wire form.
// Everything is constant data. RFC 4382 section 5 defines the objects.
#include <cstddef>
#include <iterator>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/registration.h"

namespace {

constexpr std::uint32_t kMibScalarsOffsets[] = {offsetof(mpls_vpn_mib_scalars, configuredVrfs),
                                                offsetof(mpls_vpn_mib_scalars, activeVrfs),
                                                offsetof(mpls_vpn_mib_scalars, connectedInterfaces),
                                                offsetof(mpls_vpn_mib_scalars, notificationEnable),
                                                offsetof(mpls_vpn_mib_scalars, maxThresholdNotifTime),
                                                offsetof(mpls_vpn_mib_scalars, illegalLabelsThreshold)};
constexpr std::uint32_t kMibInterfaceOffsets[] = {offsetof(mpls_vpn_mib_interface, name),
                                                  offsetof(mpls_vpn_mib_interface, ifConfIndex),
                                                  offsetof(mpls_vpn_mib_interface, vpnClassification),
                                                  offsetof(mpls_vpn_mib_interface, protocol),
                                                  offsetof(mpls_vpn_mib_interface, storageType),
                                                  offsetof(mpls_vpn_mib_interface, rowStatus),
                                                  offsetof(mpls_vpn_mib_interface, vrfName)};
constexpr std::uint32_t kMibVrfOffsets[] = {offsetof(mpls_vpn_mib_vrf, name),
                                            offsetof(mpls_vpn_mib_vrf, description),
                                            offsetof(mpls_vpn_mib_vrf, rd),
                                            offsetof(mpls_vpn_mib_vrf, creationTime),
                                            offsetof(mpls_vpn_mib_vrf, operStatus),
                                            offsetof(mpls_vpn_mib_vrf, activeInterfaces),
                                            offsetof(mpls_vpn_mib_vrf, associatedInterfaces),
                                            offsetof(mpls_vpn_mib_vrf, midThresh),
                                            offsetof(mpls_vpn_mib_vrf, highThresh),
                                            offsetof(mpls_vpn_mib_vrf, import_route_policy),
                                            offsetof(mpls_vpn_mib_vrf, export_route_policy),
                                            offsetof(mpls_vpn_mib_vrf, confLastChanged),
                                            offsetof(mpls_vpn_mib_vrf, rowStatus),
                                            offsetof(mpls_vpn_mib_vrf, adminStatus),
                                            offsetof(mpls_vpn_mib_vrf, storageType),
                                            offsetof(mpls_vpn_mib_vrf, illegalLabelViolations),
                                            offsetof(mpls_vpn_mib_vrf, discontinuityTime),
                                            offsetof(mpls_vpn_mib_vrf, routesAdded),
                                            offsetof(mpls_vpn_mib_vrf, routesDeleted),
                                            offsetof(mpls_vpn_mib_vrf, currNumRoutes),
                                            offsetof(mpls_vpn_mib_vrf, routesDropped),
                                            offsetof(mpls_vpn_mib_vrf, discTime)};
constexpr std::uint32_t kMibRtOffsets[] = {
    offsetof(mpls_vpn_mib_rt, index),     offsetof(mpls_vpn_mib_rt, type),
    offsetof(mpls_vpn_mib_rt, rt),        offsetof(mpls_vpn_mib_rt, description),
    offsetof(mpls_vpn_mib_rt, rowStatus), offsetof(mpls_vpn_mib_rt, storageType),
    offsetof(mpls_vpn_mib_rt, vrfName)};
constexpr std::uint32_t kMibRouteOffsets[] = {offsetof(mpls_vpn_mib_route, destType),
                                              offsetof(mpls_vpn_mib_route, dest.length),
                                              offsetof(mpls_vpn_mib_route, dest.octets),
                                              offsetof(mpls_vpn_mib_route, mask),
                                              offsetof(mpls_vpn_mib_route, nextHopType),
                                              offsetof(mpls_vpn_mib_route, nextHop.length),
                                              offsetof(mpls_vpn_mib_route, nextHop.octets),
                                              offsetof(mpls_vpn_mib_route, ifIndex),
                                              offsetof(mpls_vpn_mib_route, type),
                                              offsetof(mpls_vpn_mib_route, proto),
                                              offsetof(mpls_vpn_mib_route, age),
                                              offsetof(mpls_vpn_mib_route, nextHopAS),
                                              offsetof(mpls_vpn_mib_route, metric1),
                                              offsetof(mpls_vpn_mib_route, metric2),
                                              offsetof(mpls_vpn_mib_route, metric3),
                                              offsetof(mpls_vpn_mib_route, metric4),
                                              offsetof(mpls_vpn_mib_route, metric5),
                                              offsetof(mpls_vpn_mib_route, xcPointer.count),
                                              offsetof(mpls_vpn_mib_route, xcPointer.elements),
                                              offsetof(mpls_vpn_mib_route, rowStatus),
                                              offsetof(mpls_vpn_mib_route, vrfName)};
constexpr std::uint32_t kMibTrapOffsets[] = {offsetof(mpls_vpn_mib_trap, trapType),
                                             offsetof(mpls_vpn_mib_trap, vrfName),
                                             offsetof(mpls_vpn_mib_trap, ifConfIndex),
                                             offsetof(mpls_vpn_mib_trap, vrfOperStatus),
                                             offsetof(mpls_vpn_mib_trap, ifConfRowStatus),
                                             offsetof(mpls_vpn_mib_trap, midThresh),
                                             offsetof(mpls_vpn_mib_trap, highThresh),
                                             offsetof(mpls_vpn_mib_trap, currNumRoutes),
                                             offsetof(mpls_vpn_mib_trap, illegalLabelViolations)};
constexpr std::uint32_t kRibMidThreshOffsets[] = {
    offsetof(rib_prov_midthresh_exceed, ext_table_id),
    offsetof(rib_prov_midthresh_exceed, ext_curr_num_routes),
    offsetof(rib_prov_midthresh_exceed, ext_conf_mid_threshold)};
constexpr std::uint32_t kRibMaxThreshOffsets[] = {
    offsetof(rib_prov_maxthresh, ext_clear), offsetof(rib_prov_maxthresh, ext_table_id),
    offsetof(rib_prov_maxthresh, ext_curr_num_routes), offsetof(rib_prov_maxthresh, ext_conf_max_threshold)};

constexpr ParcelStructLayout kMibScalarsStruct = {1, sizeof(mpls_vpn_mib_scalars), kMibScalarsOffsets,
                                                  std::size(kMibScalarsOffsets)};
constexpr ParcelStructLayout kMibInterfaceStruct = {2, sizeof(mpls_vpn_mib_interface), kMibInterfaceOffsets,
                                                    std::size(kMibInterfaceOffsets)};
constexpr ParcelStructLayout kMibVrfStruct = {3, sizeof(mpls_vpn_mib_vrf), kMibVrfOffsets,
                                              std::size(kMibVrfOffsets)};
constexpr ParcelStructLayout kMibRtStruct = {4, sizeof(mpls_vpn_mib_rt), kMibRtOffsets,
                                             std::size(kMibRtOffsets)};
constexpr ParcelStructLayout kMibRouteStruct = {5, sizeof(mpls_vpn_mib_route), kMibRouteOffsets,
                                                std::size(kMibRouteOffsets)};
constexpr ParcelStructLayout kMibTrapStruct = {6, sizeof(mpls_vpn_mib_trap), kMibTrapOffsets,
                                               std::size(kMibTrapOffsets)};
constexpr ParcelStructLayout kRibMidThreshStruct = {1, sizeof(rib_prov_midthresh_exceed),
                                                    kRibMidThreshOffsets, std::size(kRibMidThreshOffsets)};
constexpr ParcelStructLayout kRibMaxThreshStruct = {2, sizeof(rib_prov_maxthresh), kRibMaxThreshOffsets,
                                                    std::size(kRibMaxThreshOffsets)};

constexpr ParcelStructLayout kMibScalarsStructs[] = {kMibScalarsStruct};
constexpr ParcelLayout kMibScalarsLayout = {kMibScalarsStructs, std::size(kMibScalarsStructs)};
constexpr ParcelStructLayout kMibInterfaceStructs[] = {kMibInterfaceStruct};
constexpr ParcelLayout kMibInterfaceLayout = {kMibInterfaceStructs, std::size(kMibInterfaceStructs)};
constexpr ParcelStructLayout kMibVrfStructs[] = {kMibVrfStruct};
constexpr ParcelLayout kMibVrfLayout = {kMibVrfStructs, std::size(kMibVrfStructs)};
constexpr ParcelStructLayout kMibRtStructs[] = {kMibRtStruct};
constexpr ParcelLayout kMibRtLayout = {kMibRtStructs, std::size(kMibRtStructs)};
constexpr ParcelStructLayout kMibRouteStructs[] = {kMibRouteStruct};
constexpr ParcelLayout kMibRouteLayout = {kMibRouteStructs, std::size(kMibRouteStructs)};
constexpr ParcelStructLayout kMibTrapStructs[] = {kMibTrapStruct};
constexpr ParcelLayout kMibTrapLayout = {kMibTrapStructs, std::size(kMibTrapStructs)};
constexpr ParcelStructLayout kRibMidThreshStructs[] = {kRibMidThreshStruct};
constexpr ParcelLayout kRibMidThreshLayout = {kRibMidThreshStructs, std::size(kRibMidThreshStructs)};
constexpr ParcelStructLayout kRibMaxThreshStructs[] = {kRibMaxThreshStruct};
constexpr ParcelLayout kRibMaxThreshLayout = {kRibMaxThreshStructs, std::size(kRibMaxThreshStructs)};

}  // namespace

const ParcelDescription kMibScalarsParcel = {
    1,
    "mpls_vpn_mib_scalars",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibScalarsLayout,
    "$1={configuredVrfs}D{activeVrfs}D{connectedInterfaces}D{notificationEnable}d"
    "{maxThresholdNotifTime}D{illegalLabelsThreshold}D;",
    "$1=DDDdDD;"};

const ParcelDescription kMibInterfaceParcel = {
    1,
    "mpls_vpn_mib_interface",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibInterfaceLayout,
    "$2={name}s{ifConfIndex}d{vpnClassification}d{protocol}C{storageType}d{rowStatus}d"
    "{vrfName}s;",
    "$2=sddCdds;"};

const ParcelDescription kMibVrfParcel = {
    1,
    "mpls_vpn_mib_vrf",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibVrfLayout,
    "$3={name}s{description}s{rd}s{creationTime}D{operStatus}d{activeInterfaces}D"
    "{associatedInterfaces}D{midThresh}D{highThresh}D{import_route_policy}s"
    "{export_route_policy}s{confLastChanged}D{rowStatus}d{adminStatus}d{storageType}d"
    "{illegalLabelViolations}D{discontinuityTime}D{routesAdded}D{routesDeleted}D"
    "{currNumRoutes}D{routesDropped}D{discTime}D;",
    "$3=sssDdDDDDssDdddDDDDDDD;"};

const ParcelDescription kMibRtParcel = {
    1,
    "mpls_vpn_mib_rt",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibRtLayout,
    "$4={index}D{type}d{rt}s{description}s{rowStatus}d{storageType}d{vrfName}s;",
    "$4=Ddssdds;"};

const ParcelDescription kMibRouteParcel = {
    1,
    "mpls_vpn_mib_route",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibRouteLayout,
    "$5={destType}d{dest}y{mask}D{nextHopType}d{nextHop}y{ifIndex}d{type}d{proto}d{age}D"
    "{nextHopAS}D{metric1}d{metric2}d{metric3}d{metric4}d{metric5}d{xcPointer}24a(C)"
    "{rowStatus}d{vrfName}s;",
    "$5=dyDdydddDDddddd24a(C)ds;"};

const ParcelDescription kMibTrapParcel = {
    1,
    "mpls_vpn_mib_trap",
    1,
    0,
    "libmpls_vpn_mib_parcel_desc.dll",
    &kMibTrapLayout,
    "$6={trapType}D{vrfName}s{ifConfIndex}d{vrfOperStatus}d{ifConfRowStatus}d{midThresh}D"
    "{highThresh}D{currNumRoutes}D{illegalLabelViolations}D;",
    "$6=DsdddDDDD;"};

const ParcelDescription kRibMidThreshParcel = {
    1,
    "rib_prov_midthresh_exceed",
    0,
    1,
    "rib_show_desc.dll",
    &kRibMidThreshLayout,
    "$1={ext_table_id}D{ext_curr_num_routes}D{ext_conf_mid_threshold}D;",
    "$1=DDD;"};

const ParcelDescription kRibMaxThreshParcel = {
    1,
    "rib_prov_maxthresh",
    0,
    1,
    "rib_show_desc.dll",
    &kRibMaxThreshLayout,
    "$2={ext_clear}b{ext_table_id}D{ext_curr_num_routes}D{ext_conf_max_threshold}D;",
    "$2=bDDD;"};

Status mpls_vpn_mib_parcel_register() {
  static constexpr const ParcelDescription* kSet[] = {&kMibScalarsParcel, &kMibInterfaceParcel,
                                                      &kMibVrfParcel,     &kMibRtParcel,
                                                      &kMibRouteParcel,   &kMibTrapParcel};
  return mpls_vpn_parcel_register_set("mpls_vpn_mib.parcel", kSet, std::size(kSet));
}

Status rib_show_parcel_register() {
  static constexpr const ParcelDescription* kSet[] = {&kRibMidThreshParcel, &kRibMaxThreshParcel};
  return mpls_vpn_parcel_register_set("rib_show.parcel", kSet, std::size(kSet));
}
