#include "mpls/vpn/mib/src/route_target/columns.h"

#include <cstdint>
#include <string>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route_target/entry.h"
#include "mpls/vpn/mib/src/walk/internal.h"
#include "mpls/vpn/mib/src/walk/walk.h"

namespace {

constexpr std::span<const mib::Column<mib::RouteTarget>> kRtBatchColumns = mib::kRouteTargetColumns;
constexpr std::size_t kRtKeyComponents = 4;  // rt-next, VRF, number, type

struct RtKey {
  std::string vrf_name;
  std::uint32_t index = 0;
  std::uint32_t type = 0;
};

struct RtRow {
  const RtNode* node;
  std::uint32_t index;
};

bool read_rt_key(std::string_view path, RtKey* key) {
  std::string_view components[kRtKeyComponents];
  return split_path(path, components, kRtKeyComponents) && decode_vrf_name(components[1], &key->vrf_name) &&
         decode_number(components[2], &key->index) && decode_number(components[3], &key->type);
}

RtRow next_rt(const std::string& vrf_name, std::uint32_t index, std::uint32_t type) {
  const RtNode* const node =
      mpls_vpn_mib_get_rt(false, vrf_name.c_str(), &index, static_cast<std::int32_t>(type));
  return {node, index};
}

// What the database answers from another VRF than the requested one may be after that VRF's first row, as for
// rt_redirect().
RtRow first_rt(const RtKey& key) {
  const RtRow row = next_rt(key.vrf_name, key.index, key.type);
  if (key.index == 0 || (row.node != nullptr && key.vrf_name == row.node->vrf_name)) return row;
  const std::string following = following_vrf_name(key.vrf_name);
  return following.empty() ? row : next_rt(following, 0, 0);
}

RtRow following_rt(const RtRow& row) {
  const RtNode* const next = mpls_vpn_mib_rt_dbase_next(row.node);
  return {next, mpls_vpn_mib_is_same_vrf(row.node, next) ? row.index + 1 : 1};
}

}  // namespace

Status mpls_vpn_mib_read_rt_columns(const KvRequest* request, KvColumnBatch* batch) {
  if (!mib::has_columns(kRtBatchColumns, batch->columns)) return kStatusInvalid;
  RtKey key;
  if (!read_rt_key(kvtree_request_path(request), &key)) return kStatusBadKey;
  mpls_vpn_debug(PROV, "%s: VRF %s, at most %u rows", __func__, key.vrf_name.c_str(), batch->max_rows);
  for (RtRow row = first_rt(key); row.node != nullptr; row = following_rt(row)) {
    mib::pack_record(mpls_vpn_mib_rt_row(row.node, row.index), kRtBatchColumns, batch);
    ++batch->rows;
    if (batch->is_full() || is_step_over(*batch)) return kStatusOk;
  }
  batch->end = true;
  return batch->rows > 0 ? kStatusOk : kStatusNoSuchRow;
}
