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

#include "platform/store/tree/kvtree.h"

// Route targets, of which the path holds everything (bgp_vpn_extract_rt). They come and go with their
// configuration, whatever becomes of the record. `type` is kRtImport or kRtExport.
void rt_notify(const KvNotifyInfo* info, const RequestArgs* args, std::int32_t type);
void mpls_vpn_mib_import_rt_notify(const KvNotifyInfo* info, const RequestArgs* args);
void mpls_vpn_mib_export_rt_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Route distinguisher: called by the BGP VPN library (BgpVpnRdCallback). The text that is told is the one
// that is kept, in a deletion too: only a null `rd` clears it.
void mpls_vpn_mib_rd_notify(std::uint32_t set, const char* vrf_name, const char* rd);

// Route policies: the name as a text. A family has one policy in each direction: the SAFI is printed only,
// and the SAFI that changed last counts. A set without a value clears. `direction` is 0 for import, 1 for
// export.
void mpls_vpn_mib_route_policy_notify(const KvNotifyInfo* info, const RequestArgs* args,
                                      std::uint32_t direction);
void mpls_vpn_mib_import_policy_notify(const KvNotifyInfo* info, const RequestArgs* args);
void mpls_vpn_mib_export_policy_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Description, as a text. A set without a value clears it.
void mpls_vpn_mib_vrf_descr_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Route thresholds: a tuple of the maximum and the mid threshold. IPv4 and IPv6 unicast share the pair: the
// family that changed last counts. Other SAFIs and AFIs are passed over in silence.
void mpls_vpn_mib_thresh_notify(const KvNotifyInfo* info, const RequestArgs* args);
