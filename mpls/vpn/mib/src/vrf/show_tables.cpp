// Tables are those of the record service, in its order; unicast tables and those of flow rules (SAFI 133,
// RFC 8955) are shown, each with its route targets and route policies.
#include <array>
#include <cstdlib>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/families.h"
#include "mpls/vpn/mib/src/support/report.h"
#include "mpls/vpn/mib/src/vrf/show.h"
#include "platform/core/base/memory.h"

namespace {

bool is_shown(const VtabTableRecord* table) {
  return table->safi == inet::kUnicastSafi || table->safi == inet::kFlowSafi;
}

// `unicast` and `flow_rules` by address family, IPv4 first.
const char* policy_of(const VtabTableRecord* table, char* const (&unicast)[kMplsVpnFamilies],
                      char* const (&flow_rules)[kMplsVpnFamilies]) {
  const bool is_flow_rules = table->safi == inet::kFlowSafi;
  if (table->afi == inet::kIpv4Afi) return is_flow_rules ? flow_rules[0] : unicast[0];
  if (table->afi != inet::kIpv6Afi) return nullptr;
  // Deliberate: for IPv6 the unicast policy decides whether there is any.
  if (unicast[1] == nullptr) return nullptr;
  return is_flow_rules ? flow_rules[1] : unicast[1];
}

bool is_of_table(const RtNode* node, const VtabTableRecord* table) {
  return node->afi == table->afi && node->safi == table->safi;
}

std::uint32_t count_rts(const VtabTableRecord* table, const char* vrf_name) {
  std::uint32_t count = 0;
  for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf_name); node != nullptr;
       node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf_name)) {
    if (is_of_table(node, table)) ++count;
  }
  return count;
}

void add_rts(ParcelArray* route_targets, const VtabTableRecord* table, const char* vrf_name) {
  *route_targets = {};
  const std::uint32_t count = count_rts(table, vrf_name);
  if (count == 0) return;
  auto* entries = static_cast<mpls_vpn_rt*>(calloc_tagged(count, sizeof(mpls_vpn_rt), "RT in VRF"));
  if (entries == nullptr) {
    mpls_vpn_report_failure(PROV, kStatusNoMemory, "Cannot allocate memory in function %s", "add_rts");
    return;
  }
  std::uint32_t filled = 0;
  for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf_name); node != nullptr && filled < count;
       node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf_name)) {
    if (is_of_table(node, table)) fill_show_rt_parcel(&entries[filled++], node);
  }
  *route_targets = {filled, entries};
}

// The request to add_tables, and the tables placed so far.
struct Selection {
  std::uint32_t afi_index;
  std::uint32_t second_selector;
  std::uint32_t slots;
  mpls_vpn_afi_safi* entries;
  std::uint32_t taken;
};

bool is_selected(const VtabTableRecord* table, const Selection& selection) {
  if (selection.taken == selection.slots || !is_shown(table)) return false;
  if (selection.afi_index == 0) return true;
  return table->afi == selection.afi_index && selection.second_selector != inet::kMulticastSafi;
}

void take_table(const VtabTableRecord* table, const VtabVrfRecord* record, Selection* selection) {
  const bool of_all = selection->afi_index == 0;
  if (of_all) {
    mpls_vpn_debug(PROV, "Adding table %s, afi = %d, safi = %d", table->table_name,
                   static_cast<std::int32_t>(table->afi), static_cast<std::int32_t>(table->safi));
  }
  if (!is_selected(table, *selection)) return;
  if (!of_all) {
    mpls_vpn_debug(PROV, "Adding table %s, afi = %s, safi = %s", table->table_name, afi_text(table->afi),
                   safi_text(inet::kUnicastSafi));
  }
  fill_table_parcel(&selection->entries[selection->taken++], table, record);
}

}  // namespace

void fill_show_rt_parcel(mpls_vpn_rt* entry, const RtNode* node) {
  mpls_vpn_debug(PROV, "Entering function %s", __func__);
  *entry = {};
  entry->RouteTargetType = static_cast<std::uint32_t>(node->type);
  if (node->value == nullptr) mpls_vpn_debug(ERR, "In function %s: node->value is NULL", __func__);
  prov_copy_inner_text(&entry->RouteTargetValue, node->value, __func__);
  entry->AFName = node->afi;
  entry->SAFName = node->safi;
}

void fill_table_parcel(mpls_vpn_afi_safi* entry, const VtabTableRecord* table, const VtabVrfRecord* record) {
  const mpls_vpn_vrf_attr& attributes = *mpls_vpn_vrf_attributes(record);
  *entry = {};
  entry->AFName = table->afi;
  entry->SAFName = table->safi;
  add_rts(&entry->RouteTarget, table, record->vrf_name);
  prov_copy_inner_text(
      &entry->ImportRoutePolicy,
      policy_of(table, attributes.import_route_policy, attributes.flowspec_import_route_policy), __func__);
  prov_copy_inner_text(
      &entry->ExportRoutePolicy,
      policy_of(table, attributes.export_route_policy, attributes.flowspec_export_route_policy), __func__);
}

void add_tables(ParcelArray* tables, const VtabVrfRecord* record, std::uint32_t afi_index,
                std::uint32_t second_selector, std::uint32_t slots) {
  *tables = {};
  mpls_vpn_debug(PROV, "%s table count: %u", __func__, slots);
  Selection selection = {afi_index, second_selector, slots, nullptr, 0};
  selection.entries =
      static_cast<mpls_vpn_afi_safi*>(calloc_tagged(slots, sizeof(mpls_vpn_afi_safi), "Table in VRF"));
  if (selection.entries == nullptr) {
    mpls_vpn_report_failure(PROV, kStatusNoMemory, "Cannot allocate memory in function %s", __func__);
    return;
  }
  if (afi_index != 0) {
    mpls_vpn_debug(PROV, "Adding table for specific afi = %s", afi_text(afi_index));
  }
  const char* vrf_name = record->vrf_name;
  for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(vrf_name);
       table != nullptr && vrf_in_database(vrf_name) != nullptr;
       table = vtab_get_next_table_record_by_vrf_name(vrf_name, table)) {
    take_table(table, record, &selection);
  }
  if (selection.taken == 0) {
    std::free(selection.entries);
    return;
  }
  *tables = {selection.taken, selection.entries};
}
