// Tests of databases of a former version and of damage: a damaged page costs what it has, a flipped bit one
// record.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "platform/core/base/log.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// --- Former versions

constexpr char kFirstVersion[] =
    "CREATE TABLE application(number INTEGER PRIMARY KEY, name TEXT NOT NULL, starts INTEGER NOT NULL);"
    "CREATE TABLE record_table(row INTEGER PRIMARY KEY, application INTEGER NOT NULL, table_id INTEGER NOT "
    "NULL, key_kind INTEGER NOT NULL, versioned INTEGER NOT NULL, record_size INTEGER NOT NULL,"
    " persistent INTEGER NOT NULL, reserved INTEGER NOT NULL, UNIQUE(application, table_id));"
    "CREATE TABLE record(object_id INTEGER PRIMARY KEY AUTOINCREMENT, table_row INTEGER NOT NULL,"
    " key BLOB NOT NULL, data BLOB NOT NULL);"
    "INSERT INTO application VALUES (1235, 'mpls_vpn', 3);"
    "INSERT INTO record_table VALUES (4, 7, 100, 1, 1, 0, 1, 0), (5, 1235, 100, 1, 1, 0, 1, 0);"
    "INSERT INTO record VALUES (3, 5, x'6b657931', x'6f6e65'), (4, 4, x'6b657931', x'00'), "
    "(6, 5, x'6b657932', x'');"
    "UPDATE sqlite_sequence SET seq = 9;"
    "PRAGMA application_id = 1297498960; PRAGMA user_version = 1;";

class CheckpointFormatTest : public CheckpointTest {
 protected:
  void MakeFirstVersion() {
    std::filesystem::remove(File());
    Sql(kFirstVersion);
  }
};

TEST_F(CheckpointFormatTest, RecordsOfTheFirstVersionKeepTheirIdsAndGetChecksums) {
  MakeFirstVersion();
  CaptureStderr();
  EXPECT_TRUE(Start());
  EXPECT_EQ(GetCapturedStderr(), "chkpt: " + File() + " is now of version 2\n");
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", ""}));
  EXPECT_EQ(Map("key2"), 6U);
  EXPECT_EQ(Create("key3"), 10U);
  CaptureStderr();
  EXPECT_TRUE(Restart());
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", ""}, Row{"key3", ""}));
  chkpt_end();
  chkpt_application_init(&application, 7, "other");
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", std::string(1, '\0')}));
}

TEST_F(CheckpointFormatTest, FirstVersionWithoutRecordsKeepsTheIdsThatWereUsed) {
  MakeFirstVersion();
  Sql("DELETE FROM record");
  EXPECT_FALSE(Start());
  EXPECT_EQ(Create("key1"), 10U);
}

TEST_F(CheckpointFormatTest, InvalidRecordOfTheFirstVersionIsQuarantined) {
  MakeFirstVersion();
  Sql("UPDATE record SET table_row = 99 WHERE object_id = 3");
  CaptureStderr();
  EXPECT_TRUE(Start());
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("1 records are invalid, the first is 3: "));
  EXPECT_THAT(Rows(), ElementsAre(Row{"key2", ""}));
}

TEST_F(CheckpointFormatTest, MigrationThatFailsLeavesTheFormerVersion) {
  MakeFirstVersion();
  fault_arm("chkpt_migrate", kStatusIo);
  EXPECT_EQ(chkpt_init(&application, manager), kStatusIo);
  Sql("SELECT table_row FROM record");
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", ""}));
}

// --- Damage

class CheckpointSalvageTest : public CheckpointTest {
 protected:
  static constexpr std::size_t kRecords = 60;
  static constexpr std::size_t kPerPage = 4;  // at most

  static Row Nth(std::size_t n) {
    const std::string key = std::to_string(1000 + n);
    return {key, key + std::string(1000, 'd')};
  }
  static std::vector<Row> AllRows() {
    std::vector<Row> rows;
    for (std::size_t n = 0; n < kRecords; ++n) rows.push_back(Nth(n));
    return rows;
  }
  void MakeDatabase(const std::vector<Row>& rows) {
    Start();
    for (const Row& row : rows) Put(row.key, row.data);
    chkpt_end();
    good = ReadFile(File());
  }
  std::string Flipped(std::size_t bit) const {
    std::string bad = good;
    bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
    return bad;
  }
  // The rows that are read after a start with these octets.
  std::vector<Row> RowsOf(const std::string& octets) {
    for (const char* suffix : {"", "-wal", ".unusable.1", ".unusable.1-wal"})
      std::filesystem::remove(File() + suffix);
    WriteFile(File(), octets);
    if (chkpt_init(&application, manager) != kStatusOk) return {};
    bool had_contents = false;
    EXPECT_EQ(chkpt_register(&descriptor, kTable, &table, &had_contents), kStatusOk);
    std::vector<Row> rows = Rows();
    EXPECT_EQ(had_contents, !rows.empty());
    chkpt_end();
    return rows;
  }

