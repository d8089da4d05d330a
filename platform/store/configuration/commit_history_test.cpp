// Tests of stored commits: the database, its folding, the history, power cuts, former versions.
#include <algorithm>
#include <filesystem>
#include <random>
#include <set>

#include "platform/core/sqlite/database_file.h"
#include "platform/store/configuration/test_configuration.h"
#include "platform/store/server/store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ConfigHistory : public ConfigTest {
 protected:
  void Make(std::string_view owner, const std::vector<KvConfigChange>& changes, std::string_view comment) {
    ASSERT_EQ(kvtree_config_commit(owner, changes, comment, &id, &error), kStatusOk) << error;
  }
};

TEST_F(ConfigHistory, CommitsAreListedNewestFirstWithTheirTime) {
  ManualClock clock(5'000'000'000);
  Make("user", {SetTo("/cfg/a", "1")}, "first");
  clock.advance(1'000'000'001);
  Make("script", {SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")}, "second");
  EXPECT_THAT(History(), ElementsAre("2 script 2 second", "1 user 1 first"));
  EXPECT_EQ(id, "2");
  std::vector<KvConfigCommit> commits;
  ASSERT_EQ(kvtree_config_history(1, "", &commits), kStatusOk);
  ASSERT_THAT(commits, SizeIs(1));
  EXPECT_EQ(commits[0].time, 6'000'000'001U);
}

TEST_F(ConfigHistory, ListContinuesAfterACommit) {
  for (const char* text : {"1", "2", "3"}) Make("user", {SetTo("/cfg/a", text)}, text);
  EXPECT_THAT(History(2), ElementsAre("3 user 1 3", "2 user 1 2"));
  EXPECT_THAT(History(2, "2"), ElementsAre("1 user 1 1"));
  EXPECT_THAT(History(2, "1"), IsEmpty());
}

TEST_F(ConfigHistory, ChangesHaveTheEffectiveValuesAndOwnersBeforeAndAfter) {
  Make("script", {SetTo("/cfg/a", "script"), SetTo("/cfg/b", "script")}, "");
  Make("user", {SetTo("/cfg/new", "user"), {"/cfg/a", TupleValue({1, 2})}, SetTo("/cfg/b", "script")}, "");
  EXPECT_THAT(Changes(id),
              ElementsAre("/cfg/new: none () -> user (user)", "/cfg/a: script (script) -> (1 2) (user)"));
  Make("user", {Withdraw("/cfg/a"), Withdraw("/cfg/b"), Withdraw("/cfg/new")}, "");
  EXPECT_THAT(Changes(id),
              ElementsAre("/cfg/new: user (user) -> none ()", "/cfg/a: (1 2) (user) -> script (script)"));
}

TEST_F(ConfigHistory, InvalidCommitIdHasNoSuchRow) {
  Make("user", {SetTo("/cfg/a", "1")}, "");
  std::vector<KvConfigCommit> commits;
  std::vector<KvConfigCommitChange> changes;
  for (const char* wrong : {"0", "2", "-1", "01", "1 ", "x", "99999999999999999999", "-2"}) {
    EXPECT_EQ(kvtree_config_history(1, wrong, &commits), kStatusNoSuchRow) << wrong;
    EXPECT_EQ(kvtree_config_changes(wrong, &changes), kStatusNoSuchRow) << wrong;
  }
  EXPECT_EQ(kvtree_config_changes("", &changes), kStatusNoSuchRow);
}

TEST_F(ConfigHistory, LongCommentIsCut) {
  Make("user", {SetTo("/cfg/a", "1")}, std::string(kMaxCommitComment + 1, 'c'));
  EXPECT_THAT(History(), ElementsAre("1 user 1 " + std::string(kMaxCommitComment, 'c')));
}

TEST_F(ConfigHistory, OldestCommitsMakeRoom) {
  for (std::size_t i = 0; i < kMaxCommits + 2; ++i) Make("user", {SetTo("/cfg/a", std::to_string(i))}, "");
  EXPECT_THAT(History(5000), SizeIs(kMaxCommits));
  EXPECT_THAT(History(5000).back(), HasSubstr("3 user"));
  std::vector<KvConfigCommitChange> changes;
  EXPECT_EQ(kvtree_config_changes("2", &changes), kStatusNoSuchRow);
}

TEST_F(ConfigHistory, LargeCommitsMakeRoomByTheirSize) {
  const std::string text(kMaxConfigText, 'x');
  std::size_t made = 0;
  for (; made < 5; ++made) {
    std::vector<KvConfigChange> changes = Many(250, text);
    for (KvConfigChange& change : changes) change.value->text[0] = static_cast<char>('a' + made);
    Make("user", changes, "");
  }
  const std::size_t listed = History().size();
  EXPECT_EQ(listed, 4U);  // of 16 MB each; the first had 8
  EXPECT_THAT(History().front(), HasSubstr(std::to_string(made) + " user 250"));
}

class ConfigLimits : public ConfigHistory {
 protected:
  ~ConfigLimits() override { kv_config_limits = {}; }
  std::string TooLarge(const std::vector<KvConfigChange>& changes) {
    return Refused("user", changes, kStatusMessageTooLarge);
  }
};

TEST_F(ConfigLimits, OctetsOfACommit) {
  kv_config_limits.commit_octets = 10;
  EXPECT_EQ(TooLarge({SetTo("/cfg/a", "1234"), SetTo("/cfg/b", "")}),
            "a commit sets at most 10 octets of paths and values");
  Make("user", {SetTo("/cfg/a", "1234")}, "");
  EXPECT_EQ(TooLarge({{"/cfg/b", TupleValue({1})}}), "a commit sets at most 10 octets of paths and values");
  Make("user", {Withdraw("/cfg/a")}, "");
}

TEST_F(ConfigLimits, NodesOfTheConfiguration) {
  kv_config_limits.nodes = 3;
  Make("script", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x"), SetTo("/cfg/c", "x")}, "");
  Make("user", {SetTo("/cfg/a", "y"), SetTo("/cfg/b", "x")}, "");
  EXPECT_EQ(TooLarge({SetTo("/cfg/d", "x")}), "the configuration has at most 3 nodes");
  Make("script", {Withdraw("/cfg/c"), Withdraw("/cfg/b")}, "");
  Make("user", {SetTo("/cfg/d", "x")}, "");
  EXPECT_EQ(TooLarge({SetTo("/cfg/e", "x")}), "the configuration has at most 3 nodes");
  kv_config_limits.nodes = 1;
  Make("user", {Withdraw("/cfg/d")}, "");
}

TEST_F(ConfigLimits, OctetsOfTheConfiguration) {
  ASSERT_EQ(Keep(), kStatusOk);
  kv_config_limits.octets = 30;
  Make("script", {SetTo("/cfg/a", "1234")}, "");
  Make("user", {SetTo("/cfg/a", "1234")}, "");
  const std::string reason = "the configuration has at most 30 octets of paths and values";
  EXPECT_EQ(TooLarge({SetTo("/cfg/b", "12345")}), reason);
  Restart();
  EXPECT_EQ(TooLarge({SetTo("/cfg/b", "12345")}), reason);
  EXPECT_EQ(TooLarge({SetTo("/cfg/a", "1234567890123456")}), reason);
  Make("script", {Withdraw("/cfg/a")}, "");
  Make("user", {SetTo("/cfg/b", "12345")}, "");
}

// --- Over the end of a process

TEST_F(ConfigHistory, EveryOwnersNodesAndTheHistoryOutliveTheProcess) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("script", {SetTo("/cfg/a", "script"), {"/cfg/n", KvValue{}}, {"/cfg/t", TupleValue({7, -7})}}, "f");
  Make("user", {{"/cfg/a", NumberValue(-3)}}, "c");
  Restart();
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=#-3", "/cfg/n=.", "/cfg/t=(7 -7)"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=script", "/cfg/n=.", "/cfg/t=(7 -7)"));
  EXPECT_THAT(History(), ElementsAre("2 user 1 c", "1 script 3 f"));
  EXPECT_THAT(Changes("2"), ElementsAre("/cfg/a: script (script) -> #-3 (user)"));
  Make("user", {Withdraw("/cfg/a")}, "");
  EXPECT_EQ(id, "3");
  Restart();
  EXPECT_THAT(Effective("/cfg/a"), ElementsAre("/cfg/a=script"));
}

TEST_F(ConfigHistory, ValuesThatWereNeverEffectiveOutliveTheProcessToo) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x")}, "");
  Make("script", {SetTo("/cfg/a", "y")}, "");
  EXPECT_EQ(id, "");
  Restart();
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=y"));
  EXPECT_THAT(History(), ElementsAre("1 user 1 "));
}

// The whole has a checksum, its parts do not.
TEST_F(ConfigHistory, WholeCommitIsReadForTheFirstPageOnly) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x"), SetTo("/cfg/c", "x")}, "");
  std::vector<KvConfigCommitChange> page;
  for (std::uint32_t first = 0; first < 3; ++first) {
    EXPECT_EQ(kvtree_config_changes("1", &page, {first, 1, SIZE_MAX}), kStatusOk);
    EXPECT_THAT(page, SizeIs(1));
    Execute("UPDATE content SET checksum = checksum + 1");
  }
}

TEST_F(ConfigHistory, PlacesOfChangesAreForgottenOnceTheyAreTooMany) {
  ASSERT_EQ(Keep(), kStatusOk);
  for (const char* value : {"x", "y", "z"}) Make("user", {SetTo("/cfg/a", value)}, "");
  const auto& node_store = kvtree::store().node_store;
  for (const char* commit : {"1", "2"}) EXPECT_THAT(Changes(commit), SizeIs(1));
  EXPECT_EQ(kvtree::NodeStoreInTests::CountReadCommits(node_store), 2U);
  kvtree::NodeStoreInTests::AddKnownPlaces(node_store, 1000000);
  EXPECT_THAT(Changes("3"), SizeIs(1));
  EXPECT_EQ(kvtree::NodeStoreInTests::CountReadCommits(node_store), 1U);
}

TEST_F(ConfigHistory, CommitThatCannotBeWrittenChangesNothing) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x")}, "");
  for (const char* point : {"configuration_write", "configuration_commit"}) {
    const ScopedFault fault(point, kStatusIo);
    EXPECT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "y"), SetTo("/cfg/b", "y")}, "", &id, &error),
              kStatusIo);
    EXPECT_EQ(error, "Input/output error: " + File() + " cannot be written");
    EXPECT_EQ(id, "");
    EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x"));
  }
  Make("user", {SetTo("/cfg/c", "z")}, "");  // the transaction was ended
  Restart();
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x", "/cfg/c=z"));
  EXPECT_THAT(History(), SizeIs(2));
}

