// The router file's part of the configuration tree.
#pragma once

#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/store/configuration/config.h"

// Makes the nodes all that the owner "file" holds of VRFs, their protocols, the format of AS numbers and the
// trap switches, as one commit of the difference. *id is the commit's, empty when nothing in force changed;
// the statuses and *mistake are kvtree_config_replace's. What is there already is not written again. Main
// thread.
[[nodiscard]] Status replace_file_configuration(const std::vector<KvConfigNode>& nodes,
                                                const std::string& comment, std::string* id,
                                                std::string* mistake);
