// Readiness on a notification socket of the test's own, thread names, and files that can or cannot be read.
#include "platform/core/proc/proc.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"

namespace {

class ProcTest : public testing::Test {
 protected:
  void SetUp() override { unsetenv("NOTIFY_SOCKET"); }
  void TearDown() override {
    unsetenv("NOTIFY_SOCKET");
    if (socket_ >= 0) close(socket_);
  }

  void ListenAsServiceManager() {
    const std::string path = directory_.path() + "/notify";
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ASSERT_GE(socket_, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* generic = static_cast<const sockaddr*>(static_cast<const void*>(&address));
    ASSERT_EQ(bind(socket_, generic, sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }

  std::string Received() const {
    char text[128];
    const ssize_t length = recv(socket_, text, sizeof text, 0);
    return length < 0 ? std::string() : std::string(text, static_cast<std::size_t>(length));
  }

  const TemporaryDirectory directory_;
  int socket_ = -1;
};

TEST_F(ProcTest, ReadinessIsNotifiedToTheServiceManager) {
  ListenAsServiceManager();
  EXPECT_EQ(proc_ready(), kStatusOk);
  EXPECT_EQ(Received(), "READY=1");
}

TEST_F(ProcTest, StateAndEndAreNotifiedToTheServiceManager) {
  ListenAsServiceManager();
  proc_status("12 VRFs");
  EXPECT_EQ(Received(), "STATUS=12 VRFs");
  proc_watchdog();
  EXPECT_EQ(Received(), "WATCHDOG=1");
  proc_stopping("ends");
  EXPECT_EQ(Received(), "STOPPING=1\nSTATUS=ends");
}

TEST_F(ProcTest, WatchdogExpectsASignOfLifeTwiceInTheTimeOfTheServiceManager) {
  EXPECT_EQ(proc_watchdog_interval(), 0U);
  setenv("WATCHDOG_USEC", "60000000", 1);
  setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
  EXPECT_EQ(proc_watchdog_interval(), 30'000'000'000U);
  setenv("WATCHDOG_PID", std::to_string(getppid()).c_str(), 1);
  EXPECT_EQ(proc_watchdog_interval(), 0U);
  unsetenv("WATCHDOG_USEC");
  unsetenv("WATCHDOG_PID");
}

TEST_F(ProcTest, WithoutAServiceManagerReadinessSucceeds) {
  EXPECT_EQ(proc_ready(), kStatusOk);
}

TEST_F(ProcTest, UnreachableServiceManagerIsReportedByItsErrno) {
  setenv("NOTIFY_SOCKET", (directory_.path() + "/absent").c_str(), 1);
  EXPECT_EQ(proc_ready(), static_cast<Status>(ENOENT));
}

TEST_F(ProcTest, FaultPointsFailTheOperations) {
  ListenAsServiceManager();
  const ScopedFault ready("proc_ready", kStatusIo);
  const ScopedFault readable("proc_file_readable", kStatusAccess);
  EXPECT_EQ(proc_ready(), kStatusIo);
  EXPECT_EQ(Received(), "");
  EXPECT_EQ(proc_file_readable(directory_.path().c_str()), kStatusAccess);
}

std::string name_of_this_thread() {
  char name[32] = {};
  EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof name), 0);
  return name;
}

TEST_F(ProcTest, ThreadTakesItsName) {
  proc_name_thread("debug and show");
  EXPECT_EQ(name_of_this_thread(), "debug and show");
}

TEST_F(ProcTest, LongThreadNameIsCutToFifteenCharacters) {
  proc_name_thread("a name that is too long");
  EXPECT_EQ(name_of_this_thread(), "a name that is ");
  proc_name_thread(nullptr);
  EXPECT_EQ(name_of_this_thread(), "a name that is ");
}

TEST_F(ProcTest, ReadableFileSucceeds) {
  std::ofstream(directory_.path() + "/file") << "x";
  EXPECT_EQ(proc_file_readable((directory_.path() + "/file").c_str()), kStatusOk);
}

TEST_F(ProcTest, MissingFileFolderAndNullAreRefused) {
  EXPECT_EQ(proc_file_readable((directory_.path() + "/nothing").c_str()), kStatusNoSuchRow);
  EXPECT_EQ(proc_file_readable(directory_.path().c_str()), static_cast<Status>(EISDIR));
  EXPECT_EQ(proc_file_readable(nullptr), kStatusInvalid);
}

}  // namespace
