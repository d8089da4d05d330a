#include "mpls/vpn/mib/src/vrf/columns.h"

#include <algorithm>
#include <string>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/vrf/entry.h"
#include "mpls/vpn/mib/src/walk/internal.h"

namespace {

constexpr std::span<const mib::Column<mib::Vrf>> kVrfBatchColumns = mib::kVrfColumns;
constexpr std::size_t kVrfComponents = 2;  // vrf-next, VRF

VrfRowParts parts_of(const KvColumnBatch& batch) {
  const auto has = [&](std::string_view key) {
    return mib::has_column(kVrfBatchColumns, batch.columns, key);
  };
  return {has("activeInterfaces") || has("associatedInterfaces") || has("operStatus") || has("adminStatus"),
          has("currNumRoutes")};
}

}  // namespace

Status mpls_vpn_mib_read_vrf_columns(const KvRequest* request, KvColumnBatch* batch) {
  if (!mib::has_columns(kVrfBatchColumns, batch->columns)) return kStatusInvalid;
  std::string_view components[kVrfComponents];
  std::string vrf_name;
  const bool is_key = split_path(kvtree_request_path(request), components, kVrfComponents) &&
                      decode_vrf_name(components[1], &vrf_name);
  if (!is_key) return kStatusBadKey;
  mpls_vpn_debug(PROV, "%s: VRF %s, at most %u rows", __func__, vrf_name.c_str(), batch->max_rows);
  const VrfRowParts parts = parts_of(*batch);
  const VrfNode* node = mpls_vpn_mib_get_next_vrf(vrf_name.c_str());
  for (; node != nullptr; node = mpls_vpn_mib_get_following_vrf(node)) {
    mib::pack_record(mpls_vpn_mib_vrf_row(node->vrf_rec, parts), kVrfBatchColumns, batch);
    ++batch->rows;
    if (batch->is_full() || is_step_over(*batch)) return kStatusOk;
  }
  batch->end = true;
  return batch->rows > 0 ? kStatusOk : kStatusNoSuchRow;
}
