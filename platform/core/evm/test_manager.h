// For tests: a manager in a run directory of its own, and pipes to watch.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"

inline constexpr std::uint32_t kFlags = 0x70000004;
inline constexpr std::uint64_t kMillisecond = kNanosecondsPerMillisecond;
inline constexpr std::uint64_t kBound = 10 * kNanosecondsPerSecond;  // a test that waits so long has failed

class Pipe {
 public:
  Pipe() {
    std::array<int, 2> fds{-1, -1};
    EXPECT_EQ(pipe2(fds.data(), O_NONBLOCK | O_CLOEXEC), 0);
    read_end = fds[0];
    write_end = fds[1];
  }
  ~Pipe() {
    CloseWriter();
    close(read_end);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void Fill() const { EXPECT_EQ(write(write_end, "x", 1), 1); }
  void Drain() const {
    char octet = 0;
    EXPECT_EQ(read(read_end, &octet, 1), 1);
  }
  void CloseWriter() {
    if (write_end >= 0) close(write_end);
    write_end = -1;
  }
  int read_end = -1;
  int write_end = -1;
};

struct SocketAddress {
  explicit SocketAddress(const std::string& path) {
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
  }
  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
  sockaddr_un address{};
};

inline int ConnectTo(const std::string& path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, SocketAddress(path).get(), sizeof(sockaddr_un)) == 0) return fd;
  close(fd);
  return -1;
}

class EventManagerTest : public ::testing::Test {
 protected:
  EventManagerTest() { manager = event_manager_create("/dev/mpls/vpn/main", kFlags); }
  ~EventManagerTest() override {
    event_manager_destroy(manager);
    fault_disarm_all();
  }
  std::string SocketPath() const { return directory.path() + "/dev.mpls.vpn.main"; }
  void Watch(const Pipe& pipe, EventFdHandler handler) const {
    ASSERT_EQ(event_fd_add(manager, pipe.read_end, EPOLLIN, std::move(handler)), kStatusOk);
  }
  EventContext Context() { return {manager, buffer.data(), buffer.size(), 0}; }
  // Waits and dispatches once; something is pending.
  void Iterate() {
    EventContext context = Context();
    ASSERT_EQ(event_wait_for(&context, 0), 0);
    event_dispatch(&context);
  }

  TestRunDirectory directory;
  EventManager* manager = nullptr;
  std::array<unsigned char, 1024> buffer{};
};
