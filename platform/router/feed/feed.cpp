// Items are ordered by change, then by phase; those of one change usually arrive in that order, so appending
// costs no search. An item is removed from the queue before its delivery: what its callback appends does
// not affect it. A generation number makes deferred deliveries of an earlier generation do nothing: a dropped
// receiver may be the one on whose event manager the delivery was deferred.
#include "platform/router/feed/feed.h"

#include <algorithm>
#include <deque>
#include <set>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"

namespace feed {
namespace {

// A batch ends with the notification that exceeds this time.
constexpr std::uint64_t kBatchTime = kNanosecondsPerMillisecond;
constexpr unsigned kPhaseBits = 3;
static_assert(static_cast<unsigned>(Phase::kFollowUp) < 1U << kPhaseBits);

struct Item {
  std::uint64_t order = 0;
  const Receiver* receiver = nullptr;  // null for a function that runs after the items before it
  std::unique_ptr<Notification> notification;
};

class Function : public Notification {
 public:
  explicit Function(std::function<void()> function) : function_(std::move(function)) {}
  void deliver() override { function_(); }

 private:
  std::function<void()> function_;
};

struct Queue {
  std::deque<Item> items;      // the front one has a receiver
  Item* delivering = nullptr;  // its callback runs
  std::set<const Receiver*> lost;
  std::vector<std::unique_ptr<Notification>> due_functions;  // wait for a callback or a lost receiver
  bool is_due = false;
  std::uint64_t generation = 0;
};

Queue& queue() {
  static Queue the_queue;
  return the_queue;
}

void take_due_functions() {
  auto& items = queue().items;
  for (; !items.empty() && items.front().receiver == nullptr; items.pop_front()) {
    queue().due_functions.push_back(std::move(items.front().notification));
  }
}

// Not inside a callback: it may use what a function would release.
void run_due_functions() {
  if (queue().delivering != nullptr || !queue().lost.empty()) return;
  for (const auto& function : std::exchange(queue().due_functions, {})) function->deliver();
}

void deliver_front() {
  Item item = std::move(queue().items.front());
  queue().items.pop_front();
  Item* const outer = std::exchange(queue().delivering, &item);
  take_due_functions();
  item.notification->deliver();
  queue().delivering = outer;
  run_due_functions();
}

void deliver_all() {
  while (!queue().items.empty()) deliver_front();
}

void schedule();

void deliver_batch() {
  const auto& items = queue().items;
  const std::uint64_t end = clock_monotonic() + kBatchTime;
  for (std::size_t count = 0; !items.empty() && count < items.front().receiver->batch; ++count) {
    deliver_front();
    if (clock_monotonic() >= end) break;
  }
  queue().is_due = false;
  schedule();
}

void schedule() {
  if (queue().items.empty() || std::exchange(queue().is_due, true)) return;
  // Not posted: the posted functions of a large commit would be called before.
  event_defer(queue().items.front().receiver->manager, [generation = queue().generation] {
    if (generation == queue().generation) deliver_batch();
  });
}

// Delivers around changes of names.
class Observer : public router::Observer {
 public:
  void attach(router::Router* model) {
    if (model_ != nullptr) model_->stop_observing(this);
    model_ = model;
    if (model_ != nullptr) model_->observe(router::ObserverRank::kFeed, this);
  }
  void interface_changing(const router::Interface& now, const router::Interface& next) override {
    if (now.name != next.name || now.index != next.index) deliver_all();
  }
  void interface_changed(const router::Interface& before, const router::Interface& now) override {
    interface_changing(before, now);
  }

 private:
  router::Router* model_ = nullptr;
};

}  // namespace

void attach(router::Router* model) {
  static Observer observer;
  observer.attach(model);
}

void append(std::uint64_t change, Phase phase, const Receiver* receiver,
            std::unique_ptr<Notification> notification) {
  auto& items = queue().items;
  const std::uint64_t order = change << kPhaseBits | static_cast<std::uint64_t>(phase);
  const auto is_before = [](std::uint64_t each, const Item& item) { return each < item.order; };
  const bool is_last = items.empty() || items.back().order <= order;
  const auto place = is_last ? items.end() : std::upper_bound(items.begin(), items.end(), order, is_before);
  items.insert(place, {order, receiver, std::move(notification)});
  schedule();
}

void append(std::uint64_t change, Phase phase, const Receiver* receiver, std::function<void()> deliver) {
  append(change, phase, receiver, std::make_unique<Function>(std::move(deliver)));
}

void drop(const Receiver* receiver) {
  ++queue().generation;
  queue().is_due = false;
  std::erase_if(queue().items, [receiver](const Item& item) { return item.receiver == receiver; });
  take_due_functions();
  run_due_functions();
  schedule();
}

bool is_empty() {
  return queue().items.empty();
}

bool is_long() {
  return queue().items.size() > kLongQueue;
}

void run_after_pending(std::function<void()> function) {
  auto& items = queue().items;
  const std::uint64_t order = items.empty() ? 0 : items.back().order;
  items.push_back({order, nullptr, std::make_unique<Function>(std::move(function))});
  take_due_functions();
  run_due_functions();
}

void lose(const Receiver* receiver) {
  queue().lost.insert(receiver);
  drop(receiver);
}

void recover(const Receiver* receiver) {
  queue().lost.erase(receiver);
  run_due_functions();
}

Notification* find(const std::function<bool(Notification&)>& matches) {
  const Item* const delivering = queue().delivering;
  if (delivering != nullptr && matches(*delivering->notification)) return delivering->notification.get();
  for (const Item& item : queue().items) {
    if (matches(*item.notification)) return item.notification.get();
  }
  return nullptr;
}

}  // namespace feed
