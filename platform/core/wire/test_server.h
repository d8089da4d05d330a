// For tests: a server that echoes, its manager, and raw clients of it.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/wire/wire.h"

namespace wire {

inline constexpr std::uint16_t kEcho = 7;
inline constexpr std::uint16_t kMalformed = 8;
inline constexpr std::uint16_t kHeld = 10;  // the client is held: ReleaseHeld() answers
inline constexpr std::uint16_t kBig = 9;  // the answer has as many octets as the payload's first word states

inline Octets Frame(std::uint16_t type, std::uint32_t request, const Octets& payload) {
  Octets frame;
  begin_frame(&frame, type, request);
  frame.insert(frame.end(), payload.begin(), payload.end());
  finish_frame(&frame, 0);
  return frame;
}

class WireServerTest : public ::testing::Test {
 protected:
  WireServerTest() {
    manager = event_manager_create("/dev/echo", 0);
    MakeServer({});
  }
  ~WireServerTest() override {
    for (const int fd : raw_clients) ::close(fd);
    server.reset();
    event_manager_destroy(manager);
    fault_disarm_all();
  }

  void MakeServer(const Limits& limits) {
    server = std::make_unique<Server>(
        manager, "echo", limits,
        [this](Connection& from, const Message& message) { return Answer(from, message); },
        [this](Connection&) { ++closed; });
    server->start();
  }

  bool Answer(Connection& from, const Message& message) {
    ++handled;
    if (message.type == kMalformed) return false;
    if (message.type == kBig) {
      Reader reader(message.payload);
      from.send(kBig, message.request, Octets(reader.u32()));
      return true;
    }
    if (message.type == kHeld) {
      from.hold();
      held = from.weak_from_this();
      return true;
    }
    from.send(message.type, message.request, message.payload);
    return true;
  }
  void ReleaseHeld() {
    const std::shared_ptr<Connection> connection = held.lock();
    ASSERT_NE(connection, nullptr);
    connection->send(kHeld, 0, {});
    connection->release();
  }

  // One end of a socket pair; the server has the other and asks the kernel for the peer.
  int ConnectRaw() {
    const int server_end = OpenPair();
    server->adopt(server_end);
    return raw_clients.back();
  }
  // A client that pretends to be this peer.
  int ConnectRaw(const Peer& peer) {
    const int server_end = OpenPair();
    server->adopt(server_end, peer);
    return raw_clients.back();
  }
  // Keeps one end as a raw client and returns the other.
  int OpenPair() {
    std::array<int, 2> pair{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair.data()), 0);
    raw_clients.push_back(pair[0]);
    return pair[1];
  }
  // Of the client that connected last.
  void CloseRaw(int client) {
    ASSERT_EQ(raw_clients.back(), client);
    ::close(client);
    raw_clients.pop_back();
  }
  // The server's write to it fails; the client's own last messages wait.
  void CloseWhileWrittenTo(int client) {
    CloseRaw(client);
    WriteToEach();
  }
  void WriteToEach() const {
    server->for_each([](Connection& each) { each.send(kEcho, 0, {}); });
  }
  // Fails if the server has closed the client.
  static void Write(int fd, const Octets& octets) {
    ASSERT_EQ(send(fd, octets.data(), octets.size(), MSG_NOSIGNAL), static_cast<ssize_t>(octets.size()));
  }
  // Passes a descriptor with the octets.
  static void WriteWithDescriptor(int fd, const Octets& octets) {
    Octets copy = octets;
    iovec part{copy.data(), copy.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    ASSERT_EQ(sendmsg(fd, &message, MSG_NOSIGNAL), static_cast<ssize_t>(octets.size()));
  }
  void Step() const { event_run_pending(manager); }
  static Octets ReadAll(int fd) {
    Octets all;
    std::array<std::uint8_t, 65536> part;
    for (ssize_t got = 0; (got = read(fd, part.data(), part.size())) > 0;) {
      all.insert(all.end(), part.begin(), part.begin() + got);
    }
    return all;
  }
  // Writes the octets as far as the server takes them, and reads as many until nothing happens.
  Octets Echo(int fd, const Octets& octets) const {
    Octets answers;
    std::size_t written = 0;
    do {
      const ssize_t count = send(fd, octets.data() + written, octets.size() - written, MSG_NOSIGNAL);
      if (count > 0) written += static_cast<std::size_t>(count);
      const Octets part = ReadAll(fd);
      answers.insert(answers.end(), part.begin(), part.end());
    } while (answers.size() < octets.size() && event_run_pending(manager));
    return answers;
  }
  static bool IsClosed(int fd) {
    std::uint8_t octet = 0;
    const ssize_t got = read(fd, &octet, 1);
    return got == 0 || (got < 0 && errno == ECONNRESET);
  }
  void ExpectEcho(int fd) {
    Write(fd, Frame(kEcho, 5, {1}));
    Step();
    EXPECT_EQ(ReadAll(fd), Frame(kEcho, 5, {1}));
  }

  TestRunDirectory directory;
  EventManager* manager = nullptr;
  std::unique_ptr<Server> server;
  std::vector<int> raw_clients;
  int handled = 0;
  std::weak_ptr<Connection> held;
  int closed = 0;
};

}  // namespace wire
