// What undoes a commit of the first owner. Only for the store.
#pragma once

#include <vector>

#include "platform/store/configuration/config_tree.h"

namespace kvtree {

// The changes of the first owner that undo those of its commit: where the node still has the value that the
// commit set, the former one.
std::vector<KvConfigChange> undoing_changes(const std::vector<KvConfigCommitChange>& made,
                                            const ConfigTree& tree);

}  // namespace kvtree
