// Tests of framed messages: payloads, frames, clients that behave and clients that do not.
#include "platform/wire/wire.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/base/directories.h"
#include "platform/base/fault.h"
#include "platform/evm/test_run_directory.h"

namespace wire {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

constexpr std::uint16_t kEcho = 7;
constexpr std::uint16_t kMalformed = 8;
constexpr std::uint16_t kBig = 9;  // the answer has as many octets as the payload's first word says

// --- Payloads and frames

TEST(Payload, EveryKindOfValueComesBack) {
  Octets octets;
  Writer writer(&octets);
  writer.u8(0xfe);
  writer.u16(0xfedc);
  writer.u32(0xfedcba98);
  writer.u64(0xfedcba9876543210);
  writer.text("red");
  writer.text("");
  const Octets three{1, 2, 3};
  writer.octets(three);
  Reader reader(octets);
  EXPECT_EQ(reader.u8(), 0xfe);
  EXPECT_EQ(reader.u16(), 0xfedc);
  EXPECT_EQ(reader.u32(), 0xfedcba98);
  EXPECT_EQ(reader.u64(), 0xfedcba9876543210);
  EXPECT_EQ(reader.text(), "red");
  EXPECT_EQ(reader.text(), "");
  const OctetSpan read = reader.octets();
  EXPECT_EQ(Octets(read.begin(), read.end()), three);
  EXPECT_TRUE(reader.finished());
}

TEST(Payload, IntegersAreLittleEndian) {
  Octets octets;
  Writer(&octets).u32(0x01020304);
  EXPECT_EQ(octets, (Octets{4, 3, 2, 1}));
}

TEST(Payload, ReadingBeyondTheEndFailsForGood) {
  const Octets octets{1, 2, 3};
  Reader reader(octets);
  EXPECT_EQ(reader.u32(), 0U);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.u8(), 0);  // though there was an octet
  EXPECT_FALSE(reader.finished());
}

TEST(Payload, LengthBeyondTheEndFails) {
  Octets octets;
  Writer(&octets).u32(0xffffffff);
  octets.push_back('x');
  Reader reader(octets);
  EXPECT_EQ(reader.text(), "");
  EXPECT_FALSE(reader.ok());
}

TEST(Payload, OctetsLeftOverAreNoticed) {
  const Octets octets{1, 2};
  Reader reader(octets);
  reader.u8();
  EXPECT_TRUE(reader.ok());
  EXPECT_FALSE(reader.finished());
  EXPECT_EQ(reader.left(), 1U);
}

TEST(Payload, WriterPatchesAndTruncates) {
  Octets octets;
  Writer writer(&octets);
  writer.u32(0);
  writer.u8(9);
  writer.patch_u32(0, 5);
  writer.truncate(4);
  EXPECT_EQ(octets, (Octets{5, 0, 0, 0}));
}

Octets Frame(std::uint16_t type, std::uint32_t request, const Octets& payload) {
  Octets frame;
  begin_frame(&frame, type, request);
  frame.insert(frame.end(), payload.begin(), payload.end());
  finish_frame(&frame, 0);
  return frame;
}

TEST(FrameTest, WholeMessageIsFoundAndMeasured) {
  Octets data = Frame(kEcho, 42, {1, 2, 3});
  data.push_back(0xff);  // of the next one
  Message message;
  std::size_t used = 0;
  ASSERT_EQ(parse_frame(data, 100, &message, &used), kStatusOk);
  EXPECT_EQ(used, kHeaderSize + 3);
  EXPECT_EQ(message.type, kEcho);
  EXPECT_EQ(message.request, 42U);
  EXPECT_EQ(message.payload.size(), 3U);
}

TEST(FrameTest, EveryTruncationAsksForMore) {
  const Octets frame = Frame(kEcho, 1, {1, 2, 3});
  for (std::size_t size = 0; size < frame.size(); ++size) {
    Message message;
    std::size_t used = 0;
    EXPECT_EQ(parse_frame(OctetSpan(frame).first(size), 100, &message, &used), kStatusNotConnected) << size;
    EXPECT_EQ(used, size < kHeaderSize ? kHeaderSize : frame.size()) << size;
  }
}

