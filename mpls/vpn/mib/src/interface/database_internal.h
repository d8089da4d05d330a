// Shared by the sources of the interface database. Not for other files.
#pragma once

#include <map>

#include "mpls/vpn/mib/src/interface/database.h"

inline constexpr unsigned kIfByVrf = 0;     // ordering by VRF name and index
inline constexpr unsigned kIfByHandle = 1;  // ordering by handle

extern WavlTree mpls_vpn_mib_if_dbase MPLS_GUARDED_BY(mpls_vpn_mutex);

// The tree for reading. Readers and writers are on the main thread, so that reading needs no lock.
const WavlTree* mpls_vpn_mib_if_tree();

// The nodes that lack their name or index, by handle: those that a repair pass has something to do for.
using IncompleteIfs = std::map<std::uint32_t, IfNode*>;
IncompleteIfs& mpls_vpn_mib_incomplete_ifs() MPLS_REQUIRES(mpls_vpn_mutex);
bool mpls_vpn_mib_if_is_complete(const IfNode* node);

void mpls_vpn_mib_if_dbase_set_dirty(bool dirty) MPLS_REQUIRES(mpls_vpn_mutex);

// The node is about to be freed: no search continues from it.
void mpls_vpn_mib_forget_latest(const IfNode* node);
// Frees the node and its texts. REQUIRES: it is in no ordering. Null is allowed.
void mpls_vpn_mib_free_if_node(IfNode* node);
