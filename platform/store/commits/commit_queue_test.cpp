// Tests of commits that are made without delaying the loop.
#include "platform/store/commits/commit_queue.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/store/commits/application.h"
#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::SizeIs;

class CommitsInSteps : public ConfigTest {
 protected:
  CommitsInSteps() { EXPECT_EQ(Keep(), kStatusOk); }

  static std::vector<KvConfigNode> Nodes(std::size_t count, const std::string& text) {
    std::vector<KvConfigNode> nodes;
    for (const KvConfigChange& change : Many(count, text)) nodes.push_back({change.path, *change.value});
    return nodes;
  }
  KvConfigDone NoteDone(const std::string& name) {
    return [this, name](Status status, const std::string& commit, const std::string& reason) {
      done.push_back(name + " " + std::to_string(status) + " " + commit);
      error = reason;
    };
  }
  void Begin(std::string_view owner, std::vector<KvConfigNode> nodes, const std::string& name) {
    kvtree_config_begin_replacement(manager, owner,
                                    std::make_shared<const std::vector<KvConfigNode>>(std::move(nodes)), name,
                                    NoteDone(name));
  }
  void BeginCommit(std::string_view owner, std::vector<KvConfigChange> changes, const std::string& name) {
    kvtree_config_begin_commit(manager, owner,
                               std::make_shared<const std::vector<KvConfigChange>>(std::move(changes)), name,
                               NoteDone(name));
  }
  void RunAll() const { kvtree::run_with_commits(manager); }
  // Until a commit is being applied.
  void RunUntilApplication() {
    const std::size_t before = done.size();
    while (kvtree::store().application == nullptr && done.size() == before) Iterate();
    ASSERT_NE(kvtree::store().application, nullptr) << "the commit was applied in one step";
  }
  // One iteration of the loop.
  void Iterate() {
    std::array<unsigned char, 1024> buffer{};
    EventContext context{manager, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, kNanosecondsPerMillisecond) == 0) event_dispatch(&context);
  }
  std::string ValueOf(const std::string& path) {
    const auto found = kvtree_config_find(path);
    return found ? Describe(found->value) : "none";
  }

  std::vector<std::string> done;
};

TEST_F(CommitsInSteps, ReadersSeeAllOfAReplacementOrNothing) {
  constexpr std::size_t kNodes = 20000;
  Subscribe("/cfg/", kKvEventSet | kKvEventDeleted);
  for (const std::string text : {"x", "y"}) {
    Begin("script", Nodes(kNodes, text), text);
    std::vector<std::size_t> notified;
    while (done.empty()) {
      const std::size_t before = received().size();
      Iterate();
      notified.push_back(received().size() - before);
      ASSERT_EQ(ValueOf("/cfg/many/000000"), ValueOf("/cfg/many/019999"));
    }
    RunAll();
    EXPECT_THAT(notified, Each(Le(512U)));
    EXPECT_THAT(TakeReceived(), SizeIs(kNodes));
    EXPECT_THAT(done, SizeIs(1));
    done.clear();
  }
  EXPECT_THAT(Owned("script"), SizeIs(kNodes));
}

TEST_F(CommitsInSteps, NotificationsArePostedTogether) {
  Subscribe("/cfg/", kKvEventSet);
  Subscribe("/cfg/many/", kKvEventSet);
  ASSERT_EQ(kvtree_config_commit("script", Many(320, "x"), ""), kStatusOk);
  const ManualClock clock(1000);  // no time passes: the number of posted functions bounds an iteration
  Iterate();
  Iterate();
  EXPECT_THAT(received(), SizeIs(640));
}

TEST_F(CommitsInSteps, SubscribersAreNotifiedInTheOrderOfTheChanges) {
  std::vector<std::string> order;
  const auto follow = [&](const char* path, const char* name) {
    KvConnection* connection = nullptr;
    ASSERT_EQ(kvtree_bind(&connection, path, kKvBindConfiguration), kStatusOk);
    ASSERT_EQ(kvtree::register_notification(
                  connection, nullptr, kKvEventSet,
                  [&order, name](const KvNotification* notification) {
                    order.push_back(std::string(name) + notification->info.item_name);
                  },
                  manager, nullptr),
              kStatusOk);
  };
  follow("/cfg/", "all ");
  follow("/cfg/b/", "b ");
  ASSERT_EQ(kvtree_config_commit("script",
                                 {SetTo("/cfg/a/1", "x"), SetTo("/cfg/b/1", "x"), SetTo("/cfg/b/2", "x"),
                                  SetTo("/cfg/c/1", "x"), SetTo("/cfg/c/2", "x")},
                                 ""),
            kStatusOk);
  RunAll();
  EXPECT_THAT(order, ElementsAre("all 1", "all 1", "b 1", "all 2", "b 2", "all 1", "all 2"));
}

