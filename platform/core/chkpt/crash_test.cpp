// What is found of a database that was cut, and of one whose process died.
//
// The tests open copies whose log or file is cut at every boundary. Power cuts at any operation: tests/power.
// Death is real: a child writes, reports each commit, and is killed at some moment.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "platform/core/chkpt/test_checkpoint.h"

namespace {

using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

class CheckpointCrashTest : public CheckpointTest {
 protected:
  static constexpr std::size_t kFolded = 20;  // commits that are in the file
  static constexpr std::size_t kLogged = 25;  // commits that are in the log

  static Row Nth(std::size_t n) {
    const std::string number = std::to_string(100000 + n);
    return {number, number + std::string(500, 'd')};
  }
  void CommitNth(std::size_t n) {
    Put(Nth(n).key, Nth(n).data);
    ASSERT_EQ(chkpt_flush(), kStatusOk);
  }
  // File and log with one record a commit; log_sizes are those after each commit of the log.
  void MakeHistory() {
    Start();
    for (std::size_t n = 0; n < kFolded; ++n) CommitNth(n);
    Restart();
    for (std::size_t n = kFolded; n < kFolded + kLogged; ++n) {
      CommitNth(n);
      log_sizes.push_back(std::filesystem::file_size(Log()));
    }
    file = ReadFile(File());
    log = ReadFile(Log());
  }
  void StartWith(const std::string& file_octets, const std::string& log_octets) {
    UseStateDirectory(directory.path() + "/" + std::to_string(++copies));
    std::filesystem::create_directory(state);
    WriteFile(File(), file_octets);
    if (!log_octets.empty()) WriteFile(Log(), log_octets);
    had_contents = Start();
  }
  static std::vector<Row> FirstRows(std::size_t count) {
    std::vector<Row> rows;
    for (std::size_t n = 0; n < count; ++n) rows.push_back(Nth(n));
    return rows;
  }
  void ExpectCut(std::size_t cut) {
    StartWith(file, log.substr(0, cut));
    std::size_t commits = kFolded;
    for (const std::size_t size : log_sizes) commits += size <= cut ? 1 : 0;
    EXPECT_TRUE(had_contents);
    EXPECT_EQ(Rows(), FirstRows(commits)) << "log cut at " << cut;
    EXPECT_FALSE(Exists(Aside()));
  }
  // Either the first commits, not fewer than the file had, or set aside as it was, and what can be read is
  // used.
  void ExpectPrefixOrSetAside(const std::string& file_octets, const std::string& log_octets) {
    StartWith(file_octets, log_octets);
    if (Exists(Aside()) || Exists(Aside() + "-wal")) {
      ++set_aside;
      EXPECT_THAT(FirstRows(kFolded + kLogged), IsSupersetOf(Rows()));
      EXPECT_EQ(ReadFile(Aside()), file_octets);
      EXPECT_EQ(ReadFile(Aside() + "-wal"), log_octets);
      return;
    }
    const std::vector<Row> rows = Rows();
    EXPECT_TRUE(had_contents);
    EXPECT_GE(rows.size(), kFolded);
    EXPECT_EQ(rows, FirstRows(rows.size()));
  }

