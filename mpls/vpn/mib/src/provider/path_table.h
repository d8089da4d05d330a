// Which handler answers which path: one constant table of paths for the provider and one for each
// subscription that has patterns. kvtree.h gives the pattern language; rows are tried in table order.
#pragma once

#include "platform/store/tree/kvtree.h"

extern const KvRoutingTable mpls_vpn_mib_prov_routes;       // "/oper/mpls_vpn/gl/"
extern const KvRoutingTable mpls_vpn_mib_vrf_routes;        // "/cfg/gl/vmap/"
extern const KvRoutingTable mpls_vpn_mib_bgp_routes;        // "/cfg/gl/ip-bgp/"
extern const KvRoutingTable mpls_vpn_mib_rip_routes;        // "/cfg/gl/rip/ord_B/"
extern const KvRoutingTable mpls_vpn_mib_ospf_routes;       // "/cfg/gl/ipv4-ospf/proc/"
extern const KvRoutingTable mpls_vpn_mib_eigrp_routes;      // "/cfg/gl/eigrp/proc/"
extern const KvRoutingTable mpls_vpn_mib_static_routes;     // "/cfg/gl/static/router/ord_v/"
extern const KvRoutingTable mpls_vpn_mib_threshold_routes;  // "/oper/rib_threshold/"
