// See vrf_thresholds.h. The daemon ignores a node that is not a pair of numbers, and so does this.
#include "cli/vrf/vrf_thresholds.h"

#include <algorithm>

#include "platform/config/vrf_config.h"

namespace cli {

namespace {

using vrf_config::Family;

FamilyThresholds thresholds_of(std::span<const kvtree::Node> nodes, const std::string& vrf, Family family) {
  FamilyThresholds thresholds{static_cast<std::uint32_t>(family)};
  const std::string path = vrf_config::route_threshold(vrf, family, 0, 0).path;
  const auto found = std::ranges::find(nodes, path, &kvtree::Node::path);
  if (found == nodes.end()) return thresholds;
  const KvValue& value = found->value;
  if (value.type != KvValueType::kTuple || value.tuple.size() != 2) return thresholds;
  thresholds.high = value.tuple[0];
  thresholds.mid = value.tuple[1];
  return thresholds;
}

bool is_wanted(Family family, const VrfRequest& request) {
  return request.afi == 0 || request.afi == static_cast<std::uint32_t>(family);
}

}  // namespace

std::vector<FamilyThresholds> thresholds_among(std::span<const kvtree::Node> nodes, const std::string& vrf,
                                               const VrfRequest& request) {
  std::vector<FamilyThresholds> all;
  for (const Family family : {Family::kIpv4, Family::kIpv6}) {
    if (!is_wanted(family, request)) continue;
    const FamilyThresholds thresholds = thresholds_of(nodes, vrf, family);
    if (thresholds.mid != 0 || thresholds.high != 0) all.push_back(thresholds);
  }
  return all;
}

}  // namespace cli
