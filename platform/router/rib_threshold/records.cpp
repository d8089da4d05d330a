// Descriptions and encoding of the threshold events: see records.h. Stateless; any thread.
#include "platform/router/rib_threshold/records.h"

#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <memory>

namespace rib_threshold {

namespace {

constexpr char kLibrary[] = "rib_show_desc.dll";  // defines the types for readers

constexpr std::uint32_t kMidOffsets[] = {offsetof(MidThreshold, ext_table_id),
                                         offsetof(MidThreshold, ext_curr_num_routes),
                                         offsetof(MidThreshold, ext_conf_mid_threshold)};
constexpr std::uint32_t kMaximumOffsets[] = {
    offsetof(MaximumThreshold, ext_clear), offsetof(MaximumThreshold, ext_table_id),
    offsetof(MaximumThreshold, ext_curr_num_routes), offsetof(MaximumThreshold, ext_conf_max_threshold)};
constexpr ParcelStructLayout kMidStructs[] = {{1, sizeof(MidThreshold), kMidOffsets, std::size(kMidOffsets)}};
constexpr ParcelStructLayout kMaximumStructs[] = {
    {2, sizeof(MaximumThreshold), kMaximumOffsets, std::size(kMaximumOffsets)}};
constexpr ParcelLayout kMidLayout = {kMidStructs, std::size(kMidStructs)};
constexpr ParcelLayout kMaximumLayout = {kMaximumStructs, std::size(kMaximumStructs)};

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

const ParcelDescription kMidThresholdParcel = {
    1,
    "rib_prov_midthresh_exceed",
    0,
    1,
    kLibrary,
    &kMidLayout,
    "$1={ext_table_id}D{ext_curr_num_routes}D{ext_conf_mid_threshold}D;",
    "$1=DDD;"};

const ParcelDescription kMaximumThresholdParcel = {
    1,
    "rib_prov_maxthresh",
    0,
    1,
    kLibrary,
    &kMaximumLayout,
    "$2={ext_clear}b{ext_table_id}D{ext_curr_num_routes}D{ext_conf_max_threshold}D;",
    "$2=bDDD;"};

Status encode(const MidThreshold& record, KvValue* value) {
  return encode_record(kMidThresholdParcel, &record, value);
}

Status encode(const MaximumThreshold& record, KvValue* value) {
  return encode_record(kMaximumThresholdParcel, &record, value);
}

}  // namespace rib_threshold
