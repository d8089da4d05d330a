// Managed timers: a tree, parents in it, one-shot leaves below a parent.
//
// When leaves expire, the tree raises one asynchronous event on its event manager (evm.h, event_async_*),
// whatever their number; the program's handler of that event asks for the expired leaves or simply acts. A
// leaf is running, expired (until it is asked for, started or stopped) or stopped. Starting, stopping and
// expiring a leaf cost O(log n) in the number of running leaves of the tree; a tree uses one timer of the
// event manager.
//
// A raised event is not withdrawn: if a leaf that expired is stopped before the handler runs, the handler
// finds no expired leaf.
//
// Thread: the manager's, which must outlive the tree. The clock is clock_monotonic(), so a ManualClock moves
// it.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

struct TimerTree;
struct TimerParent;
struct TimerLeaf;

// Where a tree announces expiry: the asynchronous event `code` of a manager.
struct TimerSignal {
  EventManager* manager;
  std::uint32_t code;
};

// The code need not be attached yet. 0, or -1 with errno: EINVAL without signal or manager. Fault point
// "timer_signal_init" (its status becomes errno).
[[nodiscard]] int timer_signal_init(TimerSignal* signal, EventManager* manager, std::uint32_t code);

// Null and errno on failure: EINVAL without signal (or its manager), tree or parent. The signal is copied.
// Fault points "timer_tree_new", "timer_parent_new", "timer_leaf_new" (their status becomes errno).
TimerTree* timer_tree_new(const TimerSignal* signal);
TimerParent* timer_parent_new(TimerTree* tree);
// `context` identifies the leaf to the caller; the tree never reads it.
TimerLeaf* timer_leaf_new(TimerParent* parent, void* context);

// Frees what is below it too. Null is allowed.
void timer_tree_free(TimerTree* tree);
void timer_parent_free(TimerParent* parent);
void timer_leaf_free(TimerLeaf* leaf);

// Starts to expire once, after that many seconds and nanoseconds from now; a running leaf starts again, an
// expired one is no longer expired. kStatusInvalid without a leaf or for nanoseconds of a second and more.
// Fault point "timer_leaf_start".
[[nodiscard]] Status timer_leaf_start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds);
void timer_leaf_stop(TimerLeaf* leaf);  // null is allowed
bool timer_leaf_running(const TimerLeaf* leaf);
void* timer_leaf_context(const TimerLeaf* leaf);
// Returns the leaf that expired first (leaves of one instant in the order of their starts) and stops it; null
// if no leaf is expired.
TimerLeaf* timer_tree_take_expired(TimerTree* tree);
