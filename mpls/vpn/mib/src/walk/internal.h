// Shared by what continues a walk: the walk rules, and the readers of batches of columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/store/tree/kvtree.h"

// A row decoded from a reply; its indirections are released with it. decode() answers kStatusBadEncoding for
// a row without the text `key`.
template <typename Record>
struct DecodedRow {
  explicit DecodedRow(const ParcelDescription* of) : description(of) {}
  ~DecodedRow() { prov_release_parcel(&row, description, "mpls_vpn_mib_prov_walk"); }
  DecodedRow(const DecodedRow&) = delete;
  DecodedRow& operator=(const DecodedRow&) = delete;
  Status decode(const KvReply* reply, char* Record::*key) {
    const Status rc = parcel_decode(description, reply->data, reply->length, &row);
    return rc == kStatusOk && row.*key == nullptr ? kStatusBadEncoding : rc;
  }

  const ParcelDescription* description;
  Record row{};
};

// Splits a path into exactly `count` components. False when it has another number of them.
bool split_path(std::string_view path, std::string_view* components, std::size_t count);

// True when a batch must be interrupted: some rows are done, and the step is over.
bool is_step_over(const KvColumnBatch& batch);

// The number of a component. False when it is not one.
bool decode_number(std::string_view component, std::uint32_t* number);
// The VRF name of a component. False when it does not decode.
bool decode_vrf_name(std::string_view component, std::string* name);
