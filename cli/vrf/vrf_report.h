// A VRF as users and scripts see it, from its MIB row and its show record.
#pragma once

#include <ostream>
#include <span>

#include "cli/commands.h"
#include "cli/output/columns.h"
#include "cli/vrf/vrf_origins.h"
#include "cli/vrf/vrf_thresholds.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

// What details have besides the MIB row.
struct VrfDetails {
  const mpls_vpn_vrf& shown;
  std::vector<FamilyThresholds> thresholds;
  const VrfOrigins& origins;
  std::vector<mpls_vpn_afi_safi> tables;  // that the request asks for
};

struct VrfView {
  const mpls_vpn_mib_vrf& row;
  bool are_routes_counted;              // false: their number is unknown
  const VrfDetails* details = nullptr;  // null: the columns of vrf_row_columns() alone
};

std::span<const Column<VrfView>> vrf_row_columns();
// The tables of the show record that the request asks for.
std::vector<mpls_vpn_afi_safi> wanted_tables(const mpls_vpn_vrf& shown, const VrfRequest& request);

// With details.
Json vrf_json(const VrfView& vrf);
void print_vrf(std::ostream& out, const VrfView& vrf);

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown);

}  // namespace cli
