// The route targets of a VRF in EVPN as one more table of its show record: that has the tables of the router
// only.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/vrf/vrf_origins.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

class EvpnTable {
 public:
  // Asks for the route targets of a VRF that has some in EVPN, unless the request is for other tables;
  // Failure when that fails.
  EvpnTable(const Session& session, kvtree::Client& client, const std::string& vrf, const VrfOrigins& origins,
            const VrfRequest& request);
  EvpnTable(const EvpnTable&) = delete;
  EvpnTable& operator=(const EvpnTable&) = delete;

  std::span<const mpls_vpn_afi_safi> tables() const;  // one or none

 private:
  void take(const mpls_vpn_mib_rt& row);

  std::vector<std::string> texts_{};
  std::vector<mpls_vpn_rt> targets_{};  // have the texts
  std::optional<mpls_vpn_afi_safi> table_{};
};

}  // namespace cli
