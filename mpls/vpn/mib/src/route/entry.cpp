// Answers for the VRF route table: selects the VRF and its tables; the look-up of the address family fills
// the row.
//
// The daemon stores no routes. A read visits the tables of one VRF in the record service's order, IPv4 before
// IPv6; a next read continues with the following VRFs of the VRF database.
//
// The key of a next read, with its address types, applies to the first VRF; every following one is read from
// its first route, which may be of either family. A next read in steps continues after the VRF that it read
// last.
#include "mpls/vpn/mib/src/route/entry.h"

#include <string>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/route/row.h"
#include "mpls/vpn/mib/src/support/families.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/vrf/database.h"

namespace {

constexpr char kRouteHandler[] = "mpls_vpn_mib_prov_get_route";
constexpr char kSearchName[] = "mpls_vpn_mib_find_route_in_vrf";

bool is_ipv6_type(std::int32_t type) {
  return type == kInetAddressIpv6 || type == kInetAddressIpv6z;
}

bool asks_ipv6(const RouteKeyText& key) {
  return is_ipv6_type(key.dest_type) || is_ipv6_type(key.next_hop_type);
}

// The start of the next table: the types stay.
void clear_key(RouteKeyText* key) {
  key->dest = "";
  key->next_hop = "";
  key->prefix_length = 0;
}

// The start of a VRF, whose IPv4 tables come first.
constexpr RouteKeyText kFirstRoute = {1, "", 0, 1, ""};

void report_table(const VtabTableRecord* table) {
  if (table->afi == inet::kIpv4Afi) {
    mpls_vpn_debug(RIB, "AFI = %s, SAFI = %s, Tbl name = %s, Tbl ID = 0x%x", afi_text(table->afi),
                   safi_text(table->safi), table->table_name, table->table_id);
  } else {
    mpls_vpn_debug(RIB, "AFI:%s, SAFI = %s, Tbl name = %s, Tbl ID = 0x%x", afi_text(table->afi),
                   safi_text(table->safi), table->table_name, table->table_id);
  }
}

using TableLookup = Status (*)(mpls_vpn_mib_route*, std::uint32_t, bool, const RouteKeyText&);

// The first table of the family that has the route. Without memory the search ends: a row of a later table
// would otherwise precede one that could not be shown.
Status find_in_tables(mpls_vpn_mib_route* row, bool exact, const VtabVrfRecord* record, std::uint32_t afi,
                      const RouteKeyText& key, TableLookup look_up) {
  const char* vrf_name = record->vrf_name;
  for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(vrf_name); table != nullptr;
       table = vtab_get_next_table_record_by_vrf_name(vrf_name, table)) {
    if (table->afi != afi) continue;
    report_table(table);
    const Status rc = look_up(row, table->table_id, exact, key);
    if (rc != kStatusNoSuchRow) return rc;
  }
  return kStatusNoSuchRow;
}

Status name_row(mpls_vpn_mib_route* row, const VtabVrfRecord* record) {
  if (prov_copy_text(&row->vrfName, record->vrf_name, kSearchName)) return kStatusOk;
  prov_release_parcel(row, &kMibRouteParcel, kSearchName);
  *row = {};
  return kStatusNoMemory;
}

Status find_ipv6_route_in_vrf(mpls_vpn_mib_route* row, bool exact, const VtabVrfRecord* record,
                              const RouteKeyText& key) {
  mpls_vpn_debug(RIB, "Looking for an IPv6 route");
  return find_in_tables(row, exact, record, inet::kIpv6Afi, key, mpls_vpn_mib_rib_ipv6_route);
}

struct LastRead {
  std::string vrf_name;
};

