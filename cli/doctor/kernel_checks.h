// VRF devices, their tables, and labels.
#pragma once

#include "cli/doctor/check.h"

namespace cli::doctor {

Findings check_vrf_devices(Facts& facts);
Findings check_vrf_members(Facts& facts);
Findings check_default_routes(Facts& facts);
Findings check_shared_tables(Facts& facts);
Findings check_labels(Facts& facts);

}  // namespace cli::doctor
