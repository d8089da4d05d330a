// The order of notifications, their batches, and what happens when a receiver ends.
#include "platform/router/feed/feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/evm/test_run_directory.h"

namespace feed {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FeedTest : public testing::Test {
 protected:
  class Note : public Notification {
   public:
    Note(FeedTest* test, std::string name, std::function<void()> callback)
        : name_(std::move(name)), test_(test), callback_(std::move(callback)) {}
    void deliver() override {
      test_->lines_.push_back(name_);
      if (callback_) callback_();
    }
    std::string name_;

   private:
    FeedTest* test_;
    std::function<void()> callback_;
  };

  FeedTest() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
    first_.manager = second_.manager = manager_.get();
  }
  ~FeedTest() override {
    for (const Receiver* receiver : {&first_, &second_}) {
      drop(receiver);
      recover(receiver);
    }
  }
  void Append(std::uint64_t change, Phase phase, const Receiver* receiver, const std::string& name,
              std::function<void()> callback = {}) {
    append(change, phase, receiver, std::make_unique<Note>(this, name, std::move(callback)));
  }
  void NoteLater(const std::string& name) {
    run_after_pending([this, name] { lines_.push_back(name); });
  }
  std::vector<std::string> Lines() { return std::exchange(lines_, {}); }
  void Run() { event_run_pending(manager_.get()); }
  std::vector<std::string> Delivered() {
    Run();
    return Lines();
  }

  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
  Receiver first_;
  Receiver second_;

 private:
  std::vector<std::string> lines_;
};

// Runs the loop and returns what `count` returns in `looks` events, each dispatched before a batch.
std::vector<std::size_t> counts_between_batches(EventManager* manager, std::size_t looks,
                                                const std::function<std::size_t()>& count) {
  std::vector<std::size_t> counts;
  std::function<void()> look = [&] {
    counts.push_back(count());
    if (counts.size() < looks) event_post(manager, look);
  };
  event_post(manager, look);
  while (event_run_pending(manager)) {
  }
  return counts;
}

TEST_F(FeedTest, DeliversOnTheLoopByChangeThenByPhaseThenByArrival) {
  Append(1, Phase::kJoined, &first_, "joined 1");
  Append(1, Phase::kRecord, &second_, "record 1");
  Append(1, Phase::kDown, &second_, "down 1");
  Append(1, Phase::kJoined, &second_, "joined 1 too");
  Append(2, Phase::kLeft, &first_, "left 2");
  Append(2, Phase::kFollowUp, &first_, "follow-up 2");
  Append(2, Phase::kUp, &second_, "up 2");
  EXPECT_THAT(Lines(), IsEmpty());
  EXPECT_THAT(Delivered(),
              ElementsAre("down 1", "record 1", "joined 1", "joined 1 too", "left 2", "up 2", "follow-up 2"));
  EXPECT_TRUE(is_empty());
}

TEST_F(FeedTest, BatchHasFortyNotificationsUnlessTheReceiverSetsAnotherNumber) {
  for (std::uint64_t change = 1; change <= 45; ++change) Append(change, Phase::kRecord, &first_, "record");
  EXPECT_THAT(counts_between_batches(manager_.get(), 3, [this] { return Lines().size(); }),
              ElementsAre(0U, 40U, 5U));
}

// Of a large commit, each notification of a subscriber is a posted function.
TEST_F(FeedTest, ChangeIsDeliveredBeforeThousandsOfPostedFunctions) {
  std::size_t posted = 0;
  std::size_t posted_before = 0;
  for (int each = 0; each < 3000; ++each) event_post(manager_.get(), [&posted] { ++posted; });
  Append(1, Phase::kRecord, &first_, "record", [&] { posted_before = posted; });
  EXPECT_THAT(Delivered(), ElementsAre("record"));
  EXPECT_EQ(posted, 3000U);
  EXPECT_LE(posted_before, 64U);  // those of one iteration
}

TEST_F(FeedTest, SmallestBatchBoundsAnIterationOfTheLoop) {
  first_.batch = 2;
  for (std::uint64_t change = 1; change <= 5; ++change) {
    Append(change, Phase::kRecord, change < 4 ? &second_ : &first_, "record");
  }
  EXPECT_THAT(counts_between_batches(manager_.get(), 3, [this] { return Lines().size(); }),
              ElementsAre(0U, 3U, 2U));
}