// This VRF, and for a next read those after it. kStatusUnfinished if the step was over before.
Status find_from_vrf(mpls_vpn_mib_route* row, bool exact, const VrfNode* node, RouteKeyText key,
                     KvSteps* steps) {
  while (node != nullptr && mpls_vpn_mib_vrf_node_validate(node) == kStatusOk) {
    const Status rc = mpls_vpn_mib_find_route_in_vrf(row, exact, node->vrf_rec, key);
    if (rc != kStatusNoSuchRow || exact) return rc;
    if (steps != nullptr && steps->is_over()) {
      steps->state = LastRead{node->vrf_name};
      return kStatusUnfinished;
    }
    node = mpls_vpn_mib_vrf_dbase_next(node);
    key = kFirstRoute;
  }
  return kStatusNoSuchRow;
}

RouteKeyText key_of(const RequestArgs* args) {
  return {static_cast<std::int32_t>(*args->arg[1].number), args->arg[4].text, *args->arg[2].number,
          static_cast<std::int32_t>(*args->arg[3].number), args->arg[5].text};
}

// An exact read of an IPv4 key that no IPv4 table has ends in the all-zero key of the IPv6 tables. A default
// route found there is not the requested row: an SNMP Get would show an IPv4 route that does not exist, and a
// batched walk would take the row for an existing one.
bool is_of_family(const mpls_vpn_mib_route& row, const RouteKeyText& key) {
  return (row.destType == kInetAddressIpv6) == asks_ipv6(key);
}

Status resume_next_read(KvReply* reply, const LastRead& last) {
  const VrfNode* const node = mpls_vpn_mib_vrf_dbase_after(last.vrf_name.c_str());
  mpls_vpn_mib_route row;
  if (const Status rc = find_from_vrf(&row, false, node, kFirstRoute, reply->steps)) return rc;
  return prov_encode_parcel(reply, &row, &kMibRouteParcel);
}

}  // namespace

Status mpls_vpn_mib_find_route_in_vrf(mpls_vpn_mib_route* row, bool exact, const VtabVrfRecord* record,
                                      const RouteKeyText& key) {
  mpls_vpn_debug(RIB, "Looking for routes in VRF %s", record->vrf_name);
  *row = {};
  RouteKeyText rest = key;
  Status rc = kStatusNoSuchRow;
  if (!asks_ipv6(key)) {
    rc = find_in_tables(row, exact, record, inet::kIpv4Afi, key, mpls_vpn_mib_rib_ipv4_route);
    clear_key(&rest);
  }
  if (rc == kStatusNoSuchRow) rc = find_ipv6_route_in_vrf(row, exact, record, rest);
  return rc == kStatusOk ? name_row(row, record) : rc;
}

Status mpls_vpn_mib_prov_get_route(KvReply* reply, const RequestArgs* args) {
  if (const auto* last = kvtree_resumed<LastRead>(reply)) return resume_next_read(reply, *last);
  mpls_vpn_debug(PROV, "Entering function %s", kRouteHandler);
  if (const Status rc = prov_check_arguments(args, 6, kRouteHandler)) return rc;
  const char* vrf_name = args->arg[0].text;
  const RouteKeyText key = key_of(args);
  const bool exact = !is_next_read(args);
  mpls_vpn_debug(PROV,
                 "AFTER BGEN vrfName=%s, destType=%u, mask=%u, nextHopType=%u, dest=%s, nextHop=%s, "
                 "exact_search=%s\n",
                 vrf_name, *args->arg[1].number, key.prefix_length, *args->arg[3].number, key.dest,
                 key.next_hop, exact ? "TRUE" : "FALSE");
  mpls_vpn_mib_route row;
  const Status rc = find_from_vrf(&row, exact, mpls_vpn_mib_get_vrf_node(exact, vrf_name), key, reply->steps);
  if (rc != kStatusOk) return rc;
  if (exact && !is_of_family(row, key)) {
    prov_release_parcel(&row, &kMibRouteParcel, kRouteHandler);
    return kStatusNoSuchRow;
  }
  return prov_encode_parcel(reply, &row, &kMibRouteParcel);
}
