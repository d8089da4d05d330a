// The balance of a weak-AVL tree: inserting and removing one link, and the rank repairs that follow
// (Haeupler, Sen, Tarjan: Rank-Balanced Trees, ACM TALG 11(4), sections 3 and 4). Uses links and ranks only;
// tree.cpp handles keys, threads and nodes.
#pragma once

#include "platform/core/wavl/wavl.h"

namespace wavl_detail {

// Rank of a link; a missing child has rank -1.
inline int rank_of(const WavlLink* link) {
  return link == nullptr ? -1 : static_cast<int>(link->rank);
}

// Inserts a link as a leaf at child `side` of parent (the root when parent is null) and restores the rank
// rule. REQUIRES: that place is empty.
void join_leaf(WavlLink** root, WavlLink* link, WavlLink* parent, unsigned side);
// Removes a link, restores the rank rule and clears the link. REQUIRES: it is in the thread.
void take_out(WavlLink** root, WavlLink* link);

}  // namespace wavl_detail