// Whichever of the commit's statements it is.
TEST_F(ConfigHistory, ReasonOfTheDatabaseIsReported) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x")}, "");
  for (const char* place : {"INSERT ON log", "INSERT ON content", "INSERT ON node", "DELETE ON node"}) {
    Execute(std::string("CREATE TRIGGER refusing BEFORE ") + place +
            " BEGIN SELECT RAISE(ABORT, 'no room left'); END");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(Refused("user", {SetTo("/cfg/a", "y"), Withdraw("/cfg/b")}, kStatusIo),
              "no room left: " + File() + " cannot be written")
        << place;
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("a commit is refused: no room left: "));
    Execute("DROP TRIGGER refusing");
  }
  Make("user", {SetTo("/cfg/a", "y")}, "");
}

// An operator has to know the reason and the place.
TEST_F(ConfigHistory, FullDiskIsReportedWithTheFile) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x")}, "");
  Execute("PRAGMA max_page_count = 1");  // the pages in use remain
  ::testing::internal::CaptureStderr();
  const std::string reason = "No space left on device: " + File() + " cannot be written";
  EXPECT_EQ(Refused("user", {SetTo("/cfg/b", std::string(4000, 'y'))}, ENOSPC), reason);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "configuration: a commit is refused: " + reason + "\n");
}

