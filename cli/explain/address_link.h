// Which prefix an address is explained by.
#pragma once

#include "cli/explain/chain.h"

namespace cli::explain {

// Narrows the evidence to the prefix whose route decides, for the links that follow: to the longest one that
// the VRF has in the kernel or in the suite; without one, or if that is a default route or one that discards,
// to a longer one that BGP has for the VRF. To the address itself if there is none.
Judgement judge_address(Evidence& evidence);

}  // namespace cli::explain