TEST_F(FeedTest, BatchEndsWithTheNotificationThatTakesTooLong) {
  ManualClock clock(1);
  const auto work = [&clock] { clock.advance(kNanosecondsPerMillisecond * 2 / 5); };
  for (std::uint64_t change = 1; change <= 8; ++change)
    Append(change, Phase::kRecord, &first_, "record", work);
  EXPECT_THAT(counts_between_batches(manager_.get(), 4, [this] { return Lines().size(); }),
              ElementsAre(0U, 3U, 3U, 2U));
}

TEST_F(FeedTest, NotificationOfACallbackIsDeliveredAfterIt) {
  Append(1, Phase::kRecord, &first_, "outer", [this] {
    Append(2, Phase::kLeft, &second_, "appended");
    EXPECT_THAT(Lines(), ElementsAre("outer"));
  });
  EXPECT_THAT(Delivered(), ElementsAre("appended"));
}

TEST_F(FeedTest, DroppedReceiverGetsNothingMore) {
  Append(1, Phase::kRecord, &first_, "one");
  Append(2, Phase::kRecord, &second_, "two");
  Append(3, Phase::kRecord, &first_, "three");
  drop(&first_);
  EXPECT_THAT(Delivered(), ElementsAre("two"));
}

TEST_F(FeedTest, FunctionRunsAfterAllThatWasPending) {
  NoteLater("at once");
  EXPECT_THAT(Lines(), ElementsAre("at once"));
  Append(1, Phase::kLeft, &first_, "left");
  NoteLater("function");
  Append(1, Phase::kRecord, &first_, "record of the same change");
  Append(2, Phase::kLeft, &first_, "left 2");
  EXPECT_THAT(Delivered(), ElementsAre("left", "function", "record of the same change", "left 2"));
}

TEST_F(FeedTest, FunctionRunsWhenWhatItWaitsForIsDropped) {
  Append(1, Phase::kLeft, &first_, "left");
  NoteLater("function");
  drop(&first_);
  EXPECT_THAT(Lines(), ElementsAre("function"));
}

TEST_F(FeedTest, FunctionNeverRunsInsideACallback) {
  Append(1, Phase::kLeft, &first_, "left", [this] {
    NoteLater("function");
    EXPECT_THAT(Lines(), ElementsAre("left"));
  });
  EXPECT_THAT(Delivered(), ElementsAre("function"));
}

TEST_F(FeedTest, FunctionsWaitForLostReceivers) {
  Append(1, Phase::kLeft, &first_, "left");
  lose(&first_);
  lose(&second_);
  NoteLater("function");
  Append(2, Phase::kRecord, &second_, "record");
  EXPECT_THAT(Delivered(), ElementsAre("record")) << "notifications are delivered meanwhile";
  recover(&first_);
  EXPECT_THAT(Lines(), IsEmpty());
  recover(&second_);
  EXPECT_THAT(Lines(), ElementsAre("function"));
}

TEST_F(FeedTest, FindsTheOldestThatMatchesTheOneBeingDeliveredFirst) {
  const auto oldest = [](const std::string& wanted) {
    const auto* note = find_oldest<Note>([&](const Note& each) { return each.name_.starts_with(wanted); });
    return note == nullptr ? std::string("none") : note->name_;
  };
  Append(1, Phase::kRecord, &first_, "a1", [&] { EXPECT_EQ(oldest("a"), "a1"); });
  Append(2, Phase::kRecord, &first_, "b2");
  Append(3, Phase::kRecord, &first_, "a3");
  EXPECT_EQ(oldest("b"), "b2");
  Run();
  EXPECT_EQ(oldest("a"), "none");
}

TEST_F(FeedTest, EverythingIsDeliveredAroundAChangeOfNameOrIndex) {
  router::Router router;
  attach(&router);
  router::Interface interface;
  interface.name = "ge0";
  interface.index = 7;
  ASSERT_EQ(router.add_interface(interface, &interface.handle), kStatusOk);
  Append(router.changes(), Phase::kRecord, &first_, "before",
         [&] { EXPECT_NE(router.find_interface_by_name("ge0"), nullptr); });
  interface.up = true;
  ASSERT_EQ(router.change_interface(interface), kStatusOk);
  EXPECT_THAT(Lines(), IsEmpty()) << "the name is the same";
  interface.name = "ge1";
  ASSERT_EQ(router.change_interface(interface), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("before"));
  Append(router.changes(), Phase::kRecord, &first_, "between");
  interface.index = 8;
  ASSERT_EQ(router.change_interface(interface), kStatusOk);
  EXPECT_THAT(Lines(), ElementsAre("between"));
  attach(nullptr);
}

}  // namespace
}  // namespace feed
