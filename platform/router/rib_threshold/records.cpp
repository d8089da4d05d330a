// Field tables and encoding of the threshold events. Any thread.
#include "platform/router/rib_threshold/records.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory>

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

struct Freed {
  void operator()(std::uint8_t* octets) const { std::free(octets); }
};

Status encode_record(const ParcelDescription& description, const void* record, KvValue* value) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  if (const Status status = parcel_encode(&description, record, &data, &length)) return status;
  const std::unique_ptr<std::uint8_t, Freed> owned(data);
  value->type = KvValueType::kRecord;
  value->record.assign(data, data + length);
  return kStatusOk;
}

}  // namespace

constinit const ParcelDescription kMidThresholdParcel =
    parcel_description<kMid>("rib_prov_midthresh_exceed", 0, 1, kLibrary);
constinit const ParcelDescription kMaximumThresholdParcel =
    parcel_description<kMaximum>("rib_prov_maxthresh", 0, 1, kLibrary);

Status encode(const MidThreshold& record, KvValue* value) {
  return encode_record(kMidThresholdParcel, &record, value);
}

Status encode(const MaximumThreshold& record, KvValue* value) {
  return encode_record(kMaximumThresholdParcel, &record, value);
}

}  // namespace rib_threshold