TEST(FrameTest, BadMagicVersionAndSizeAreTold) {
  Message message;
  std::size_t used = 0;
  Octets bad_magic = Frame(kEcho, 1, {});
  bad_magic[0] ^= 1;
  EXPECT_EQ(parse_frame(bad_magic, 100, &message, &used), kStatusBadMessage);
  Octets other_version = Frame(kEcho, 1, {});
  other_version[4] = kVersion + 1;
  EXPECT_EQ(parse_frame(other_version, 100, &message, &used), kStatusVersionMismatch);
  EXPECT_EQ(parse_frame(Frame(kEcho, 1, Octets(101)), 100, &message, &used), kStatusMessageTooLarge);
  EXPECT_EQ(parse_frame(Frame(kEcho, 1, Octets(100)), 100, &message, &used), kStatusOk);
}

// --- Server

// A server that echoes, its manager, and raw clients of it.
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
    from.send(message.type, message.request, message.payload);
    return true;
  }

  // One end of a socket pair; the server has the other.
  int ConnectRaw() {
    std::array<int, 2> pair{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair.data()), 0);
    server->adopt(pair[1]);
    raw_clients.push_back(pair[0]);
    return pair[0];
  }
  static void Write(int fd, const Octets& octets) {
    ASSERT_EQ(write(fd, octets.data(), octets.size()), static_cast<ssize_t>(octets.size()));
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
  int closed = 0;
};

TEST_F(WireServerTest, AnswersAMessage) {
  ExpectEcho(ConnectRaw());
}

TEST_F(WireServerTest, MessageThatComesOctetByOctetIsAnswered) {
  const int client = ConnectRaw();
  const Octets frame = Frame(kEcho, 9, {1, 2, 3, 4, 5});
  for (const std::uint8_t octet : frame) {
    EXPECT_THAT(ReadAll(client), IsEmpty());
    Write(client, {octet});
    Step();
  }
  EXPECT_EQ(ReadAll(client), frame);
}

TEST_F(WireServerTest, LargestAllowedMessageIsAnswered) {
  const int client = ConnectRaw();
  const Octets frame = Frame(kEcho, 1, Octets(64U << 10));
  Octets answer;
  std::size_t written = 0;
  while (answer.size() < frame.size()) {
    if (written < frame.size()) {
      const ssize_t count = write(client, frame.data() + written, frame.size() - written);
      if (count > 0) written += static_cast<std::size_t>(count);
    }
    ASSERT_TRUE(event_run_pending(manager));
    const Octets part = ReadAll(client);
    answer.insert(answer.end(), part.begin(), part.end());
  }
  EXPECT_EQ(answer, frame);
}

TEST_F(WireServerTest, ThousandPipelinedMessagesAreAnsweredInOrder) {
  const int client = ConnectRaw();
  Octets requests;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const Octets frame = Frame(kEcho, i, {static_cast<std::uint8_t>(i)});
    requests.insert(requests.end(), frame.begin(), frame.end());
  }
  Write(client, requests);
  Octets answers;
  while (answers.size() < requests.size()) {
    ASSERT_TRUE(event_run_pending(manager));
    const Octets part = ReadAll(client);
    answers.insert(answers.end(), part.begin(), part.end());
  }
  EXPECT_EQ(answers, requests);
}

TEST_F(WireServerTest, ATurnOfOneClientIsBoundedSoThatOthersAreServed) {
  const int greedy = ConnectRaw();
  const int modest = ConnectRaw();
  for (std::uint32_t i = 0; i < 200; ++i) Write(greedy, Frame(kEcho, i, {}));
  Write(modest, Frame(kEcho, 1, {}));
  std::array<unsigned char, 1024> buffer;
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  ASSERT_EQ(event_wait_for(&context, 0), 0);
  event_dispatch(&context);
  EXPECT_EQ(ReadAll(modest).size(), kHeaderSize);
  EXPECT_EQ(ReadAll(greedy).size(), 64 * kHeaderSize);
  Step();
  EXPECT_EQ(ReadAll(greedy).size(), 136 * kHeaderSize);
}

struct BadStream {
  const char* name;
  Octets octets;
  const char* reason;
};

TEST_F(WireServerTest, BrokenStreamsCloseThatClientWithALoggedReasonAndDisturbNobodyElse) {
  Octets bad_magic = Frame(kEcho, 1, {});
  bad_magic[3] = 0;
  Octets oversized = Frame(kEcho, 1, {});
  oversized[14] = 0x10;  // a length of a megabyte
  const int good = ConnectRaw();
  for (const BadStream& bad : {BadStream{"magic", bad_magic, err_text(kStatusBadMessage)},
                               BadStream{"size", oversized, err_text(kStatusMessageTooLarge)},
                               BadStream{"handler", Frame(kMalformed, 1, {}), "a malformed request"}}) {
    SCOPED_TRACE(bad.name);
    const int client = ConnectRaw();
    Write(client, bad.octets);
    ::testing::internal::CaptureStderr();
    Step();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(bad.reason));
    EXPECT_TRUE(IsClosed(client));
    ExpectEcho(good);
  }
  EXPECT_EQ(closed, 3);
  EXPECT_EQ(server->client_count(), 1U);
}

