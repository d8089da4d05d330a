// Lists of VRFs: a list has the names, a datalist the names with their show records.
//
// All handlers return at least one item, if there is any, and stop at the caller's maximum. A request fails
// only if its list cannot be created; an item that fails is reported and left out. Main thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// Handlers of "vrf-detail" and "vrf-detail-filter", over the VRFs of the record service that exist and are in
// the VRF database, in its order, without "default". Forms 1 and 3 take AFI and SAFI and, with a name, answer
// that VRF alone. With a name, form 0 begins a list at the VRF itself and a datalist after it, so that a
// reader can fetch a long datalist in pieces; form 2 does the same with encoded names.
Status mpls_vpn_prov_list_vrf(KvListReply* reply, const RequestArgs* args);
Status mpls_vpn_prov_datalist_vrf(KvListReply* reply, const RequestArgs* args);

// Handlers of "vrf-invalid-detail", over the VRFs that have interfaces but do not exist: all, or those after
// the given name. Names are never encoded, in any form: the name of a structured request is compared
// literally. A reader that fetches a long datalist in pieces asks for it unstructured, because an escaped
// name ("a%2Fb" for "a/b") has another place in the order and would lose or repeat VRFs.
Status mpls_vpn_prov_list_vrf_invalid(KvListReply* reply, const RequestArgs* args);
Status mpls_vpn_prov_datalist_vrf_invalid(KvListReply* reply, const RequestArgs* args);
