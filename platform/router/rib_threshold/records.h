// The two records of the routing table's threshold events: their type names, versions and layouts are a
// contract with every process that decodes them. An encoded record carries its type name and a hash of its
// schema, so that decoding with a different description fails (kStatusBadEncoding).
#pragma once

#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace rib_threshold {

struct MidThreshold {
  std::uint32_t ext_table_id;
  std::uint32_t ext_curr_num_routes;
  std::uint32_t ext_conf_mid_threshold;  // routes
};

struct MaximumThreshold {
  std::uint32_t ext_clear;  // 1: the threshold is no longer exceeded
  std::uint32_t ext_table_id;
  std::uint32_t ext_curr_num_routes;
  std::uint32_t ext_conf_max_threshold;  // routes
};

extern const ParcelDescription kMidThresholdParcel;
extern const ParcelDescription kMaximumThresholdParcel;

}  // namespace rib_threshold
