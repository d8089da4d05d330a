// RFC 4382 has no column for the address family of a route target; the description column contains it.
#include "mpls/vpn/mib/src/route_target/entry.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/trace.h"

namespace {

constexpr char kRtHandler[] = "mpls_vpn_mib_prov_get_rt";
constexpr char kRtFill[] = "fill_rt_parcel";

struct FamilyText {
  std::uint32_t afi;
  std::uint32_t safi;
  const char* text;
};

constexpr FamilyText kFamilyTexts[] = {
    {1, 1, "IPv4 Unicast"},
    {1, 2, "IPv4 Multicast"},
    {2, 1, "IPv6 Unicast"},
    {2, 2, "IPv6 Multicast"},
};

// Null for any other pair, SAFI 133 among them.
const char* family_text(std::uint32_t afi, std::uint32_t safi) {
  for (const FamilyText& family : kFamilyTexts) {
    if (family.afi == afi && family.safi == safi) return family.text;
  }
  return nullptr;
}

// Without its VRF or its route target a row would be misread: answer none.
Status refuse_unfilled(mpls_vpn_mib_rt* row) {
  std::free(row->rt);
  std::free(row->description);
  std::free(row->vrfName);
  *row = {};
  return kStatusNoMemory;
}

}  // namespace

mpls_vpn_mib_rt mpls_vpn_mib_rt_row(const RtNode* node, std::uint32_t index) {
  mpls_vpn_mib_rt row{};
  row.index = index;
  row.type = node->type;
  row.rt = node->value;
  row.description = const_cast<char*>(family_text(node->afi, node->safi));  // only read
  row.rowStatus = kRowStatusActive;
  row.storageType = kStorageTypeReadOnly;
  row.vrfName = node->vrf_name;
  return row;
}

Status fill_rt_parcel(mpls_vpn_mib_rt* row, const RtNode* node, std::uint32_t index) {
  mpls_vpn_debug(PROV, "Entering function %s", kRtFill);
  *row = {};
  row->index = index;
  row->type = node->type;
  if (node->value == nullptr) mpls_vpn_debug(ERR, "In function %s: node->value is NULL", kRtFill);
  if (!prov_copy_text(&row->rt, node->value, kRtFill)) return refuse_unfilled(row);
  prov_copy_inner_text(&row->description, family_text(node->afi, node->safi), kRtFill);
  row->rowStatus = kRowStatusActive;
  row->storageType = kStorageTypeReadOnly;
  if (node->vrf_name == nullptr) mpls_vpn_debug(ERR, "In function %s: node->vrf_name is NULL", kRtFill);
  return prov_copy_text(&row->vrfName, node->vrf_name, kRtFill) ? kStatusOk : refuse_unfilled(row);
}

Status mpls_vpn_mib_prov_get_rt(KvReply* reply, const RequestArgs* args) {
  if (const Status rc = prov_check_arguments(args, 3, kRtHandler)) return rc;
  const char* vrf_name = args->arg[0].text;
  std::uint32_t index = *args->arg[1].number;
  const auto type = static_cast<std::int32_t>(*args->arg[2].number);
  // The missing blank is deliberate: log filters match the text.
  mpls_vpn_debug(PROV, "Entering function %s with vrfName = %saux index = %u, RT type = %d", kRtHandler,
                 vrf_name, index, type);
  const RtNode* node = mpls_vpn_mib_get_rt(!is_next_read(args), vrf_name, &index, type);
  if (node == nullptr) {
    mpls_vpn_debug(PROV, "No RT found");
    return kStatusNoSuchRow;
  }
  mpls_vpn_mib_rt row;
  if (const Status rc = fill_rt_parcel(&row, node, index)) return rc;
  return prov_encode_parcel(reply, &row, &kMibRtParcel);
}
