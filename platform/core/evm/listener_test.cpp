// Tests of a manager's creation and of its socket: names, stale and live sockets, accepting.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/evm/test_manager.h"

namespace {

using ::testing::ElementsAre;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST_F(EventManagerTest, KeepsItsName) {
  ASSERT_NE(manager, nullptr);
  EXPECT_STREQ(event_manager_name(manager), "/dev/mpls/vpn/main");
}

TEST_F(EventManagerTest, SocketIsForOwnerAndGroupOnly) {
  struct stat status {};
  ASSERT_EQ(lstat(SocketPath().c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777, 0660U);
}

TEST_F(EventManagerTest, BadNamesAreRefusedWithEinval) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "/", "main", "/a/../b", "/a//b", "/a/"}) {
    errno = 0;
    EXPECT_EQ(event_manager_create(name, kFlags), nullptr);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST_F(EventManagerTest, NameTooLongForASocketIsRefused) {
  EXPECT_EQ(event_manager_create(("/" + std::string(200, 'a')).c_str(), kFlags), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(EventManagerTest, LiveSocketIsRefusedWithEaddrinuse) {
  EXPECT_EQ(event_manager_create("/dev/mpls/vpn/main", kFlags), nullptr);
  EXPECT_EQ(errno, EADDRINUSE);
  EXPECT_EQ(event_run_pending(manager), true);  // the probe that was made is taken and closed
  const int fd = ConnectTo(SocketPath());
  EXPECT_GE(fd, 0);  // and the first manager still serves
  close(fd);
}

TEST_F(EventManagerTest, LiveSocketWithAFullBacklogIsRefusedToo) {
  std::vector<int> waiting;
  for (;;) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    waiting.push_back(fd);
    if (connect(fd, SocketAddress(SocketPath()).get(), sizeof(sockaddr_un)) != 0) break;
    ASSERT_LT(waiting.size(), 1000U);
  }
  EXPECT_EQ(event_manager_create("/dev/mpls/vpn/main", kFlags), nullptr);
  EXPECT_EQ(errno, EADDRINUSE);
  for (const int fd : waiting) close(fd);
}

TEST_F(EventManagerTest, StaleSocketIsReplaced) {
  const std::string path = directory.path() + "/dev.stale";
  const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(dead, SocketAddress(path).get(), sizeof(sockaddr_un)), 0);
  close(dead);  // as a killed process leaves it
  EventManager* other = event_manager_create("/dev/stale", kFlags);
  ASSERT_NE(other, nullptr);
  const int fd = ConnectTo(path);
  EXPECT_GE(fd, 0);
  close(fd);
  event_manager_destroy(other);
}

TEST_F(EventManagerTest, FileThatIsNotASocketIsLeftAlone) {
  const std::string path = directory.path() + "/dev.file";
  std::ofstream(path) << "precious";
  EXPECT_EQ(event_manager_create("/dev/file", kFlags), nullptr);
  EXPECT_EQ(errno, ENOTSOCK);
  EXPECT_TRUE(std::filesystem::exists(path));
}

// The daemon's own message has the error only.
TEST_F(EventManagerTest, FailureIsLoggedWithItsFileAndItsReason) {
  const auto log_of = [](const char* name) {
    CaptureStderr();
    EXPECT_EQ(event_manager_create(name, kFlags), nullptr);
    return GetCapturedStderr();
  };
  const std::string path = directory.path() + "/dev.file";
  std::ofstream(path) << "precious";
  EXPECT_EQ(log_of("/dev/file"), "evm: " + path + ": it is not a socket: remove it\n");
  EXPECT_EQ(log_of("/dev/mpls/vpn/main"), "evm: " + SocketPath() + ": process " + std::to_string(getpid()) +
                                              " listens on it: end it, then start again\n");
  const std::string lock = directory.path() + "/lock";
  std::filesystem::remove(lock);
  std::filesystem::create_symlink(path, lock);
  EXPECT_EQ(log_of("/dev/other"), "evm: " + lock + ": Too many levels of symbolic links\n");
}

TEST_F(EventManagerTest, RunDirectoryThatIsTooLongIsLogged) {
  const std::string longest = directory.path() + "/" + std::string(100, 'd');
  setenv("MPLS_VPN_MIB_RUN_DIR", longest.c_str(), 1);
  CaptureStderr();
  EXPECT_EQ(event_manager_create("/dev/other", kFlags), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(
      GetCapturedStderr(),
      "evm: " + longest +
          "/dev.other: the path of a socket has at most 107 octets: set MPLS_VPN_MIB_RUN_DIR to a shorter "
          "run directory\n");
}

// Leaves only so many free descriptors.
class FewDescriptors {
 public:
  explicit FewDescriptors(int count) {
    const int next = dup(0);
    close(next);
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &former_), 0);
    const rlimit few{static_cast<rlim_t>(next + count), former_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  ~FewDescriptors() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &former_), 0); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit former_{};
};

