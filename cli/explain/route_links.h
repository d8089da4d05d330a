// Links of a prefix in a VRF.
#pragma once

#include "cli/explain/chain.h"

namespace cli::explain {

Judgement judge_source(Evidence& evidence);
Judgement judge_targets(Evidence& evidence);
Judgement judge_next_hop(Evidence& evidence);
Judgement judge_best_path(Evidence& evidence);
Judgement judge_label(Evidence& evidence);
Judgement judge_kernel(Evidence& evidence);
Judgement judge_row(Evidence& evidence);

}  // namespace cli::explain
