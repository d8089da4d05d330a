// A VRF as people and scripts see it, from its MIB row and its show record.
#pragma once

#include <ostream>
#include <span>

#include "cli/commands.h"
#include "cli/output/json_list.h"
#include "cli/vrf/vrf_origins.h"
#include "cli/vrf/vrf_thresholds.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

// Of the MIB row alone. The number of routes is null unless routes are counted.
Json vrf_row_json(const mpls_vpn_mib_vrf& row, bool are_routes_counted);
// "unknown" unless routes are counted.
std::string route_count(const mpls_vpn_mib_vrf& row, bool are_routes_counted);

// Everything that is known of one VRF.
struct VrfDetail {
  const mpls_vpn_mib_vrf& row;
  const mpls_vpn_vrf& shown;
  bool are_routes_counted;
  std::vector<FamilyThresholds> thresholds;
  const VrfOrigins& origins;
  std::span<const mpls_vpn_afi_safi> further;  // tables that the show record does not have
};

// Address families that the request does not ask for are left out.
Json vrf_json(const VrfDetail& vrf, const VrfRequest& request);
void print_vrf(std::ostream& out, const VrfDetail& vrf, const VrfRequest& request);

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown);

}  // namespace cli