TEST_F(EventManagerTest, MissingDescriptorsAreLogged) {
  for (int count = 0; count < 5; ++count) {
    CaptureStderr();
    EventManager* other = nullptr;
    int error = 0;
    {
      const FewDescriptors few(count);
      other = event_manager_create("/dev/other", kFlags);
      error = errno;
    }
    EXPECT_THAT(GetCapturedStderr(), testing::HasSubstr("/dev/other cannot be created: Too many open files"));
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(error, EMFILE);
  }
}

TEST_F(EventManagerTest, ProcessThatListensIsNamed) {
  EXPECT_EQ(event_manager_server("/dev/mpls/vpn/main"), std::optional<pid_t>(getpid()));
  EXPECT_EQ(event_manager_server("/dev/none"), std::nullopt);
}

TEST_F(EventManagerTest, ProcessThatEndsLeavesNoSocketAndNoLock) {
  event_manager_remove_socket(manager);
  EXPECT_FALSE(std::filesystem::exists(SocketPath()));
  EXPECT_EQ(event_manager_server("/dev/mpls/vpn/main"), std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(directory.path() + "/lock"));
  event_run_directory_unlock();
  EXPECT_FALSE(std::filesystem::exists(directory.path() + "/lock"));
  event_run_directory_unlock();  // there is none
}

// Has the lock of the run directory until it is destroyed.
class LockingProcess {
 public:
  explicit LockingProcess(const std::string& path) {
    if (pipe(pipe_.data()) != 0) return;
    process_ = fork();
    if (process_ != 0) {
      char locked = 0;
      EXPECT_EQ(read(pipe_[0], &locked, 1), 1);
      return;
    }
    const int fd = open(path.c_str(), O_RDWR);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    if (fcntl(fd, F_SETLK, &lock) == 0 && write(pipe_[1], "x", 1) == 1) pause();
    _exit(1);
  }
  ~LockingProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    for (const int fd : pipe_) close(fd);
  }
  LockingProcess(const LockingProcess&) = delete;
  LockingProcess& operator=(const LockingProcess&) = delete;

 private:
  std::array<int, 2> pipe_{};
  pid_t process_ = -1;
};

