// Tests of commits that are undone unless they are confirmed, and of the users of commits.
#include <unistd.h>

#include "platform/core/files/user_name.h"
#include "platform/store/configuration/test_configuration.h"
#include "platform/store/confirmation/confirmations.h"
#include "platform/store/server/server.h"
#include "platform/store/server/test_served_store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr std::uint64_t kMinute = 60 * kNanosecondsPerSecond;

class Confirmations : public ConfigTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(Keep(), kStatusOk);
    ASSERT_EQ(kvtree_serve(manager), kStatusOk);
  }
  ~Confirmations() override { kvtree_stop_serving(manager); }
  // A client's commit that has to be confirmed within a minute.
  Status Try(const std::vector<KvConfigChange>& changes) {
    Status result = kStatusInProgress;
    kvtree::commit_queue(manager).add(
        {.owner = "user",
         .comment = "try",
         .changes = std::make_shared<const std::vector<KvConfigChange>>(changes),
         .author = std::make_shared<kvtree::CommitAuthor>(kvtree::CommitAuthor{geteuid()}),
         .confirmation = kMinute},
        [&](Status status, const std::string& made, const std::string& why) {
          result = status;
          id = made;
          error = why;
          if (status == kStatusOk) kvtree::await_confirmation(manager);
        });
    kvtree::run_with_commits(manager);
    return result;
  }
  void Wait(std::uint64_t nanoseconds) {
    clock.advance(nanoseconds);
    kvtree::run_with_commits(manager);
  }
  // The process ends and another one begins.
  void RestartServed() {
    kvtree_stop_serving(manager);
    Restart();
    ASSERT_EQ(kvtree_serve(manager), kStatusOk);
  }

  ManualClock clock{1'000 * kNanosecondsPerSecond};
};

TEST_F(Confirmations, CommitThatIsNotConfirmedIsUndone) {
  Make("script", {SetTo("/cfg/a", "script")}, "");
  Make("user", {SetTo("/cfg/b", "old")}, "");
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/b", "new"), SetTo("/cfg/c", "new")}), kStatusOk)
      << error;
  Wait(kMinute - 1);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new", "/cfg/b=new", "/cfg/c=new"));
  CaptureStderr();
  Wait(1);
  EXPECT_EQ(GetCapturedStderr(), "configuration: commit 3 was not confirmed in time: commit 4 undoes it\n");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=script", "/cfg/b=old"));
  EXPECT_THAT(History(1), ElementsAre("4 user 3 commit 3 was not confirmed"));
  EXPECT_EQ(kvtree_config_confirmation().id, "");
  Restart();
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=script", "/cfg/b=old"));
}

TEST_F(Confirmations, CommitIsUndoneByTheNextProcess) {
  Make("user", {SetTo("/cfg/a", "old")}, "");
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  RestartServed();
  EXPECT_EQ(kvtree_config_confirmation().id, "2");
  EXPECT_EQ(kvtree_config_confirmation().user, user_name(geteuid()));
  EXPECT_EQ(kvtree_config_confirmation().deadline, 1'060 * kNanosecondsPerSecond);
  Wait(kMinute - 1);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new"));
  CaptureStderr();
  Wait(1);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("commit 2 was not confirmed in time"));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=old"));
}

TEST_F(Confirmations, ClockThatIsSetBackDelaysTheUndoingByTheWholeTimeAtMost) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  ManualClock earlier{500 * kNanosecondsPerSecond};
  RestartServed();
  Wait(kMinute);
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(Confirmations, ConfirmedCommitStays) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  EXPECT_EQ(kvtree::store().node_store->end_confirmation("eve", &error), kStatusOk);
  Wait(2 * kMinute);
  RestartServed();
  Wait(2 * kMinute);
  EXPECT_THAT(History(), ElementsAre("1 user 1 try, confirmed by eve"));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new"));
}

TEST_F(Confirmations, LaterCommitsAreNotUndone) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/b", "new")}), kStatusOk);
  Make("user", {SetTo("/cfg/a", "later")}, "");
  CaptureStderr();
  Wait(kMinute);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("commit 3 undoes it"));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=later"));
}

TEST_F(Confirmations, LaterCommitThatSetsTheSameValueIsNotUndone) {
  Make("user", {SetTo("/cfg/c", "old")}, "");
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/b", "new"), Withdraw("/cfg/c")}), kStatusOk);
  Make("user", {SetTo("/cfg/a", "other"), SetTo("/cfg/c", "other")}, "");
  Make("user", {SetTo("/cfg/a", "new"), Withdraw("/cfg/c")}, "");
  RestartServed();
  Wait(kMinute);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new"));
  EXPECT_THAT(History(1), ElementsAre("5 user 1 commit 2 was not confirmed"));
}

TEST_F(Confirmations, ChangesOfOtherOwnersAreNotLaterOnes) {
  Make("script", {SetTo("/cfg/a", "script")}, "");
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  Make("script", {SetTo("/cfg/a", "later")}, "");
  Wait(kMinute);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=later"));
}

