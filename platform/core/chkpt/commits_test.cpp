// Tests of commits that are written while the event loop continues.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/chkpt/test_blocked_disk.h"
#include "platform/core/chkpt/test_checkpoint.h"
#include "platform/core/wire/wire.h"

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class CheckpointCommits : public CheckpointTest {
 protected:
  CheckpointCommits() { Start(); }
  ~CheckpointCommits() override { chkpt_on_commit(nullptr); }

  std::uint64_t Flush() const {
    const std::uint64_t number = chkpt_begin_flush();
    EXPECT_GT(number, chkpt_committed());
    Await(number);
    return number;
  }
  // The number of the commit of this record, which waits for the disk now.
  std::uint64_t CommitOf(const std::string& key, const std::string& data, BlockedDisk& disk) {
    Put(key, data);
    const std::uint64_t number = chkpt_begin_flush();
    disk.await_write();
    return number;
  }
  // The rows on the disk, as another process finds them now.
  std::vector<Row> Stored() const {
    const std::string copy = directory.path() + "/copy.db";
    WriteFile(copy, ReadFile(File()));
    WriteFile(copy + "-wal", ReadFile(Log()));
    sqlite3* raw = nullptr;
    EXPECT_EQ(sqlite3_open(copy.c_str(), &raw), SQLITE_OK);
    const sqlite::Connection connection(raw);
    sqlite::Statement query(raw, "SELECT key, data FROM record ORDER BY object_id");
    std::vector<Row> rows;
    while (query.step() == SQLITE_ROW) rows.push_back({query.octets(0), query.octets(1)});
    return rows;
  }
};

TEST_F(CheckpointCommits, LoopServesTimersWhileACommitWaitsForTheDisk) {
  BlockedDisk disk;
  Put("key1", "one");
  int served = 0;
  const std::function<void()> serve = [&] {
    if (++served < 100) event_timer_start(manager, 0, serve);
  };
  event_timer_start(manager, 0, serve);
  const auto start = std::chrono::steady_clock::now();
  while (served < 100) event_run_pending(manager);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  disk.release();
  EXPECT_EQ(chkpt_flush(), kStatusOk);
}

TEST_F(CheckpointCommits, ChangesDuringACommitAreInTheNextOne) {
  BlockedDisk disk;
  const std::uint64_t first = CommitOf("key1", "one", disk);
  EXPECT_EQ(chkpt_begin_flush(), first) << "nothing else has changed";
  Put("key2", "two");
  const std::uint64_t second = chkpt_begin_flush();
  EXPECT_EQ(second, first + 1);
  Put("key3", "three");
  EXPECT_EQ(chkpt_begin_flush(), second);
  EXPECT_LT(chkpt_committed(), first);
  disk.release();
  Await(first);
  EXPECT_EQ(Stored().front(), (Row{"key1", "one"}));
  Await(second);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "one"}, Row{"key2", "two"}, Row{"key3", "three"}));
  EXPECT_EQ(chkpt_begin_flush(), 0U);
}

TEST_F(CheckpointCommits, ChangesOfAContinuousFloodShareCommits) {
  const std::size_t before = CommitsInLog();
  BlockedDisk disk;
  for (int i = 0; i < 100; ++i) {
    Put("key1", std::to_string(i));
    event_run_pending(manager);
  }
  disk.release();
  Await(chkpt_begin_flush());
  EXPECT_EQ(CommitsInLog(), before + 2);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "99"}));
}

TEST_F(CheckpointCommits, RecordCreatedInACommitAndDeletedBeforeItsEndLeavesNoRow) {
  BlockedDisk disk;
  ASSERT_NE(CommitOf("key1", "one", disk), 0U);
  ASSERT_EQ(chkpt_delete(table, Map("key1")), kStatusOk);
  Put("key1", "again");
  const std::uint64_t second = chkpt_begin_flush();
  disk.release();
  Await(second);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "again"}));
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "again"}));
}

TEST_F(CheckpointCommits, RecordThatChangesDuringItsCommitHasTheLastData) {
  BlockedDisk disk;
  ASSERT_NE(CommitOf("key1", "one", disk), 0U);
  Put("key1", "two");
  const std::uint64_t second = chkpt_begin_flush();
  disk.release();
  Await(second);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "two"}));
}

