// Databases of former versions, and damage within rows: a flipped bit costs the row that has it, and is never
// a value.
#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "platform/core/base/fault.h"
#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::SizeIs;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// --- Former versions

// Commit 2 is in the nodes, commit 3 is not.
constexpr char kHistory[] =
    "CREATE TABLE log(id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER NOT NULL, owner TEXT NOT NULL, "
    "comment TEXT NOT NULL, changes INTEGER NOT NULL, octets INTEGER NOT NULL, folded INTEGER NOT NULL);"
    "CREATE TABLE content(id INTEGER PRIMARY KEY, octets BLOB NOT NULL);"
    "INSERT INTO log VALUES (2, 5, 'script', 'first', 1, 23, 1), (3, 6, 'script', 'second', 1, 23, 0);"
    "INSERT INTO content VALUES (2, x'060000002f6366672f61010100000066010301010000006b'), "
    "(3, x'060000002f6366672f61010100000067010301010000006b');"
    "PRAGMA application_id = 1297498958;";
constexpr char kSecondVersion[] =
    "CREATE TABLE node(path TEXT NOT NULL, owner TEXT NOT NULL, value, PRIMARY KEY(path, owner)) WITHOUT "
    "ROWID; INSERT INTO node VALUES ('/cfg/a', 'script', 'f'), ('/cfg/a', 'system', 'k'), ('/cfg/b', 'user', "
    "-5); PRAGMA user_version = 2;";
constexpr char kThirdVersion[] =
    "CREATE TABLE node(path TEXT NOT NULL, owner TEXT NOT NULL, value, told INTEGER NOT NULL, PRIMARY "
    "KEY(path, owner)) WITHOUT ROWID; INSERT INTO node VALUES ('/cfg/a', 'script', 'f', 2097152), ('/cfg/a', "
    "'system', 'k', 2097152), ('/cfg/b', 'user', -5, 1048576); PRAGMA user_version = 3;";

constexpr std::array kFormerOwners = {KvConfigOwner{"cli", 0}, KvConfigOwner{"file", 1}};

// The files that the programs which wrote these versions made of a router file and an operator's commands.
std::string dump_of(const char* file) {
  std::ifstream dump(std::string("tests/data/") + file);
  return {std::istreambuf_iterator<char>(dump), {}};
}
std::string fourth_version() {
  return dump_of("configuration_v4.sql");
}

TEST_F(ConfigTest, FourthVersionWithADamagedFirstPageLosesNothing) {
  Execute(fourth_version());
  std::fstream(File(), std::ios::in | std::ios::out | std::ios::binary) << std::string(100, '\0');
  ASSERT_EQ(kvtree_config_register_owners(kFormerOwners), kStatusOk);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("rows that can be read"));
  for (int start = 0; start < 2; ++start) {
    EXPECT_THAT(Owned("cli"), SizeIs(6));
    EXPECT_THAT(Owned("file"), SizeIs(6));
    EXPECT_THAT(History(), SizeIs(7));
    EXPECT_THAT(Changes("5"), SizeIs(2));
    Restart();
  }
}

TEST_F(ConfigTest, FourthVersionIsMigrated) {
  const std::string sql = fourth_version();
  ASSERT_THAT(sql, HasSubstr("PRAGMA user_version = 4"));
  // The last row is damaged and stays so.
  Execute(sql + "UPDATE node SET value = 2 WHERE path LIKE '%vrf-up'");
  ASSERT_EQ(kvtree_config_register_owners(kFormerOwners), kStatusOk);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("1 rows of nodes are damaged, the first is "
                                             "/cfg/gl/snmp/enable/traps/l3vpnmib/vrf-up"));
  for (int start = 0; start < 2; ++start) {
    EXPECT_THAT(Owned("cli"), SizeIs(5));
    EXPECT_THAT(Owned("file"), SizeIs(6));
    EXPECT_THAT(History(2), ElementsAre("7 cli 1 delete vrf blue threshold",
                                        "6 cli 1 set vrf blue threshold ipv4 500 400"));
    EXPECT_THAT(History(), SizeIs(7));
    EXPECT_THAT(Changes("5"), SizeIs(2));
    Restart();
  }
  Make("cli", {SetTo("/cfg/a", "x")}, "");
  EXPECT_EQ(id, "8");
}

