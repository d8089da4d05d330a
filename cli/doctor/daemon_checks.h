// The daemon, its state directory and the clock.
#pragma once

#include <string>

#include "cli/doctor/check.h"

namespace cli::doctor {

// The state directory, without a running daemon that of the environment.
std::string state_folder(Facts& facts);

Findings check_daemon(Facts& facts);
Findings check_version(Facts& facts);
Findings check_settings(Facts& facts);
Findings check_sources(Facts& facts);
Findings check_route_modules(Facts& facts);
Findings check_metrics(Facts& facts);
Findings check_databases(Facts& facts);
Findings check_disk(Facts& facts);
Findings check_clock(Facts& facts);

}  // namespace cli::doctor
