// Managed timers on an event manager.
//
// A tree orders its running leaves by deadline, then by start, and sets one timer of the event manager to the
// first of them. When the timer fires, every leaf that is due moves to the expired leaves, in the same order,
// and the tree raises its asynchronous event once. Stopping the first leaf does not change the manager's
// timer: it fires without effect and is set again, which costs less than setting it at every stop.
//
// The tree owns its parents and a parent its leaves; the maps of running and expired leaves only point to
// them, and a leaf leaves its map before it is destroyed. Everything belongs to the manager's thread.
#include "platform/core/timer/timer.h"

#include <cerrno>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"

namespace {

// Deadline (monotonic nanoseconds) and number of the start.
using TimerKey = std::pair<std::uint64_t, std::uint64_t>;
using TimerQueue = std::map<TimerKey, TimerLeaf*>;

constexpr std::uint64_t kNotSet = UINT64_MAX;

// Owned by address, so that an object is found by its pointer.
template <typename Node>
using Owned = std::unordered_map<const Node*, std::unique_ptr<Node>>;

}  // namespace

struct TimerLeaf {
  TimerParent* parent = nullptr;
  void* context = nullptr;
  TimerQueue* queue = nullptr;  // running or expired of the tree; null while stopped
  TimerKey key;
};

struct TimerParent {
  TimerTree* tree = nullptr;
  Owned<TimerLeaf> leaves;
};

struct TimerTree {
  TimerSignal signal{};
  Owned<TimerParent> parents;
  TimerQueue running;
  TimerQueue expired;
  std::uint64_t next_start = 1;
  EventTimerId timer = 0;           // 0: not set
  std::uint64_t set_for = kNotSet;  // deadline that the manager's timer is set to
};

namespace {

void set_timer(TimerTree* tree);

void expire(TimerTree* tree) {
  tree->timer = 0;
  tree->set_for = kNotSet;
  const std::uint64_t now = clock_monotonic();
  bool any = false;
  while (!tree->running.empty() && tree->running.begin()->first.first <= now) {
    auto node = tree->running.extract(tree->running.begin());
    node.mapped()->queue = &tree->expired;
    tree->expired.insert(std::move(node));
    any = true;
  }
  set_timer(tree);
  if (any) event_async_raise(tree->signal.manager, tree->signal.code);
}

// Sets the manager's timer if the first deadline is earlier than its setting.
void set_timer(TimerTree* tree) {
  if (tree->running.empty()) return;
  const std::uint64_t deadline = tree->running.begin()->first.first;
  if (deadline >= tree->set_for) return;
  event_timer_cancel(tree->signal.manager, tree->timer);
  const std::uint64_t now = clock_monotonic();
  tree->set_for = deadline;
  tree->timer =
      event_timer_start(tree->signal.manager, deadline > now ? deadline - now : 0, [tree] { expire(tree); });
}

void leave_queue(TimerLeaf* leaf) {
  if (leaf->queue != nullptr) leaf->queue->erase(leaf->key);
  leaf->queue = nullptr;
}

void leave_queues(TimerParent* parent) {
  for (const auto& [address, leaf] : parent->leaves) leave_queue(leaf.get());
}

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
  auto parent = std::make_unique<TimerParent>();
  parent->tree = tree;
  return keep(&tree->parents, std::move(parent));
}

TimerLeaf* timer_leaf_new(TimerParent* parent, void* context) {
  if (const int error = may_make("timer_leaf_new", parent)) {
    errno = error;
    return nullptr;
  }
  auto leaf = std::make_unique<TimerLeaf>();
  leaf->parent = parent;
  leaf->context = context;
  return keep(&parent->leaves, std::move(leaf));
}

void timer_tree_free(TimerTree* tree) {
  if (tree == nullptr) return;
  event_timer_cancel(tree->signal.manager, tree->timer);
  delete tree;
}

void timer_parent_free(TimerParent* parent) {
  if (parent == nullptr) return;
  leave_queues(parent);
  parent->tree->parents.erase(parent);
}

void timer_leaf_free(TimerLeaf* leaf) {
  if (leaf == nullptr) return;
  leave_queue(leaf);
  leaf->parent->leaves.erase(leaf);
}

Status timer_leaf_start(TimerLeaf* leaf, std::uint32_t seconds, std::uint32_t nanoseconds) {
  if (const Status status = fault_check("timer_leaf_start")) return status;
  if (leaf == nullptr || nanoseconds >= kNanosecondsPerSecond) return kStatusInvalid;
  leave_queue(leaf);
  TimerTree* const tree = leaf->parent->tree;
  leaf->key = {clock_monotonic() + seconds * kNanosecondsPerSecond + nanoseconds, tree->next_start++};
  leaf->queue = &tree->running;
  tree->running.emplace(leaf->key, leaf);
  set_timer(tree);
  return kStatusOk;
}

void timer_leaf_stop(TimerLeaf* leaf) {
  if (leaf != nullptr) leave_queue(leaf);
}

bool timer_leaf_running(const TimerLeaf* leaf) {
  return leaf != nullptr && leaf->queue == &leaf->parent->tree->running;
}

void* timer_leaf_context(const TimerLeaf* leaf) {
  return leaf->context;
}

TimerLeaf* timer_tree_take_expired(TimerTree* tree) {
  if (tree->expired.empty()) return nullptr;
  TimerLeaf* const leaf = tree->expired.begin()->second;
  leave_queue(leaf);
  return leaf;
}
