// Decoding of request arguments, and the tests that admit a VRF to an answer.
//
// The path matcher passes an argument block and the form of the matched path; a form says whether AFI and
// SAFI apply and whether the VRF name is still encoded as a path component. A filter is on the handler's
// stack: it borrows the plain name of the request and owns a decoded one. AFI and SAFI numbers are those of
// RFC 4760.
//
// Main thread; reads the record service's tables and the VRF database, changes nothing.
#include "mpls/vpn/mib/src/provider/filter.h"
#include "mpls/vpn/mib/src/support/families.h"

#include <cstdlib>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/router/vtab/vtab.h"

namespace {

constexpr unsigned kArgumentVrfName = 0;
constexpr unsigned kArgumentAfi = 1;
constexpr unsigned kArgumentSafi = 2;

void take_name(VrfFilter* filter, const char* name) {
  filter->flags |= kFilterVrfName;
  filter->vrf_name = name;
  mpls_vpn_debug(PROV, "BGEN ARG %u vrf name = %s", kArgumentVrfName, name);
}

void take_plain_name(VrfFilter* filter, const RequestArgs* args) {
  if (!kvtree_absent(args, kArgumentVrfName)) take_name(filter, args->arg[kArgumentVrfName].text);
}

void take_encoded_name(VrfFilter* filter, const RequestArgs* args) {
  if (kvtree_absent(args, kArgumentVrfName)) return;
  char* name = nullptr;
  const Status rc = kvtree_string_decode(args->arg[kArgumentVrfName].text, &name);
  if (rc != kStatusOk) {
    mpls_vpn_debug(ERR, "%s : kvtree_string_decode() failed: %s", "set_filter_vrf_afi_safi", err_text(rc));
    mpls_vpn_trace(kTraceError, rc, "set_filter_vrf_afi_safi: kvtree_string_decode");
    std::free(name);
    return;
  }
  filter->decoded_name = name;
  take_name(filter, name);
}

void take_afi_safi(VrfFilter* filter, const RequestArgs* args) {
  if (!kvtree_absent(args, kArgumentAfi)) {
    filter->flags |= kFilterAfi;
    filter->afi = *args->arg[kArgumentAfi].number;
    mpls_vpn_debug(PROV, "BGEN ARG %u afi = %u", kArgumentAfi, filter->afi);
  }
  if (!kvtree_absent(args, kArgumentSafi)) {
    filter->flags |= kFilterSafi;
    filter->safi = *args->arg[kArgumentSafi].number;
    mpls_vpn_debug(PROV, "BGEN ARG %u safi = %u", kArgumentSafi, filter->safi);
  }
}

void decode_form(VrfFilter* filter, const RequestArgs* args) {
  switch (args->form) {
    case kFormName:
      take_plain_name(filter, args);
      break;
    case kFormNameAfiSafi:
      take_plain_name(filter, args);
      take_afi_safi(filter, args);
      break;
    case kFormEncodedName:
      take_encoded_name(filter, args);
      break;
    case kFormEncodedNameAfiSafi:
      take_encoded_name(filter, args);
      take_afi_safi(filter, args);
      break;
    default:
      mpls_vpn_debug(PROV, "Unknown bgen ident = %u", args->form);
  }
}

bool is_afi_safi_hit(const VtabTableRecord* table, const VrfFilter* filter) {
  if (table->afi != filter->afi || table->safi != filter->safi) return false;
  mpls_vpn_debug(PROV, "VRF record found with afi = %s & safi = %s", afi_text(table->afi),
                 safi_text(table->safi));
  return true;
}

bool is_afi_hit(const VtabTableRecord* table, const VrfFilter* filter) {
  if (table->afi != filter->afi) return false;
  mpls_vpn_debug(PROV, "VRF record found with afi = %s ", afi_text(table->afi));
  return true;
}

// Common bits, not equality: a filter of 3 asks for unicast and multicast tables alike.
bool is_safi_hit(const VtabTableRecord* table, const VrfFilter* filter) {
  if ((table->safi & filter->safi) == 0) return false;
  mpls_vpn_debug(PROV, "VRF record found with safi = %s ", safi_text(table->safi));
  return true;
}

using TableTest = bool (*)(const VtabTableRecord*, const VrfFilter*);

TableTest table_test(std::uint32_t asked) {
  if (asked == (kFilterAfi | kFilterSafi)) return is_afi_safi_hit;
  return asked == kFilterAfi ? is_afi_hit : is_safi_hit;
}

}  // namespace

void set_filter_vrf_afi_safi(VrfFilter* filter, const RequestArgs* args) {
  *filter = {};
  decode_form(filter, args);
  mpls_vpn_debug(PROV, "Filter flags are 0x%x", filter->flags);
}

void release_filter_vrf_name(VrfFilter* filter) {
  if (filter->decoded_name == nullptr) return;
  std::free(filter->decoded_name);
  filter->decoded_name = nullptr;
  filter->vrf_name = nullptr;
}

bool vrf_matches_afi_safi(const char* vrf_name, const VrfFilter* filter) {
  const std::uint32_t asked = filter->flags & (kFilterAfi | kFilterSafi);
  if (asked == 0) return true;
  const TableTest is_hit = table_test(asked);
  bool matches = false;
  // Every table is visited, also after a hit: each hit has its print.
  for (const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name(vrf_name); table != nullptr;
       table = vtab_get_next_table_record_by_vrf_name(vrf_name, table)) {
    if (is_hit(table, filter)) matches = true;
  }
  return matches;
}

const VrfNode* vrf_in_database(const char* vrf_name) {
  // The search itself refuses a node that lacks its name or its record.
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, vrf_name);
  if (node != nullptr) mpls_vpn_debug(PROV, "Found VRF %s", node->vrf_rec->vrf_name);
  return node;
}
