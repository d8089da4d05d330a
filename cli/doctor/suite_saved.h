// The configuration that the routing suite loads at its next start.
#pragma once

#include <string>

#include "cli/doctor/check.h"

namespace cli::doctor {

// The user's file, frr.conf, or that of bgpd alone; empty if there is none. NotPossible if this user may not
// look for it.
std::string find_saved_file(Facts& facts);

// NotPossible if it cannot be read.
std::string read_saved_file(const std::string& path);

// The command that compares the running configuration with that file.
std::string comparison(const Facts& facts, const std::string& file);

// Whether the running configuration exchanges the same VPN routes.
Findings check_saved(Facts& facts);

}  // namespace cli::doctor