TEST_F(CheckpointCommits, FailedCommitReturnsWhatDidNotChangeAgain) {
  ManualClock clock(1000);
  Put("key0", "zero");
  Put("key1", "one");
  Flush();
  ASSERT_EQ(chkpt_delete(table, Map("key0")), kStatusOk);
  Put("key1", "changed");
  Put("key2", "created");
  Put("key3", "created and deleted");
  fault_arm("chkpt_flush", ENOSPC);
  CaptureStderr();
  const std::uint64_t failing = chkpt_begin_flush();
  ASSERT_EQ(chkpt_delete(table, Map("key3")), kStatusOk) << "the failure is not known yet";
  Put("key1", "changed again");
  const std::uint64_t next = chkpt_begin_flush();
  EXPECT_EQ(next, failing + 1);
  Await(next);
  EXPECT_THAT(GetCapturedStderr(),
              AllOf(HasSubstr("/checkpoint.db: "),
                    HasSubstr("cannot be written and are retained: No space left on device")));
  EXPECT_EQ(chkpt_failure(), static_cast<Status>(ENOSPC));
  EXPECT_EQ(chkpt_begin_flush(), 0U) << "output does not wait for a disk that fails";
  std::uint64_t object_id = 0;
  EXPECT_EQ(chkpt_create(table, "key4", 4, &object_id), static_cast<Status>(ENOSPC));
  const std::uint64_t failed = chkpt_committed();
  clock.advance(kNanosecondsPerSecond);
  Await(failed + 1);
  EXPECT_EQ(chkpt_failure(), kStatusOk);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "changed again"}, Row{"key2", "created"}));
  Restart();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "changed again"}, Row{"key2", "created"}));
}

TEST_F(CheckpointCommits, CommitThatWaitsForTheDiskForASecondIsLogged) {
  ManualClock clock(1000);
  BlockedDisk disk;
  const std::uint64_t number = CommitOf("key1", "one", disk);
  CaptureStderr();
  clock.advance(kNanosecondsPerSecond);
  event_run_pending(manager);
  EXPECT_THAT(GetCapturedStderr(), HasSubstr(File() + ": the disk has not written a commit after a second"));
  disk.release();
  Await(number);
  CaptureStderr();
  Put("key1", "two");
  Flush();
  clock.advance(2 * kNanosecondsPerSecond);
  event_run_pending(manager);
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(CheckpointCommits, FlushWaitsForTheCommitThatIsWritten) {
  BlockedDisk disk;
  Put("key1", "one");
  const std::uint64_t first = chkpt_begin_flush();
  Put("key2", "two");
  disk.await_write();
  disk.release();
  EXPECT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_GE(chkpt_committed(), first);
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "one"}, Row{"key2", "two"}));
}

TEST_F(CheckpointCommits, EndDuringACommitLosesNothing) {
  {
    BlockedDisk disk;
    Put("key1", "one");
    ASSERT_NE(chkpt_begin_flush(), 0U);
    Put("key2", "two");
    disk.await_write();
    disk.release();
    chkpt_end();
  }
  EXPECT_EQ(chkpt_begin_flush(), 0U);
  Start();
  EXPECT_THAT(Rows(), ElementsAre(Row{"key1", "one"}, Row{"key2", "two"}));
}

TEST_F(CheckpointCommits, NumbersIncreaseOverStores) {
  Put("key1", "one");
  const std::uint64_t first = Flush();
  Restart();
  Put("key1", "two");
  EXPECT_GT(Flush(), first);
}

TEST_F(CheckpointCommits, EachEndIsAnnounced) {
  std::vector<std::uint64_t> ended;
  chkpt_on_commit([&](std::uint64_t number) { ended.push_back(number); });
  Put("key1", "one");
  const std::uint64_t first = Flush();
  Put("key1", "two");
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_THAT(ended, ElementsAre(first, first + 1));
}

