// The route thresholds that are configured for a VRF's unicast tables, one pair for each address family.
//
// The MIB row has one pair, that of the family that changed last. It shows none when these were deleted,
// although the other family may still have thresholds.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace cli {

struct FamilyThresholds {
  std::uint32_t afi = 0;
  std::int64_t mid = 0;  // routes; 0: none
  std::int64_t high = 0;
};

// Of the families that the request asks for, those that have thresholds among the VRF's nodes.
std::vector<FamilyThresholds> thresholds_among(std::span<const kvtree::Node> nodes, const std::string& vrf,
                                               const VrfRequest& request);

}  // namespace cli
