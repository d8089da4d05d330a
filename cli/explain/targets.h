// The route targets of VRFs, by the daemon and by the routing suite. Texts are in asplain (RFC 5396),
// whichever format the MIB or the suite has, so that equal targets have equal texts.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cli/doctor/suite_configuration.h"
#include "cli/session.h"

namespace cli::explain {

// A route target of a VRF in one address family.
struct Target {
  std::string vrf{};
  std::string target{};
  std::string family{};  // "ipv4", "ipv6"; empty: EVPN
  bool is_import = false;
  bool is_used = true;  // the family imports or exports VPN routes
};

// Any other text remains as it is.
std::string plain_target(std::string_view text);

// Those of the MIB.
std::vector<Target> read_targets(const Session& session);
std::vector<Target> targets_of(const doctor::SuiteConfiguration& configuration);

}  // namespace cli::explain
