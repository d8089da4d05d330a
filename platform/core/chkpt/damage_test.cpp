// Tests of databases that cannot be used, and of directories that cannot be written.
#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <random>

#include "platform/core/chkpt/damage_test_support.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST_F(CheckpointDamageTest, FileThatIsNotADatabaseIsSetAside) {
  WriteFile(File(), std::string(10000, 'x'));
  ExpectSetAside("file is not a database");
}

// The disk is full while a damaged file is read, and the operator moves that file away.
TEST_F(CheckpointDamageTest, IncompleteCopyOfADamagedDatabaseIsNotUsed) {
  Start();
  for (int key = 1000; key < 1600; ++key) Put(std::to_string(key), std::string(400, 'x'));
  chkpt_end();
  Sql("PRAGMA wal_checkpoint(TRUNCATE)");
  std::string octets = ReadFile(File());
  for (std::size_t i = octets.size() / 2; i < octets.size() / 2 + kPage; ++i) octets[i] = '\0';
  WriteFile(File(), octets);
  CaptureStderr();
  {
    const FileSizeLimit limit(octets.size() / 4);
    EXPECT_NE(chkpt_init(&application, manager), kStatusOk);
  }
  std::string log = GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("cannot be written"));
  EXPECT_FALSE(Exists(File() + ".salvaged")) << std::filesystem::file_size(File() + ".salvaged");
  std::filesystem::rename(File(), File() + ".moved");
  CaptureStderr();
  Start();
  log += GetCapturedStderr();
  EXPECT_THAT(Rows(), IsEmpty()) << Rows().size() << log;
}

TEST_F(CheckpointDamageTest, DatabaseWhoseFormatCanOnlyBeReadIsSetAsideAndItsRecordsAreRead) {
  constexpr std::size_t kWriteVersionAt = 18;
  MakeDatabase();
  std::string octets = ReadFile(File());
  octets[kWriteVersionAt] = 3;
  WriteFile(File(), octets);
  ExpectSalvaged({{"key1", "one"}}, "its format can only be read");
}

// The first page has the tables' names and places.
TEST_F(CheckpointDamageTest, FirstPageThatIsDamagedCostsNoRecord) {
  struct Part {
    std::size_t first, last;
  };
  std::mt19937 random(1);
  for (const Part part : {Part{0, kPage}, Part{0, 100}, Part{100, kPage}, Part{0, 512}, Part{512, kPage}}) {
    for (const bool is_zero : {false, true}) {
      for (const bool has_log : {false, true}) {
        UseStateDirectory(directory.path() + "/" + std::to_string(random()));
        Start();
        for (int key = 1000; key < 1500; ++key) Put(std::to_string(key), "in the database");
        chkpt_end();
        Sql("PRAGMA wal_checkpoint(TRUNCATE)");
        Start();
        if (has_log) Put("1200", "in the log");
        const std::vector<Row> rows = Rows();
        ASSERT_EQ(chkpt_flush(), kStatusOk);
        const std::string log = ReadFile(Log());
        chkpt_end();
        std::string octets = ReadFile(File());
        for (std::size_t i = part.first; i < part.last; ++i)
          octets[i] = is_zero ? '\0' : static_cast<char>(random());
        WriteFile(File(), octets);
        WriteFile(Log(), log);
        ExpectSalvaged(rows, "");
        EXPECT_GT(Create("2000"), 500U);
      }
    }
  }
}

TEST_F(CheckpointDamageTest, ForeignDatabaseIsSetAside) {
  Sql("CREATE TABLE precious(a); INSERT INTO precious VALUES(1)");
  ExpectSetAside("it is not a checkpoint database");
}

TEST_F(CheckpointDamageTest, ForeignDatabaseWithOnlyAnApplicationIdIsSetAside) {
  Sql("PRAGMA application_id=77");
  ExpectSetAside("it is not a checkpoint database");
}

TEST_F(CheckpointDamageTest, DatabaseOfNoVersionIsSetAsideAndItsRecordsAreRead) {
  MakeDatabase();
  Sql("PRAGMA user_version=0");
  ExpectSalvaged({{"key1", "one"}}, "it is of version 0");
}

// Each schema is a valid one.
TEST_F(CheckpointDamageTest, DatabaseWithADamagedSchemaIsSetAsideAndItsRecordsAreRead) {
  struct Damage {
    const char *name, *from, *to;
  };
  for (const auto& [name, from, to] :
       {Damage{"application", "INTEGER PRIMARY KEY", "INTEGER PRIMARI KEY"},
        Damage{"application", "name TEXT", "name TEXU"},
        Damage{"application", "starts INTEGER", "startt INTEGER"},
        Damage{"record", "INTEGER PRIMARY KEY AUTOINCREMENT", "INTEGER"},
        Damage{"record", " AUTOINCREMENT", ""}, Damage{"record", "key BLOB NOT NULL", "key BLOB CHECK(1)"},
        Damage{"quarantine_record", "checksum", "checksun"}}) {
    UseStateDirectory(directory.path() + "/" +
                      std::to_string(std::hash<std::string>{}(std::string(name) + to)));
    MakeDatabase();
    Sql("CREATE TABLE quarantine_record(object_id, application, table_id, key, data, checksum)");
    Sql((std::string("PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql = replace(sql, '") + from +
         "', '" + to + "') WHERE name = '" + name + "'")
            .c_str());
    ExpectSalvaged({{"key1", "one"}}, "");
    chkpt_end();
  }
}

