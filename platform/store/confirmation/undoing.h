// What undoes a commit of the first owner. Only for the store.
#pragma once

#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/store/configuration/config_tree.h"

namespace kvtree {

using UnchangedPaths = std::unordered_set<std::string_view>;

// The changes of the first owner that restore its former value of each of these paths, which the commit has
// set last.
std::vector<KvConfigChange> undoing_changes(const CommitPlan& made, const UnchangedPaths& unchanged,
                                            const ConfigTree& tree);

}  // namespace kvtree
