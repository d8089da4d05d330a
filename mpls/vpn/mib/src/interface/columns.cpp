#include "mpls/vpn/mib/src/interface/columns.h"

#include <cstdint>
#include <string>

#include "mpls/vpn/mib/src/interface/entry.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/walk/internal.h"

namespace {

constexpr std::span<const mib::Column<mib::Interface>> kInterfaceBatchColumns = mib::kInterfaceColumns;
constexpr std::size_t kInterfaceComponents = 3;  // interface-next, VRF, ifIndex

struct InterfaceKey {
  std::string vrf_name;
  std::uint32_t if_index = 0;
};

bool read_interface_key(std::string_view path, InterfaceKey* key) {
  std::string_view components[kInterfaceComponents];
  if (!split_path(path, components, kInterfaceComponents) || !decode_vrf_name(components[1], &key->vrf_name))
    return false;
  return decode_number(components[2], &key->if_index);
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