TEST_F(ConfigHistory, CommitIsEffectiveAfterAPowerCutThatFollowsItsWrite) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("script", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x")}, "");
  fault_arm("configuration_apply", kStatusIo);
  EXPECT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "y"), SetTo("/cfg/c", "y")}, "", &id, &error),
            kStatusIo);
  EXPECT_EQ(error, "it is stored but not applied before the next start: Input/output error");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x", "/cfg/b=x"));
  Restart();
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=y", "/cfg/b=x", "/cfg/c=y"));
  EXPECT_THAT(Changes("2"), SizeIs(2));
}

TEST_F(ConfigHistory, DatabaseInMemoryThatCannotBeOpenedIsAFailure) {
  fault_arm("configuration_open", kStatusNoMemory, 1, 0);
  EXPECT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "x")}, "", &id, &error), kStatusNoMemory);
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(ConfigHistory, ConfigurationIsStoredFromTheFirstCommitOrNotAtAll) {
  Make("user", {SetTo("/cfg/a", "x")}, "");
  EXPECT_EQ(Keep(), kStatusExists);
}

TEST_F(ConfigHistory, FormerVersionsNodesBelongToTheClientsOwner) {
  Execute(
      "CREATE TABLE node(path TEXT PRIMARY KEY NOT NULL, value NOT NULL) WITHOUT ROWID;"
      "INSERT INTO node VALUES ('/cfg/n', -5), ('/cfg/t', 'text');"
      "PRAGMA application_id = 1297498958; PRAGMA user_version = 1;");
  fault_arm("configuration_migrate", kStatusIo);
  EXPECT_EQ(Keep(), kStatusIo);
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(Owned("user"), ElementsAre("/cfg/n=#-5", "/cfg/t=text"));
  Make("user", {Withdraw("/cfg/n")}, "");
  Restart();
  EXPECT_THAT(Owned("user"), ElementsAre("/cfg/t=text"));
}

