// The queue, its batches and what runs after pending notifications.
//
// Items are ordered by change, then by phase; those of one change usually arrive in that order, so appending
// costs no search. The item that is being delivered is no longer in the queue: whatever its callback appends
// leaves it alone. A generation number makes posted deliveries of earlier ones do nothing:
// a receiver that is dropped may be the one on whose event manager the delivery was posted.
#include "platform/router/feed/feed.h"

#include <algorithm>
#include <deque>
#include <set>
#include <utility>
#include <vector>

namespace feed {
namespace {

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

class Feed : public router::Observer {
 public:
  void attach(router::Router* model);
  void append(Item item);
  void drop(const Receiver* receiver);
  bool is_empty() const { return items_.empty(); }
  void deliver_all();
  void run_after_pending(std::unique_ptr<Notification> function);
  void lose(const Receiver* receiver);
  void recover(const Receiver* receiver);
  Notification* find(const std::function<bool(Notification&)>& matches) const;

  void interface_changing(const router::Interface& now, const router::Interface& next) override;
  void interface_changed(const router::Interface& before, const router::Interface& now) override;

 private:
  void post();
  void deliver_batch();
  void deliver_front();
  void take_due_functions();
  void run_due_functions();

  router::Router* model_ = nullptr;
  std::deque<Item> items_;      // the front one has a receiver
  Item* delivering_ = nullptr;  // its callback runs
  std::set<const Receiver*> lost_;
  std::vector<std::unique_ptr<Notification>> due_functions_;  // wait for a callback or a lost receiver
  bool is_posted_ = false;
  std::uint64_t generation_ = 0;
};

Feed& the_feed() {
  static Feed feed;
  return feed;
}

bool is_renamed(const router::Interface& before, const router::Interface& now) {
  return before.name != now.name || before.index != now.index;
}

void Feed::attach(router::Router* model) {
  if (model_ != nullptr) model_->stop_observing(this);
  model_ = model;
  if (model_ != nullptr) model_->observe(router::ObserverRank::kFeed, this);
}

void Feed::interface_changing(const router::Interface& now, const router::Interface& next) {
  if (is_renamed(now, next)) deliver_all();
}

void Feed::interface_changed(const router::Interface& before, const router::Interface& now) {
  if (is_renamed(before, now)) deliver_all();
}

void Feed::append(Item item) {
  const auto is_before = [](std::uint64_t order, const Item& each) { return order < each.order; };
  const bool is_last = items_.empty() || items_.back().order <= item.order;
  const auto place =
      is_last ? items_.end() : std::upper_bound(items_.begin(), items_.end(), item.order, is_before);
  items_.insert(place, std::move(item));
  post();
}

void Feed::post() {
  if (is_posted_ || items_.empty()) return;
  is_posted_ = true;
  event_post(items_.front().receiver->manager, [this, generation = generation_] {
    if (generation == generation_) deliver_batch();
  });
}

void Feed::deliver_batch() {
  for (std::size_t count = 0; !items_.empty() && count < items_.front().receiver->batch; ++count) {
    deliver_front();
  }
  is_posted_ = false;
  post();
}

void Feed::deliver_all() {
  while (!items_.empty()) deliver_front();
}

void Feed::deliver_front() {
  Item item = std::move(items_.front());
  items_.pop_front();
  Item* const outer = std::exchange(delivering_, &item);
  take_due_functions();
  item.notification->deliver();
  delivering_ = outer;
  run_due_functions();
}

void Feed::drop(const Receiver* receiver) {
  ++generation_;
  is_posted_ = false;
  std::erase_if(items_, [receiver](const Item& item) { return item.receiver == receiver; });
  take_due_functions();
  run_due_functions();
  post();
}

void Feed::run_after_pending(std::unique_ptr<Notification> function) {
  items_.push_back({items_.empty() ? 0 : items_.back().order, nullptr, std::move(function)});
  take_due_functions();
  run_due_functions();
}

void Feed::take_due_functions() {
  for (; !items_.empty() && items_.front().receiver == nullptr; items_.pop_front()) {
    due_functions_.push_back(std::move(items_.front().notification));
  }
}

// Not inside a callback: it may use what a function would release.
void Feed::run_due_functions() {
  if (delivering_ != nullptr || !lost_.empty()) return;
  for (const auto& function : std::exchange(due_functions_, {})) function->deliver();
}

void Feed::lose(const Receiver* receiver) {
  lost_.insert(receiver);
  drop(receiver);
}

void Feed::recover(const Receiver* receiver) {
  lost_.erase(receiver);
  run_due_functions();
}

Notification* Feed::find(const std::function<bool(Notification&)>& matches) const {
  if (delivering_ != nullptr && matches(*delivering_->notification)) return delivering_->notification.get();
  for (const Item& item : items_) {
    if (matches(*item.notification)) return item.notification.get();
  }
  return nullptr;
}

}  // namespace

void attach(router::Router* model) {
  the_feed().attach(model);
}

void append(std::uint64_t change, Phase phase, const Receiver* receiver,
            std::unique_ptr<Notification> notification) {
  const std::uint64_t order = change << kPhaseBits | static_cast<std::uint64_t>(phase);
  the_feed().append({order, receiver, std::move(notification)});
}

void append(std::uint64_t change, Phase phase, const Receiver* receiver, std::function<void()> deliver) {
  append(change, phase, receiver, std::make_unique<Function>(std::move(deliver)));
}

void drop(const Receiver* receiver) {
  the_feed().drop(receiver);
}

bool is_empty() {
  return the_feed().is_empty();
}

void run_after_pending(std::function<void()> function) {
  the_feed().run_after_pending(std::make_unique<Function>(std::move(function)));
}

void lose(const Receiver* receiver) {
  the_feed().lose(receiver);
}

void recover(const Receiver* receiver) {
  the_feed().recover(receiver);
}

Notification* find(const std::function<bool(Notification&)>& matches) {
  return the_feed().find(matches);
}

}  // namespace feed
