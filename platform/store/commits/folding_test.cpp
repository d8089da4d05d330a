// Tests of large commits, whose rows are written after them: in steps, over the end of the process, damaged.
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
using ::testing::SizeIs;

class ConfigFolding : public ConfigTest {
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
