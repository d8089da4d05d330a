#include "cli/graph/topology.h"

#include <algorithm>
#include <map>
#include <utility>

namespace cli {

Sides TargetNode::sides() const {
  if (exporters.empty()) return Sides::kOnlyImported;
  return importers.empty() ? Sides::kOnlyExported : Sides::kBoth;
}

bool TargetNode::connects_vrfs() const {
  return std::ranges::any_of(importers, [this](std::size_t importer) {
    return std::ranges::any_of(exporters, [importer](std::size_t exporter) { return exporter != importer; });
  });
}

Topology topology_of(VpnInstances instances) {
  std::map<std::string, TargetNode> targets;
  for (std::size_t at = 0; at < instances.vrfs.size(); ++at) {
    for (const std::string& target : instances.vrfs[at].exports) targets[target].exporters.push_back(at);
    for (const std::string& target : instances.vrfs[at].imports) targets[target].importers.push_back(at);
  }
  Topology topology{std::move(instances.vrfs)};
  for (auto& [name, node] : targets) {
    node.target = name;
    topology.targets.push_back(std::move(node));
  }
  return topology;
}

}  // namespace cli
