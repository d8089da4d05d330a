// For tests of damaged databases.
#pragma once

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/core/chkpt/test_checkpoint.h"

inline constexpr uid_t kUnprivileged = 65534;

class CheckpointDamageTest : public CheckpointTest {
 protected:
  // A closed database with one record.
  void MakeDatabase() {
    Start();
    Put("key1", "one");
    chkpt_end();
  }
  // Starts on what is there, which must be set aside as it was, with a reason.
  void ExpectSetAside(const char* reason) {
    const std::string file = ReadFile(File());
    const std::string log = ReadFile(Log());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Start());
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, testing::HasSubstr(reason));
    EXPECT_THAT(text, testing::HasSubstr("it is set aside as " + Aside()));
    EXPECT_THAT(Rows(), testing::IsEmpty());
    EXPECT_EQ(ReadFile(Aside()), file);
    EXPECT_EQ(ReadFile(Aside() + "-wal"), log);
    Put("key1", "new");
    EXPECT_TRUE(Restart());
    EXPECT_THAT(Rows(), testing::ElementsAre(Row{"key1", "new"}));
  }
  // Starts on what is there, which must be set aside, with the records that it had.
  void ExpectSalvaged(const std::vector<Row>& rows, const char* reason) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Start());
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, testing::HasSubstr(File() + " is damaged (" + reason));
    EXPECT_THAT(log, testing::HasSubstr(" and is set aside as " + Aside() + "; starting with the " +
                                        std::to_string(rows.size()) + " records that can be read\n"));
    EXPECT_EQ(Rows(), rows);
    EXPECT_FALSE(Exists(File() + ".copy"));
    EXPECT_FALSE(Exists(File() + ".copy-wal"));
  }
  // The second of three records is invalid after the SQL.
  void ExpectQuarantined(const std::string& sql) {
    UseStateDirectory(directory.path() + "/" + std::to_string(std::hash<std::string>{}(sql)));
    Start();
    for (const char* key : {"key1", "key2", "key3"}) Put(key, "old");
    chkpt_end();
    Sql(sql.c_str());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Start());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("1 records are invalid, the first is "));
    const sqlite::Quarantine expected{1, "quarantine_record"};
    EXPECT_EQ(chkpt_quarantine(), expected);
    EXPECT_FALSE(Exists(Aside()));
    EXPECT_THAT(Rows(), testing::ElementsAre(Row{"key1", "old"}, Row{"key3", "old"})) << sql;
    Put("key2", "new");
    EXPECT_EQ(Map("key2"), 4U);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Restart());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(chkpt_quarantine(), expected);
    EXPECT_THAT(Rows(), testing::ElementsAre(Row{"key1", "old"}, Row{"key3", "old"}, Row{"key2", "new"}));
    chkpt_end();
    Sql("CREATE TABLE expected(rows CHECK(rows = 1)); INSERT INTO expected SELECT count(*) FROM "
        "quarantine_record");
  }
  // chkpt_init's status in a process that is subject to permissions.
  Status InitUnprivileged() {
    const pid_t child = fork();
    if (child == 0) {
      if (geteuid() == 0 && setresuid(kUnprivileged, kUnprivileged, kUnprivileged) != 0) _exit(255);
      _exit(static_cast<int>(chkpt_init(&application, manager)));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return static_cast<Status>(WEXITSTATUS(status));
  }
};
