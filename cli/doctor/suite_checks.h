// The routing suite against the kernel and against its saved configuration.
#pragma once

#include "cli/doctor/check.h"

namespace cli::doctor {

Findings check_suite_access(Facts& facts);
Findings check_mgmtd(Facts& facts);
Findings check_suite_vrfs(Facts& facts);
Findings check_unused_vrfs(Facts& facts);
Findings check_vpn_labels(Facts& facts);
Findings check_rds(Facts& facts);
Findings check_suite_routes(Facts& facts);

}  // namespace cli::doctor
