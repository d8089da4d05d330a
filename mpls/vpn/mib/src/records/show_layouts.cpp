// The show form of a VRF: the VRF with its interfaces and, per address family, its route targets and route
// policies.
//
// The records nest: a description lists its top structure first and then every structure below it, in schema
// text and layout alike. Enumerations are numbers in memory; their member names belong to the description
// library of the readers. Constant data.
#include <array>
#include <iterator>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/registration.h"
#include "platform/core/parcel/description.h"

namespace {

constexpr ParcelFieldType kRtType = parcel_enumeration("mpls_vpn_rt_type");
constexpr ParcelFieldType kAfiType = parcel_enumeration("mpls_vpn_afi_type");
constexpr ParcelFieldType kSafiType = parcel_enumeration("mpls_vpn_safi_type");

constexpr std::array kShowRtFields = {
    PARCEL_FIELD(mpls_vpn_rt, RouteTargetType, kRtType),
    PARCEL_FIELD(mpls_vpn_rt, RouteTargetValue),
    PARCEL_FIELD(mpls_vpn_rt, AFName, kAfiType),
    PARCEL_FIELD(mpls_vpn_rt, SAFName, kSafiType),
};
constexpr auto kShowRt = parcel_structure<mpls_vpn_rt>(1, kShowRtFields);

constexpr std::array kShowAfiSafiFields = {
    PARCEL_FIELD(mpls_vpn_afi_safi, AFName, kAfiType),
    PARCEL_FIELD(mpls_vpn_afi_safi, SAFName, kSafiType),
    PARCEL_FIELD(mpls_vpn_afi_safi, RouteTarget, parcel_array_of(kShowRt)),
    PARCEL_FIELD(mpls_vpn_afi_safi, ImportRoutePolicy),
    PARCEL_FIELD(mpls_vpn_afi_safi, ExportRoutePolicy),
};
constexpr auto kShowAfiSafi = parcel_structure<mpls_vpn_afi_safi>(2, kShowAfiSafiFields);

constexpr std::array kShowInterfacesFields = {
    PARCEL_FIELD(mpls_vpn_interfaces, InterfaceName),
};
constexpr auto kShowInterfaces = parcel_structure<mpls_vpn_interfaces>(3, kShowInterfacesFields);

constexpr std::array kShowVrfFields = {
    PARCEL_FIELD(mpls_vpn_vrf, VRFName),
    PARCEL_FIELD(mpls_vpn_vrf, VRFDescription),
    PARCEL_FIELD(mpls_vpn_vrf, RouteDistinguisher),
    PARCEL_FIELD(mpls_vpn_vrf, Interfaces, parcel_array_of(kShowInterfaces)),
    PARCEL_FIELD(mpls_vpn_vrf, AF, parcel_array_of(kShowAfiSafi)),
    PARCEL_FIELD(mpls_vpn_vrf, isBigVrf, kParcelBoolean),
};
constexpr auto kShowVrf = parcel_structure<mpls_vpn_vrf>(4, kShowVrfFields);

template <const auto&... kStructures>
constexpr ParcelDescription show_description(const char* type_name) {
  return parcel_description<kStructures...>(type_name, 2, 1, "libmpls_vpn_parcel_desc.dll");
}

}  // namespace

constinit const ParcelDescription kShowRtParcel = show_description<kShowRt>("mpls_vpn_rt");
constinit const ParcelDescription kShowAfiSafiParcel =
    show_description<kShowAfiSafi, kShowRt>("mpls_vpn_afi_safi");
constinit const ParcelDescription kShowInterfacesParcel =
    show_description<kShowInterfaces>("mpls_vpn_interfaces");
constinit const ParcelDescription kShowVrfParcel =
    show_description<kShowVrf, kShowRt, kShowAfiSafi, kShowInterfaces>("mpls_vpn_vrf");

Status mpls_vpn_parcel_register() {
  static constexpr const ParcelDescription* kSet[] = {&kShowRtParcel, &kShowAfiSafiParcel,
                                                      &kShowInterfacesParcel, &kShowVrfParcel};
  return mpls_vpn_parcel_register_set("mpls_vpn.parcel", kSet, std::size(kSet));
}