TEST_F(Confirmations, CommitWaitsNoLongerOnceLaterOnesChangedAllOfIt) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/b", "new")}), kStatusOk);
  Make("user", {Withdraw("/cfg/a")}, "");
  EXPECT_EQ(kvtree_config_confirmation().id, "1");
  CaptureStderr();
  Make("user", {Withdraw("/cfg/b")}, "");
  EXPECT_EQ(GetCapturedStderr(),
            "configuration: commit 1 no longer waits for its confirmation: later commits changed all that it "
            "set\n");
  EXPECT_EQ(kvtree_config_confirmation().id, "");
  ASSERT_EQ(Try({SetTo("/cfg/a", "next")}), kStatusOk) << error;
  RestartServed();
  EXPECT_EQ(kvtree_config_confirmation().id, "4");
  Wait(kMinute);
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(Confirmations, OnlyOneCommitWaits) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  EXPECT_EQ(Try({SetTo("/cfg/b", "new")}), kStatusExists);
  EXPECT_EQ(error, "commit 1 waits for its confirmation; confirm it, or wait until it is undone");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new"));
}

TEST_F(Confirmations, UndoingIsTriedAgainUntilItSucceeds) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  fault_arm("configuration_write", ENOSPC, 1, 2);
  CaptureStderr();
  Wait(kMinute);
  Wait(kNanosecondsPerSecond);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new"));
  Wait(kNanosecondsPerSecond);
  const std::string log = GetCapturedStderr();
  EXPECT_THAT(log,
              HasSubstr("commit 1 was not confirmed and cannot be undone; it is tried again every second: "
                        "No space left on device"));
  EXPECT_THAT(Effective(), IsEmpty());
}

// The history would have a gap after it.
TEST_F(Confirmations, CommitOlderThanTheHistoryIsUndoneAndNotListed) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/c", "new")}), kStatusOk);
  Make("user", {SetTo("/cfg/a", "later")}, "");
  for (std::size_t i = 0; i < kMaxCommits; ++i) Make("user", {SetTo("/cfg/b", std::to_string(i))}, "");
  EXPECT_THAT(History(5000), SizeIs(kMaxCommits));
  EXPECT_EQ(History(5000).back(), "3 user 1 ");
  RestartServed();
  EXPECT_THAT(History(5000), SizeIs(kMaxCommits));
  Wait(kMinute);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=later", "/cfg/b=999"));
  Execute(
      "CREATE TABLE expected(n CHECK(n = 0)); INSERT INTO expected SELECT count(*) FROM log WHERE id = 1; "
      "INSERT INTO expected SELECT count(*) FROM content WHERE id = 1");
}

// Each with what is damaged.
class DamagedConfirmation : public Confirmations, public ::testing::WithParamInterface<const char*> {};

TEST_P(DamagedConfirmation, IsLoggedAndTheCommitStays) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new"), SetTo("/cfg/b", "new")}), kStatusOk);
  Make("user", {SetTo("/cfg/b", "later")}, "");
  Execute(GetParam());
  kvtree_stop_serving(manager);
  CaptureStderr();
  Restart();
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("the confirmation of commit 1 is damaged: the commit stays"));
  ASSERT_EQ(kvtree_serve(manager), kStatusOk);
  Wait(2 * kMinute);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=new", "/cfg/b=later"));
  CaptureStderr();
  RestartServed();
  EXPECT_EQ(GetCapturedStderr(), "") << "it is logged once";
  EXPECT_EQ(Try({SetTo("/cfg/a", "next")}), kStatusOk) << error;
}

INSTANTIATE_TEST_SUITE_P(Rows, DamagedConfirmation,
                         ::testing::Values("UPDATE confirmation SET deadline = 1",
                                           "UPDATE content SET octets = x'05' WHERE id = 1",
                                           "DELETE FROM content WHERE id = 1",
                                           "UPDATE later_change SET path = '/cfg/x'"));

// The undoing needs nothing of what was damaged since.
TEST_F(Confirmations, ContentsThatAreDamagedMeanwhileDelayNothing) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  Execute("DELETE FROM content");
  Wait(kMinute);
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(Confirmations, UsersAreStoredByTheirNamesOfThatTime) {
  ASSERT_EQ(Try({SetTo("/cfg/a", "new")}), kStatusOk);
  Make("script", {SetTo("/cfg/b", "x")}, "");
  RestartServed();
  std::vector<KvConfigCommit> commits;
  ASSERT_EQ(kvtree_config_history(2, "", &commits), kStatusOk);
  EXPECT_EQ(commits[0].user, "");
  EXPECT_EQ(commits[1].user, user_name(geteuid()));
}

class ServedConfirmations : public ServedStore {};

TEST_F(ServedConfirmations, ClientConfirmsItsCommit) {
  StartAndConnect();
  EXPECT_EQ(client.confirm().status, kStatusNoSuchRow);
  const kvtree::CommitResult made = client.commit({SetTo("/cfg/a", "x")}, "", std::chrono::minutes(5));
  ASSERT_EQ(made.status, kStatusOk);
  EXPECT_EQ(made.user, user_name(geteuid()));
  EXPECT_EQ(client.confirmation().confirmation.id, made.id);
  EXPECT_EQ(client.confirm("7").status, kStatusNoSuchRow);
  CaptureStderr();
  const kvtree::ConfirmationResult confirmed = client.confirm(made.id);
  EXPECT_EQ(GetCapturedStderr(), "configuration: commit " + made.id + " by " + made.user +
                                     " is confirmed by " + user_name(geteuid()) + "\n");
  EXPECT_EQ(confirmed.status, kStatusOk);
  EXPECT_EQ(confirmed.confirmation.id, made.id);
  EXPECT_EQ(confirmed.confirmation.user, made.user);
  EXPECT_EQ(client.confirmation().confirmation.id, "");
  EXPECT_EQ(client.confirm().status, kStatusNoSuchRow);
}

}  // namespace
