// Descriptions of the MIB's rows, of traps and of the show form of a VRF, from their field tables, and the
// registration of the sets.
//
// Readers in other processes compare schemas and version numbers; a change of a table is a change of the wire
// form. RFC 4382 section 5 defines the objects. The records of the show form nest: a description lists its
// top structure first and then every structure below it, in schema text and layout alike. Enumerations are
// numbers in memory; their member names belong to the description library of the readers.
#include <array>
#include <initializer_list>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/parcel/description.h"
#include "platform/router/rib_threshold/records.h"

namespace {

constexpr auto kMibScalars = parcel_structure<mpls_vpn_mib_scalars>(1, kMibScalarsFields);
constexpr auto kMibInterface = parcel_structure<mpls_vpn_mib_interface>(2, kMibInterfaceFields);
constexpr auto kMibVrf = parcel_structure<mpls_vpn_mib_vrf>(3, kMibVrfFields);
constexpr auto kMibRt = parcel_structure<mpls_vpn_mib_rt>(4, kMibRtFields);
constexpr auto kMibRoute = parcel_structure<mpls_vpn_mib_route>(5, kMibRouteFields);
constexpr auto kMibTrap = parcel_structure<mpls_vpn_mib_trap>(6, kMibTrapFields);

template <const auto& kStructure>
constexpr ParcelDescription mib_description(const char* type_name) {
  return parcel_description<kStructure>(type_name, 1, 0, "libmpls_vpn_mib_parcel_desc.dll");
}

// --- The show form of a VRF

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

// --- Registration

// In one batch, so that readers never see half a set.
Status register_set(const char* set_name, std::initializer_list<const ParcelDescription*> set) {
  ParcelBatch* batch = nullptr;
  if (const Status rc = parcel_batch_open(set_name, &batch)) return rc;
  for (const ParcelDescription* description : set) {
    if (const Status rc = parcel_register(batch, description)) {
      parcel_batch_abort(batch);
      return rc;
    }
  }
  return parcel_batch_close(batch);
}

}  // namespace

constinit const ParcelDescription kMibScalarsParcel = mib_description<kMibScalars>("mpls_vpn_mib_scalars");
constinit const ParcelDescription kMibInterfaceParcel =
    mib_description<kMibInterface>("mpls_vpn_mib_interface");
constinit const ParcelDescription kMibVrfParcel = mib_description<kMibVrf>("mpls_vpn_mib_vrf");
constinit const ParcelDescription kMibRtParcel = mib_description<kMibRt>("mpls_vpn_mib_rt");
constinit const ParcelDescription kMibRouteParcel = mib_description<kMibRoute>("mpls_vpn_mib_route");
constinit const ParcelDescription kMibTrapParcel = mib_description<kMibTrap>("mpls_vpn_mib_trap");

constinit const ParcelDescription kShowRtParcel = show_description<kShowRt>("mpls_vpn_rt");
constinit const ParcelDescription kShowAfiSafiParcel =
    show_description<kShowAfiSafi, kShowRt>("mpls_vpn_afi_safi");
constinit const ParcelDescription kShowInterfacesParcel =
    show_description<kShowInterfaces>("mpls_vpn_interfaces");
constinit const ParcelDescription kShowVrfParcel =
    show_description<kShowVrf, kShowRt, kShowAfiSafi, kShowInterfaces>("mpls_vpn_vrf");

Status mpls_vpn_mib_parcel_register() {
  return register_set("mpls_vpn_mib.parcel", {&kMibScalarsParcel, &kMibInterfaceParcel, &kMibVrfParcel,
                                              &kMibRtParcel, &kMibRouteParcel, &kMibTrapParcel});
}

Status mpls_vpn_parcel_register() {
  return register_set("mpls_vpn.parcel",
                      {&kShowRtParcel, &kShowAfiSafiParcel, &kShowInterfacesParcel, &kShowVrfParcel});
}

Status rib_show_parcel_register() {
  return register_set("rib_show.parcel",
                      {&rib_threshold::kMidThresholdParcel, &rib_threshold::kMaximumThresholdParcel});
}
