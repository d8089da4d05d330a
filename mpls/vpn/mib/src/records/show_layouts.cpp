// The show form of a VRF: the VRF with its interfaces and, per address family, its route targets and route
// policies.
//
// The records nest: a description lists its top structure first and then every structure below it, in schema
// text and layout alike. Enumerations are numbers in memory; their member names belong to the description
// library of the readers. Constant data.
#include <cstddef>
#include <iterator>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/registration.h"

namespace {

constexpr std::uint32_t kShowRtOffsets[] = {offsetof(mpls_vpn_rt, RouteTargetType),
                                            offsetof(mpls_vpn_rt, RouteTargetValue),
                                            offsetof(mpls_vpn_rt, AFName), offsetof(mpls_vpn_rt, SAFName)};
constexpr std::uint32_t kShowAfiSafiOffsets[] = {offsetof(mpls_vpn_afi_safi, AFName),
                                                 offsetof(mpls_vpn_afi_safi, SAFName),
                                                 offsetof(mpls_vpn_afi_safi, RouteTarget.count),
                                                 offsetof(mpls_vpn_afi_safi, RouteTarget.elements),
                                                 offsetof(mpls_vpn_afi_safi, ImportRoutePolicy),
                                                 offsetof(mpls_vpn_afi_safi, ExportRoutePolicy)};
constexpr std::uint32_t kShowInterfacesOffsets[] = {offsetof(mpls_vpn_interfaces, InterfaceName)};
constexpr std::uint32_t kShowVrfOffsets[] = {offsetof(mpls_vpn_vrf, VRFName),
                                             offsetof(mpls_vpn_vrf, VRFDescription),
                                             offsetof(mpls_vpn_vrf, RouteDistinguisher),
                                             offsetof(mpls_vpn_vrf, Interfaces.count),
                                             offsetof(mpls_vpn_vrf, Interfaces.elements),
                                             offsetof(mpls_vpn_vrf, AF.count),
                                             offsetof(mpls_vpn_vrf, AF.elements),
                                             offsetof(mpls_vpn_vrf, isBigVrf)};

constexpr ParcelStructLayout kShowRtStruct = {1, sizeof(mpls_vpn_rt), kShowRtOffsets,
                                              std::size(kShowRtOffsets)};
constexpr ParcelStructLayout kShowAfiSafiStruct = {2, sizeof(mpls_vpn_afi_safi), kShowAfiSafiOffsets,
                                                   std::size(kShowAfiSafiOffsets)};
constexpr ParcelStructLayout kShowInterfacesStruct = {3, sizeof(mpls_vpn_interfaces), kShowInterfacesOffsets,
                                                      std::size(kShowInterfacesOffsets)};
constexpr ParcelStructLayout kShowVrfStruct = {4, sizeof(mpls_vpn_vrf), kShowVrfOffsets,
                                               std::size(kShowVrfOffsets)};

constexpr ParcelStructLayout kShowRtStructs[] = {kShowRtStruct};
constexpr ParcelLayout kShowRtLayout = {kShowRtStructs, std::size(kShowRtStructs)};
constexpr ParcelStructLayout kShowAfiSafiStructs[] = {kShowAfiSafiStruct, kShowRtStruct};
constexpr ParcelLayout kShowAfiSafiLayout = {kShowAfiSafiStructs, std::size(kShowAfiSafiStructs)};
constexpr ParcelStructLayout kShowInterfacesStructs[] = {kShowInterfacesStruct};
constexpr ParcelLayout kShowInterfacesLayout = {kShowInterfacesStructs, std::size(kShowInterfacesStructs)};
constexpr ParcelStructLayout kShowVrfStructs[] = {kShowVrfStruct, kShowRtStruct, kShowAfiSafiStruct,
                                                  kShowInterfacesStruct};
constexpr ParcelLayout kShowVrfLayout = {kShowVrfStructs, std::size(kShowVrfStructs)};

}  // namespace

const ParcelDescription kShowRtParcel = {
    1,
    "mpls_vpn_rt",
    2,
    1,
    "libmpls_vpn_parcel_desc.dll",
    &kShowRtLayout,
    "$1={RouteTargetType}[mpls_vpn_rt_type]e{RouteTargetValue}s{AFName}[mpls_vpn_afi_type]e"
    "{SAFName}[mpls_vpn_safi_type]e;",
    "$1=esee;"};

const ParcelDescription kShowAfiSafiParcel = {
    1,
    "mpls_vpn_afi_safi",
    2,
    1,
    "libmpls_vpn_parcel_desc.dll",
    &kShowAfiSafiLayout,
    "$2={AFName}[mpls_vpn_afi_type]e{SAFName}[mpls_vpn_safi_type]e{RouteTarget}a($1)"
    "{ImportRoutePolicy}s{ExportRoutePolicy}s;$1={RouteTargetType}[mpls_vpn_rt_type]e"
    "{RouteTargetValue}s{AFName}[mpls_vpn_afi_type]e{SAFName}[mpls_vpn_safi_type]e;",
    "$2=eea($1)ss;$1=esee;"};

const ParcelDescription kShowInterfacesParcel = {1,
                                                 "mpls_vpn_interfaces",
                                                 2,
                                                 1,
                                                 "libmpls_vpn_parcel_desc.dll",
                                                 &kShowInterfacesLayout,
                                                 "$3={InterfaceName}s;",
                                                 "$3=s;"};

const ParcelDescription kShowVrfParcel = {
    1,
    "mpls_vpn_vrf",
    2,
    1,
    "libmpls_vpn_parcel_desc.dll",
    &kShowVrfLayout,
    "$4={VRFName}s{VRFDescription}s{RouteDistinguisher}s{Interfaces}a($3){AF}a($2){isBigVrf}b;"
    "$1={RouteTargetType}[mpls_vpn_rt_type]e{RouteTargetValue}s{AFName}[mpls_vpn_afi_type]e"
    "{SAFName}[mpls_vpn_safi_type]e;$2={AFName}[mpls_vpn_afi_type]e"
    "{SAFName}[mpls_vpn_safi_type]e{RouteTarget}a($1){ImportRoutePolicy}s{ExportRoutePolicy}s;"
    "$3={InterfaceName}s;",
    "$4=sssa($3)a($2)b;$1=esee;$2=eea($1)ss;$3=s;"};

Status mpls_vpn_parcel_register() {
  static constexpr const ParcelDescription* kSet[] = {&kShowRtParcel, &kShowAfiSafiParcel,
                                                      &kShowInterfacesParcel, &kShowVrfParcel};
  return mpls_vpn_parcel_register_set("mpls_vpn.parcel", kSet, std::size(kSet));
}
