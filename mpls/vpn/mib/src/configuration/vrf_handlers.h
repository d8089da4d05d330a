// Handlers of VRF configuration: they change the VRF's attribute block and the route-target database.
//
// A set for a VRF that does not exist yet is stored in a forward reference (get_vrf_record); a deletion never
// creates one. Handlers return nothing to the data store: they report what they cannot apply. Every change
// is stamped as the VRF's last one (mplsL3VpnVrfConfLastChanged, RFC 4382), except that of a route policy,
// which no object of the MIB shows.
//
// Path arguments: 0 the VRF's name, 1 the AFI (1 IPv4, 2 IPv6), 2 the SAFI (1 unicast). Main thread.
#pragma once

#include <cstdint>

#include "platform/store/tree/kvtree.h"

// Route targets, given entirely by the path (bgp_vpn_extract_rt). They are added and removed with their
// configuration, with or without a VRF record. `type` is kRtImport or kRtExport.
void rt_notify(const KvNotifyInfo* info, const RequestArgs* args, std::int32_t type);
void mpls_vpn_mib_import_rt_notify(const KvNotifyInfo* info, const RequestArgs* args);
void mpls_vpn_mib_export_rt_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Route distinguisher: called by the BGP VPN library (BgpVpnRdCallback). Stores the given text, in a deletion
// too: only a null `rd` clears it.
void mpls_vpn_mib_rd_notify(std::uint32_t set, const char* vrf_name, const char* rd);

// Route policies: the name as a text. A family has one policy per direction: the SAFI is only printed, and
// the last change of any SAFI counts. A set without a value clears. `direction`: 0 import, 1 export.
void mpls_vpn_mib_route_policy_notify(const KvNotifyInfo* info, const RequestArgs* args,
                                      std::uint32_t direction);
void mpls_vpn_mib_import_policy_notify(const KvNotifyInfo* info, const RequestArgs* args);
void mpls_vpn_mib_export_policy_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Description, as a text. A set without a value clears it.
void mpls_vpn_mib_vrf_descr_notify(const KvNotifyInfo* info, const RequestArgs* args);

// Route thresholds: a tuple of the maximum and the mid threshold. IPv4 and IPv6 unicast share the pair: the
// family that changed last counts. Other SAFIs and AFIs are ignored silently.
void mpls_vpn_mib_thresh_notify(const KvNotifyInfo* info, const RequestArgs* args);
