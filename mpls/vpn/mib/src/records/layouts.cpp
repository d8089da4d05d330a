// Descriptions of the MIB's rows and traps, and of the two routing-table events, from their field tables.
//
// Readers in other processes compare schemas and version numbers; a change of a table is a change of the wire
// form. Everything is constant data. RFC 4382 section 5 defines the objects.
#include <array>
#include <iterator>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/registration.h"
#include "platform/core/parcel/description.h"

namespace {

constexpr auto kMibScalars = parcel_structure<mpls_vpn_mib_scalars>(1, kMibScalarsFields);
constexpr auto kMibInterface = parcel_structure<mpls_vpn_mib_interface>(2, kMibInterfaceFields);
constexpr auto kMibVrf = parcel_structure<mpls_vpn_mib_vrf>(3, kMibVrfFields);
constexpr auto kMibRt = parcel_structure<mpls_vpn_mib_rt>(4, kMibRtFields);
constexpr auto kMibRoute = parcel_structure<mpls_vpn_mib_route>(5, kMibRouteFields);
constexpr auto kMibTrap = parcel_structure<mpls_vpn_mib_trap>(6, kMibTrapFields);

constexpr std::array kRibMidThreshFields = {
    PARCEL_FIELD(rib_prov_midthresh_exceed, ext_table_id),
    PARCEL_FIELD(rib_prov_midthresh_exceed, ext_curr_num_routes),
    PARCEL_FIELD(rib_prov_midthresh_exceed, ext_conf_mid_threshold),
};
constexpr auto kRibMidThresh = parcel_structure<rib_prov_midthresh_exceed>(1, kRibMidThreshFields);

constexpr std::array kRibMaxThreshFields = {
    PARCEL_FIELD(rib_prov_maxthresh, ext_clear, kParcelBoolean),
    PARCEL_FIELD(rib_prov_maxthresh, ext_table_id),
    PARCEL_FIELD(rib_prov_maxthresh, ext_curr_num_routes),
    PARCEL_FIELD(rib_prov_maxthresh, ext_conf_max_threshold),
};
constexpr auto kRibMaxThresh = parcel_structure<rib_prov_maxthresh>(2, kRibMaxThreshFields);

template <const auto& kStructure>
constexpr ParcelDescription mib_description(const char* type_name) {
  return parcel_description<kStructure>(type_name, 1, 0, "libmpls_vpn_mib_parcel_desc.dll");
}

template <const auto& kStructure>
constexpr ParcelDescription rib_description(const char* type_name) {
  return parcel_description<kStructure>(type_name, 0, 1, "rib_show_desc.dll");
}

}  // namespace

constinit const ParcelDescription kMibScalarsParcel = mib_description<kMibScalars>("mpls_vpn_mib_scalars");
constinit const ParcelDescription kMibInterfaceParcel =
    mib_description<kMibInterface>("mpls_vpn_mib_interface");
constinit const ParcelDescription kMibVrfParcel = mib_description<kMibVrf>("mpls_vpn_mib_vrf");
constinit const ParcelDescription kMibRtParcel = mib_description<kMibRt>("mpls_vpn_mib_rt");
constinit const ParcelDescription kMibRouteParcel = mib_description<kMibRoute>("mpls_vpn_mib_route");
constinit const ParcelDescription kMibTrapParcel = mib_description<kMibTrap>("mpls_vpn_mib_trap");

constinit const ParcelDescription kRibMidThreshParcel =
    rib_description<kRibMidThresh>("rib_prov_midthresh_exceed");
constinit const ParcelDescription kRibMaxThreshParcel = rib_description<kRibMaxThresh>("rib_prov_maxthresh");

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
