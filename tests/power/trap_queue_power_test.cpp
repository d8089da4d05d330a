// Power cuts while notifications are queued and acknowledged: the last ones may be lost, and the last
// acknowledgements, so that their notifications are sent again. Nothing else is.
#include <algorithm>
#include <vector>

#include "platform/store/queue/notification_queue.h"
#include "tests/power/power_test.h"

namespace power {
namespace {

constexpr std::size_t kLimit = 100;
constexpr std::size_t kLongest = 20000;  // octets of a notification: the file is often written anew

struct Notification {
  std::uint64_t number = 0;  // they are raised in this order
  std::uint64_t sequence = 0;
  std::string content;
};

class TrapQueuePower : public PowerTest {
 protected:
  std::string File() const { return state + "/traps"; }
  void ForgetAll() override {
    durable.clear();
    raised.clear();
    highest = 0;
    is_new = true;
  }
  void Live() override {
    kvtree::QueueState found;
    found.instance = lives + 1;
    if (IsCut(kvtree::QueueFile(File()).open(&found) == kStatusOk)) return;
    Check(found);
    kvtree::NotificationQueue queue("the test", kLimit);
    if (!IsCut(queue.store_in(File()) == kStatusOk)) Work(&queue);
  }
  std::string Find() override { return {}; }

  void Check(const kvtree::QueueState& found) {
    CheckFiles({"traps"});
    if (!is_new && found.instance != instance) Violate("another queue");
    is_new = false;
    instance = found.instance;
    std::uint64_t last = 0;
    std::vector<std::uint64_t> numbers;
    for (const kvtree::QueuedNotification& entry : found.entries) {
      const auto known = std::ranges::find(raised, std::string(entry.content->begin(), entry.content->end()),
                                           &Notification::content);
      if (known == raised.end()) return Violate("a notification that was never raised, or long done");
      if (known->sequence != 0 && known->sequence != entry.sequence) Violate("another sequence");
      if (last != 0 && known->number != last + 1 + entry.lost_before)
        Violate(std::to_string(known->number) + " follows " + std::to_string(last));
      numbers.push_back(last = known->number);
      acknowledged_changes += 1;
    }
    for (const std::uint64_t number : durable) {
      if (std::ranges::find(numbers, number) == numbers.end())
        Violate("notification " + std::to_string(number) + " is lost");
    }
    absent += static_cast<std::size_t>(
        std::ranges::count_if(raised, [last](const Notification& each) { return each.number > last; }));
    // Everything that is found is durable, and nothing else is known.
    std::erase_if(raised, [&](const Notification& each) {
      return std::ranges::find(numbers, each.number) == numbers.end();
    });
    durable = numbers;
    next_number = first_new = last + 1;
  }

  void Work(kvtree::NotificationQueue* queue) {
    const std::uint64_t longest = OneOf(3) ? kLongest : 100;
    for (std::uint64_t steps = Below(300); steps > 0 && disk.has_power(); --steps) {
      if (OneOf(3)) {
        AcknowledgeSome(queue);
      } else {
        Raise(queue, longest);
      }
    }
  }
  void Raise(kvtree::NotificationQueue* queue, std::uint64_t longest) {
    std::string content = std::to_string(++contents) + std::string(Below(longest), 'x');
    queue->push(std::make_shared<const wire::Octets>(content.begin(), content.end()));
    raised.push_back({next_number++, 0, std::move(content)});
    if (queue->size() == kLimit) durable.clear();  // some of them are lost and counted
  }
  void AcknowledgeSome(kvtree::NotificationQueue* queue) {
    queue->rewind();
    for (std::uint64_t left = Below(8); left > 0; --left) {
      const kvtree::QueuedNotification* next = queue->next();
      if (next == nullptr) return;
      const auto known = std::ranges::find(raised, std::string(next->content->begin(), next->content->end()),
                                           &Notification::content);
      if (known == raised.end()) return Violate("a notification that was never raised");
      if (known->number >= first_new && known->sequence == 0 && next->sequence <= highest)
        Violate("a sequence is used again");
      highest = std::max(highest, next->sequence);
      known->sequence = next->sequence;
      std::erase(durable, known->number);
      queue->acknowledge(next->sequence);
    }
  }

  std::vector<Notification> raised;    // since the last start, or found by it
  std::vector<std::uint64_t> durable;  // numbers of those that were found, and not sent since
  std::uint64_t next_number = 1;
  std::uint64_t first_new = 1;  // of this life
  std::uint64_t contents = 0;
  std::uint64_t highest = 0;  // sequence that was sent
  std::uint64_t instance = 0;
  bool is_new = true;
};

TEST_F(TrapQueuePower, OnlyTheLastNotificationsAreLost) {
  RunLives(Cuts());
  EXPECT_EQ(violation, "");
  EXPECT_GT(acknowledged_changes, 0U);
}

// The proof is able to fail.
TEST_F(TrapQueuePower, DiskThatIgnoresSynchronizationLosesMore) {
  disk.ignore_synchronization();
  RunLives(100);
  EXPECT_NE(violation, "");
}

}  // namespace
}  // namespace power
