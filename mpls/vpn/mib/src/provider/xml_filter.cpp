// Policies are in the VRF's attribute block, route targets in their database; AFI and SAFI are those of RFC
// 4760. Of the tables met, the first two unicast ones count, or the first unicast one of the requested
// family: a VRF has one per family.
#include "mpls/vpn/mib/src/provider/xml_filter.h"

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "platform/core/address/address.h"

namespace {

constexpr unsigned kUnicastTables = 2;

bool has_route_policy(const VtabVrfRecord* record, std::uint32_t afi) {
  const mpls_vpn_vrf_attr* attributes = mpls_vpn_vrf_attributes(record);
  return attributes->import_route_policy[afi - 1] != nullptr ||
         attributes->export_route_policy[afi - 1] != nullptr;
}

bool has_route_target(const VtabVrfRecord* record, const VtabTableRecord* table) {
  const char* vrf_name = record->vrf_name;
  for (const RtNode* node = mpls_vpn_mib_get_first_rt_in_vrf(vrf_name); node != nullptr;
       node = mpls_vpn_mib_get_next_rt_in_vrf(node, vrf_name)) {
    if (node->afi == table->afi && node->safi == table->safi) return true;
  }
  return false;
}

// Takes the table in; false when no further table can count.
bool consider(const VtabVrfRecord* record, const VtabTableRecord* table, std::uint32_t wanted,
              unsigned* considered, std::uint32_t* tables, std::uint32_t* afi) {
  if (table->safi != inet::kUnicastSafi) return true;
  if (wanted != 0 && table->afi != wanted) return true;
  if (mpls_vpn_mib_prov_xml_filter_route_info(record, table, afi)) ++*tables;
  return ++*considered < (wanted == 0 ? kUnicastTables : 1);
}

}  // namespace

bool mpls_vpn_mib_prov_xml_filter_route_info(const VtabVrfRecord* record, const VtabTableRecord* table,
                                             std::uint32_t* afi) {
  mpls_vpn_debug(PROV, "Entering function %s", __func__);
  if (record == nullptr || table == nullptr) return false;
  if (table->afi != 1 && table->afi != 2) return false;
  if (!has_route_policy(record, table->afi) && !has_route_target(record, table)) return false;
  *afi = table->afi;
  return true;
}

std::uint32_t mpls_vpn_mib_prov_xml_filter(const VtabVrfRecord* record, std::uint32_t* afi_index) {
  mpls_vpn_debug(PROV, "Entering function %s", __func__);
  const char* vrf_name = record->vrf_name;
  unsigned considered = 0;
  std::uint32_t tables = 0;
  std::uint32_t afi = 0;
  for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(vrf_name);
       table != nullptr && vrf_in_database(vrf_name) != nullptr;
       table = vtab_get_next_table_record_by_vrf_name(vrf_name, table)) {
    if (!consider(record, table, *afi_index, &considered, &tables, &afi)) break;
  }
  if (tables == 1) *afi_index = afi;
  mpls_vpn_debug(PROV, "%s: xml table count: %u, afi_index: %u", __func__, tables, *afi_index);
  return tables;
}