TEST_F(WireServerTest, AnnouncedSizeBeyondTheBoundIsRefusedBeforeItsOctetsCome) {
  const int client = ConnectRaw();
  Octets header = Frame(kEcho, 1, {});
  header[12] = header[13] = header[14] = header[15] = 0xff;
  Write(client, header);
  Step();
  EXPECT_TRUE(IsClosed(client));
  EXPECT_EQ(handled, 0);
}

TEST_F(WireServerTest, PeerOfAnotherVersionIsToldAndClosed) {
  const int client = ConnectRaw();
  Octets frame = Frame(kEcho, 1, {});
  frame[4] = kVersion + 1;
  Write(client, frame);
  ::testing::internal::CaptureStderr();
  Step();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(err_text(kStatusVersionMismatch)));
  EXPECT_EQ(ReadAll(client), Frame(kTypeVersionMismatch, 0, {}));
  EXPECT_TRUE(IsClosed(client));
}

TEST_F(WireServerTest, StreamThatEndsWithinAMessageIsLogged) {
  const int client = ConnectRaw();
  Octets frame = Frame(kEcho, 1, {1, 2, 3});
  frame.pop_back();
  Write(client, frame);
  shutdown(client, SHUT_WR);
  ::testing::internal::CaptureStderr();
  Step();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("it ended within a message"));
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, CleanDisconnectIsNotLogged) {
  const int client = ConnectRaw();
  ExpectEcho(client);
  shutdown(client, SHUT_RDWR);
  ::testing::internal::CaptureStderr();
  Step();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(server->client_count(), 0U);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, ClientThatVanishesAfterItsRequestDisturbsNobody) {
  const int good = ConnectRaw();
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair.data()), 0);
  server->adopt(pair[1]);
  Write(pair[0], Frame(kEcho, 1, {}));
  ::close(pair[0]);
  Step();
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(server->client_count(), 1U);
  ExpectEcho(good);
}

TEST_F(WireServerTest, HalfClosedClientStillGetsItsAnswers) {
  const int client = ConnectRaw();
  Write(client, Frame(kEcho, 1, {7}));
  shutdown(client, SHUT_WR);
  Step();
  EXPECT_EQ(ReadAll(client), Frame(kEcho, 1, {7}));
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, ClientThatNeverReadsIsPausedAndTheOthersServed) {
  const int silent = ConnectRaw();
  const int good = ConnectRaw();
  Octets payload;
  Writer(&payload).u32(300U << 10);
  for (std::uint32_t i = 0; i < 100; ++i) Write(silent, Frame(kBig, i, payload));
  Step();
  EXPECT_LT(handled, 10);  // a megabyte and one answer, not a hundred
  EXPECT_EQ(server->client_count(), 2U);
  ExpectEcho(good);
  // Once it reads, it gets everything.
  std::size_t received = 0;
  const std::size_t expected = 100 * (kHeaderSize + (300U << 10));
  while (received < expected) {
    received += ReadAll(silent).size();
    if (received == expected) break;
    ASSERT_TRUE(event_run_pending(manager));
  }
  EXPECT_EQ(received, expected);
}

TEST_F(WireServerTest, NumberOfWaitingAnswersIsBoundedToo) {
  Limits limits;
  limits.pause_messages = 10;
  limits.messages_per_turn = 1000;
  MakeServer(limits);
  const int client = ConnectRaw();
  Octets payload;
  Writer(&payload).u32(100U << 10);
  for (std::uint32_t i = 0; i < 20; ++i) Write(client, Frame(kBig, i, payload));
  Step();
  EXPECT_LE(handled, 10);
}

TEST_F(WireServerTest, ReaderThatTakesNoUnaskedMessagesIsClosedBeyondTheBound) {
  const int client = ConnectRaw();
  Step();
  Connection* connection = server->find(1);
  ASSERT_NE(connection, nullptr);
  const Octets megabyte(1U << 20);
  ::testing::internal::CaptureStderr();
  int sent = 0;
  while (server->find(1) != nullptr && sent < 100) {
    server->for_each([&](Connection& each) { each.send(kEcho, 0, megabyte); });
    ++sent;
  }
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("it does not read what it is sent"));
  EXPECT_EQ(sent, 17);
  EXPECT_EQ(server->client_count(), 0U);
  static_cast<void>(client);
}

