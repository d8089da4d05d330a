// The states of watched tables and prefixes in a file, so that they outlive the process. Only for this
// folder.
//
// A heading, then a line for each table that is, or was, below its mark and for each prefix, with a checksum.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "platform/router/route_watch/watched_vrf.h"

namespace route_watch {

using StoredStates = std::map<std::string, StoredVrf>;  // by the name of the VRF

// Nothing for a missing file. A damaged line is left out and logged, as is a file that cannot be read.
StoredStates read_states(const std::string& path);
std::string text_of(const StoredStates& states);

}  // namespace route_watch