// It has a damaged row in quarantine and a commit that waits for its confirmation.
TEST_F(ConfigTest, FifthVersionIsMigrated) {
  const std::string sql = dump_of("configuration_v5.sql");
  ASSERT_THAT(sql, HasSubstr("PRAGMA user_version = 5"));
  Execute(sql + "UPDATE node SET value = 'wrong' WHERE path LIKE '%rd'");
  ASSERT_EQ(kvtree_config_register_owners(kFormerOwners), kStatusOk);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("1 rows of nodes are damaged"));
  for (int start = 0; start < 2; ++start) {
    EXPECT_THAT(Owned("cli"), SizeIs(2));
    EXPECT_THAT(Effective(), SizeIs(1)) << "one node is suppressed";
    EXPECT_THAT(History(), SizeIs(5));
    EXPECT_EQ(kvtree_config_confirmation().id, "5");
    Restart();
  }
  Execute(
      "CREATE TABLE expected(n CHECK(n = 2)); INSERT INTO expected SELECT count(*) FROM quarantine_node; "
      "INSERT INTO expected SELECT 2 + suppressed FROM quarantine_node WHERE value = 'wrong'");
}

class FormerVersion : public ConfigTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(FormerVersion, NodesAndHistoryAreUnchanged) {
  Execute(std::string(kHistory) + GetParam());
  fault_arm("configuration_migrate", kStatusIo);
  EXPECT_EQ(Keep(), kStatusIo);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_EQ(GetCapturedStderr(), "");
  for (int start = 0; start < 2; ++start) {
    EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=g"));
    EXPECT_THAT(Owned("system"), ElementsAre("/cfg/a=k"));
    EXPECT_THAT(Owned("user"), ElementsAre("/cfg/b=#-5"));
    EXPECT_THAT(History(), ElementsAre("3 script 1 second", "2 script 1 first"));
    EXPECT_THAT(Changes("2"), ElementsAre("/cfg/a: k (system) -> f (script)"));
    Restart();
  }
  Commit("user", {SetTo("/cfg/c", "x")});
  EXPECT_EQ(id, "4");
}

// The index does not exist in our databases; it is the last page of the file.
TEST_P(FormerVersion, WhatCanBeReadOfADamagedOneIsUsed) {
  Execute(std::string(kHistory) + GetParam() + "CREATE INDEX damaged ON log(time)");
  std::filesystem::resize_file(File(), std::filesystem::file_size(File()) - 1000);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("is damaged and is stored as"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=g"));
  EXPECT_THAT(Owned("user"), ElementsAre("/cfg/b=#-5"));
  EXPECT_THAT(Changes("2"), ElementsAre("/cfg/a: k (system) -> f (script)"));
}

INSTANTIATE_TEST_SUITE_P(Versions, FormerVersion, ::testing::Values(kSecondVersion, kThirdVersion),
                         [](const auto& each) { return each.index == 0 ? "Second" : "Third"; });

// --- Schemas that are valid, and not ours

struct DamagedSchema {
  const char *table, *from, *to;
};

class DatabaseWithADamagedSchema : public ConfigTest, public ::testing::WithParamInterface<DamagedSchema> {};

TEST_P(DatabaseWithADamagedSchema, IsSetAsideAndItsRowsAreRead) {
  const auto& [table, from, to] = GetParam();
  ASSERT_EQ(Keep(), kStatusOk);
  Make("script", {SetTo("/cfg/a", "s")}, "");
  Make("user", {SetTo("/cfg/a", "u"), SetTo("/cfg/b", "x")}, "");
  kvtree_reset();
  ExecuteOn(File(), kvtree::kMakeQuarantine);
  ExecuteOn(File(),
            std::string("PRAGMA writable_schema=ON; CREATE TABLE done(n CHECK(n = 1)); UPDATE sqlite_schema "
                        "SET sql = replace(sql, '") +
                from + "', '" + to + "') WHERE name = '" + table + "'; INSERT INTO done SELECT changes()");
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  const std::string log = GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("the schema of its table \"" + std::string(table) + "\" is damaged"));
  EXPECT_THAT(log, HasSubstr(" is damaged and is stored as " + File() + ".unusable.1; starting with the "));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=u", "/cfg/b=x"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=s"));
  EXPECT_THAT(History(), SizeIs(2));
  EXPECT_THAT(Changes("2"), SizeIs(2));
  Commit("user", {SetTo("/cfg/a", "v")});
  CaptureStderr();
  Restart();
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=v", "/cfg/b=x"));
}