TEST_F(CommitsInSteps, SlowSubscriberDelaysAnIterationByItsLongestNotification) {
  ManualClock clock(1000);
  KvConnection* connection = nullptr;
  ASSERT_EQ(kvtree_bind(&connection, "/cfg/", kKvBindConfiguration), kStatusOk);
  unsigned notified = 0;
  ASSERT_EQ(kvtree::register_notification(
                connection, nullptr, kKvEventSet,
                [&](const KvNotification*) {
                  ++notified;
                  clock.advance(5 * kNanosecondsPerMillisecond);
                },
                manager, nullptr),
            kStatusOk);
  ASSERT_EQ(kvtree_config_commit("script", Many(20, "x"), ""), kStatusOk);
  std::string order;
  event_post(manager, [&] { order = "after " + std::to_string(notified); });
  for (unsigned iterations = 1; notified < 20; ++iterations) {
    Iterate();
    ASSERT_EQ(notified, iterations);
  }
  RunAll();
  EXPECT_EQ(order, "after 20");
}

TEST_F(CommitsInSteps, ReadersSeeACommitBeforeItsNodesAreApplied) {
  ASSERT_EQ(kvtree_config_commit("user", {SetTo("/cfg/many/000001", "user"), SetTo("/cfg/own", "u")}, ""),
            kStatusOk);
  Begin("script", Nodes(20000, "x"), "set");
  RunUntilApplication();
  ASSERT_GT(kvtree::store().application->count_left(), 0U);
  EXPECT_THAT(Effective(), SizeIs(20001));
  EXPECT_THAT(Owned("script"), SizeIs(20000));
  EXPECT_THAT(Owned("user"), SizeIs(2));
  EXPECT_EQ(ValueOf("/cfg/many/000001"), "user");
  RunAll();
  Begin("script", {}, "remove");
  RunUntilApplication();
  ASSERT_GT(kvtree::store().application->count_left(), 0U);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/many/000001=user", "/cfg/own=u"));
  EXPECT_THAT(Owned("script"), IsEmpty());
  RunAll();
  EXPECT_THAT(Effective(), ElementsAre("/cfg/many/000001=user", "/cfg/own=u"));
}

TEST_F(CommitsInSteps, CommitsAreMadeInTheirOrder) {
  Begin("script", Nodes(3000, "x"), "first");
  Begin("script", Nodes(3000, "y"), "second");
  Begin("peer", Nodes(1, "z"), "third");
  EXPECT_THAT(done, IsEmpty());
  RunAll();
  EXPECT_THAT(done, ElementsAre("first 0 1", "second 0 2", "third 0 "));
  EXPECT_THAT(History(), ElementsAre("2 script 3000 second", "1 script 3000 first"));
}

TEST_F(CommitsInSteps, CommitThatMustNotWaitFinishesThoseBeforeIt) {
  Begin("script", Nodes(20000, "x"), "first");
  RunUntilApplication();
  Begin("script", Nodes(20000, "y"), "second");
  ASSERT_EQ(kvtree_config_commit("script", {Withdraw("/cfg/many/000000")}, "at once"), kStatusOk);
  EXPECT_THAT(done, ElementsAre("first 0 1", "second 0 2"));
  EXPECT_EQ(ValueOf("/cfg/many/000000"), "none");
  EXPECT_THAT(History(), SizeIs(3));
  RunAll();
  EXPECT_THAT(Effective(), SizeIs(19999));
}

TEST_F(CommitsInSteps, FailedReplacementChangesNothingAndTheNextOneIsMade) {
  fault_arm("configuration_write", kStatusIo);
  Begin("script", Nodes(10, "x"), "first");
  RunAll();
  EXPECT_THAT(done, ElementsAre("first " + std::to_string(kStatusIo) + " "));
  EXPECT_EQ(error, "Input/output error: " + File() + " cannot be written");
  EXPECT_THAT(Effective(), IsEmpty());
  Begin("script", {{"/oper/t", TextValue("1")}}, "second");
  Begin("script", Nodes(10, "x"), "third");
  RunAll();
  EXPECT_THAT(done,
              ElementsAre(::testing::_, "second " + std::to_string(kStatusUnknownPath) + " ", "third 0 1"));
}