  std::string good;
};

TEST_F(CheckpointSalvageTest, DamagedPageCostsOnlyWhatItHas) {
  MakeDatabase(AllRows());
  std::size_t nearly_all = 0;
  CaptureStderr();
  for (std::size_t page = 1; page < good.size() / kPage; ++page) {
    std::string bad = good;
    bad.replace(page * kPage, kPage, std::string(kPage, '\xee'));
    const std::vector<Row> rows = RowsOf(bad);
    EXPECT_THAT(AllRows(), IsSupersetOf(rows));
    if (rows.size() + kPerPage >= kRecords) ++nearly_all;
    if (rows.empty()) continue;
    EXPECT_EQ(ReadFile(Aside()), bad);
    EXPECT_FALSE(Exists(File() + ".salvaged"));
  }
  const std::string log = GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr(" and is set aside as " + Aside() +
                             "; starting with the 57 records that can be read\n"));
  EXPECT_GE(nearly_all + 3, good.size() / kPage) << log;
}

TEST_F(CheckpointSalvageTest, RecordsInTheLogOfADamagedDatabaseAreUsed) {
  MakeDatabase({Nth(1)});
  Start();
  Put(Nth(2).key, Nth(2).data);
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  const std::string log = ReadFile(Log());
  std::string file = ReadFile(File());
  UseStateDirectory(directory.path() + "/damaged");
  std::filesystem::create_directory(state);
  file.replace(kPage, kPage, std::string(kPage, '\xee'));  // the page of the application
  WriteFile(File(), file);
  WriteFile(Log(), log);
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Nth(1), Nth(2)));
}

TEST_F(CheckpointSalvageTest, DamagedDatabaseOfTheFirstVersionIsSalvaged) {
  Sql(kFirstVersion);
  Sql("CREATE INDEX damaged ON record(data)");
  std::string file = ReadFile(File());
  file.replace(file.size() - kPage, kPage, std::string(kPage, '\xee'));
  WriteFile(File(), file);
  EXPECT_TRUE(Start());
  EXPECT_TRUE(Exists(Aside()));
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", ""}));
  EXPECT_GT(Create("key3"), 1000U);
}

TEST_F(CheckpointSalvageTest, SalvageThatAFormerProcessDidNotFinishIsFinished) {
  MakeDatabase({Nth(1)});
  std::filesystem::rename(File(), File() + ".salvaged");
  WriteFile(Log(), "of the damaged database");
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Nth(1)));
  EXPECT_EQ(ReadFile(Aside() + "-wal"), "of the damaged database");
}

TEST_F(CheckpointSalvageTest, FlippedBitOfARecordCostsOnlyThatRecord) {
  const std::vector<Row> rows{{"key1", "data of one"}, {"key2", "data of two"}, {"key3", "data of three"}};
  MakeDatabase(rows);
  const std::size_t first = good.find("key2");
  constexpr std::size_t kIdsSize = 4;
  constexpr std::size_t kChecksumSize = 8;
  const std::size_t end = first + rows[1].key.size() + rows[1].data.size() + kChecksumSize;
  CaptureStderr();
  for (std::size_t bit = (first - kIdsSize) * 8; bit < end * 8; ++bit) {
    EXPECT_THAT(RowsOf(Flipped(bit)), ElementsAre(rows[0], rows[2])) << bit;
  }
  GetCapturedStderr();
}

// The first page has the schema.
TEST_F(CheckpointSalvageTest, FlippedBitBeyondTheFirstPageIsNeverAWrongRecord) {
  MakeDatabase(AllRows());
  std::mt19937 random(1);
  CaptureStderr();
  for (int i = 0; i < 300; ++i) {
    const std::size_t bit = kPage * 8 + random() % ((good.size() - kPage) * 8);
    const std::vector<Row> rows = RowsOf(Flipped(bit));
    EXPECT_THAT(AllRows(), IsSupersetOf(rows));
    EXPECT_GE(rows.size() + kPerPage, kRecords) << "bit " << bit;
  }
  GetCapturedStderr();
}

}  // namespace
