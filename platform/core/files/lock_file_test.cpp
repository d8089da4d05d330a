#include "platform/core/files/lock_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <thread>

#include "platform/core/files/temporary_directory.h"

namespace {

using std::chrono::milliseconds;

class LockFile : public ::testing::Test {
 protected:
  ~LockFile() override {
    if (child_ > 0) EndChild();
    close(fd_);
  }
  // Another process that has the lock from now on until it ends.
  void LockInAnotherProcess() {
    std::array<int, 2> ready{};
    ASSERT_EQ(pipe(ready.data()), 0);
    child_ = fork();
    ASSERT_GE(child_, 0);
    if (child_ == 0) {
      pid_t holder = 0;
      const int fd = open(path_.c_str(), O_RDWR);
      if (lock_file(fd, milliseconds(0), &holder) != kStatusOk || write(ready[1], "x", 1) != 1) _exit(1);
      pause();
    }
    char octet = 0;
    EXPECT_EQ(read(ready[0], &octet, 1), 1);
    close(ready[0]);
    close(ready[1]);
  }
  void EndChild() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    child_ = -1;
  }

  TemporaryDirectory folder_;
  std::string path_ = folder_.path() + "/lock";
  int fd_ = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
  pid_t child_ = -1;
  pid_t holder_ = 0;
};

TEST_F(LockFile, FreeFileIsLockedAtOnce) {
  EXPECT_EQ(find_lock_holder(path_.c_str()), 0);
  EXPECT_EQ(lock_file(fd_, milliseconds(0), &holder_), kStatusOk);
}

TEST_F(LockFile, WaitEndsAndNamesTheHolder) {
  LockInAnotherProcess();
  EXPECT_EQ(lock_file(fd_, milliseconds(1), &holder_), kStatusTimedOut);
  EXPECT_EQ(holder_, child_);
  EXPECT_EQ(find_lock_holder(path_.c_str()), child_);
}

TEST_F(LockFile, LockOfAProcessThatEndedIsFree) {
  LockInAnotherProcess();
  EndChild();
  EXPECT_EQ(lock_file(fd_, milliseconds(0), &holder_), kStatusOk);
}

TEST_F(LockFile, LockThatIsReleasedInTimeIsWaitedFor) {
  LockInAnotherProcess();
  std::thread holder([this] { EndChild(); });
  EXPECT_EQ(lock_file(fd_, std::chrono::minutes(1), &holder_), kStatusOk);
  holder.join();
}

// As one of another container is.
TEST_F(LockFile, HolderThatCannotBeSeenHasNoNumber) {
  EXPECT_EQ(describe_process(7), "process 7");
  EXPECT_EQ(describe_process(0), "another process");
}

TEST_F(LockFile, FileThatCannotBeLockedIsAnError) {
  EXPECT_EQ(lock_file(-1, milliseconds(0), &holder_), static_cast<Status>(EBADF));
  EXPECT_EQ(find_lock_holder("/nowhere/at/all"), 0);
}

}  // namespace
