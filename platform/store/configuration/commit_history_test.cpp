// Tests of stored commits: the history, the database, power cuts, former versions.
#include "platform/store/configuration/test_configuration.h"
#include "platform/store/server/store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ConfigHistory : public ConfigTest {};

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
              ElementsAre("/cfg/new: none () -> user (user)", "/cfg/a: script (script) -> (1 2) (user)",
                          "/cfg/b: script (script) -> script (user)"));
  Make("user", {Withdraw("/cfg/a"), Withdraw("/cfg/b"), Withdraw("/cfg/new")}, "");
  EXPECT_THAT(Changes(id),
              ElementsAre("/cfg/new: user (user) -> none ()", "/cfg/a: (1 2) (user) -> script (script)",
                          "/cfg/b: script (user) -> script (script)"));
}

TEST_F(ConfigHistory, CommitThatChangesOnlyTheOwnerIsListed) {
  Make("script", {SetTo("/cfg/a", "x")}, "");
  Make("user", {SetTo("/cfg/a", "x")}, "taken over");
  Make("script", {SetTo("/cfg/a", "y")}, "overridden");
  EXPECT_EQ(id, "");
  EXPECT_THAT(History(), ElementsAre("2 user 1 taken over", "1 script 1 "));
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

TEST_F(ConfigHistory, CommitsOfSourcesRemoveNoneOfOperators) {
  Make("user", {SetTo("/cfg/own", "1")}, "first");
  for (std::size_t i = 0; i < kMaxCommits + 2; ++i) Make("script", {SetTo("/cfg/a", std::to_string(i))}, "");
  const std::vector<std::string> history = History(5000);
  EXPECT_THAT(history, SizeIs(kMaxCommits + 1));
  EXPECT_EQ(history.back(), "1 user 1 first");
  EXPECT_THAT(history[kMaxCommits - 1], HasSubstr("4 script"));
}

// Otherwise a rollback to it would miss commits of operators.
TEST_F(ConfigHistory, CommitOfASourceIsForgottenWithALaterOneOfAnOperator) {
  ASSERT_EQ(Keep(), kStatusOk);
  Make("script", {SetTo("/cfg/a", "x")}, "");
  for (std::size_t i = 0; i < kMaxCommits; ++i) Make("user", {SetTo("/cfg/b", std::to_string(i))}, "");
  EXPECT_EQ(History(5000).back(), "1 script 1 ");
  Restart();
  Make("user", {SetTo("/cfg/b", "last")}, "");
  EXPECT_THAT(History(5000).back(), HasSubstr("3 user"));
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
      "INSERT INTO node VALUES ('/cfg/a', 'stranger', 1, 0, 0, 0), ('/oper/a', 'user', 1, 0, 0, 0), "
      "('/cfg/b', 'user', 1, 0, 0, 0)");
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

}  // namespace
