// The weak-AVL tree's operations on nodes: searching, linking, stepping and walking. Rank repairs are in
// balance.cpp, the invariant checker in check.cpp.
//
// A node is an array of links: link t is at offset t from the node's address. A link refers only to relatives
// of its own thread, so that a record can be in any number of orderings.
#include "platform/core/wavl/wavl.h"

#include "platform/core/base/fault.h"
#include "platform/core/wavl/balance.h"

namespace {

WavlLink* link_of(void* node, unsigned thread) {
  return static_cast<WavlLink*>(node) + thread;
}
const WavlLink* link_of(const void* node, unsigned thread) {
  return static_cast<const WavlLink*>(node) + thread;
}
void* node_of(WavlLink* link, unsigned thread) {
  return link == nullptr ? nullptr : link - thread;
}

bool usable(const WavlTree* tree, unsigned thread) {
  return tree != nullptr && thread < tree->thread_count;
}

WavlLink* smallest(WavlLink* link) {
  while (link != nullptr && link->child[0] != nullptr) link = link->child[0];
  return link;
}

void unlink(WavlTree* tree, unsigned thread, WavlLink* link) {
  wavl_detail::take_out(&tree->root[thread], link);
  --tree->size[thread];
}

}  // namespace

Status wavl_init(WavlTree* tree, unsigned thread_count, const WavlCompare* compare) {
  if (Status s = fault_check("wavl_init")) return s;
  if (tree == nullptr || compare == nullptr || thread_count == 0 || thread_count > kWavlMaxThreads) {
    return kStatusInvalid;
  }
  WavlTree empty{};
  empty.thread_count = thread_count;
  for (unsigned thread = 0; thread < thread_count; ++thread) {
    if (compare[thread] == nullptr) return kStatusInvalid;
    empty.compare[thread] = compare[thread];
  }
  *tree = empty;
  return kStatusOk;
}

Status wavl_insert(WavlTree* tree, unsigned thread, void* node) {
  if (Status s = fault_check("wavl_insert")) return s;
  if (!usable(tree, thread) || node == nullptr) return kStatusInvalid;
  WavlLink* link = link_of(node, thread);
  if (link->linked != 0) return kStatusExists;
  WavlLink* parent = nullptr;
  unsigned side = 0;
  for (WavlLink* at = tree->root[thread]; at != nullptr; at = at->child[side]) {
    const std::uint32_t order = tree->compare[thread](node, node_of(at, thread));
    if (order == kWavlEqual) return kStatusExists;
    parent = at;
    side = order == kWavlLess ? 0 : 1;
  }
  wavl_detail::join_leaf(&tree->root[thread], link, parent, side);
  ++tree->size[thread];
  return kStatusOk;
}

Status wavl_delete(WavlTree* tree, unsigned thread, void* node) {
  if (Status s = fault_check("wavl_delete")) return s;
  if (!usable(tree, thread) || node == nullptr) return kStatusInvalid;
  WavlLink* link = link_of(node, thread);
  if (link->linked == 0) return kStatusNoSuchRow;
  unlink(tree, thread, link);
  return kStatusOk;
}

Status wavl_delete_all(WavlTree* tree, void* node) {
  if (Status s = fault_check("wavl_delete")) return s;
  if (tree == nullptr || node == nullptr) return kStatusInvalid;
  Status result = kStatusNoSuchRow;
  for (unsigned thread = 0; thread < tree->thread_count; ++thread) {
    WavlLink* link = link_of(node, thread);
    if (link->linked == 0) continue;
    unlink(tree, thread, link);
    result = kStatusOk;
  }
  return result;
}

void* wavl_search(const WavlTree* tree, unsigned thread, const void* key) {
  void* node = wavl_search_greater_equal(tree, thread, key);
  return node != nullptr && tree->compare[thread](node, key) == kWavlEqual ? node : nullptr;
}

void* wavl_search_greater_equal(const WavlTree* tree, unsigned thread, const void* key) {
  if (!usable(tree, thread)) return nullptr;
  WavlLink* best = nullptr;
  for (WavlLink* at = tree->root[thread]; at != nullptr;) {
    const std::uint32_t order = tree->compare[thread](node_of(at, thread), key);
    if (order == kWavlEqual) return node_of(at, thread);
    if (order == kWavlGreater) best = at;
    at = at->child[order == kWavlGreater ? 0 : 1];
  }
  return node_of(best, thread);
}

void* wavl_first(const WavlTree* tree, unsigned thread) {
  return usable(tree, thread) ? node_of(smallest(tree->root[thread]), thread) : nullptr;
}

void* wavl_next(const WavlTree* tree, unsigned thread, const void* node) {
  if (!usable(tree, thread) || node == nullptr) return nullptr;
  const WavlLink* link = link_of(node, thread);
  if (link->linked == 0) return nullptr;
  if (link->child[1] != nullptr) return node_of(smallest(link->child[1]), thread);
  WavlLink* above = link->parent;
  while (above != nullptr && above->child[1] == link) {
    link = above;
    above = above->parent;
  }
  return node_of(above, thread);
}

std::uint32_t wavl_size(const WavlTree* tree, unsigned thread) {
  return usable(tree, thread) ? tree->size[thread] : 0;
}

int wavl_walk(const WavlTree* tree, unsigned thread, WavlVisit visit, void* argument) {
  if (fault_check("wavl_walk") != kStatusOk) return 0;
  void* node = wavl_first(tree, thread);
  while (node != nullptr) {
    // Taken before the visit, which may delete the node.
    void* next = wavl_next(tree, thread, node);
    if (visit(node, argument) == 0) return 0;
    node = next;
  }
  return 1;
}
