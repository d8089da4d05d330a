// The configuration nodes that each of the routing suite's programs stands for.
//
// A program's nodes are made of its own running configuration only, so that what one does not say now can
// stay what it was while the others are followed. Several programs can own a node: since the suite has a
// management program, mgmtd, it prints what another program printed in earlier versions. Which interfaces
// OSPF, RIP and EIGRP are enabled on is decided by the router's addresses and memberships, which the
// configuration does not have. Stateless; main thread, because of the router.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "platform/router/model/router.h"
#include "platform/store/configuration/config.h"
#include "sources/frr/running_config.h"

namespace frr {

using Nodes = std::vector<KvConfigNode>;  // sorted by path, each path once

struct Program {
  std::string_view name;  // as the suite names it
  bool needs_router;      // its nodes depend on the router, not on its configuration alone
  Nodes (*nodes)(const RunningConfig& config, const router::Router& router);
  bool (*owns)(std::string_view path);  // whether the program prints such a node, in some version
};

// bgpd: RDs, route targets, route policies, neighbours and the format of AS numbers. zebra: descriptions and
// VNIs of VRFs. mgmtd: what zebra, ripd, ripngd and staticd print where there is no mgmtd.
inline constexpr std::string_view kManagementProgram = "mgmtd";
inline constexpr std::size_t kProgramCount = 9;
extern const std::array<Program, kProgramCount> kPrograms;

// Every scope below which the suite has nodes.
const std::vector<std::string>& config_scopes();

}  // namespace frr