  std::string file;
  std::string log;
  std::vector<std::size_t> log_sizes;
  int copies = 0;
  int set_aside = 0;
  bool had_contents = false;
};

TEST_F(CheckpointCrashTest, LogCutAtEveryFrameAndWithinItKeepsTheCommitsBeforeTheCut) {
  MakeHistory();
  ASSERT_EQ(log.size(), log_sizes.back());
  ASSERT_EQ((log.size() - kLogHeader) % kFrame, 0U);
  ExpectCut(1);
  ExpectCut(kLogHeader - 1);
  for (std::size_t cut = kLogHeader; cut < log.size(); cut += kFrame) {
    ExpectCut(cut);
    ExpectCut(cut + kFrame / 2);
  }
  ExpectCut(log.size());
}

TEST_F(CheckpointCrashTest, LogDamagedInEveryFrameKeepsTheCommitsBeforeIt) {
  MakeHistory();
  for (std::size_t frame = kLogHeader; frame < log.size(); frame += kFrame) {
    std::string bad = log;
    bad[frame + kFrame / 2] = static_cast<char>(~bad[frame + kFrame / 2]);
    StartWith(file, bad);
    std::size_t commits = kFolded;
    for (const std::size_t size : log_sizes) commits += size <= frame ? 1 : 0;
    EXPECT_EQ(Rows(), FirstRows(commits)) << "frame at " << frame;
  }
}

TEST_F(CheckpointCrashTest, FileCutAtEveryPageOpensOrIsSetAside) {
  MakeHistory();
  ASSERT_GE(file.size(), 6 * kPage);
  for (std::size_t cut = kPage; cut < file.size(); cut += kPage) {
    ExpectPrefixOrSetAside(file.substr(0, cut), {});
    ExpectPrefixOrSetAside(file.substr(0, cut), log);
    ExpectPrefixOrSetAside(file.substr(0, cut - kPage / 2), {});
    ExpectPrefixOrSetAside(file.substr(0, cut - kPage / 2), log);
  }
  ExpectPrefixOrSetAside({}, log);
  EXPECT_GT(set_aside, 0);
  ExpectPrefixOrSetAside(file, log);
  EXPECT_EQ(Rows(), FirstRows(kFolded + kLogged));
}

// The first start is cut too: what it leaves is a new database again, or one with the table.
TEST_F(CheckpointCrashTest, FirstStartThatIsInterruptedAnywhereIsRepeated) {
  Start();
  const std::string first_file = ReadFile(File());
  const std::string first_log = ReadFile(Log());
  for (std::size_t cut = 0; cut <= first_log.size(); cut += kFrame / 4) {
    StartWith(first_file, first_log.substr(0, cut));
    EXPECT_FALSE(Exists(Aside()));
    EXPECT_THAT(Rows(), IsEmpty());
    CommitNth(0);
    EXPECT_TRUE(Restart());
    EXPECT_EQ(Rows(), FirstRows(1));
  }
}

// --- Death of the process

class CheckpointKillTest : public CheckpointCrashTest {
 protected:
  // The child: continues after the stored records, one record per commit, and reports each number once it is
  // committed.
  [[noreturn]] void WriteForEver(int report_fd) {
    Start();
    for (auto n = static_cast<std::uint32_t>(Rows().size());; ++n) {
      Put(Nth(n).key, Nth(n).data);
      if (chkpt_flush() != kStatusOk) _exit(1);
      if (write(report_fd, &n, sizeof n) != static_cast<ssize_t>(sizeof n)) _exit(1);
    }
  }
  // Kills the child after it has reported `after` numbers; returns how many commits it reported in all.
  std::size_t RunAndKill(unsigned after) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) WriteForEver(ends[1]);
    close(ends[1]);
    std::uint32_t last = 0;
    unsigned reported = 0;
    while (read(ends[0], &last, sizeof last) == static_cast<ssize_t>(sizeof last)) {
      if (++reported == after) kill(child, SIGKILL);
    }
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    EXPECT_GE(reported, after);
    return last + 1;
  }
};

TEST_F(CheckpointKillTest, CommitsReportedBeforeTheKillAreStored) {
  std::mt19937 random(6);
  std::size_t before = 0;
  for (int round = 0; round < 12; ++round) {
    const std::size_t reported = RunAndKill(1 + static_cast<unsigned>(random() % 120));
    EXPECT_GT(reported, before);
    EXPECT_TRUE(Start());
    const std::vector<Row> rows = Rows();
    EXPECT_GE(rows.size(), reported);
    EXPECT_EQ(rows, FirstRows(rows.size()));
    EXPECT_FALSE(Exists(Aside()));
    before = rows.size();
    chkpt_end();
  }
}

}  // namespace
