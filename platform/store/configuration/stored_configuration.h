// The configuration of a database, as it was when the last process ended. Only for this folder.
#pragma once

#include <vector>

#include "platform/store/configuration/config_tree.h"
#include "platform/store/configuration/node_store.h"

namespace kvtree {

struct StoredConfiguration {
  ConfigTree tree;
  std::vector<ConfigTree::const_iterator> in_order;  // of the last notifications
};

// The folded values, and on top of them the commits that are not folded.
[[nodiscard]] Status read_stored(NodeStore* node_store, StoredConfiguration* stored);

}  // namespace kvtree
