// Rows of the VRF table (RFC 4382, mplsL3VpnVrfTable).
#pragma once

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/core/base/status.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/tree/kvtree.h"

// Get handler of "vrf" and "vrf-next": argument 0 the VRF name. A next read (is_next_read) answers
// the first VRF whose name is not smaller and that exists, any other the VRF of exactly this name.
//
// 0 with a mpls_vpn_mib_vrf record, kStatusNoSuchRow, kStatusArgumentMissing, kStatusNoMemory, or the
// encoding's status. Main thread; O(interfaces of the VRF).
Status mpls_vpn_mib_prov_get_vrf(KvReply* reply, const RequestArgs* args);

// --- Rows for batches of columns

// The first VRF whose name is not smaller and that exists, as a next read finds it, and the one after it.
// Null at the end. The attributes that the record lacks are completed.
const VrfNode* mpls_vpn_mib_get_next_vrf(const char* vrf_name);
const VrfNode* mpls_vpn_mib_get_following_vrf(const VrfNode* node);

// The parts of a row that cost a search.
struct VrfRowParts {
  bool with_interfaces = true;  // their counts, and the states that follow from them
  bool with_routes = true;
};

// The row with the record's own texts, valid until the record changes.
mpls_vpn_mib_vrf mpls_vpn_mib_vrf_row(const VtabVrfRecord* record, VrfRowParts parts);

// --- Rows with copies

// The row of a VRF, cleared first. A missing record is reported and leaves the row cleared. Texts are heap
// copies; one that cannot be copied stays null.
void fill_vrf_parcel(mpls_vpn_mib_vrf* row, const VtabVrfRecord* record);