TEST_F(WireServerTest, UnaskedMessageGoesOutAtOnce) {
  const int client = ConnectRaw();
  server->find(1)->send(kEcho, 0, Octets{4});
  EXPECT_EQ(ReadAll(client), Frame(kEcho, 0, {4}));
}

TEST_F(WireServerTest, UnaskedMessageToAClientThatWentAwayClosesIt) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair.data()), 0);
  server->adopt(pair[1]);
  ::close(pair[0]);
  server->find(1)->send(kEcho, 0, {});
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, AnswerIsWrittenInPlace) {
  const int client = ConnectRaw();
  Connection* connection = server->find(1);
  Writer writer = connection->begin(kEcho, 3);
  writer.u8(1);
  writer.u8(2);
  connection->finish();
  EXPECT_EQ(ReadAll(client), Frame(kEcho, 3, {1, 2}));
}

TEST_F(WireServerTest, ClientsBeyondTheBoundAreTurnedAway) {
  Limits limits;
  limits.max_clients = 2;
  MakeServer(limits);
  const int first = ConnectRaw();
  ConnectRaw();
  ::testing::internal::CaptureStderr();
  const int third = ConnectRaw();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("turned away"));
  EXPECT_TRUE(IsClosed(third));
  ExpectEcho(first);
}

TEST_F(WireServerTest, ClientThatCannotBeWatchedIsClosed) {
  const ScopedFault fault("event_fd_add", kStatusNoMemory);
  EXPECT_TRUE(IsClosed(ConnectRaw()));
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, StopClosesEveryClientAndTakesNoMore) {
  const int client = ConnectRaw();
  server->stop();
  EXPECT_TRUE(IsClosed(client));
  EXPECT_EQ(closed, 1);
  ClientSocket late;
  ASSERT_EQ(late.connect(event_manager_socket("/dev/echo"), 1000ms), kStatusOk);
  Step();
  Message message;
  EXPECT_EQ(late.receive(&message), kStatusNotConnected);
}

TEST_F(WireServerTest, HandlerMayCloseAnotherClient) {
  const int victim = ConnectRaw();
  const int killer = ConnectRaw();
  server = nullptr;
  server = std::make_unique<Server>(manager, "kill", Limits{}, [&](Connection& from, const Message&) {
    server->for_each([&](Connection& other) {
      if (&other != &from) other.close("told to");
    });
    return true;
  });
  const int second_victim = ConnectRaw();
  const int second_killer = ConnectRaw();
  Write(second_victim, Frame(kEcho, 1, {}));
  Write(second_killer, Frame(kEcho, 1, {}));
  Step();
  EXPECT_EQ(server->client_count(), 1U);
  EXPECT_TRUE(IsClosed(victim));
  EXPECT_TRUE(IsClosed(killer));
}

// --- Client socket

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

TEST_F(ClientSocketTest, NobodyThereIsNotConnected) {
  ClientSocket client;
  EXPECT_EQ(client.connect(directory.path() + "/nobody", 100ms), kStatusNotConnected);
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
  ClientSocket client;  // nobody runs the server's loop
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

TEST_F(ClientSocketTest, ServerThatGoesAwayIsNotConnected) {
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  Step();
  server->stop();
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusNotConnected);
}

TEST_F(ClientSocketTest, ServerOfAnotherVersionIsAVersionMismatch) {
  server->stop();
  event_set_acceptor(manager, [](int fd) {
    Octets frame = Frame(kTypeVersionMismatch, 0, {});
    frame[4] = kVersion + 1;
    EXPECT_EQ(write(fd, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    ::close(fd);
  });
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  Step();
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusVersionMismatch);
  EXPECT_FALSE(client.connected());
}

TEST_F(ClientSocketTest, RubbishFromTheServerIsABadMessage) {
  server->stop();
  event_set_acceptor(manager, [](int fd) {
    EXPECT_EQ(write(fd, "0123456789abcdefgh", 18), 18);
    ::close(fd);
  });
  ClientSocket client;
  ASSERT_EQ(client.connect(path, 5000ms), kStatusOk);
  Step();
  Message message;
  EXPECT_EQ(client.receive(&message), kStatusBadMessage);
}

// --- Peers

TEST(PeerTest, OwnUserMayChange) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
  EXPECT_TRUE(peer_may_change(pair[0]));
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST(PeerTest, WhatIsNoSocketMayNot) {
  EXPECT_FALSE(peer_may_change(STDERR_FILENO));
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
  const bool result = peer_may_change(accepted);
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
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
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
