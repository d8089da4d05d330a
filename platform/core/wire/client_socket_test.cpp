// Tests of the blocking client and of what the kernel reports about a peer.
#include "platform/core/wire/wire.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <thread>

#include "platform/core/files/directories.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using namespace std::chrono_literals;

// The echo server on a thread of its own, for blocking clients.
class ClientSocketTest : public WireServerTest {
 protected:
  ClientSocketTest() : path(event_manager_socket("/dev/echo")) {}
  ~ClientSocketTest() override { StopThread(); }
  void Run() {
    thread = std::thread([this] {
      std::array<unsigned char, 1024> buffer;
      EventContext context{manager, buffer.data(), buffer.size(), 0};
      while (!stopping) {
        if (event_wait(&context) == 0) event_dispatch(&context);
      }
    });
  }
  void StopThread() {
    if (!thread.joinable()) return;
    event_post(manager, [this] { stopping = true; });
    thread.join();
  }

  std::string path;
  std::thread thread;
  bool stopping = false;
};

TEST_F(ClientSocketTest, ExchangesMessages) {
  Run();
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  for (std::uint32_t i = 0; i < 10; ++i) {
    client.begin(kEcho, i).text("hello");
    ASSERT_EQ(client.send(), kStatusOk);
    Message message;
    ASSERT_EQ(client.receive(&message), kStatusOk);
    EXPECT_EQ(message.request, i);
    EXPECT_EQ(Reader(message.payload).text(), "hello");
  }
}

TEST_F(ClientSocketTest, ReceivesAnAnswerLargerThanAnySocketBuffer) {
  Run();
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  client.begin(kBig, 1).u32(4U << 20);
  ASSERT_EQ(client.send(), kStatusOk);
  Message message;
  ASSERT_EQ(client.receive(&message), kStatusOk);
  EXPECT_EQ(message.payload.size(), 4U << 20);
}

TEST_F(ClientSocketTest, AnswerBeyondTheClientsBoundClosesIt) {
  Run();
  ClientSocket client(100);
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  client.begin(kBig, 1).u32(101);
  ASSERT_EQ(client.send(), kStatusOk);
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusMessageTooLarge);
  EXPECT_FALSE(client.connected());
}

TEST_F(ClientSocketTest, MissingServerIsNotConnected) {
  ClientSocket client;
  EXPECT_EQ(client.connect(directory.path() + "/absent", 100ms), kStatusNotConnected);
  EXPECT_FALSE(client.connected());
  Message message;
  EXPECT_EQ(client.send(), kStatusNotConnected);
  EXPECT_EQ(client.receive(&message), kStatusNotConnected);
}

TEST_F(ClientSocketTest, PathTooLongIsRefused) {
  ClientSocket client;
  EXPECT_EQ(client.connect("/" + std::string(200, 'a'), 100ms), static_cast<Status>(ENAMETOOLONG));
}

TEST_F(ClientSocketTest, SilentServerTimesOutAndLeavesTheSocketOpen) {
  ClientSocket client;  // the server's loop does not run
  ASSERT_EQ(client.connect(path, 20ms), kStatusOk);
  client.begin(kEcho, 1);
  ASSERT_EQ(client.send(), kStatusOk);
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusTimedOut);
  EXPECT_EQ(client.receive(&message, 10ms), kStatusTimedOut);
  EXPECT_TRUE(client.connected());
  Run();
  EXPECT_EQ(client.receive(&message, 5000ms), kStatusOk);
}

TEST_F(ClientSocketTest, SendToAServerThatDoesNotReadTimesOut) {
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 20ms), kStatusOk);
  client.begin(kEcho, 1).octets(Octets(8U << 20));
  EXPECT_EQ(client.send(), kStatusTimedOut);
  EXPECT_FALSE(client.connected());
}

TEST_F(ClientSocketTest, ServerThatClosesIsNotConnected) {
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  Step();
  server->stop();
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusNotConnected);
}

// The client's first message from a server that sends these octets to everyone.
class OtherServerTest : public ClientSocketTest {
 protected:
  Status ReceiveFrom(const Octets& octets) {
    server->stop();
    event_set_acceptor(manager, [octets](int fd) {
      Write(fd, octets);
      ::close(fd);
    });
    ClientSocket client;
    EXPECT_EQ(client.connect(path, 5000ms), kStatusOk);
    Step();
    Message message;
    const Status status = client.receive(&message);
    EXPECT_FALSE(client.connected());
    return status;
  }
};

TEST_F(OtherServerTest, OfAnotherVersionIsAVersionMismatch) {
  Octets frame = Frame(kTypeVersionMismatch, 0, {});
  frame[4] = kVersion + 1;
  EXPECT_EQ(ReceiveFrom(frame), kStatusVersionMismatch);
}

TEST_F(OtherServerTest, ThatSendsRubbishIsABadMessage) {
  EXPECT_EQ(ReceiveFrom(Octets(18, 'x')), kStatusBadMessage);
}

// --- Peers

TEST(PeerTest, OwnUserMayChange) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
  EXPECT_EQ(peer_role(read_peer(pair[0])), Role::kConfigure);
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST(PeerTest, OtherDescriptorsMayNot) {
  EXPECT_EQ(peer_role(read_peer(STDERR_FILENO)), Role::kRead);
}

// A peer of another user, with these groups.
bool PeerOfAnotherUserMayChange(const std::vector<gid_t>& groups) {
  std::array<int, 2> pair{-1, -1};
  const TestRunDirectory directory;
  EventManager* manager = event_manager_create("/dev/peer", 0);
  EXPECT_EQ(chmod(event_manager_socket("/dev/peer").c_str(), 0666), 0);
  EXPECT_EQ(chmod(directory.path().c_str(), 0755), 0);
  int accepted = -1;
  event_set_acceptor(manager, [&](int fd) { accepted = fd; });
  EXPECT_EQ(pipe(pair.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    ClientSocket client;
    const bool ready = setgroups(groups.size(), groups.data()) == 0 && setgid(60001) == 0 &&
                       setuid(60001) == 0 &&
                       client.connect(event_manager_socket("/dev/peer"), 1000ms) == kStatusOk;
    char octet = 0;
    // Stay until the parent has looked.
    if (ready && read(pair[0], &octet, 1) == 1) _exit(0);
    _exit(1);
  }
  EXPECT_TRUE(event_run_pending(manager, 10'000'000'000));
  const bool result = peer_role(read_peer(accepted)) == Role::kConfigure;
  EXPECT_EQ(write(pair[1], "x", 1), 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ::close(accepted);
  ::close(pair[0]);
  ::close(pair[1]);
  event_manager_destroy(manager);
  return result;
}

TEST(PeerTest, AnotherUserMayChangeOnlyInTheAdministratorsGroup) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to become another user";
  const group* administrators = getgrnam("adm");
  ASSERT_NE(administrators, nullptr);
  const gid_t gid = administrators->gr_gid;
  setenv("MPLS_VPN_MIB_ADMIN_GROUP", "adm", 1);
  EXPECT_FALSE(PeerOfAnotherUserMayChange({}));
  EXPECT_FALSE(PeerOfAnotherUserMayChange({60002}));
  EXPECT_TRUE(PeerOfAnotherUserMayChange({60002, gid}));
  setenv("MPLS_VPN_MIB_ADMIN_GROUP", "no_such_group", 1);
  EXPECT_FALSE(PeerOfAnotherUserMayChange({60002, gid}));
  unsetenv("MPLS_VPN_MIB_ADMIN_GROUP");
}

}  // namespace
}  // namespace wire
