// The EVPN route targets of a VRF as one more table of its show record, which has only the router's tables.
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
  // Reads the route targets if the VRF has some in EVPN and the request is not for other tables. Throws
  // Failure.
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
