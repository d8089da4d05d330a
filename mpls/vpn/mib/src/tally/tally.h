// Counts of VRFs and interfaces, maintained with every change, so that a request reads what it would
// otherwise count in a walk over all interfaces.
//
// Counted for each VRF name: the nodes of the interface database's VRF ordering, by what their interface's
// record says, and whether the VRF database and the record service have the VRF. The two
// databases report their nodes to the tally, the record service its records (vtab_observe).
//
// Main thread. A change costs a few look-ups by name; reading costs one at most.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/interface/database.h"

struct MplsVpnTotals {
  std::uint32_t configured_vrfs;       // complete record, in the VRF database, not "default"
  std::uint32_t active_vrfs;           // complete record and an active interface
  std::uint32_t connected_interfaces;  // their VRF has a complete record
};

struct MplsVpnVrfTally {
  std::uint32_t interfaces = 0;
  std::uint32_t active = 0;
  std::uint32_t without_record = 0;
};

// From now on the tally follows the record service. With the interface database.
void mpls_vpn_tally_begin();
void mpls_vpn_tally_end();

// After a node was linked into the VRF ordering, and after it got another name.
void mpls_vpn_tally_enter(IfNode* node);
// After it was unlinked, and before it gets another name. Nothing for a node that is not counted.
void mpls_vpn_tally_leave(IfNode* node);
// The VRF was added to the VRF database, or removed from it.
void mpls_vpn_tally_announce(const char* vrf_name);
void mpls_vpn_tally_withdraw(const char* vrf_name);

MplsVpnTotals mpls_vpn_tally_totals();
MplsVpnVrfTally mpls_vpn_tally_of(const char* vrf_name);
// How many of the VRF's interfaces have this name, and how many of those are active.
MplsVpnVrfTally mpls_vpn_tally_of_name(const char* vrf_name, const char* if_name);
// The first node of the VRF with this name, or null.
IfNode* mpls_vpn_tally_node_of_name(const char* vrf_name, const char* if_name);
// Nodes without a name end the walks that meet them: while there are any, walks cannot be shortened.
bool mpls_vpn_tally_has_nameless();
// The first VRF after this one (null: of all), in the databases' order, that has interfaces and no complete
// record, or has interfaces and a complete record. Null when there is none. Valid while it has interfaces.
const char* mpls_vpn_tally_invalid_after(const char* vrf_name);
const char* mpls_vpn_tally_valid_after(const char* vrf_name);
