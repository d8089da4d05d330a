// Managed timers: a leaf runs as one timer of the event manager. Several expiries before the handler runs are
// one event, because raises coalesce. Everything belongs to the manager's thread.
#include "platform/core/timer/timer.h"

#include <cerrno>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"

struct TimerTree {
  TimerSignal signal;
};

struct TimerParent {
  TimerTree* tree;
};

struct TimerLeaf {
  TimerTree* tree;
  EventTimerId timer;  // 0: not running
};

namespace {

// The fault point of an operation that creates an object below `base`: 0 or errno.
int may_make(const char* name, const void* base) {
  if (const Status status = fault_check(name)) return static_cast<int>(status);
  return base == nullptr ? EINVAL : 0;
}

}  // namespace

int timer_signal_init(TimerSignal* signal, EventManager* manager, std::uint32_t code) {
  int error = may_make("timer_signal_init", manager);
  if (error == 0 && signal == nullptr) error = EINVAL;
  if (error != 0) {
    errno = error;
    return -1;
  }
  *signal = TimerSignal{manager, code};
  return 0;
}

TimerTree* timer_tree_new(const TimerSignal* signal) {
  if (const int error = may_make("timer_tree_new", signal == nullptr ? nullptr : signal->manager)) {
    errno = error;
    return nullptr;
  }
  return new TimerTree{*signal};
}

TimerParent* timer_parent_new(TimerTree* tree) {
  if (const int error = may_make("timer_parent_new", tree)) {
    errno = error;
    return nullptr;
  }
  return new TimerParent{tree};
}

TimerLeaf* timer_leaf_new(TimerParent* parent, void* /*context*/) {
  if (const int error = may_make("timer_leaf_new", parent)) {
    errno = error;
    return nullptr;
  }
  return new TimerLeaf{parent->tree, 0};
}

void timer_tree_free(TimerTree* tree) {
  delete tree;
}

void timer_parent_free(TimerParent* parent) {
  delete parent;
}

void timer_leaf_free(TimerLeaf* leaf) {
  timer_leaf_stop(leaf);
  delete leaf;
}

Status timer_leaf_start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds) {
  if (const Status status = fault_check("timer_leaf_start")) return status;
  if (leaf == nullptr || nanoseconds >= kNanosecondsPerSecond) return kStatusInvalid;
  timer_leaf_stop(leaf);
  const TimerSignal& signal = leaf->tree->signal;
  leaf->timer = event_timer_start(signal.manager, seconds * kNanosecondsPerSecond + nanoseconds, [leaf] {
    leaf->timer = 0;
    const auto& [manager, code] = leaf->tree->signal;
    event_async_raise(manager, code);
  });
  return kStatusOk;
}

void timer_leaf_stop(TimerLeaf* leaf) {
  if (leaf == nullptr) return;
  event_timer_cancel(leaf->tree->signal.manager, leaf->timer);
  leaf->timer = 0;
}
