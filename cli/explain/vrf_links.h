// Links of a VRF.
#pragma once

#include "cli/explain/chain.h"

namespace cli::explain {

Judgement judge_vrf(Evidence& evidence);
Judgement judge_device(Evidence& evidence);
Judgement judge_rd(Evidence& evidence);
Judgement judge_sessions(Evidence& evidence);
Judgement judge_imports(Evidence& evidence);
Judgement judge_exports(Evidence& evidence);
Judgement judge_vpn_label(Evidence& evidence);

}  // namespace cli::explain
