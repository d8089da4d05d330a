// "show vrf detail".
#pragma once

#include "cli/commands.h"

namespace cli {

// All details of one VRF or of each. Failure(kExitFailed) for one that does not exist or does not pass the
// filter.
void show_vrf_detail(const Session& session, const VrfRequest& request);

}  // namespace cli