TEST_F(ConfigHistory, RowOfAnUnknownOwnerIsLeftOutAndLogged) {
  ASSERT_EQ(Keep(), kStatusOk);
  kvtree_reset();
  ExecuteWithChecksums(
      "INSERT INTO node VALUES ('/cfg/a', 'stranger', 1, 0, 0), ('/oper/a', 'user', 1, 0, 0), ('/cfg/b', "
      "'user', 1, 0, 0)");
  ::testing::internal::CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("/cfg/a of \"stranger\" is unknown"));
  EXPECT_THAT(Effective("/"), ElementsAre("/cfg/b=#1"));
}

TEST_F(ConfigHistory, DamagedContentsAreAFailureOfReading) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("user", {SetTo("/cfg/a", "x")}, "");
  ExecuteWithChecksums("UPDATE content SET octets = x'05000000'");
  std::vector<KvConfigCommitChange> changes;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(kvtree_config_changes("1", &changes), kStatusIo);
  EXPECT_THAT(changes, IsEmpty());
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("the contents of commit 1 cannot be read"));
  Execute("DELETE FROM content");
  EXPECT_EQ(kvtree_config_changes("1", &changes), kStatusIo);
  Execute("DROP TABLE log");
  std::vector<KvConfigCommit> commits;
  EXPECT_EQ(kvtree_config_history(1, "", &commits), kStatusIo);
  EXPECT_EQ(kvtree_config_history(1, "1", &commits), kStatusIo);
  EXPECT_EQ(kvtree_config_changes("1", &changes), kStatusIo);
}

// The octets are those of a process that knew four owners: the numbers in a file never change their meaning.
TEST_F(ConfigHistory, CommitsOfAnEarlierProcessKeepTheirOwners) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("system", {SetTo("/cfg/a", "k")}, "");
  Make("script", {SetTo("/cfg/a", "f")}, "");
  Execute("UPDATE content SET octets = x'060000002f6366672f61010100000066010301010000006b' WHERE id = 2");
  EXPECT_THAT(Changes("2"), ElementsAre("/cfg/a: k (system) -> f (script)"));
}

// --- The order of the last notifications

class ConfigOrder : public ConfigHistory {
 protected:
  void SetUp() override { ASSERT_EQ(Keep(), kStatusOk); }
  // The replay to a subscriber that registers now, which is the same in the next process.
  std::vector<std::string> Replayed() {
    const std::vector<std::string> now = RegisterAndTake();
    Restart();
    EXPECT_EQ(RegisterAndTake(), now);
    return now;
  }

 private:
  std::vector<std::string> RegisterAndTake() {
    TakeReceived();
    Subscribe("/cfg", kKvEventSet);
    return TakeReceived();
  }
};

