// The daemon, its state directory and the clock.
#pragma once

#include "cli/doctor/check.h"

namespace cli::doctor {

Findings check_daemon(Facts& facts);
Findings check_version(Facts& facts);
Findings check_sources(Facts& facts);
Findings check_route_modules(Facts& facts);
Findings check_databases(Facts& facts);
Findings check_disk(Facts& facts);
Findings check_clock(Facts& facts);

}  // namespace cli::doctor
