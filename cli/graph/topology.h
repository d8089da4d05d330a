// Which VRFs of this router exchange routes: by the route targets that they export and import.
#pragma once

#include <string>
#include <vector>

#include "cli/vrf/vpn_instances.h"

namespace cli {

// Another router may have the other side of a target that has one here.
enum class Sides { kBoth, kOnlyImported, kOnlyExported };

struct TargetNode {
  std::string target{};
  std::vector<std::size_t> exporters{};  // places in Topology::vrfs
  std::vector<std::size_t> importers{};

  Sides sides() const;
  // Routes of one VRF enter another one.
  bool connects_vrfs() const;
};

struct Topology {
  std::vector<VpnInstance> vrfs{};
  std::vector<TargetNode> targets{};  // by name
};

Topology topology_of(VpnInstances instances);

}  // namespace cli