TEST_F(EventManagerTest, LockOfAnotherProcessIsNotRemoved) {
  const std::string path = directory.path() + "/lock";
  const LockingProcess other(path);
  event_run_directory_unlock();
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(EventManagerTest, MissingRunDirectoryIsMade) {
  setenv("MPLS_VPN_MIB_RUN_DIR", (directory.path() + "/new").c_str(), 1);
  EventManager* other = event_manager_create("/dev/other", kFlags);
  EXPECT_NE(other, nullptr);
  event_manager_destroy(other);
}

TEST_F(EventManagerTest, RunDirectoryThatCannotBeCreatedIsReported) {
  setenv("MPLS_VPN_MIB_RUN_DIR", (directory.path() + "/no/such").c_str(), 1);
  EXPECT_EQ(event_manager_create("/dev/other", kFlags), nullptr);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(EventManagerTest, DestroyRemovesTheSocket) {
  event_manager_destroy(manager);
  EXPECT_FALSE(std::filesystem::exists(SocketPath()));
  manager = event_manager_create("/dev/mpls/vpn/main", kFlags);
  EXPECT_NE(manager, nullptr);
}

TEST_F(EventManagerTest, DestroyLeavesASocketThatIsNotItsOwn) {
  std::filesystem::remove(SocketPath());
  EventManager* successor = event_manager_create("/dev/mpls/vpn/main", kFlags);
  ASSERT_NE(successor, nullptr);
  event_manager_destroy(manager);
  EXPECT_TRUE(std::filesystem::exists(SocketPath()));
  manager = successor;
}

TEST_F(EventManagerTest, CreateFaultBecomesErrno) {
  const ScopedFault fault("event_manager_create", EMFILE);
  EXPECT_EQ(event_manager_create("/dev/other", kFlags), nullptr);
  EXPECT_EQ(errno, EMFILE);
}

TEST_F(EventManagerTest, CreateHookSeesEveryManager) {
  std::vector<std::string> names;
  event_manager_on_create([&](EventManager* made) { names.emplace_back(event_manager_name(made)); });
  EventManager* other = event_manager_create("/dev/other", kFlags);
  event_manager_on_create(nullptr);
  EventManager* third = event_manager_create("/dev/third", kFlags);
  EXPECT_THAT(names, ElementsAre("/dev/other"));
  event_manager_destroy(other);
  event_manager_destroy(third);
}

// --- Accepting

TEST_F(EventManagerTest, AcceptorReceivesTheConnection) {
  int accepted = -1;
  event_set_acceptor(manager, [&](int fd) { accepted = fd; });
  const int client = ConnectTo(SocketPath());
  event_run_pending(manager);
  ASSERT_GE(accepted, 0);
  EXPECT_NE(fcntl(accepted, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(accepted, F_GETFD) & FD_CLOEXEC, 0);
  close(accepted);
  close(client);
}

TEST_F(EventManagerTest, ConnectionsThatWaitAreAcceptedInOneDispatch) {
  const ManualClock clock(1);  // the time for accepting does not end
  std::vector<int> clients;
  int accepted = 0;
  event_set_acceptor(manager, [&](int fd) {
    ++accepted;
    close(fd);
  });
  for (int i = 0; i < 60; ++i) clients.push_back(ConnectTo(SocketPath()));
  Iterate();
  EXPECT_EQ(accepted, 60);
  for (const int client : clients) close(client);
}

// A client that does not wait for room in the backlog gets EAGAIN when there is none.
TEST_F(EventManagerTest, FloodOfConnectionsLeavesRoomInTheBacklog) {
  std::vector<int> clients;
  for (int i = 0; i < 400; ++i) {
    clients.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(clients.back(), SocketAddress(SocketPath()).get(), sizeof(sockaddr_un)), 0) << i;
  }
  for (const int client : clients) close(client);
}

TEST_F(EventManagerTest, AcceptingEndsAfterItsTime) {
  ManualClock clock(1);
  std::vector<int> clients;
  int accepted = 0;
  event_set_acceptor(manager, [&](int fd) {
    ++accepted;
    clock.advance(kMillisecond);
    close(fd);
  });
  for (int i = 0; i < 5; ++i) clients.push_back(ConnectTo(SocketPath()));
  for (const int expected : {2, 4, 5}) {
    Iterate();
    EXPECT_EQ(accepted, expected);
  }
  for (const int client : clients) close(client);
}

TEST_F(EventManagerTest, WithoutAnAcceptorConnectionsAreClosedAtOnce) {
  const int client = ConnectTo(SocketPath());
  event_run_pending(manager);
  char octet = 0;
  EXPECT_EQ(read(client, &octet, 1), 0);
  close(client);
}

TEST_F(EventManagerTest, OutOfDescriptorsAConnectionIsTurnedAwayAndTheLoopDoesNotSpin) {
  std::vector<int> clients;
  event_set_acceptor(manager, [](int) { ADD_FAILURE() << "no descriptor was left"; });
  clients.push_back(ConnectTo(SocketPath()));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const int lowest_free = dup(0);
  close(lowest_free);
  rlimit tight = before;
  tight.rlim_cur = static_cast<rlim_t>(lowest_free);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  event_run_pending(manager);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  char octet = 0;
  EXPECT_EQ(read(clients[0], &octet, 1), 0);
  close(clients[0]);
  int accepted = -1;
  event_set_acceptor(manager, [&](int fd) { accepted = fd; });
  const int later = ConnectTo(SocketPath());
  event_run_pending(manager);
  EXPECT_GE(accepted, 0);
  close(accepted);
  close(later);
}

}  // namespace
