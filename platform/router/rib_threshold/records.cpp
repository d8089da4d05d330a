// Field tables of the threshold events.
#include "platform/router/rib_threshold/records.h"

#include <array>
#include <cstddef>

#include "platform/core/parcel/description.h"

namespace rib_threshold {

namespace {

constexpr char kLibrary[] = "rib_show_desc.dll";  // defines the types for readers

constexpr std::array kMidFields = {
    PARCEL_FIELD(MidThreshold, ext_table_id),
    PARCEL_FIELD(MidThreshold, ext_curr_num_routes),
    PARCEL_FIELD(MidThreshold, ext_conf_mid_threshold),
};
constexpr auto kMid = parcel_structure<MidThreshold>(1, kMidFields);

constexpr std::array kMaximumFields = {
    PARCEL_FIELD(MaximumThreshold, ext_clear, kParcelBoolean),
    PARCEL_FIELD(MaximumThreshold, ext_table_id),
    PARCEL_FIELD(MaximumThreshold, ext_curr_num_routes),
    PARCEL_FIELD(MaximumThreshold, ext_conf_max_threshold),
};
constexpr auto kMaximum = parcel_structure<MaximumThreshold>(2, kMaximumFields);

}  // namespace

constinit const ParcelDescription kMidThresholdParcel =
    parcel_description<kMid>("rib_prov_midthresh_exceed", 0, 1, kLibrary);
constinit const ParcelDescription kMaximumThresholdParcel =
    parcel_description<kMaximum>("rib_prov_maxthresh", 0, 1, kLibrary);

}  // namespace rib_threshold
