// Configuration of a VRF, as it changes: what becomes of it in the VRF's attribute block and in the
// route-target database.
//
// A set on a VRF that does not exist yet is kept in a forward reference (get_vrf_record); a deletion never
// makes one. Nothing is answered to the data store: what cannot be taken is reported. Every change is stamped
// as the VRF's last one (mplsL3VpnVrfConfLastChanged, RFC 4382), but for route policies.
//
// Path arguments: 0 the VRF's name, 1 the AFI (1 IPv4, 2 IPv6), 2 the SAFI (1 unicast). Main thread.
#pragma once

#include <cstdint>

#include "platform/kvtree/kvtree.h"

// Route thresholds: a tuple of the maximum and the mid threshold. IPv4 and IPv6 unicast share the pair: the
// family that changed last counts. Other SAFIs and AFIs are passed over in silence.
void mpls_vpn_mib_thresh_notify(const KvNotifyInfo* info, const RequestArgs* args);
