// How a batched walk over the daemon's rows continues.
//
// A walk shows the rows of one table in the MIB's order, each once. Its path names the key to begin at:
//
//   vrf-next/VRF                  the first VRF whose name is not smaller
//   interface-next/VRF/INDEX      the first interface whose key is not smaller
//   rt-next/VRF/NUMBER/TYPE       the first route target whose key is not smaller
//   route-next/VRF/1/0/1/0/0      the first route of the VRF, or of the first VRF after it that has any
//   route-next/VRF/TYPE/LENGTH/HOPTYPE/DESTINATION/HOP
//                                 the first route after this key. TYPE and HOPTYPE are both 1 (IPv4) or both
//                                 2 (IPv6), also after a route without next hop; DESTINATION and HOP have all
//                                 their 8 or 32 digits, zeros for no next hop
//
// The last form with every digit 0 is the key of a default route without next hop, and not the table's start.
//
// A limit: a VRF with several tables of one family (unicast and multicast) has one order of keys for each,
// and a key does not say which. A read takes the first table that has a greater key, so that of the later
// tables only the rows after the last key of the earlier ones are shown. The MIB has no index for the table,
// and the router model has routes of unicast tables only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

extern const KvWalkRule mpls_vpn_mib_walk_rules[];
extern const std::size_t mpls_vpn_mib_walk_rule_count;

// The path after a row of the table. kStatusEndOfList when no key can follow; the status of decoding the row;
// kStatusBadEncoding for a row without its key.
Status interface_following_path(const KvReply* row, std::string* path);
Status vrf_following_path(const KvReply* row, std::string* path);
Status rt_following_path(const KvReply* row, std::string* path);
Status route_following_path(const KvReply* row, std::string* path);

// True when the answer to `asked` is not the row that the walk must show; *path is the path to read instead.
bool rt_redirect(std::string_view asked, const KvReply* row, std::string* path);
bool route_redirect(std::string_view asked, const KvReply* row, std::string* path);

// The smallest name that orders after `name` (shorter names first, then by octets), or the empty text when
// `name` is the last that fits a VRF record.
std::string following_vrf_name(std::string name);
