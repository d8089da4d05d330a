// A VRF as people and scripts see it, from its MIB row and its show record.
#pragma once

#include <ostream>

#include "cli/commands.h"
#include "cli/json_list.h"
#include "mpls/vpn/mib/src/mpls_vpn_parcel.h"

namespace cli {

// Of the MIB row alone.
Json vrf_row_json(const mpls_vpn_mib_vrf& row);

// Of both records: address families that the request does not ask for are left out.
Json vrf_json(const mpls_vpn_mib_vrf& row, const mpls_vpn_vrf& shown, const VrfRequest& request);
void print_vrf(std::ostream& out, const mpls_vpn_mib_vrf& row, const mpls_vpn_vrf& shown,
               const VrfRequest& request);

std::vector<std::string> interface_names(const mpls_vpn_vrf& shown);

}  // namespace cli
