// Weak-AVL tree: an intrusive, rank-balanced binary search tree with several orderings ("threads") over one
// node set.
//
// A node is any record that begins with `thread_count` WavlLink members, thread 0 first. A tree never
// allocates: the links are the node's own, all zero before the node's first insertion. A node may be in some
// threads and not in others. Keys are nodes: a search is given a record of the same type of which only the
// key fields are filled in. Compare functions answer 0 when the first node orders before the second, 1 when
// they are equal, 2 when it orders after; either may be null, a null node being smaller than any other.
//
// Balance (Haeupler, Sen, Tarjan: Rank-Balanced Trees): every rank difference is 1 or 2, a leaf has rank 0;
// insert and delete take O(log n) steps and at most two rotations.
//
// Cursors: a node pointer is its own cursor. It stays valid while the node is linked, whatever happens to
// other nodes; wavl_next of a node that was unlinked answers null. Not thread-safe: callers lock.
#pragma once

#include <array>
#include <cstdint>

#include "platform/core/base/status.h"

struct WavlLink {
  WavlLink* parent;
  WavlLink* child[2];    // 0 smaller, 1 greater
  std::uint32_t rank;    // meaningful while linked
  std::uint32_t linked;  // 1 while the node is in this thread
};

inline constexpr std::uint32_t kWavlLess = 0;
inline constexpr std::uint32_t kWavlEqual = 1;
inline constexpr std::uint32_t kWavlGreater = 2;
inline constexpr unsigned kWavlMaxThreads = 4;

using WavlCompare = std::uint32_t (*)(const void* left, const void* right);
// Returns non-zero to go on, 0 to stop. It may delete the node it is given, no other.
using WavlVisit = int (*)(void* node, void* argument);

struct WavlTree {
  unsigned thread_count;
  std::array<WavlLink*, kWavlMaxThreads> root;
  std::array<WavlCompare, kWavlMaxThreads> compare;
  std::array<std::uint32_t, kWavlMaxThreads> size;
};

// Makes an empty tree with one ordering for each of the thread_count compare functions (1 to kWavlMaxThreads;
// kStatusInvalid otherwise). Fault point "wavl_init".
[[nodiscard]] Status wavl_init(WavlTree* tree, unsigned thread_count, const WavlCompare* compare);
// Links a node into one thread. kStatusExists when an equal node is there (or the node itself is linked);
// kStatusInvalid for a null node or a thread out of range. Fault point "wavl_insert".
[[nodiscard]] Status wavl_insert(WavlTree* tree, unsigned thread, void* node);
// Unlinks from one thread. kStatusNoSuchRow when it is not linked there. Fault point "wavl_delete".
[[nodiscard]] Status wavl_delete(WavlTree* tree, unsigned thread, void* node);
// Unlinks from every thread it is in; kStatusNoSuchRow when it was in none. Fault point "wavl_delete".
[[nodiscard]] Status wavl_delete_all(WavlTree* tree, void* node);

// The node equal to key; the first node not smaller than key; null when there is none.
void* wavl_search(const WavlTree* tree, unsigned thread, const void* key);
void* wavl_search_greater_equal(const WavlTree* tree, unsigned thread, const void* key);
void* wavl_first(const WavlTree* tree, unsigned thread);
void* wavl_next(const WavlTree* tree, unsigned thread, const void* node);
std::uint32_t wavl_size(const WavlTree* tree, unsigned thread);

// Visits a thread in order. 1 when the walk ran to its end, 0 when the visitor stopped it.
// Fault point "wavl_walk" (the walk stops before its first node and answers 0).
int wavl_walk(const WavlTree* tree, unsigned thread, WavlVisit visit, void* argument);

// 1 when order, links, sizes and every rank rule of the thread hold. O(n); for tests.
int wavl_check(const WavlTree* tree, unsigned thread);