INSTANTIATE_TEST_SUITE_P(
    Tables, DatabaseWithADamagedSchema,
    ::testing::Values(DamagedSchema{"node", "INTEGER NOT NULL, checksum", "INTEGES NOT NULL, checksum"},
                      DamagedSchema{"node", "value, ", "valee, "},
                      DamagedSchema{"log", "INTEGER PRIMARY KEY AUTOINCREMENT", "INTEGER"},
                      DamagedSchema{"log", " AUTOINCREMENT", ""},
                      DamagedSchema{"content", "INTEGER PRIMARY KEY", "INTEGER PRIMARI KEY"},
                      DamagedSchema{"confirmation", "INTEGER PRIMARY KEY", "INTEGER PRIMARI KEY"},
                      DamagedSchema{"later_change", "path TEXT", "path TEXU"},
                      DamagedSchema{"quarantine_commit", "folded", "foldee"},
                      DamagedSchema{"quarantine_node", "suppressed", "suppressee"}),
    [](const auto& each) { return each.param.table + std::to_string(each.index); });

TEST_F(ConfigTest, FormerVersionWithADamagedSchemaIsSetAsideAndItsRowsAreRead) {
  Execute(fourth_version());
  ExecuteOn(File(),
            "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql = replace(sql, 'INTEGER PRIMARY KEY "
            "AUTOINCREMENT', 'INTEGER') WHERE name = 'log'");
  ASSERT_EQ(kvtree_config_register_owners(kFormerOwners), kStatusOk);
  CaptureStderr();
  ASSERT_EQ(Keep(), kStatusOk);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("the schema of its table \"log\" is damaged"));
  EXPECT_THAT(Owned("cli"), SizeIs(6));
  EXPECT_THAT(History(), SizeIs(7));
}

// --- Rows whose checksum differs

class DamagedRow : public ConfigTest {
 protected:
  DamagedRow() {
    EXPECT_EQ(Keep(), kStatusOk);
    Commit("script", {SetTo("/cfg/a", "s")});
    Commit("user", {SetTo("/cfg/a", "u"), SetTo("/cfg/b", "x"), SetTo("/cfg/c", "y")});
  }
  // Ends the process, damages its database and starts another; returns what that logs.
  std::string StartDamagedBy(const std::string& sql) const {
    kvtree_reset();
    ExecuteOn(File(), sql);
    CaptureStderr();
    EXPECT_EQ(Keep(), kStatusOk);
    return GetCapturedStderr();
  }
};

TEST_F(DamagedRow, NodeIsQuarantinedAndTheOthersAreEffective) {
  const std::string log =
      StartDamagedBy("UPDATE node SET value = 'v' WHERE path = '/cfg/a' AND owner = 'user'");
  EXPECT_EQ(log,
            "configuration: 1 rows of nodes are damaged, the first is /cfg/a: they are stored in the table "
            "quarantine_node of the database and have no effect\n");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=s", "/cfg/b=x", "/cfg/c=y"));
  EXPECT_EQ(StartDamagedBy("CREATE TABLE expected(n CHECK(n = 1)); INSERT INTO expected SELECT count(*) FROM "
                           "quarantine_node WHERE value = 'v'"),
            "");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=s", "/cfg/b=x", "/cfg/c=y"));
}

