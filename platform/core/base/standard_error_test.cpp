// Lines on standard error when its reader is slow, blocked or closed: pipes, sockets, terminals, files.
#include "platform/core/base/standard_error.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/core/base/assertion.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/temporary_directory.h"

namespace {

constexpr int kPipeSize = 4 * 4096;  // octets
constexpr int kManyLines = 100'000;  // more than any of the files takes

class StandardError : public testing::Test {
 protected:
  void SetUp() override {
    saved_ = dup(STDERR_FILENO);
    ASSERT_GE(saved_, 0);
    WriteToNull();
  }
  void TearDown() override {
    fault_disarm_all();
    WriteToNull();
    ASSERT_EQ(dup2(saved_, STDERR_FILENO), STDERR_FILENO);
    close(saved_);
    StopReading();
  }
  // Makes standard error take everything; the first line reports and clears the count of lost lines.
  static void WriteToNull() {
    Become(open("/dev/null", O_WRONLY | O_CLOEXEC));
    write_error_line("");
    write_error_line("");
    ASSERT_EQ(lost_error_lines(), 0U);
  }
  static void Become(int fd) {
    ASSERT_GE(fd, 0);
    if (fd == STDERR_FILENO) return;  // it was closed
    ASSERT_EQ(dup2(fd, STDERR_FILENO), STDERR_FILENO);
    close(fd);
  }
  void WriteToPipe() {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_GE(fcntl(ends[0], F_SETPIPE_SZ, kPipeSize), kPipeSize);
    Become(ends[1]);
    Read(ends[0]);
  }
  void WriteToSocket() {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Become(ends[1]);
    Read(ends[0]);
  }
  void WriteToTerminal() {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    termios modes{};
    ASSERT_EQ(tcgetattr(terminal, &modes), 0);
    cfmakeraw(&modes);
    ASSERT_EQ(tcsetattr(terminal, TCSANOW, &modes), 0);
    Become(terminal);
    Read(master);
  }
  void Read(int fd) {
    StopReading();
    reader_ = fd;
  }
  void StopReading() {
    if (reader_ >= 0) close(reader_);
    reader_ = -1;
  }
  // What the reader has received. A terminal passes its octets on with a short delay.
  std::string Received() const {
    std::string all;
    pollfd wanted = {reader_, POLLIN, 0};
    while (poll(&wanted, 1, 100) == 1 && (wanted.revents & POLLIN) != 0) {
      char octets[4096];
      const ssize_t got = read(reader_, octets, sizeof octets);
      if (got <= 0) break;
      all.append(octets, static_cast<std::size_t>(got));
    }
    return all;
  }
  // Writes numbered lines until one is lost, and two more. How many were written.
  static int WriteUntilLost() {
    for (int line = 0; line < kManyLines; ++line) {
      write_error_line("line " + std::to_string(line));
      if (lost_error_lines() == 0) continue;
      write_error_line("lost");
      write_error_line("lost as well");
      return line;
    }
    ADD_FAILURE() << "nothing was lost";
    return kManyLines;
  }
  static std::string Numbered(int lines) {
    std::string text;
    for (int line = 0; line < lines; ++line) text += "line " + std::to_string(line) + "\n";
    return text;
  }
  // Once the reader has read, the next line is preceded by the count of lost lines.
  void ExpectRecoveryAfterReading() {
    const int written = WriteUntilLost();
    EXPECT_EQ(lost_error_lines(), 3U);
    EXPECT_EQ(Received(), Numbered(written));
    write_error_line("next");
    EXPECT_EQ(lost_error_lines(), 0U);
    EXPECT_EQ(Received(), "standard error: 3 lines were lost\nnext\n");
    EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0) << "others share the descriptor";
  }

 private:
  int saved_ = -1;
  int reader_ = -1;
};

TEST_F(StandardError, LineIsWrittenWithItsBreak) {
  WriteToPipe();
  write_error_line("one");
  write_error_line("");
  EXPECT_EQ(Received(), "one\n\n");
}

