// All VRFs as the network sees them: route distinguishers, route targets and interfaces.
#pragma once

#include <string>
#include <vector>

#include "cli/session.h"

namespace cli {

struct VpnInstance {
  std::string name{};
  std::string description{};
  std::string rd{};  // empty: none
  // Of all address families, each once, in the order of their rows.
  std::vector<std::string> imports{};
  std::vector<std::string> exports{};
  std::vector<std::string> interfaces{};
};

struct VpnInstances {
  std::vector<VpnInstance> vrfs{};        // in the daemon's order
  std::vector<std::string> unassigned{};  // interfaces that are in no VRF
};

// The VRFs that exist. Throws Failure.
VpnInstances read_vpn_instances(const Session& session, kvtree::Client& client);

}  // namespace cli
