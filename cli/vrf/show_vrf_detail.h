// "show vrf detail".
#pragma once

#include "cli/commands.h"

namespace cli {

// Everything that is known of one VRF or of each; Failure(kExitFailed) for one that is not there or does not
// pass.
void show_vrf_detail(const Session& session, const VrfRequest& request);

}  // namespace cli
