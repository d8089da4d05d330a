// The invariant checker of the weak-AVL tree: every link agrees with its parent, ranks differ by 1 or 2,
// leaves have rank 0, keys rise strictly in order, and the count is the thread's size. Steps through the tree
// by parent links, so that a deep (broken) tree cannot exhaust the stack, and stops after size + 1 nodes.
#include "platform/core/wavl/balance.h"
#include "platform/core/wavl/wavl.h"

namespace {

bool child_agrees(const WavlLink* link, const WavlLink* child) {
  const int difference = wavl_detail::rank_of(link) - wavl_detail::rank_of(child);
  if (difference != 1 && difference != 2) return false;
  return child == nullptr || child->parent == link;
}

bool link_is_sound(const WavlLink* link) {
  if (link->linked != 1) return false;
  const bool leaf = link->child[0] == nullptr && link->child[1] == nullptr;
  if (leaf && link->rank != 0) return false;
  return child_agrees(link, link->child[0]) && child_agrees(link, link->child[1]);
}

}  // namespace

int wavl_check(const WavlTree* tree, unsigned thread) {
  if (tree == nullptr || thread >= tree->thread_count) return 0;
  const WavlLink* root = tree->root[thread];
  if (root == nullptr) return tree->size[thread] == 0 ? 1 : 0;
  if (root->parent != nullptr) return 0;
  std::uint32_t count = 0;
  const void* previous = nullptr;
  for (const void* node = wavl_first(tree, thread); node != nullptr; node = wavl_next(tree, thread, node)) {
    const WavlLink* link = static_cast<const WavlLink*>(node) + thread;
    if (++count > tree->size[thread] || !link_is_sound(link)) return 0;
    if (previous != nullptr && tree->compare[thread](previous, node) != kWavlLess) return 0;
    previous = node;
  }
  return count == tree->size[thread] ? 1 : 0;
}
