// A VRF is up while it has an active interface. Its administrative status mirrors that deliberately: a VRF
// cannot be switched off. The daemon counts no label violations and no added, deleted or dropped routes.
#include "mpls/vpn/mib/src/vrf/entry.h"

#include <cstdint>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "mpls/vpn/mib/src/support/name.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/vrf/counters.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/router/model/default_vrf.h"

namespace {

constexpr char kVrfHandler[] = "mpls_vpn_mib_prov_get_vrf";
constexpr char kVrfFill[] = "fill_vrf_parcel";

// A node can refer to a forward reference between the VRF's deletion and its notification.
bool is_row(const VrfNode* node) {
  return node->vrf_rec->vrf_id != 0 && node->vrf_name != router::kDefaultVrf;
}

// The node or the first row after it. Null also when the node found is not valid.
const VrfNode* row_from(const VrfNode* node) {
  while (node != nullptr && !is_row(node)) {
    node = mpls_vpn_mib_vrf_dbase_next(node);
    if (node != nullptr && mpls_vpn_mib_vrf_node_validate(node) != kStatusOk) return nullptr;
  }
  return node;
}

const VrfNode* find_next(const char* vrf_name) {
  return row_from(mpls_vpn_mib_get_vrf_node(false, vrf_name));
}

const VrfNode* completed(const VrfNode* node) {
  if (node != nullptr) mpls_vpn_mib_vrf_complete_missing(node->vrf_rec);
  return node;
}

void fill_texts(mpls_vpn_mib_vrf* row, const VtabVrfRecord* record, const mpls_vpn_vrf_attr& attributes) {
  prov_copy_inner_text(&row->name, record->vrf_name, kVrfFill);
  prov_copy_inner_text(&row->description, attributes.description, kVrfFill);
  prov_copy_inner_text(&row->rd, attributes.rd, kVrfFill);
}

void fill_attributes(mpls_vpn_mib_vrf* row, const mpls_vpn_vrf_attr& attributes) {
  row->creationTime = attributes.creation_time;
  row->confLastChanged = attributes.conf_last_changed_time;
  row->midThresh = attributes.mid_thresh;
  row->highThresh = attributes.high_thresh;
  row->rowStatus = kRowStatusActive;
  row->storageType = kStorageTypeReadOnly;
}

void fill_interface_counts(mpls_vpn_mib_vrf* row, const VtabVrfRecord* record) {
  fill_vrf_counters(record->vrf_name, nullptr, &row->associatedInterfaces, &row->activeInterfaces);
  row->operStatus = row->activeInterfaces != 0 ? kVrfOperStatusUp : kVrfOperStatusDown;
  row->adminStatus = row->operStatus;
}

void fill_route_count(mpls_vpn_mib_vrf* row, const VtabVrfRecord* record) {
  row->currNumRoutes = mpls_vpn_mib_ipv4_unicast_active_routes(record->ipv4_table_id) +
                       mpls_vpn_mib_ipv6_unicast_active_routes(record->ipv6_table_id);
}

}  // namespace

void fill_vrf_parcel(mpls_vpn_mib_vrf* row, const VtabVrfRecord* record) {
  mpls_vpn_debug(PROV, "Entering function %s", kVrfFill);
  *row = {};
  if (record == nullptr) {
    mpls_vpn_debug(ERR, "NULL arguments in %s", kVrfFill);
    return;
  }
  const mpls_vpn_vrf_attr& attributes = *mpls_vpn_vrf_attributes(record);
  fill_texts(row, record, attributes);
  fill_attributes(row, attributes);
  fill_interface_counts(row, record);
  fill_route_count(row, record);
}

const VrfNode* mpls_vpn_mib_get_next_vrf(const char* vrf_name) {
  return completed(find_next(vrf_name));
}

const VrfNode* mpls_vpn_mib_get_following_vrf(const VrfNode* node) {
  const VrfNode* next = mpls_vpn_mib_vrf_dbase_next(node);
  if (next == nullptr || mpls_vpn_mib_vrf_node_validate(next) != kStatusOk) return nullptr;
  return completed(row_from(next));
}

mpls_vpn_mib_vrf mpls_vpn_mib_vrf_row(const VtabVrfRecord* record, VrfRowParts parts) {
  const mpls_vpn_vrf_attr& attributes = *mpls_vpn_vrf_attributes(record);
  mpls_vpn_mib_vrf row{};
  row.name = const_cast<char*>(record->vrf_name);  // only read
  row.description = attributes.description;
  row.rd = attributes.rd;
  fill_attributes(&row, attributes);
  if (parts.with_interfaces) fill_interface_counts(&row, record);
  if (parts.with_routes) fill_route_count(&row, record);
  return row;
}

Status mpls_vpn_mib_prov_get_vrf(KvReply* reply, const RequestArgs* args) {
  if (const Status rc = prov_check_arguments(args, 1, kVrfHandler)) return rc;
  const char* vrf_name = args->arg[0].text;
  mpls_vpn_debug(PROV, "Entering function %s with vrfName = %s", kVrfHandler, vrf_name);
  const VrfNode* node = is_next_read(args) ? find_next(vrf_name) : mpls_vpn_mib_get_vrf_node(true, vrf_name);
  if (node == nullptr) return kStatusNoSuchRow;
  mpls_vpn_debug(PROV, "Found VRF %s", node->vrf_name);
  mpls_vpn_mib_vrf_complete_missing(node->vrf_rec);
  mpls_vpn_mib_vrf row;
  fill_vrf_parcel(&row, node->vrf_rec);
  if (row.name != nullptr) return prov_encode_parcel(reply, &row, &kMibVrfParcel);
  // A reader needs the row's name to continue from it.
  prov_release_parcel(&row, &kMibVrfParcel, kVrfHandler);
  return kStatusNoMemory;
}
