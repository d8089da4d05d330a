#include "mpls/vpn/mib/src/interface/columns.h"

#include <charconv>
#include <cstdint>
#include <string>

#include "mpls/vpn/mib/src/interface/entry.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/walk/internal.h"

namespace {

constexpr std::span<const mib::Column<mib::Interface>> kInterfaceBatchColumns = mib::kInterfaceColumns;
constexpr std::size_t kInterfaceComponents = 3;  // interface-next, VRF, ifIndex
constexpr std::uint32_t kRowsPerClock = 16;      // between two looks at the clock

struct InterfaceKey {
  std::string vrf_name;
  std::uint32_t if_index = 0;
};

bool read_interface_key(std::string_view path, InterfaceKey* key) {
  std::string_view components[kInterfaceComponents];
  if (!split_path(path, components, kInterfaceComponents) || !decode_vrf_name(components[1], &key->vrf_name))
    return false;
  const std::string_view index = components[2];
  const auto parsed = std::from_chars(index.data(), index.data() + index.size(), key->if_index);
  return parsed.ec == std::errc() && parsed.ptr == index.data() + index.size();
}

bool is_step_over(const KvColumnBatch& batch) {
  return batch.steps != nullptr && batch.rows % kRowsPerClock == 0 && batch.steps->is_over();
}

}  // namespace

Status mpls_vpn_mib_read_interface_columns(const KvRequest* request, KvColumnBatch* batch) {
  if (!mib::has_columns(kInterfaceBatchColumns, batch->columns)) return kStatusInvalid;
  const bool with_protocols = mib::has_column(kInterfaceBatchColumns, batch->columns, "protocol");
  InterfaceKey key;
  if (!read_interface_key(kvtree_request_path(request), &key)) return kStatusBadKey;
  mpls_vpn_debug(PROV, "%s: VRF %s, at most %u rows", __func__, key.vrf_name.c_str(), batch->max_rows);
  const IfNode* node = mpls_vpn_mib_get_next_valid_intf(key.vrf_name.c_str(), key.if_index);
  for (; node != nullptr; node = mpls_vpn_mib_get_following_valid_intf(node)) {
    mib::pack_record(mpls_vpn_mib_interface_row(node, with_protocols), kInterfaceBatchColumns, batch);
    ++batch->rows;
    if (batch->is_full() || is_step_over(*batch)) return kStatusOk;
  }
  batch->end = true;
  return batch->rows > 0 ? kStatusOk : kStatusNoSuchRow;
}
