// The routing protocols of a row are a BITS value (RFC 2578, section 7.1.4): protocol k is bit k, counted
// from the most significant bit of the octet, and is set when it is enabled on the interface or in the
// whole VRF.
#include "mpls/vpn/mib/src/interface/entry.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/router/model/default_vrf.h"
#include "platform/router/vtab/vtab.h"

namespace {

constexpr char kInterfaceHandler[] = "mpls_vpn_mib_prov_get_interface";
constexpr char kInterfaceFill[] = "fill_interface_parcel";

std::uint8_t protocol_bits(const std::uint32_t (&counts)[kMplsVpnProtocols]) {
  unsigned bits = 0;
  for (unsigned protocol = 0; protocol < kMplsVpnProtocols; ++protocol) {
    if (counts[protocol] != 0) bits |= 1U << (7 - protocol);
  }
  return static_cast<std::uint8_t>(bits);
}

std::uint8_t protocols_of(const IfNode* node) {
  const std::uint8_t of_interface = protocol_bits(node->protocol_count);
  const VtabVrfRecord* record =
      node->vrf_name == nullptr ? nullptr : vtab_get_vrf_record_by_vrf_name(node->vrf_name);
  if (record == nullptr) return of_interface;
  return of_interface | protocol_bits(mpls_vpn_vrf_attributes(record)->protocol_count);
}

const IfNode* report_none() {
  mpls_vpn_debug(PROV, "No Interface found");
  return nullptr;
}

const IfNode* find_next(const char* vrf_name, std::uint32_t if_index) {
  const IfNode* node = mpls_vpn_mib_get_next_valid_intf(vrf_name, if_index);
  return node == nullptr ? report_none() : node;
}

const IfNode* find_exact(const char* vrf_name, std::uint32_t if_index) {
  if (vrf_name == router::kDefaultVrf) return nullptr;
  // An interface of a VRF in the database is read by "next" only (docs/decisions.md).
  if (vrf_in_database(vrf_name) != nullptr) return nullptr;
  const IfNode* node = mpls_vpn_mib_get_if(true, vrf_name, if_index);
  if (node == nullptr) return report_none();
  if (vrf_exists(node->vrf_name)) return node;
  mpls_vpn_debug(PROV, "Interface is in an invalid VRF");
  mpls_vpn_trace(kTraceError, kStatusNoSuchRow, "%s: interface %u is in an invalid VRF", kInterfaceHandler,
                 if_index);
  return nullptr;
}

void fill_numbers(mpls_vpn_mib_interface* row, const IfNode* node) {
  row->ifConfIndex = static_cast<std::int32_t>(node->if_index);
  row->vpnClassification = kVpnClassificationEnterprise;
  row->storageType = kStorageTypeReadOnly;
  row->rowStatus = kRowStatusActive;
}

Status refuse_unfilled(mpls_vpn_mib_interface* row) {
  std::free(row->name);
  std::free(row->vrfName);
  *row = {};
  return kStatusNoMemory;
}

}  // namespace

Status fill_interface_parcel(mpls_vpn_mib_interface* row, const IfNode* node) {
  mpls_vpn_debug(PROV, "Entering function %s", kInterfaceFill);
  *row = {};
  if (node->if_name == nullptr) mpls_vpn_debug(ERR, "IF DBase node has empty IF name");
  if (!prov_copy_text(&row->name, node->if_name, kInterfaceFill)) return refuse_unfilled(row);
  fill_numbers(row, node);
  row->protocol = protocols_of(node);
  if (node->vrf_name == nullptr) mpls_vpn_debug(ERR, "Node has empty VRF name");
  return prov_copy_text(&row->vrfName, node->vrf_name, kInterfaceFill) ? kStatusOk : refuse_unfilled(row);
}

Status mpls_vpn_mib_prov_get_interface(KvReply* reply, const RequestArgs* args) {
  // An empty name is valid: it is the smallest key, with which a walk of the table begins.
  if (const Status rc = prov_check_arguments(args, 2, kInterfaceHandler)) return rc;
  const char* vrf_name = args->arg[0].text;
  const std::uint32_t if_index = *args->arg[1].number;
  mpls_vpn_debug(PROV, "Entering function %s with <vrf name = %s, if_index = %d>", kInterfaceHandler,
                 vrf_name, static_cast<std::int32_t>(if_index));
  const IfNode* node = is_next_read(args) ? find_next(vrf_name, if_index) : find_exact(vrf_name, if_index);
  if (node == nullptr) return kStatusNoSuchRow;
  mpls_vpn_mib_interface row;
  if (const Status rc = fill_interface_parcel(&row, node)) return rc;
  return prov_encode_parcel(reply, &row, &kMibInterfaceParcel);
}

mpls_vpn_mib_interface mpls_vpn_mib_interface_row(const IfNode* node, bool with_protocols) {
  mpls_vpn_mib_interface row{};
  row.name = node->if_name;
  row.vrfName = node->vrf_name;
  fill_numbers(&row, node);
  if (with_protocols) row.protocol = protocols_of(node);
  return row;
}
