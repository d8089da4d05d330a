// When changes are written, and what is retained when they cannot be.
#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

#include "platform/core/base/clock.h"
#include "platform/core/base/test_fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST_F(CheckpointTest, FlushCommitsAtOnceAndOnlyWhatIsNew) {
  Start();
  const std::size_t before = CommitsInLog();
  Put("key1", "one");
  EXPECT_EQ(CommitsInLog(), before);
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_EQ(CommitsInLog(), before + 1);
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_EQ(CommitsInLog(), before + 1);
}

TEST_F(CheckpointTest, ChangesOfOneIterationShareATransactionThatTheStoreCommitsItself) {
  Start();
  const std::size_t before = CommitsInLog();
  for (int i = 0; i < 10; ++i) Put("key" + std::to_string(i), "one");
  const std::uint64_t first = chkpt_committed() + 1;
  Await(first);
  EXPECT_EQ(CommitsInLog(), before + 1);
  Put("key1", "two");
  Await(first + 1);
  EXPECT_EQ(CommitsInLog(), before + 2);
}

TEST_F(CheckpointTest, FlushThatWasPostedDoesNothingAfterTheEnd) {
  Start();
  Put("key1", "one");
  chkpt_end();
  event_run_pending(manager);
  EXPECT_TRUE(Start());
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

TEST_F(CheckpointTest, EndLeavesTheFileWithoutALog) {
  Start();
  Put("key1", "one");
  chkpt_end();
  EXPECT_TRUE(Exists(File()));
  EXPECT_FALSE(Exists(Log()));
}

TEST_F(CheckpointTest, WithoutAStoreThereIsNothingToFlushOrEnd) {
  EXPECT_EQ(chkpt_flush(), kStatusOk);
  chkpt_end();
  EXPECT_FALSE(Exists(File()));
}

// --- Failures

TEST_F(CheckpointTest, ChangesThatCannotBeWrittenAreRetainedAndWrittenLater) {
  ManualClock clock(1000);
  Start();
  Put("key1", "one");
  Put("key2", "two");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  fault_arm("chkpt_flush", ENOSPC, 1, 2);
  Put("key1", "changed");
  CaptureStderr();
  EXPECT_EQ(chkpt_flush(), static_cast<Status>(ENOSPC));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("No space left on device"));
  // Later operations return the failure; a save and a delete are still retained.
  EXPECT_EQ(Save(Map("key1"), "again"), static_cast<Status>(ENOSPC));
  EXPECT_EQ(chkpt_delete(table, Map("key2")), static_cast<Status>(ENOSPC));
  std::uint64_t object_id = 0;
  EXPECT_EQ(chkpt_create(table, "key3", 4, &object_id), static_cast<Status>(ENOSPC));
  EXPECT_EQ(chkpt_flush(), static_cast<Status>(ENOSPC));
  EXPECT_EQ(fault_reached("chkpt_flush"), 1U);  // no write is tried before its time
  const std::uint64_t failed = chkpt_committed();
  clock.advance(kNanosecondsPerSecond);
  Await(failed + 1);
  EXPECT_EQ(fault_reached("chkpt_flush"), 2U);
  EXPECT_EQ(chkpt_flush(), static_cast<Status>(ENOSPC));
  const std::uint64_t failed_again = chkpt_committed();
  clock.advance(kNanosecondsPerSecond);
  Await(failed_again + 1);
  EXPECT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_EQ(Save(Map("key1"), "last"), kStatusOk);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "last"}));
}

TEST_F(CheckpointTest, TemporarilyFullDiskLosesNothing) {
  ManualClock clock(1000);
  Start();
  Put("key1", "one");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  {
    const FileSizeLimit limit(static_cast<rlim_t>(std::filesystem::file_size(Log())) + 100);
    Put("key1", "two");
    Put("key2", std::string(2000, 'x'));
    EXPECT_NE(chkpt_flush(), kStatusOk);
    EXPECT_NE(Save(Map("key1"), "three"), kStatusOk);
    const std::uint64_t failed = chkpt_committed();
    clock.advance(kNanosecondsPerSecond);
    Await(failed + 1);
    EXPECT_NE(chkpt_flush(), kStatusOk);
  }
  const std::uint64_t failed = chkpt_committed();
  clock.advance(kNanosecondsPerSecond);
  Await(failed + 1);
  EXPECT_EQ(chkpt_flush(), kStatusOk);
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "three"}, Row{"key2", std::string(2000, 'x')}));
}

TEST_F(CheckpointTest, EndReportsTheLoss) {
  Start();
  Put("key1", "one");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  Put("key1", "two");
  fault_arm("chkpt_flush", kStatusIo);
  CaptureStderr();
  chkpt_end();
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("1 changes are lost"));
  Start();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}));
}

}  // namespace