TEST_F(ConfigOrder, FollowsTheCommitsAndTheChangesInThem) {
  Make("user", {SetTo("/cfg/d", "1"), SetTo("/cfg/c", "1")}, "");
  Make("script", {SetTo("/cfg/b", "1"), SetTo("/cfg/a", "1")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("d 2 1", "c 2 1", "b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, NodeThatIsSetAgainIsTheLast) {
  Make("user", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")}, "");
  Make("user", {SetTo("/cfg/b", "2")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("a 2 1", "c 2 1", "b 2 2"));
}

TEST_F(ConfigOrder, NodeThatIsCreatedAgainIsTheLast) {
  Make("user", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1")}, "");
  Make("user", {Withdraw("/cfg/a")}, "");
  Make("user", {SetTo("/cfg/a", "1")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, ValueThatBecomesEffectiveIsTheLast) {
  Make("script", {SetTo("/cfg/a", "script"), SetTo("/cfg/b", "script")}, "");
  Make("user", {SetTo("/cfg/a", "user")}, "");
  Make("user", {SetTo("/cfg/c", "user")}, "");
  Make("user", {Withdraw("/cfg/a")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("b 2 script", "c 2 user", "a 2 script"));
}

TEST_F(ConfigOrder, ChangesWithoutNotificationDoNotChangeTheOrder) {
  for (const char* path : {"/cfg/c", "/cfg/b", "/cfg/a"}) Make("user", {SetTo(path, "1")}, "");
  Make("script", {SetTo("/cfg/b", "1")}, "");
  Make("peer", {SetTo("/cfg/b", "other")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("c 2 1", "b 2 1", "a 2 1"));
  Make("user", {Withdraw("/cfg/b")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("c 2 1", "b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, FollowsALargeCommitToo) {
  std::vector<KvConfigChange> changes = Many(1200, "x");
  std::ranges::reverse(changes);
  Make("script", changes, "");
  Make("user", {SetTo("/cfg/many/000600", "y")}, "");
  const std::vector<std::string> replayed = Replayed();
  ASSERT_THAT(replayed, SizeIs(1200));
  EXPECT_EQ(replayed.front(), "001199 2 x");
  EXPECT_EQ(replayed[1198], "000000 2 x");
  EXPECT_EQ(replayed.back(), "000600 2 y");
}

TEST_F(ConfigOrder, FollowsTheSetsOfTheProcessItselfToo) {
  for (const char* path : {"/oper/b", "/oper/a", "/oper/c", "/oper/b"})
    ASSERT_EQ(SetText(path, "x"), kStatusOk);
  Subscribe("/oper", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("a 2 x", "c 2 x", "b 2 x"));
}

// --- Folding

class ConfigFolding : public ConfigHistory {
 protected:
  ConfigFolding() {
    EXPECT_EQ(Keep(), kStatusOk);
    EXPECT_EQ(kvtree_serve(manager), kStatusOk);
  }
  ~ConfigFolding() override { kvtree_stop_serving(manager); }
  static bool Unfolded() { return kvtree::store().node_store->has_unfolded(); }
  // In a copy: the store has locked its database.
  std::int64_t Rows(const std::string& table) const {
    const TemporaryDirectory folder;
    const std::string copy = folder.path() + "/copy.db";
    std::filesystem::copy_file(File(), copy);
    sqlite::Connection database;
    EXPECT_EQ(sqlite::open(copy, &database), SQLITE_OK);
    std::int64_t rows = 0;
    EXPECT_EQ(sqlite::read_integer(database.get(), ("SELECT count(*) FROM " + table).c_str(), &rows),
              SQLITE_OK);
    return rows;
  }
  void RunAll() const { kvtree::run_with_commits(manager); }
};

TEST_F(ConfigFolding, SmallCommitHasItsRowsAtOnce) {
  Make("user", {SetTo("/cfg/a", "x")}, "");
  EXPECT_FALSE(Unfolded());
  EXPECT_EQ(Rows("node"), 1);
}

TEST_F(ConfigFolding, LargeCommitsRowsFollowInTheEventLoop) {
  Make("script", Many(1200, "x"), "");
  EXPECT_TRUE(Unfolded());
  EXPECT_EQ(Rows("node"), 0);
  RunAll();
  EXPECT_FALSE(Unfolded());
  EXPECT_EQ(Rows("node"), 1200);
  EXPECT_EQ(Rows("log WHERE folded = 1"), 1);
}

TEST_F(ConfigFolding, LargeCommitOutlivesTheProcess) {
  Make("script", Many(1200, "x"), "");
  Make("script", {SetTo("/cfg/many/000000", "newer"), Withdraw("/cfg/many/000001")}, "");
  EXPECT_TRUE(Unfolded());
  Restart();
  EXPECT_TRUE(Unfolded());
  EXPECT_EQ(Rows("node"), 0) << "they would delay the start";
  EXPECT_THAT(Effective(), SizeIs(1199));
  EXPECT_THAT(Effective("/cfg/many/000000"), ElementsAre("/cfg/many/000000=newer"));
  RunAll();
  EXPECT_FALSE(Unfolded());
  EXPECT_EQ(Rows("node"), 1199);
}

TEST_F(ConfigFolding, ProcessThatEndsWithinFoldingLosesNothing) {
  Make("script", Many(1200, "x"), "");
  Make("script", Many(1200, "y"), "");
  EXPECT_TRUE(kvtree::store().node_store->fold_some(700));
  EXPECT_EQ(Rows("node"), 700);
  Restart();
  EXPECT_THAT(Effective(), SizeIs(1200));
  EXPECT_THAT(Effective("/cfg/many/000000"), ElementsAre("/cfg/many/000000=y"));
  EXPECT_THAT(History(), SizeIs(2));
}

TEST_F(ConfigFolding, LargeCommitWithoutNotificationLeavesNoRecord) {
  Make("user", Many(600, "x"), "");
  RunAll();
  Make("script", Many(600, "y"), "");
  EXPECT_EQ(id, "");
  EXPECT_EQ(Rows("log"), 2);
  RunAll();
  EXPECT_EQ(Rows("log"), 1);
  EXPECT_EQ(Rows("content"), 1);
  EXPECT_EQ(Rows("node"), 1200);
  EXPECT_THAT(History(), SizeIs(1));
}

TEST_F(ConfigFolding, FailedFoldingIsRepeatedEverySecondAndReportedOnce) {
  ManualClock clock(5'000'000'000);
  Make("user", Many(600, "x"), "");
  fault_arm("configuration_fold", kStatusIo, 1, 2);
  ::testing::internal::CaptureStderr();
  RunAll();
  Make("user", {SetTo("/cfg/a", "x")}, "");
  RunAll();
  EXPECT_EQ(fault_reached("configuration_fold"), 1U);
  clock.advance(kNanosecondsPerSecond);
  RunAll();
  EXPECT_TRUE(Unfolded());
  clock.advance(kNanosecondsPerSecond);
  RunAll();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "configuration: " + File() +
                ": a commit cannot be folded and is tried again every second: Input/output error\n"
                "configuration: commits are folded again\n");
  EXPECT_FALSE(Unfolded());
  EXPECT_EQ(Rows("node"), 601);
  Make("user", Many(700, "y"), "");
  RunAll();
  EXPECT_FALSE(Unfolded());
}

// Random commits of two owners, of which a process has folded a part.
TEST_F(ConfigFolding, NextProcessHasTheSameValuesInTheSameOrderBeforeAndAfterIt) {
  std::mt19937 random(7);
  const auto make = [&](const char* owner) {
    std::set<std::string> owned;
    for (const std::string& each : Owned(owner)) owned.insert(each.substr(0, each.find('=')));
    std::vector<KvConfigChange> changes;
    for (KvConfigChange& change : Many(800, std::to_string(random() % 3))) {
      if (owned.contains(change.path) && random() % 3 == 0) change.value = std::nullopt;
      if (random() % 4 != 0) changes.push_back(std::move(change));
    }
    Make(owner, changes, "");
  };
  const auto replayed = [this] {
    Subscribe("/cfg/", kKvEventSet);
    return TakeReceived();
  };
  for (int round = 0; round < 6; ++round) {
    for (const char* owner : {"script", "user", "script"}) make(owner);
    (void)kvtree::store().node_store->fold_some(500);
    Restart();
    EXPECT_TRUE(Unfolded());
    const auto values = std::pair(Owned("script"), Owned("user"));
    const std::vector<std::string> order = replayed();
    RunAll();
    EXPECT_FALSE(Unfolded());
    Restart();
    EXPECT_EQ(std::pair(Owned("script"), Owned("user")), values);
    EXPECT_EQ(replayed(), order);
    EXPECT_EQ(order.size(), Effective().size());
  }
}

TEST_F(ConfigFolding, UnfoldedCommitThatCannotBeReadIsQuarantinedAndTheOthersLoaded) {
  for (const char* damage :
       {"UPDATE content SET octets = x'01' WHERE id = 2", "UPDATE log SET owner = 'stranger' WHERE id = 2",
        "DELETE FROM content WHERE id = 2"}) {
    kvtree_reset();
    std::filesystem::remove(File());
    ASSERT_EQ(Keep(), kStatusOk);
    Make("script", {SetTo("/cfg/a", "x")}, "first");
    Make("user", Many(600, "x"), "second");
    Make("user", {SetTo("/cfg/b", "x")}, "third");
    kvtree_reset();
    ExecuteWithChecksums(damage);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(Keep(), kStatusOk) << damage;
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("commit 2 cannot be read and is stored in the table quarantine_commit of the "
                          "database: its 600 changes have no effect\n"));
    EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x", "/cfg/b=x"));
    EXPECT_THAT(History(), ElementsAre("3 user 1 third", "1 script 1 first"));
    EXPECT_EQ(Rows("quarantine_commit WHERE id = 2"), 1);
    Make("user", {SetTo("/cfg/c", "x")}, "");
    EXPECT_EQ(id, "4");
    ::testing::internal::CaptureStderr();
    Restart();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x", "/cfg/b=x", "/cfg/c=x"));
  }
}

TEST_F(ConfigFolding, CommitThatCannotBeQuarantinedIsAFailureOfTheStart) {
  Make("user", Many(600, "x"), "");
  kvtree_reset();
  Execute("UPDATE content SET octets = x'01'; CREATE VIEW quarantine_commit AS SELECT 1");
  EXPECT_EQ(Keep(), kStatusIo);
}

TEST_F(ConfigFolding, InvalidRowsAreQuarantinedAndTheOthersLoaded) {
  std::vector<KvConfigChange> changes = Many(7, "x");
  Make("user", changes, "");
  kvtree_reset();
  ExecuteWithChecksums(
      "UPDATE node SET path = '/oper/a' WHERE path LIKE '%0';"
      "UPDATE node SET value = 1.5 WHERE path LIKE '%1';"
      "UPDATE node SET value = x'01' WHERE path LIKE '%2';"
      "UPDATE node SET value = zeroblob(8 * 257) WHERE path LIKE '%3';"
      "UPDATE node SET value = hex(zeroblob(16385)) WHERE path LIKE '%4';"
      "UPDATE node SET owner = 'stranger' WHERE path LIKE '%5';");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(Keep(), kStatusOk);
  const std::string log = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("/cfg/many/000001 of \"user\" is not a node of a configuration and is stored in "
                             "the table quarantine_node of the database: it has no effect\n"));
  EXPECT_THAT(log, HasSubstr("/cfg/many/000005 of \"stranger\" is unknown and is skipped"));
  EXPECT_EQ(std::ranges::count(log, '\n'), 6);
  EXPECT_THAT(Effective("/"), ElementsAre("/cfg/many/000006=x"));
  EXPECT_EQ(Rows("quarantine_node"), 5);
  ::testing::internal::CaptureStderr();
  Restart();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::Not(HasSubstr("quarantine")));
  EXPECT_THAT(Effective("/"), ElementsAre("/cfg/many/000006=x"));
}

// A transaction uses as much memory as it needs; the database returns it.
TEST_F(ConfigFolding, MemoryOfALargeCommitIsReturned) {
  sqlite3_memory_highwater(1);
  Make("user", Many(30000, std::string(300, 'x')), "");
  EXPECT_TRUE(Unfolded());
  RunAll();
  EXPECT_FALSE(Unfolded());
  EXPECT_GT(sqlite3_memory_highwater(0), 8 << 20);
  EXPECT_LT(sqlite3_memory_used(), 4 << 20);
}

TEST_F(ConfigFolding, WithoutAServerItWaitsForOne) {
  kvtree_stop_serving(manager);
  Make("user", Many(1200, "x"), "");
  RunAll();
  EXPECT_TRUE(Unfolded());
  ASSERT_EQ(kvtree_serve(manager), kStatusOk);
  EXPECT_EQ(Rows("node"), 0) << "the process is not ready yet";
  RunAll();
  EXPECT_FALSE(Unfolded());
  EXPECT_EQ(Rows("node"), 1200);
}

TEST_F(ConfigFolding, EndOfTheStoreEndsIt) {
  Make("user", Many(1200, "x"), "");
  kvtree_reset();
  RunAll();
  EXPECT_EQ(Rows("node"), 0);
  ASSERT_EQ(Keep(), kStatusOk);
  RunAll();
  EXPECT_EQ(Rows("node"), 1200);
}

}  // namespace
