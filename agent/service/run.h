// The sub-agent as a service: it runs until a signal ends it, and keeps its service manager informed.
#pragma once

#include "agent/sub_agent.h"

namespace agent {

// Returns the exit status of the process: 0 after SIGTERM or SIGINT, 1 if it cannot follow signals. SIGHUP
// connects again.
int run_as_service(const SubAgentOptions& options);

}  // namespace agent
