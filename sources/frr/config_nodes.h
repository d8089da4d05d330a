// The configuration nodes that each program of the routing suite provides.
//
// A program's nodes derive from its own running configuration only, so they can stay unchanged while it does
// not answer and others do. Several programs can own a node: where the suite has the management program
// mgmtd, it prints what other programs print in earlier versions. The interfaces on which OSPF, RIP and EIGRP
// are enabled follow from the router's addresses and memberships, which are not in the configuration.
// Stateless; main thread, because of the router.
#pragma once

#include <array>
#include <bitset>
#include <span>
#include <string_view>
#include <vector>

#include "platform/config/items.h"
#include "platform/router/model/router.h"
#include "platform/store/configuration/configuration.h"
#include "sources/frr/parser/running_config.h"

namespace frr {

using Nodes = std::vector<KvConfigNode>;  // sorted by path, each path once

struct Program {
  std::string_view name;  // as the suite names it
  bool needs_router;      // its nodes depend on the router, not on its configuration alone
  Nodes (*nodes)(const RunningConfig& config, const router::Router& router);
  std::span<const vrf_config::Kind> kinds;  // of the items that it prints, in some version
};

// bgpd: RDs, route targets, route policies, neighbors and the format of AS numbers. zebra: descriptions and
// VNIs of VRFs. mgmtd: what zebra, ripd, ripngd and staticd print where there is no mgmtd.
inline constexpr std::string_view kManagementProgram = "mgmtd";
inline constexpr std::size_t kProgramCount = 9;
extern const std::array<Program, kProgramCount> kPrograms;

// The programs that print such a node, in some version, by their places in kPrograms. A node that is not an
// item (any more) belongs to no program, so it does not wait for one that does not answer.
std::bitset<kProgramCount> programs_of(std::string_view path);
bool owns(const Program& program, std::string_view path);

}  // namespace frr
