// Signals that this process sends to itself, read from a descriptor.
#include "platform/core/proc/signals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

namespace {

class SignalsTest : public testing::Test {
 protected:
  void SetUp() override {
    proc_block_signals({SIGHUP, SIGTERM});
    fd_ = proc_open_signals({SIGHUP, SIGTERM});
    ASSERT_GE(fd_, 0);
  }
  void TearDown() override {
    while (proc_read_signal(fd_)) {
    }
    close(fd_);
    proc_unblock_signals({SIGHUP, SIGTERM});
  }

  int fd_ = -1;
};

TEST_F(SignalsTest, SignalNamesItsSender) {
  ASSERT_EQ(kill(getpid(), SIGTERM), 0);
  const auto signal = proc_read_signal(fd_);
  ASSERT_TRUE(signal.has_value());
  EXPECT_EQ(signal->number, SIGTERM);
  EXPECT_EQ(signal->text, "SIGTERM from process " + std::to_string(getpid()));
}

TEST_F(SignalsTest, WithoutASignalThereIsNothingToRead) {
  EXPECT_FALSE(proc_read_signal(fd_).has_value());
}

TEST_F(SignalsTest, OneOfSeveralEqualSignalsIsRead) {
  kill(getpid(), SIGHUP);
  kill(getpid(), SIGHUP);
  EXPECT_EQ(proc_read_signal(fd_).value_or(ProcSignal{}).number, SIGHUP);
  EXPECT_FALSE(proc_read_signal(fd_).has_value());
}

TEST_F(SignalsTest, SignalThatWasIgnoredIsRead) {
  signal(SIGHUP, SIG_IGN);  // as nohup(1) does before it starts a program
  proc_block_signals({SIGHUP});
  kill(getpid(), SIGHUP);
  EXPECT_TRUE(proc_read_signal(fd_).has_value());
}

}  // namespace
