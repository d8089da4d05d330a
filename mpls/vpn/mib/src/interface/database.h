// Interface database: one node for every interface that the membership service placed in a VRF.
//
// One set of nodes in two orderings: by (VRF name, interface index), the index order of the MIB's interface
// table (mplsL3VpnIfConfTable, RFC 4382), and by interface handle, the key of membership events. An interface
// may be known by handle before its index or name can be resolved. Its node is then in the handle ordering
// only (no index) or lacks its name, and the database is DIRTY until the repair pass completes the node.
// Every look-up begins with that pass, which does nothing while the database is clean.
//
// Ownership: nodes belong to the database; a node and its two texts stay valid until the node is deleted.
// Only joins and leaves delete nodes of the VRF ordering, look-ups never do, so such a node can serve as a
// cursor and its name as a key. A node found by handle that has no index yet may be deleted by the next
// look-up.
//
// Threads: changed under mpls_vpn_mutex, read without it, all on the main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/thread_safety.h"
#include "platform/core/base/status.h"
#include "platform/core/wavl/wavl.h"

inline constexpr unsigned kMplsVpnProtocols = 7;  // none, BGP, OSPF, RIP, IS-IS, static, other

// What an interface is counted as (tally/tally.h).
enum class TallyState : std::uint32_t { kNotCounted, kWithoutRecord, kInactive, kActive };

struct IfNode {
  WavlLink links[2];        // 0 by VRF and index, 1 by handle
  char* vrf_name;           // in the node's block; never null in a valid node
  std::uint32_t if_index;   // ifIndex; 0 while not resolved
  std::uint32_t if_handle;  // never 0
  char* if_name;            // owned, see mpls_vpn_mib_set_if_name; null while not resolved
  std::uint32_t protocol_count[kMplsVpnProtocols];
  std::uint32_t vrf_down_trap_sent;  // 0 or 1
  std::uint32_t vrf_up_trap_sent;    // 0 or 1
  TallyState tally;                  // the tally's
  std::uint32_t vrf_name_length;     // so that a search measures no name
};

// Creates the empty database. The tree's status. Once, at start-up, before the membership connection opens.
[[nodiscard]] Status mpls_vpn_mib_if_dbase_init();
// Frees every node and makes the database clean and empty. For tests that start the daemon again.
void mpls_vpn_mib_if_dbase_end();

// The new node, or null with nothing changed: handle 0, null VRF name, no memory, or a key that is taken.
// Texts are copied. if_name may be null; if_index 0 sets DIRTY and keeps the node out of the VRF ordering.
IfNode* mpls_vpn_mib_create_if_wavl_node(const char* vrf_name, std::uint32_t if_index, const char* if_name,
                                         std::uint32_t if_handle) MPLS_REQUIRES(mpls_vpn_mutex);
// The node owns the text, which text_copy made, from now on; its former name is freed.
void mpls_vpn_mib_set_if_name(IfNode* node, char* if_name) MPLS_REQUIRES(mpls_vpn_mutex);
// 1: unlinked and freed. 0: nothing changed, nothing freed.
int mpls_vpn_mib_delete_if_wavl_node(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex);

// --- Lookups (each runs the repair pass first)

// The node of this key (exact), or the first whose key is not smaller. Null when there is none, and when the
// node found is not valid: the search does not step past it.
IfNode* mpls_vpn_mib_get_if(bool exact, const char* vrf_name, std::uint32_t if_index);
// The same by handle, without the validity test.
IfNode* mpls_vpn_mib_get_if_by_handle(bool exact, std::uint32_t if_handle);
IfNode* mpls_vpn_mib_get_first_if_of_vrf(const char* vrf_name);
// The next node of the same VRF, or null; not tested for validity. REQUIRES: node is in the VRF ordering.
IfNode* mpls_vpn_mib_get_next_if_of_vrf(const IfNode* node, const char* vrf_name);
// The first of the VRF's nodes that matches; an invalid node before it ends the search with null.
IfNode* mpls_vpn_mib_get_if_by_vrf_and_handle(const char* vrf_name, std::uint32_t if_handle);
IfNode* mpls_vpn_mib_get_if_by_vrf_and_name(const char* vrf_name, const char* if_name);

// VRFs that have interfaces here but no complete VRF record, each once, in name order. A node owns the name.
const char* mpls_vpn_mib_get_first_invalid_vrf();
const char* mpls_vpn_mib_get_next_invalid_vrf(const char* vrf_name);
// The first node whose key is not smaller than (vrf_name, if_index) and whose VRF has a complete VRF record.
IfNode* mpls_vpn_mib_get_next_valid_intf(const char* vrf_name, std::uint32_t if_index);
// The one after this node, which such a search has found; without a repair, so that the node stays valid.
// REQUIRES: the database and the VRF records have not changed since.
IfNode* mpls_vpn_mib_get_following_valid_intf(const IfNode* node);

// All nodes of the VRF ordering, valid or not. REQUIRES: node is in the VRF ordering.
IfNode* mpls_vpn_mib_if_dbase_first();
IfNode* mpls_vpn_mib_if_dbase_next(const IfNode* node);
// The first node with a greater key; a node of this key need not exist.
IfNode* mpls_vpn_mib_if_dbase_after(const char* vrf_name, std::uint32_t if_index);

// --- Diagnostics

// Prints every node of the VRF ordering; no repair.
void mpls_vpn_mib_if_dbase_walk();
// 0, or kStatusInvalidNode when the VRF name or the interface name is missing.
[[nodiscard]] Status mpls_vpn_mib_if_node_validate(const IfNode* node);
// Always 1 (the walk continues).
int mpls_vpn_mib_if_node_print(const IfNode* node);

// --- Repair

// Resolves what is missing in every node. 1 at once while the database is clean; else non-zero when all nodes
// were visited, 0 when the walk stopped or the mutex could not be taken (for a caller that holds it: nothing
// is repaired).
int mpls_vpn_mib_clean_if_dbase();
// One node of that pass; 0 stops it.
int mpls_vpn_mib_clean_if_dbase_walker(IfNode* node) MPLS_REQUIRES(mpls_vpn_mutex);
bool mpls_vpn_mib_if_dbase_is_dirty();

// --- Names

// The interface's name from the interface manager, or null. The text is valid until the next call.
const char* mpls_vpn_get_interface_name(std::uint32_t if_handle);
// Releases the interface manager's connection. For tests that start the daemon again.
void mpls_vpn_interface_name_end();
