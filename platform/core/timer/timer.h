// Managed timers: a tree, parents in it, one-shot leaves below a parent.
//
// When leaves expire, the tree raises one asynchronous event on its event manager (evm.h, event_async_*),
// whatever their number. A raised event is not withdrawn: the handler also runs if the leaf that expired is
// stopped before.
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
// `context` is the caller's; it is not read.
TimerLeaf* timer_leaf_new(TimerParent* parent, void* context);

// REQUIRES: what is below was freed. Null is allowed.
void timer_tree_free(TimerTree* tree);
void timer_parent_free(TimerParent* parent);
void timer_leaf_free(TimerLeaf* leaf);

// Starts to expire once, after that many seconds and nanoseconds from now; a running leaf starts again.
// kStatusInvalid without a leaf or for nanoseconds of a second and more.
// Fault point "timer_leaf_start".
[[nodiscard]] Status timer_leaf_start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds);
void timer_leaf_stop(TimerLeaf* leaf);  // null is allowed
