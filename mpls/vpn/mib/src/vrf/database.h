// VRF database: the VRFs that the membership service announced as created and not yet as deleted, each with
// its record. A request uses it to decide whether a VRF it names is known, and to list the VRFs in the index
// order of mplsL3VpnVrfTable (RFC 4382): shorter names first, then by octets, as in the interface database.
//
// Ownership: nodes and their names belong to the database, the records to the record service. A node is valid
// until it is deleted. Threads: changed under mpls_vpn_mutex, read without it, all on the main thread.
#pragma once

#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/thread_safety.h"
#include "platform/core/base/status.h"
#include "platform/core/wavl/wavl.h"
#include "platform/router/vtab/vtab.h"

struct VrfNode {
  WavlLink link;
  char* vrf_name;          // owned
  VtabVrfRecord* vrf_rec;  // the record service's
};

// Creates the empty database. The tree's status. Once, at start-up.
[[nodiscard]] Status mpls_vpn_mib_vrf_dbase_init();
// Frees every node. For tests that start the daemon again.
void mpls_vpn_mib_vrf_dbase_end();

// The new node, or null with nothing changed: no memory, or a VRF of this name exists. The name is copied.
VrfNode* mpls_vpn_mib_create_vrf_wavl_node(const char* vrf_name, VtabVrfRecord* vrf_rec)
    MPLS_REQUIRES(mpls_vpn_mutex);
// Unlinks only: node and name are the caller's from then on. 1, or 0 when it was not linked.
int mpls_vpn_mib_delete_vrf_wavl_node(VrfNode* node) MPLS_REQUIRES(mpls_vpn_mutex);
// 1: found, unlinked and freed. 0: nothing changed.
int mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name(const char* vrf_name) MPLS_REQUIRES(mpls_vpn_mutex);

// The node of this name (exact), or the first whose name is not smaller. Null when there is none, and when
// the node found is not valid: the search does not step past it.
VrfNode* mpls_vpn_mib_get_vrf_node(bool exact, const char* vrf_name);
VrfNode* mpls_vpn_mib_vrf_dbase_first();
VrfNode* mpls_vpn_mib_vrf_dbase_next(const VrfNode* node);
// The first node with a greater name.
VrfNode* mpls_vpn_mib_vrf_dbase_after(const char* vrf_name);

// 0, or kStatusInvalidNode when the name or the record is missing.
[[nodiscard]] Status mpls_vpn_mib_vrf_node_validate(const VrfNode* node);
void mpls_vpn_mib_vrf_dbase_print();