TEST_F(StandardError, FullPipeLosesLinesAndReportsHowMany) {
  WriteToPipe();
  ExpectRecoveryAfterReading();
}

TEST_F(StandardError, FullSocketLosesLinesAndReportsHowMany) {
  WriteToSocket();
  ExpectRecoveryAfterReading();
}

// A terminal takes as much of a line as it has room for.
TEST_F(StandardError, FullTerminalLosesLinesAndReportsHowMany) {
  WriteToTerminal();
  const int written = WriteUntilLost();
  EXPECT_GE(lost_error_lines(), 3U);
  const std::string received = Received();
  const std::string whole = Numbered(written);
  ASSERT_EQ(received.substr(0, whole.size()), whole);
  const std::string broken = received.substr(whole.size());
  EXPECT_LT(broken.size(), std::string("line 12345\n").size() + 1);
  write_error_line("next");
  const bool on_a_line_of_its_own = broken.empty() || broken.back() == '\n';
  EXPECT_EQ(Received(),
            std::string(on_a_line_of_its_own ? "" : "\n") + "standard error: 3 lines were lost\nnext\n");
  EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(StandardError, OneLostLineIsReportedInTheSingular) {
  WriteToPipe();
  StopReading();
  write_error_line("lost");
  WriteToPipe();
  write_error_line("next");
  EXPECT_EQ(Received(), "standard error: 1 line was lost\nnext\n");
}

// Without a signal, whose default would end the process.
TEST_F(StandardError, ClosedReaderDoesNotEndTheProcess) {
  WriteToPipe();
  StopReading();
  write_error_line("without a reader");
  EXPECT_EQ(lost_error_lines(), 1U);
  WriteToSocket();
  StopReading();
  write_error_line("nor this");
  EXPECT_EQ(lost_error_lines(), 2U);
  WriteToTerminal();
  StopReading();
  write_error_line("nor that");
  EXPECT_EQ(lost_error_lines(), 3U);
}

TEST_F(StandardError, ClosedStandardErrorLosesLines) {
  ASSERT_EQ(close(STDERR_FILENO), 0);
  errno = EINTR;
  write_error_line("lost");
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(lost_error_lines(), 1U);
}

TEST_F(StandardError, LongLineIsCutToWhatAPipeTakesAtOnce) {
  WriteToPipe();
  write_error_line(std::string(3 * PIPE_BUF, 'x'));
  EXPECT_EQ(Received(), std::string(PIPE_BUF - 1, 'x') + "\n");
}

TEST_F(StandardError, FileIsWrittenFromItsCurrentOffset) {
  const TemporaryDirectory directory;
  const int file = open((directory.path() + "/file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  Read(dup(file));
  Become(file);
  write_error_line("one");
  write_error_line("two");
  ASSERT_EQ(lseek(STDERR_FILENO, 0, SEEK_SET), 0);
  char text[16] = {};
  EXPECT_EQ(read(STDERR_FILENO, text, sizeof text), 8);
  EXPECT_STREQ(text, "one\ntwo\n");
}

TEST_F(StandardError, PipeThatCannotBeReopenedIsWrittenToWhileItHasRoom) {
  const ScopedFault fault("standard_error_open", kStatusAccess, 1, 0);
  WriteToPipe();
  ExpectRecoveryAfterReading();
  EXPECT_GT(fault_reached("standard_error_open"), 0U);
}

TEST_F(StandardError, LogLinesDoNotWait) {
  WriteToPipe();
  while (lost_error_lines() == 0) log_error("", "%s", std::string(499, 'x').c_str());
  EXPECT_EQ(Received().size() % 500, 0U);
  log_error("", "next %d", 7);
  EXPECT_EQ(Received(), "standard error: 1 line was lost\nnext 7\n");
}

using StandardErrorDeathTest = StandardError;

// The process ends even if its last message cannot be written.
TEST_F(StandardErrorDeathTest, BrokenInvariantAbortsWithAFullPipe) {
  EXPECT_EXIT(
      {
        WriteToPipe();
        WriteUntilLost();
        alarm(20);
        assertion_failed("file", 1, "rc == 0");
      },
      testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
