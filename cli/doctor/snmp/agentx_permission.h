// Who may connect to snmpd's AgentX socket.
#pragma once

#include <sys/types.h>

#include <string>

#include "cli/doctor/check.h"
#include "cli/doctor/snmp/snmpd_configuration.h"

namespace cli::doctor {

// The folders of the socket, and the socket, that keep the user out, each with what lets it in and takes
// access from no other. `permissions`: those of snmpd's configuration.
Findings judge_agentx_permission(uid_t user, const std::string& socket, const AgentxPermissions& permissions);

}  // namespace cli::doctor
