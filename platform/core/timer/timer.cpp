// Managed timers: a leaf runs as one timer of the event manager.
//
// The tree owns its parents and a parent its leaves. Several expiries before the handler runs are one event,
// because raises coalesce. Everything belongs to the manager's thread.
#include "platform/core/timer/timer.h"

#include <cerrno>
#include <memory>
#include <unordered_map>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"

// Owned by address, so that an object is found by its pointer.
template <typename Node>
using Owned = std::unordered_map<const Node*, std::unique_ptr<Node>>;

struct TimerLeaf {
  explicit TimerLeaf(TimerParent* above) : parent(above) {}
  ~TimerLeaf() { timer_leaf_stop(this); }
  TimerLeaf(const TimerLeaf&) = delete;
  TimerLeaf& operator=(const TimerLeaf&) = delete;

  TimerParent* parent;
  EventTimerId timer = 0;  // 0: not running
};

struct TimerParent {
  TimerTree* tree;
  Owned<TimerLeaf> leaves;
};

struct TimerTree {
  TimerSignal signal{};  // before the leaves, which use it when they are freed
  Owned<TimerParent> parents;
};

namespace {

// The fault point of an operation that creates an object below `base`: 0 or errno.
int may_make(const char* name, const void* base) {
  if (const Status status = fault_check(name)) return static_cast<int>(status);
  return base == nullptr ? EINVAL : 0;
}

template <typename Node>
Node* keep(Owned<Node>* owned, std::unique_ptr<Node> node) {
  Node* const made = node.get();
  owned->emplace(made, std::move(node));
  return made;
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
  auto tree = std::make_unique<TimerTree>();
  tree->signal = *signal;
  return tree.release();
}

TimerParent* timer_parent_new(TimerTree* tree) {
  if (const int error = may_make("timer_parent_new", tree)) {
    errno = error;
    return nullptr;
  }
  return keep(&tree->parents, std::make_unique<TimerParent>(TimerParent{tree, {}}));
}

TimerLeaf* timer_leaf_new(TimerParent* parent, void* /*context*/) {
  if (const int error = may_make("timer_leaf_new", parent)) {
    errno = error;
    return nullptr;
  }
  return keep(&parent->leaves, std::make_unique<TimerLeaf>(parent));
}

void timer_tree_free(TimerTree* tree) {
  delete tree;
}

void timer_parent_free(TimerParent* parent) {
  if (parent != nullptr) parent->tree->parents.erase(parent);
}

void timer_leaf_free(TimerLeaf* leaf) {
  if (leaf != nullptr) leaf->parent->leaves.erase(leaf);
}

Status timer_leaf_start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds) {
  if (const Status status = fault_check("timer_leaf_start")) return status;
  if (leaf == nullptr || nanoseconds >= kNanosecondsPerSecond) return kStatusInvalid;
  timer_leaf_stop(leaf);
  const TimerSignal& signal = leaf->parent->tree->signal;
  leaf->timer = event_timer_start(signal.manager, seconds * kNanosecondsPerSecond + nanoseconds, [leaf] {
    leaf->timer = 0;
    const auto& [manager, code] = leaf->parent->tree->signal;
    event_async_raise(manager, code);
  });
  return kStatusOk;
}

void timer_leaf_stop(TimerLeaf* leaf) {
  if (leaf == nullptr) return;
  event_timer_cancel(leaf->parent->tree->signal.manager, leaf->timer);
  leaf->timer = 0;
}