TEST_F(CheckpointCommits, PreparedWriteIsMadeOnceBeforeTheNextCommit) {
  std::vector<Row> stored{{"nothing", ""}};
  int prepared = 0;
  const auto prepare = [&] {
    ++prepared;
    EXPECT_EQ(Map("key2"), 0U) << "when the commit begins";
    return [&] { stored = Stored(); };
  };
  Put("key1", "one");
  ASSERT_TRUE(chkpt_before_commit(prepare));
  EXPECT_EQ(prepared, 0);
  Flush();
  EXPECT_EQ(prepared, 1);
  EXPECT_THAT(stored, ::testing::IsEmpty()) << "the commit had not begun";
  Put("key2", "two");
  Flush();
  EXPECT_EQ(prepared, 1);
}

TEST_F(CheckpointCommits, PreparedWriteNeedsNoOtherChange) {
  bool written = false;
  ASSERT_TRUE(chkpt_before_commit([&] { return [&] { written = true; }; }));
  Flush();
  EXPECT_TRUE(written);
  ASSERT_TRUE(chkpt_before_commit([] { return std::function<void()>(); })) << "or none at all";
  Flush();
}

TEST_F(CheckpointCommits, NothingIsPreparedWithoutAStore) {
  chkpt_end();
  EXPECT_FALSE(chkpt_before_commit([]() -> std::function<void()> { throw std::logic_error("no store"); }));
}

// --- Output

class CheckpointOutput : public CheckpointCommits {
 protected:
  CheckpointOutput() {
    chkpt_gate_output();
    server = std::make_unique<wire::Server>(manager, "echo", wire::Limits{},
                                            [](wire::Connection& from, const wire::Message& message) {
                                              from.send(message.type, message.request, message.payload);
                                              return true;
                                            });
  }
  ~CheckpointOutput() override {
    wire::set_output_gate(nullptr);
    server.reset();
    for (const int client : clients) close(client);
  }
  int Connect() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends), 0);
    server->adopt(ends[1]);
    clients.push_back(ends[0]);
    return ends[0];
  }
  void Request(int client) const {
    wire::Octets frame;
    wire::finish_frame(&frame, wire::begin_frame(&frame, 7, 1));
    ASSERT_EQ(write(client, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    event_run_pending(manager);
  }
  static bool HasAnswer(int client) {
    char octets[wire::kHeaderSize];
    return read(client, octets, sizeof octets) == static_cast<ssize_t>(sizeof octets);
  }

  std::unique_ptr<wire::Server> server;
  std::vector<int> clients;
};

TEST_F(CheckpointOutput, AnswerAfterAChangeLeavesWhenTheChangeIsStored) {
  const int before = Connect();
  const int after = Connect();
  Request(before);
  EXPECT_TRUE(HasAnswer(before));
  BlockedDisk disk;
  Put("key1", "one");
  Request(after);
  disk.await_write();
  EXPECT_FALSE(HasAnswer(after));
  disk.release();
  Await(chkpt_begin_flush());
  event_run_pending(manager);
  EXPECT_TRUE(HasAnswer(after));
  EXPECT_THAT(Stored(), ElementsAre(Row{"key1", "one"}));
}

TEST_F(CheckpointOutput, AnswersLeaveUnderContinuousChanges) {
  const int client = Connect();
  for (int i = 0; i < 50; ++i) {
    Put("key1", std::to_string(i));
    Request(client);
    const std::uint64_t waits_for = chkpt_begin_flush();
    while (chkpt_committed() < waits_for) {
      Put("key1", std::to_string(i) + " and later");
      event_run_pending(manager, 1'000'000);
    }
    EXPECT_TRUE(HasAnswer(client)) << i;
  }
}

TEST_F(CheckpointOutput, AnswersLeaveWhenTheDiskFails) {
  ManualClock clock(1000);
  const int client = Connect();
  fault_arm("chkpt_flush", ENOSPC, 1, 0);
  const std::uint64_t number = chkpt_committed() + 1;
  Put("key1", "one");
  CaptureStderr();
  Request(client);
  Await(number);
  EXPECT_TRUE(HasAnswer(client));
  Request(client);
  EXPECT_TRUE(HasAnswer(client));
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("retained"));
}

}  // namespace
