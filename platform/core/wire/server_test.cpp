// Tests of the server: clients that behave and clients that do not.
#include "platform/core/wire/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "platform/core/base/clock.h"
#include "platform/core/files/directories.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

TEST_F(WireServerTest, AnswersAMessage) {
  ExpectEcho(ConnectRaw());
}

TEST_F(WireServerTest, MessageThatArrivesOctetByOctetIsAnswered) {
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
  EXPECT_EQ(Echo(client, frame), frame);
}

TEST_F(WireServerTest, ThousandPipelinedMessagesAreAnsweredInOrder) {
  const int client = ConnectRaw();
  Octets requests;
  for (std::uint32_t i = 0; i < 1000; ++i) {
    const Octets frame = Frame(kEcho, i, {static_cast<std::uint8_t>(i)});
    requests.insert(requests.end(), frame.begin(), frame.end());
  }
  EXPECT_EQ(Echo(client, requests), requests);
}

struct BadStream {
  const char* name;
  Octets octets;
  const char* reason;
};

TEST_F(WireServerTest, BrokenStreamClosesOnlyItsClientWithALoggedReason) {
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

TEST_F(WireServerTest, PeerOfAnotherVersionIsNotifiedAndClosed) {
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

TEST_F(WireServerTest, ClientThatVanishesAfterItsRequestDisturbsNoOtherClient) {
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

TEST_F(WireServerTest, ClientThatCannotBeWatchedIsClosed) {
  const ScopedFault fault("event_fd_add", kStatusNoMemory);
  EXPECT_TRUE(IsClosed(ConnectRaw()));
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, StopClosesEveryClientAndAcceptsNoMore) {
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
      if (&other != &from) other.close("by another client");
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

// --- Peers

TEST_F(WireServerTest, ClientHasTheCredentialsAndTheRoleOfItsPeer) {
  ConnectRaw();
  const Connection* own = server->find(1);
  EXPECT_EQ(own->peer().uid, geteuid());
  EXPECT_EQ(own->peer().pid, getpid());
  EXPECT_EQ(own->role(), Role::kConfigure);
  ConnectRaw({60001, 60001, 0, {}});
  EXPECT_EQ(server->find(2)->peer().uid, 60001U);
  EXPECT_FALSE(server->find(2)->may_change());
}

// --- The barrier before output

TEST_F(WireServerTest, HeldClientIsServedAgainWhenItIsReleased) {
  const int client = ConnectRaw();
  Write(client, Frame(kEcho, 1, {}));
  Write(client, Frame(kHeld, 2, {}));
  Write(client, Frame(kEcho, 3, {}));
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 2);
  EXPECT_EQ(ReadAll(client), Frame(kEcho, 1, {}));
  Write(client, Frame(kEcho, 4, {}));
  Step();
  EXPECT_EQ(handled, 2) << "messages that arrive meanwhile wait";
  ReleaseHeld();
  for (int turn = 0; turn < 5; ++turn) Step();
  Octets expected = Frame(kHeld, 0, {});
  for (const std::uint32_t request : {3U, 4U}) {
    const Octets frame = Frame(kEcho, request, {});
    expected.insert(expected.end(), frame.begin(), frame.end());
  }
  EXPECT_EQ(ReadAll(client), expected);
}

TEST_F(WireServerTest, HeldClientThatShutsDownItsSendingSideGetsItsAnswer) {
  const int client = ConnectRaw();
  Write(client, Frame(kHeld, 1, {}));
  ASSERT_EQ(shutdown(client, SHUT_WR), 0);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(closed, 0);
  ReleaseHeld();
  EXPECT_EQ(ReadAll(client), Frame(kHeld, 0, {}));
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(closed, 1);
}

// A read ends after each descriptor that a client passes, with more in the socket.
TEST_F(WireServerTest, ClientThatPassesDescriptorsWithItsMessagesIsAnswered) {
  const int client = ConnectRaw();
  const Octets first = Frame(kEcho, 1, {1, 2, 3});
  const Octets second = Frame(kEcho, 2, {4});
  WriteWithDescriptor(client, {first.begin(), first.begin() + 7});
  WriteWithDescriptor(client, {first.begin() + 7, first.end()});
  WriteWithDescriptor(client, second);
  Octets expected = first;
  expected.insert(expected.end(), second.begin(), second.end());
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(ReadAll(client), expected);
}

// The server no longer expects descriptors of such a client.
TEST_F(WireServerTest, ClientThatPassesDescriptorsLateIsAnsweredWithinATenthOfASecond) {
  ManualClock clock(1);
  const int client = ConnectRaw();
  for (std::uint32_t number = 0; number < 40; ++number) {
    const Octets request = Frame(kEcho, number, {1, 2, 3});
    Write(client, request);
    Step();
    ASSERT_EQ(ReadAll(client), request);
  }
  const Octets first = Frame(kEcho, 100, {1, 2, 3});
  const Octets second = Frame(kEcho, 101, {4});
  WriteWithDescriptor(client, first);
  WriteWithDescriptor(client, second);
  WriteWithDescriptor(client, {first.begin(), first.begin() + 7});
  WriteWithDescriptor(client, {first.begin() + 7, first.end()});
  Octets answers;
  for (int turn = 0; turn < 8; ++turn) {
    clock.advance(100 * kNanosecondsPerMillisecond);
    Step();
    const Octets more = ReadAll(client);
    answers.insert(answers.end(), more.begin(), more.end());
  }
  Octets expected = first;
  for (const Octets& each : {second, first}) expected.insert(expected.end(), each.begin(), each.end());
  EXPECT_EQ(answers, expected);
}

}  // namespace
}  // namespace wire