TEST_F(CheckpointDamageTest, DatabaseWithATriggerIsSetAsideAndItsRecordsAreRead) {
  MakeDatabase();
  Sql("CREATE TRIGGER unknown AFTER INSERT ON record BEGIN DELETE FROM record; END");
  ExpectSalvaged({{"key1", "one"}}, "its table \"record\" has the unknown index or trigger \"unknown\"");
}

TEST_F(CheckpointDamageTest, DatabaseOfANewerVersionIsRefusedAndLeftAlone) {
  MakeDatabase();
  Sql("PRAGMA user_version=3");
  const std::string file = ReadFile(File());
  const std::string log = ReadFile(Log());
  for (int start = 0; start < 2; ++start) {
    CaptureStderr();
    EXPECT_EQ(chkpt_init(&application, manager), kStatusNewerVersion);
    EXPECT_EQ(GetCapturedStderr(), "chkpt: " + File() +
                                       ": it is of version 3 and this release reads versions up to 2; start "
                                       "the release that wrote it, or move the file away\n");
    EXPECT_EQ(ReadFile(File()), file);
    EXPECT_EQ(ReadFile(Log()), log);
    EXPECT_FALSE(Exists(Aside()));
  }
  Sql("PRAGMA user_version=2");
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

// SQLite determines the size of a file that another library wrote itself and corrects the header when it
// begins to write.
TEST_F(CheckpointDamageTest, WrongPageCountOfAFileThatIsNotUsedIsNotCorrected) {
  for (const char* sql :
       {"PRAGMA user_version=3", "PRAGMA user_version=0", "PRAGMA journal_mode=DELETE; PRAGMA user_version=3",
        "PRAGMA journal_mode=DELETE; DROP TABLE record"}) {
    UseStateDirectory(directory.path() + "/" + std::to_string(std::hash<std::string>{}(sql)));
    MakeDatabase();
    Sql(sql);
    std::string file = ReadFile(File());
    for (const std::size_t change_counter_and_page_count : {27, 31}) ++file[change_counter_and_page_count];
    WriteFile(File(), file);
    const bool is_used = chkpt_init(&application, manager) == kStatusOk;
    EXPECT_EQ(ReadFile(is_used ? Aside() : File()), file) << sql;
  }
}

TEST_F(CheckpointDamageTest, DatabaseWithoutItsTablesIsSetAside) {
  MakeDatabase();
  Sql("DROP TABLE record");
  ExpectSetAside("no such table: record");
}

TEST_F(CheckpointDamageTest, InvalidRecordIsQuarantinedAndTheOthersAreRead) {
  constexpr char kSetChecksums[] =
      " WHERE object_id = 2; UPDATE record SET checksum = row_checksum(object_id, application, table_id, "
      "key, "
      "data)";
  for (const std::string set : {"table_id = 1 << 32", "application = -1", "object_id = -1",
                                "key = (SELECT key FROM record)", "key = 'text'", "data = 5"}) {
    ExpectQuarantined("UPDATE record SET " + set + kSetChecksums);
  }
}

TEST_F(CheckpointDamageTest, RecordWhoseChecksumDiffersIsQuarantinedAndTheOthersAreRead) {
  for (const char* change : {"table_id = 101", "application = 7", "object_id = 4", "key = x'6b657939'",
                             "data = x'6f6c65'", "checksum = checksum + 1"}) {
    ExpectQuarantined(std::string("UPDATE record SET ") + change + " WHERE object_id = 2");
  }
}

// New records would have ids that are invalid at the next start.
TEST_F(CheckpointDamageTest, ImplausibleSequenceOfObjectIdsIsCorrected) {
  for (const char* sequence : {"-21", "9223372036854775807", "4611686018427387904", "'text'", "NULL"}) {
    UseStateDirectory(directory.path() + "/" + sequence);
    MakeDatabase();
    Sql((std::string("UPDATE sqlite_sequence SET seq = ") + sequence).c_str());
    CaptureStderr();
    EXPECT_TRUE(Start());
    EXPECT_EQ(GetCapturedStderr(),
              "chkpt: " + File() + " has an invalid sequence of object ids: it continues at 1001\n");
    Put("key2", "new");
    CaptureStderr();
    EXPECT_TRUE(Restart());
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", "new"})) << sequence;
    EXPECT_EQ(Map("key2"), 1002U);
  }
}

TEST_F(CheckpointDamageTest, RecordWithTheLastPossibleIdIsQuarantined) {
  MakeDatabase();
  Sql("INSERT INTO record SELECT 9223372036854775807, application, table_id, x'6b657932', data, "
      "row_checksum(9223372036854775807, application, table_id, x'6b657932', data) FROM record");
  EXPECT_TRUE(Start());
  Put("key3", "new");
  EXPECT_TRUE(Restart());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key3", "new"}));
}

TEST_F(CheckpointDamageTest, LogWithoutItsDatabaseIsSetAside) {
  Start();
  Put("key1", "one");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  const std::string log = ReadFile(Log());
  UseStateDirectory(directory.path() + "/missing");
  std::filesystem::create_directory(state);
  WriteFile(Log(), log);
  ExpectSetAside("its write-ahead log exists without it");
  UseStateDirectory(directory.path() + "/empty");
  std::filesystem::create_directory(state);
  WriteFile(Log(), log);
  WriteFile(File(), "");
  ExpectSetAside("its write-ahead log exists without it");
}

TEST_F(CheckpointDamageTest, EmptyFileIsANewDatabase) {
  WriteFile(File(), "");
  EXPECT_FALSE(Start());
  EXPECT_FALSE(Exists(Aside()));
}

}  // namespace
