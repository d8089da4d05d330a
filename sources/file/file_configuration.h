// The router file's part of the configuration tree.
#pragma once

#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/store/configuration/config.h"

// Replaces what the owner "file" sets of VRFs, their protocols, the format of AS numbers and the trap
// switches by these nodes, as one commit of the difference. *id is the commit's, empty when no effective
// value changed. The statuses and *error are those of kvtree_config_replace(). Main thread.
[[nodiscard]] Status replace_file_configuration(const std::vector<KvConfigNode>& nodes,
                                                const std::string& comment, std::string* id,
                                                std::string* error);
