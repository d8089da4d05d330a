// Databases and directories that cannot be used: in use, not writable, a full disk.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/core/chkpt/damage_test_support.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST_F(CheckpointDamageTest, DatabaseInUseIsRefusedAndLeftAlone) {
  MakeDatabase();
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(File().c_str(), &raw), SQLITE_OK);
  sqlite::Connection other(raw);
  ASSERT_EQ(sqlite::run(raw, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE"), SQLITE_OK);
  sqlite::busy_timeout = std::chrono::milliseconds(1);
  CaptureStderr();
  EXPECT_EQ(chkpt_init(&application, manager), static_cast<Status>(EBUSY));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr(File() + ": another process has it locked"));
  other.reset();
  EXPECT_FALSE(Exists(Aside()));
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

TEST_F(CheckpointDamageTest, SecondProcessIsRefusedWhileTheFirstRuns) {
  Start();
  Put("key1", "one");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(File().c_str(), &raw), SQLITE_OK);
  const sqlite::Connection other(raw);
  EXPECT_EQ(sqlite::run(raw, "SELECT * FROM record"), SQLITE_BUSY);
}

// --- Directories

TEST_F(CheckpointDamageTest, StateDirectoryIsMade) {
  UseStateDirectory(directory.path() + "/state");
  EXPECT_FALSE(Start());
  EXPECT_TRUE(Exists(File()));
}

TEST_F(CheckpointDamageTest, StateDirectoryThatCannotBeCreatedIsAnError) {
  UseStateDirectory(directory.path() + "/no/such");
  CaptureStderr();
  EXPECT_EQ(chkpt_init(&application, manager), static_cast<Status>(ENOENT));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("No such file or directory"));
  UseStateDirectory(directory.path() + "/file/state");
  WriteFile(directory.path() + "/file", "");
  EXPECT_EQ(chkpt_init(&application, manager), static_cast<Status>(ENOTDIR));
}

TEST_F(CheckpointDamageTest, UnwritableDirectoryIsAnError) {
  ASSERT_EQ(chmod(state.c_str(), 0555), 0);
  EXPECT_EQ(InitUnprivileged(), kStatusAccess);
  ASSERT_EQ(chmod(state.c_str(), 0755), 0);
  EXPECT_FALSE(Exists(File()));
}

TEST_F(CheckpointDamageTest, UnwritableDatabaseIsAnErrorAndLeftAlone) {
  MakeDatabase();
  const std::string file = ReadFile(File());
  ASSERT_EQ(chmod(File().c_str(), 0444), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(state.c_str(), kUnprivileged, kUnprivileged), 0);
  }
  EXPECT_EQ(InitUnprivileged(), kStatusAccess);
  ASSERT_EQ(chown(state.c_str(), geteuid(), getegid()), 0);
  EXPECT_EQ(ReadFile(File()), file);
  EXPECT_FALSE(Exists(Aside()));
}

TEST_F(CheckpointDamageTest, UnusableDatabaseThatCannotBeSetAsideIsAnErrorAndLeftAlone) {
  WriteFile(File(), "precious");
  ASSERT_EQ(chmod(File().c_str(), 0666), 0);
  ASSERT_EQ(chmod(state.c_str(), 0555), 0);
  EXPECT_EQ(InitUnprivileged(), kStatusAccess);
  ASSERT_EQ(chmod(state.c_str(), 0755), 0);
  EXPECT_EQ(ReadFile(File()), "precious");
}

TEST_F(CheckpointDamageTest, FullDiskIsAnErrorOfTheStart) {
  {
    const FileSizeLimit limit(2000);
    EXPECT_NE(chkpt_init(&application, manager), kStatusOk);
  }
  EXPECT_FALSE(Exists(Aside()));
  EXPECT_FALSE(Start());
}

TEST_F(CheckpointDamageTest, FullDiskUnderAGoodDatabaseIsAnErrorOfTheStartAndKeepsIt) {
  MakeDatabase();
  {
    const FileSizeLimit limit(100);
    EXPECT_NE(chkpt_init(&application, manager), kStatusOk);
  }
  EXPECT_FALSE(Exists(Aside()));
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

}  // namespace
