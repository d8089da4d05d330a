// How a batched walk over the daemon's rows goes on.
#pragma once

#include <cstddef>
#include <string>

#include "platform/base/status.h"
#include "platform/kvtree/kvtree.h"

extern const KvWalkRule mpls_vpn_mib_walk_rules[];
extern const std::size_t mpls_vpn_mib_walk_rule_count;

// The path after an interface row: the same VRF and the following index, or the name that follows the VRF's
// when no greater index can be. kStatusEndOfList when no name can follow; the status of decoding the row.
Status interface_following_path(const KvReply* row, std::string* path);

// The smallest name that orders after `name` (shorter names first, then by octets), or the empty text when
// `name` is the last that fits a VRF record.
std::string following_vrf_name(std::string name);
