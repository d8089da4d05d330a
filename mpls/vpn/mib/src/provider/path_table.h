// Which handler answers which path: one constant table of paths for the provider and one for each
// subscription that has patterns. kvtree.h gives the pattern language; rows are tried in table order.
#pragma once

#include "platform/store/tree/kvtree.h"

extern const KvPathTable mpls_vpn_mib_prov_paths;       // "/oper/mpls_vpn/gl/"
extern const KvPathTable mpls_vpn_mib_vrf_paths;        // "/cfg/gl/vmap/"
extern const KvPathTable mpls_vpn_mib_bgp_paths;        // "/cfg/gl/ip-bgp/"
extern const KvPathTable mpls_vpn_mib_rip_paths;        // "/cfg/gl/rip/ord_B/"
extern const KvPathTable mpls_vpn_mib_ospf_paths;       // "/cfg/gl/ipv4-ospf/proc/"
extern const KvPathTable mpls_vpn_mib_eigrp_paths;      // "/cfg/gl/eigrp/proc/"
extern const KvPathTable mpls_vpn_mib_static_paths;     // "/cfg/gl/static/router/ord_v/"
extern const KvPathTable mpls_vpn_mib_threshold_paths;  // "/oper/rib_threshold/"