TEST_F(DamagedRow, QuarantineHasEveryColumn) {
  EXPECT_THAT(StartDamagedBy("UPDATE node SET suppressed = 1 WHERE path = '/cfg/b'"), HasSubstr("damaged"));
  EXPECT_EQ(kvtree_configuration_quarantine(), (sqlite::Quarantine{1, "quarantine_node"}));
  EXPECT_THAT(StartDamagedBy("UPDATE log SET user = 'eve', folded = 0 WHERE id = 2"), HasSubstr("commit 2"));
  EXPECT_EQ(kvtree_configuration_quarantine(), (sqlite::Quarantine{2, "quarantine_commit,quarantine_node"}));
  Execute(
      "CREATE TABLE expected(n CHECK(n = 1)); INSERT INTO expected SELECT suppressed FROM quarantine_node; "
      "INSERT INTO expected SELECT user = 'eve' AND folded = 0 AND id = 2 FROM quarantine_commit");
}

TEST_F(DamagedRow, EveryColumnOfANodeMatters) {
  for (const char* set :
       {"path = '/cfg/d'", "owner = 'script'", "told = 1", "value = x'78'", "checksum = 0"}) {
    EXPECT_THAT(StartDamagedBy(std::string("UPDATE node SET ") + set + " WHERE path = '/cfg/b'"),
                HasSubstr("1 rows of nodes are damaged"))
        << set;
    EXPECT_THAT(Effective(), ElementsAre("/cfg/a=u", "/cfg/c=y"));
    Commit("user", {SetTo("/cfg/b", "x")});
  }
}

TEST_F(DamagedRow, RecordOfACommitIsQuarantinedAndTheOthersAreListed) {
  for (const char* set : {"time = time + 1", "owner = 'script'", "comment = 'x'", "changes = 0", "octets = 0",
                          "folded = 0", "checksum = 0", "id = 4398046511104"}) {
    Commit("user", {SetTo("/cfg/e", set)});
    const std::string log = StartDamagedBy(std::string("UPDATE log SET ") + set + " WHERE id = " + id);
    EXPECT_THAT(log,
                HasSubstr("cannot be read and is stored in the table quarantine_commit of the database: its "
                          "changes have no effect unless the nodes have them\n"));
    EXPECT_THAT(History(), ElementsAre("2 user 3 ", "1 script 1 ")) << set;
    EXPECT_THAT(Effective(), ElementsAre("/cfg/a=u", "/cfg/b=x", "/cfg/c=y", std::string("/cfg/e=") + set));
  }
  EXPECT_EQ(
      StartDamagedBy("CREATE TABLE expected(n CHECK(n = 8)); INSERT INTO expected SELECT count(octets) FROM "
                     "quarantine_commit"),
      "");
}

TEST_F(DamagedRow, ContentsOfACommitAreNotShownAndTheOthersAre) {
  EXPECT_EQ(
      StartDamagedBy("UPDATE content SET octets = (SELECT octets FROM content WHERE id = 1) WHERE id = 2"),
      "");
  EXPECT_THAT(History(), ElementsAre("2 user 3 ", "1 script 1 "));
  std::vector<KvConfigCommitChange> changes;
  CaptureStderr();
  EXPECT_EQ(kvtree_config_changes("2", &changes), kStatusIo);
  EXPECT_EQ(GetCapturedStderr(), "configuration: the contents of commit 2 cannot be read\n");
  EXPECT_THAT(Changes("1"), ElementsAre("/cfg/a: none () -> s (script)"));
}

