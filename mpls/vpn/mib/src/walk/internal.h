// Shared by the walk rules. Not for other files.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/store/tree/kvtree.h"

// A row decoded from a reply; its indirections are released with it.
template <typename Record>
struct DecodedRow {
  explicit DecodedRow(const ParcelDescription* of) : description(of) {}
  ~DecodedRow() {
    const Status rc = parcel_free_indirections(description, &row);
    if (rc != kStatusOk) mpls_vpn_error("mpls_vpn_mib_prov_walk", "parcel_free_indirections", rc);
  }
  DecodedRow(const DecodedRow&) = delete;
  DecodedRow& operator=(const DecodedRow&) = delete;
  Status decode(const KvReply* reply) { return parcel_decode(description, reply->data, reply->length, &row); }

  const ParcelDescription* description;
  Record row{};
};

// Splits a path into exactly `count` components. False when it has another number of them.
bool split_path(std::string_view path, std::string_view* components, std::size_t count);

// The VRF name of a component. False when it does not decode.
bool decode_vrf_name(std::string_view component, std::string* name);
