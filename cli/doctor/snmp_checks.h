// snmpd, and the way from it to the daemon.
#pragma once

#include "cli/doctor/check.h"

namespace cli::doctor {

// NotPossible if snmpd neither runs nor is installed.
void require_snmpd();

Findings check_snmpd(Facts& facts);
Findings check_agentx_socket(Facts& facts);
Findings check_front_end(Facts& facts);
Findings check_view(Facts& facts);
Findings check_if_indexes(Facts& facts);

}  // namespace cli::doctor
