// Tests of the blocking client.
#include "platform/core/wire/wire.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
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

// A process of another user that listens until the object ends.
class ForeignServer {
 public:
  explicit ForeignServer(const std::string& path) {
    std::array<int, 2> ready{-1, -1};
    EXPECT_EQ(pipe(ready.data()), 0);
    child_ = fork();
    if (child_ == 0) {
      umask(0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, sizeof address.sun_path - 1);
      const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
      const bool listens = setgid(60001) == 0 && setuid(60001) == 0 &&
                           bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                           listen(fd, 1) == 0 && write(ready[1], "x", 1) == 1;
      if (listens) pause();
      _exit(1);
    }
    ::close(ready[1]);
    char octet = 0;
    EXPECT_EQ(read(ready[0], &octet, 1), 1);
    ::close(ready[0]);
  }
  ~ForeignServer() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  ForeignServer(const ForeignServer&) = delete;
  ForeignServer& operator=(const ForeignServer&) = delete;

 private:
  pid_t child_ = -1;
};

TEST_F(ClientSocketTest, ServerOfAnotherUserIsRefusedUnlessItOwnsTheDirectory) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to become another user";
  ASSERT_EQ(chmod(directory.path().c_str(), 0777), 0);
  const std::string fake = directory.path() + "/fake";
  const ForeignServer foreign(fake);
  ClientSocket client;
  EXPECT_EQ(client.connect(fake, 5000ms), kStatusUntrustedServer);
  EXPECT_FALSE(client.connected());
  ASSERT_EQ(chown(directory.path().c_str(), 60001, 60001), 0);
  EXPECT_EQ(client.connect(fake, 5000ms), kStatusOk);
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

}  // namespace
}  // namespace wire
