// Route-target database: the route targets configured on the VRFs (mplsL3VpnVrfRTTable, RFC 4382), for import
// and export, per address family and subsequent address family.
//
// Key order: VRF name (shorter names first, then by octets), type, AFI, SAFI, value (shorter texts first).
// Within a VRF the entries are numbered 1, 2, 3, ... in that order, whatever their type; the running number
// is mplsL3VpnVrfRTIndex. It is counted, not stored: adding or removing a route target renumbers those after
// it.
//
// Entries are added and removed with their configuration alone. A VRF that does not exist, or no longer
// exists, has the route targets that are configured for it.
//
// Ownership: nodes and their texts belong to the database; a node is valid until the next change of the
// configuration. Threads: main thread only, no lock.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "platform/core/base/status.h"
#include "platform/core/wavl/wavl.h"

struct RtNode {
  WavlLink link;
  char* vrf_name;      // owned
  std::int32_t type;   // kRtImport or kRtExport; kRtBoth is never stored
  std::uint32_t afi;   // 1 IPv4, 2 IPv6
  std::uint32_t safi;  // 1 unicast, 2 multicast, as configured
  char* value;         // owned; the route target as text, "65000:100"
};

// Creates the empty database. The tree's status. Once, at start-up, before the configuration is replayed.
[[nodiscard]] Status mpls_vpn_mib_rt_dbase_init();
// Frees every node. For tests that start the daemon again.
void mpls_vpn_mib_rt_dbase_end();

// The new node, or null with nothing changed: no memory, or an equal route target exists. Texts are copied.
RtNode* mpls_vpn_mib_create_rt_wavl_node(const char* vrf_name, std::int32_t type, const char* value,
                                         std::uint32_t afi, std::uint32_t safi);
// 1: found, unlinked and freed. 0: nothing changed.
int mpls_vpn_mib_delete_rt_wavl_node(const char* vrf_name, std::int32_t type, const char* value,
                                     std::uint32_t afi, std::uint32_t safi);

// A row by its index. *index 0 is read as 1, and the type then as 0: the start of a walk.
//
// Exact: the VRF's entry of this number, if it has this type.
//
// Next: the first entry whose (number, type) is not smaller; *index is its number. A VRF without entries
// gives the first entry of the VRF that follows in the order. Numbers are counted on beyond the VRF's last
// entry: such an answer is an entry of a following VRF, with the number counted so far, or 1 after a step
// over its type; a reader that receives another VRF than it requested continues from that VRF's start.
//
// Null when there is none; *index may be changed then. O(index).
const RtNode* mpls_vpn_mib_get_rt(bool exact, const char* vrf_name, std::uint32_t* index, std::int32_t type);

// A VRF's entries in order, by first and next; null at the end.
const RtNode* mpls_vpn_mib_get_first_rt_in_vrf(const char* vrf_name);
const RtNode* mpls_vpn_mib_get_next_rt_in_vrf(const RtNode* node, const char* vrf_name);

// The entry after this one, of whichever VRF; null at the end.
const RtNode* mpls_vpn_mib_rt_dbase_next(const RtNode* node);
// False also for null.
bool mpls_vpn_mib_is_same_vrf(const RtNode* node, const RtNode* other);

// Prints every entry.
void mpls_vpn_mib_rt_dbase_walk();