TEST_F(DamagedRow, NotificationDoesNotConcealTheDamage) {
  StartDamagedBy("SELECT 1");
  Execute("UPDATE node SET value = 'wrong' WHERE path = '/cfg/a' AND owner = 'script'");
  Commit("user", {SetTo("/cfg/a", "v")});
  EXPECT_THAT(StartDamagedBy("SELECT 1"), HasSubstr("1 rows of nodes are damaged, the first is /cfg/a"));
  EXPECT_THAT(Owned("script"), ::testing::IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=v", "/cfg/b=x", "/cfg/c=y"));
}

// --- Flipped bits

class FlippedBit : public ConfigTest {
 protected:
  static constexpr std::size_t kPage = 4096;

  // Makes the database; returns the effective nodes.
  std::vector<std::string> Make(const std::vector<KvConfigChange>& changes) {
    EXPECT_EQ(Keep(), kStatusOk);
    Commit("user", changes);
    std::vector<std::string> nodes = Effective();
    kvtree::fold_all();
    kvtree_reset();
    std::ifstream file(File(), std::ios::binary);
    good_ = {std::istreambuf_iterator<char>(file), {}};
    return nodes;
  }
  // The effective nodes of a start with this bit flipped.
  std::vector<std::string> NodesWithFlipped(std::size_t bit) const {
    std::string bad = good_;
    bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
    std::filesystem::remove(File() + ".unusable.1");
    std::ofstream(File(), std::ios::binary) << bad;
    EXPECT_EQ(Keep(), kStatusOk) << bit;
    std::vector<std::string> nodes = Effective();
    kvtree_reset();
    return nodes;
  }
  std::string good_;
};

TEST_F(FlippedBit, InARowCostsThatRow) {
  const std::vector<std::string> nodes =
      Make({SetTo("/cfg/a", "before"), SetTo("/cfg/b", "value"), SetTo("/cfg/c", "after")});
  constexpr std::size_t kNumbers = 11;
  const std::size_t start = good_.find("/cfg/buservalue");
  ASSERT_NE(start, std::string::npos);
  const std::size_t end = start + std::string("/cfg/buservalue").size() + kNumbers;
  CaptureStderr();
  for (std::size_t bit = start * 8; bit < end * 8; ++bit)
    EXPECT_THAT(NodesWithFlipped(bit), ElementsAre(nodes[0], nodes[2])) << bit - start * 8;
  GetCapturedStderr();
}

// The first page has the tables' names and places.
TEST_F(FlippedBit, OrManyInTheFirstPageCostNothing) {
  const std::vector<std::string> nodes = Make(Many(1000, "value"));
  struct Part {
    std::size_t first, last;
  };
  std::mt19937 random(1);
  CaptureStderr();
  for (const Part part : {Part{0, kPage}, Part{0, 100}, Part{100, kPage}, Part{0, 512}, Part{512, kPage}}) {
    for (const bool is_zero : {false, true}) {
      std::string bad = good_;
      for (std::size_t i = part.first; i < part.last; ++i)
        bad[i] = is_zero ? '\0' : static_cast<char>(random());
      std::filesystem::remove(File() + ".unusable.1");
      std::ofstream(File(), std::ios::binary) << bad;
      ASSERT_EQ(Keep(), kStatusOk);
      EXPECT_EQ(Effective(), nodes) << part.first;
      EXPECT_THAT(History(), ElementsAre("1 user 1000 ")) << part.first;
      EXPECT_EQ(Changes("1").size(), nodes.size());
      kvtree_reset();
    }
  }
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("; starting with the 1002 rows that can be read\n"));
  EXPECT_FALSE(std::filesystem::exists(File() + ".copy"));
}

TEST_F(FlippedBit, BeyondTheFirstPageIsNeverAWrongValueAndCostsOnePage) {
  constexpr std::size_t kPerPage = 90;
  const std::vector<std::string> nodes = Make(Many(1000, "value"));
  std::mt19937 random(1);
  CaptureStderr();
  for (int i = 0; i < 200; ++i) {
    const std::size_t bit = kPage * 8 + random() % ((good_.size() - kPage) * 8);
    const std::vector<std::string> left = NodesWithFlipped(bit);
    EXPECT_TRUE(std::ranges::includes(nodes, left)) << bit;
    EXPECT_GE(left.size() + kPerPage, nodes.size())
        << "octet " << bit / 8 % kPage << " of page " << bit / 8 / kPage;
  }
  GetCapturedStderr();
}

}  // namespace
