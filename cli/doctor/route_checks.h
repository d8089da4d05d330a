// The checks of what is watched of the routes of VRFs.
#pragma once

#include "cli/doctor/check.h"

namespace cli::doctor {

Findings check_low_tables(Facts& facts);
Findings check_watched_prefixes(Facts& facts);

}  // namespace cli::doctor
