// Which routing protocols distribute routes over a VRF's interfaces (mplsL3VpnIfVpnRouteDistProtocol,
// RFC 4382), counted from their configuration.
//
// Each configured item counts one; a protocol is effective while its count is not 0. Counts are in the
// interface's node, or in the VRF's attribute block for items that are not bound to one interface, and stay
// between 0 and 0xffffffff. An item for an interface or a VRF that does not exist is not counted, and an
// interface that leaves its VRF loses its counts. When the interface joins, or joins again,
// platform/router/config_references replays its items, which counts them. Main thread.
#pragma once

#include <cstdint>

#include "platform/store/tree/kvtree.h"

// The order of the MIB's bits.
enum MplsVpnProtocol : std::uint32_t {
  kProtocolNone,
  kProtocolBgp,
  kProtocolOspf,
  kProtocolRip,
  kProtocolIsis,
  kProtocolStatic,
  kProtocolOther,
};

// Count down (is_delete not 0) or up. Does nothing for the VRF "default"; a protocol above 6 is reported.
// REQUIRES: texts not null, the database mutex not held.
void set_vrf_protocol(const char* vrf_name, std::uint32_t protocol, std::uint32_t is_delete);
void set_interface_protocol(const char* if_name, const char* vrf_name, std::uint32_t protocol,
                            std::uint32_t is_delete);

// Notifications: a deletion counts down, everything else up. Path arguments, each by its number: the VRF's
// name, the interface's name.
void mpls_vpn_mib_bgp_nbr_af_notify(const KvNotifyInfo* info, const RequestArgs* args);  // 4, for the VRF
void mpls_vpn_mib_rip_notify(const KvNotifyInfo* info, const RequestArgs* args);         // 0, 1
void mpls_vpn_mib_ospf_notify(const KvNotifyInfo* info, const RequestArgs* args);        // 2, 5
void mpls_vpn_mib_eigrp_notify(const KvNotifyInfo* info, const RequestArgs* args);       // 1, 3; as "other"
// 0, 7; a route without an interface counts for the VRF.
void mpls_vpn_mib_static_notify(const KvNotifyInfo* info, const RequestArgs* args);
