// Rank repairs of the weak-AVL tree.
//
// Invariants: the rank difference between a parent and each child (a missing child has rank -1) is 1 or 2,
// and a leaf has rank 0. An insertion can leave one 0-child, a deletion one 3-child or one leaf of rank 1.
// Promotions and demotions move the violation towards the root; the first rotation ends it. So an operation
// makes at most one single or one double rotation, and over any sequence of operations the number of rank
// changes is linear.
//
// The cases are written once for both sides: `side` is the child index towards the violation, 1 - side the
// other.
#include "platform/core/wavl/balance.h"

namespace wavl_detail {
namespace {

int difference(const WavlLink* parent, const WavlLink* child) {
  return rank_of(parent) - rank_of(child);
}

unsigned side_of(const WavlLink* parent, const WavlLink* child) {
  return parent->child[1] == child ? 1U : 0U;
}

bool is_leaf(const WavlLink* link) {
  return link->child[0] == nullptr && link->child[1] == nullptr;
}

// Replaces `link` by `replacement` (null allowed) at its parent; the pointers of `link` do not change.
void replace_at_parent(WavlLink** root, const WavlLink* link, WavlLink* replacement) {
  WavlLink* parent = link->parent;
  if (parent == nullptr) {
    *root = replacement;
  } else {
    parent->child[side_of(parent, link)] = replacement;
  }
  if (replacement != nullptr) replacement->parent = parent;
}

// Rotates `child` above its parent; the caller updates the ranks.
void rotate_up(WavlLink** root, WavlLink* child) {
  WavlLink* parent = child->parent;
  const unsigned side = side_of(parent, child);
  WavlLink* inner = child->child[1 - side];
  replace_at_parent(root, parent, child);
  parent->child[side] = inner;
  if (inner != nullptr) inner->parent = parent;
  child->child[1 - side] = parent;
  parent->parent = child;
}

// `link` is a 0-child and its sibling a 2-child: one single or double rotation ends the repair.
void rotate_after_insertion(WavlLink** root, WavlLink* link, WavlLink* parent, unsigned side) {
  WavlLink* inner = link->child[1 - side];
  --parent->rank;
  if (difference(link, inner) == 2) {
    rotate_up(root, link);
    return;
  }
  --link->rank;
  ++inner->rank;
  rotate_up(root, inner);
  rotate_up(root, inner);
}

void repair_after_insertion(WavlLink** root, WavlLink* link) {
  for (WavlLink* parent = link->parent; parent != nullptr && difference(parent, link) == 0;
       parent = link->parent) {
    const unsigned side = side_of(parent, link);
    if (difference(parent, parent->child[1 - side]) == 2) {
      rotate_after_insertion(root, link, parent, side);
      return;
    }
    ++parent->rank;
    link = parent;
  }
}

// The child of `parent` at `side` is a 3-child, its sibling a 1-child that has a 1-child: one rotation ends
// it.
void rotate_after_deletion(WavlLink** root, WavlLink* parent, WavlLink* sibling, unsigned side) {
  WavlLink* inner = sibling->child[side];
  if (difference(sibling, sibling->child[1 - side]) == 1) {
    ++sibling->rank;
    --parent->rank;
    rotate_up(root, sibling);
    if (is_leaf(parent)) parent->rank = 0;
    return;
  }
  inner->rank += 2;
  --sibling->rank;
  parent->rank -= 2;
  rotate_up(root, inner);
  rotate_up(root, inner);
}

// `link` (null allowed) is a child of `parent` in place of one of greater rank.
void repair_after_deletion(WavlLink** root, WavlLink* parent, const WavlLink* link) {
  if (parent != nullptr && is_leaf(parent) && parent->rank == 1) {
    parent->rank = 0;
    link = parent;
    parent = parent->parent;
  }
  while (parent != nullptr && difference(parent, link) == 3) {
    // A missing child can be on either side only of a unary parent, whose other child is present.
    const unsigned side = parent->child[1] == link ? 1U : 0U;
    WavlLink* sibling = parent->child[1 - side];
    if (difference(parent, sibling) == 1) {
      if (difference(sibling, sibling->child[0]) != 2 || difference(sibling, sibling->child[1]) != 2) {
        rotate_after_deletion(root, parent, sibling, side);
        return;
      }
      --sibling->rank;
    }
    --parent->rank;
    link = parent;
    parent = parent->parent;
  }
}

// Lets the in-order successor of a link with two children take its place, so that the link has at most one
// child.
void exchange_with_successor(WavlLink** root, WavlLink* link) {
  WavlLink* next = link->child[1];
  while (next->child[0] != nullptr) next = next->child[0];
  WavlLink* next_parent = next->parent;
  WavlLink* next_child = next->child[1];
  const std::uint32_t next_rank = next->rank;

  replace_at_parent(root, link, next);
  next->rank = link->rank;
  next->child[0] = link->child[0];
  next->child[0]->parent = next;
  if (next_parent == link) {
    next->child[1] = link;
    link->parent = next;
  } else {
    next->child[1] = link->child[1];
    next->child[1]->parent = next;
    next_parent->child[0] = link;
    link->parent = next_parent;
  }
  link->rank = next_rank;
  link->child[0] = nullptr;
  link->child[1] = next_child;
  if (next_child != nullptr) next_child->parent = link;
}

}  // namespace

void join_leaf(WavlLink** root, WavlLink* link, WavlLink* parent, unsigned side) {
  *link = WavlLink{parent, {nullptr, nullptr}, 0, 1};
  if (parent == nullptr) {
    *root = link;
    return;
  }
  parent->child[side] = link;
  repair_after_insertion(root, link);
}

void take_out(WavlLink** root, WavlLink* link) {
  if (link->child[0] != nullptr && link->child[1] != nullptr) exchange_with_successor(root, link);
  WavlLink* child = link->child[0] != nullptr ? link->child[0] : link->child[1];
  WavlLink* parent = link->parent;
  replace_at_parent(root, link, child);
  *link = WavlLink{};
  repair_after_deletion(root, parent, child);
}

}  // namespace wavl_detail
