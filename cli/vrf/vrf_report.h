// A VRF as users and scripts see it, from its MIB row and its show record.
#pragma once

#include <span>

#include "cli/commands.h"
#include "cli/output/columns.h"
#include "cli/show/router_states.h"
#include "cli/vrf/vrf_origins.h"
#include "cli/vrf/vrf_thresholds.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

struct VrfView {
  const mpls_vpn_mib_vrf& row;
  bool are_routes_counted;  // false: their number is unknown
};

// What details have besides the MIB row.
struct VrfDetails {
  const mpls_vpn_vrf& shown;
  std::vector<FamilyThresholds> thresholds;
  const VrfOrigins& origins;
  std::vector<mpls_vpn_afi_safi> tables;  // that the request asks for
  RouterStates* states = nullptr;         // of interfaces; not needed for JSON
};

std::span<const Column<VrfView>> vrf_cells();
std::span<const Column<VrfView>> brief_vrf_cells();
Json vrf_row_json(const VrfView& vrf);
// The tables of the show record that the request asks for.
std::vector<mpls_vpn_afi_safi> wanted_tables(const mpls_vpn_vrf& shown, const VrfRequest& request);

Json vrf_json(const VrfView& vrf, const VrfDetails& details);
void print_vrf(const Session& session, const VrfView& vrf, const VrfDetails& details);

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown);

}  // namespace cli