TEST_F(CommitsInSteps, RefusedReplacementIsReportedOnTheLoop) {
  fault_arm("kvtree_config_replace", kStatusIo);
  Begin("script", Nodes(1, "x"), "first");
  EXPECT_THAT(done, IsEmpty());
  RunAll();
  EXPECT_THAT(done, ElementsAre("first " + std::to_string(kStatusIo) + " "));
}

TEST_F(CommitsInSteps, ChangesOfAnOwnerAreACommitInItsPlace) {
  Begin("script", Nodes(2, "x"), "set");
  BeginCommit("script", {SetTo("/cfg/many/000001", "y"), {"/cfg/many/000000", std::nullopt}}, "change");
  EXPECT_THAT(done, IsEmpty());
  RunAll();
  EXPECT_THAT(done, ElementsAre("set 0 1", "change 0 2"));
  EXPECT_EQ(ValueOf("/cfg/many/000000"), "none");
  EXPECT_EQ(ValueOf("/cfg/many/000001"), "y");
}

TEST_F(CommitsInSteps, RefusedChangesAreReportedOnTheLoop) {
  BeginCommit("script", Many(kMaxConfigChanges + 1, "x"), "set");
  EXPECT_THAT(done, IsEmpty());
  RunAll();
  EXPECT_THAT(done, ElementsAre("set " + std::to_string(kStatusMessageTooLarge) + " "));
  EXPECT_EQ(error, "a commit has at most 100000 changes");
  const ScopedFault fault("kvtree_config_commit", kStatusIo);
  BeginCommit("script", {SetTo("/cfg/own", "x")}, "again");
  RunAll();
  EXPECT_EQ(done.back(), "again " + std::to_string(kStatusIo) + " ");
}

TEST_F(CommitsInSteps, ReplayFollowsTheNotificationsOfTheCommitThatIsBeingApplied) {
  Subscribe("/cfg/", kKvEventSet | kKvEventDeleted);
  Begin("script", Nodes(20000, "x"), "set");
  RunUntilApplication();
  ASSERT_GT(kvtree::store().application->count_left(), 0U);
  ASSERT_EQ(kvtree_config_replay({"/cfg/many/019999"}), kStatusOk);
  ASSERT_EQ(kvtree_config_announce("/cfg/many/019998"), kStatusOk);
  RunAll();
  const std::vector<std::string> all = TakeReceived();
  ASSERT_THAT(all, SizeIs(20003));
  EXPECT_THAT(std::vector<std::string>(all.end() - 4, all.end()),
              ElementsAre("019999 2 x", "019999 4 none", "019999 2 x", "019998 2 x"));
}

TEST_F(CommitsInSteps, ObserverGetsTheChangesBelowOneChildInOneCall) {
  std::vector<KvConfigNode> nodes;
  for (const char* vrf : {"a", "b", "c"}) {
    for (int i = 0; i < 400; ++i)
      nodes.push_back({std::string("/cfg/v/") + vrf + "/" + std::to_string(1000 + i), TextValue("x")});
  }
  std::vector<std::string> calls;
  const auto observed = kvtree_config_observe("/cfg/v/", [&](const auto& changes) {
    calls.push_back(changes.front().path + " " + changes.back().path + " " + std::to_string(changes.size()));
  });
  Begin("script", nodes, "set");
  RunAll();
  EXPECT_THAT(calls, ElementsAre("/cfg/v/a/1000 /cfg/v/a/1399 400", "/cfg/v/b/1000 /cfg/v/b/1399 400",
                                 "/cfg/v/c/1000 /cfg/v/c/1399 400"));
}

TEST_F(CommitsInSteps, ReplacementIsInTheDatabaseWhenItIsReported) {
  Begin("script", Nodes(5000, "x"), "set");
  RunAll();
  ASSERT_THAT(done, SizeIs(1));
  Restart();
  EXPECT_THAT(Owned("script"), SizeIs(5000));
}

TEST_F(CommitsInSteps, EndOfTheStoreEndsThem) {
  Begin("script", Nodes(20000, "x"), "set");
  RunUntilApplication();
  Begin("script", Nodes(20000, "y"), "change");
  kvtree_reset();
  event_run_pending(manager);
  EXPECT_THAT(done, IsEmpty());
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(Owned("script"), SizeIs(20000));
  EXPECT_EQ(ValueOf("/cfg/many/000000"), "x");
}

TEST_F(CommitsInSteps, EndOfServiceCompletesThem) {
  Begin("script", Nodes(5000, "x"), "set");
  kvtree_stop_serving(manager);
  EXPECT_THAT(done, ElementsAre("set 0 1"));
  EXPECT_THAT(Effective(), SizeIs(5000));
}

}  // namespace
