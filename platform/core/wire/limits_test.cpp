// Clients that do not read their answers, that are too many, or that send after their end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "platform/core/base/clock.h"
#include "platform/core/wire/test_server.h"
#include "platform/core/wire/wire.h"

namespace wire {
namespace {

using ::testing::HasSubstr;

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

TEST_F(WireServerTest, BufferOfALargeAnswerIsFreedOnceItIsRead) {
  const auto allocated = [] {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
  };
  constexpr std::uint32_t kSize = 8U << 20;
  const int client = ConnectRaw();
  ExpectEcho(client);
  Octets payload;
  Writer(&payload).u32(kSize);
  const std::size_t before = allocated();
  Write(client, Frame(kBig, 1, payload));
  for (std::size_t left = kHeaderSize + kSize; left > 0; left -= ReadAll(client).size())
    ASSERT_TRUE(event_run_pending(manager)) << left;
  Step();
  EXPECT_LT(allocated(), before + kSize / 4);
}

TEST_F(WireServerTest, NumberOfWaitingAnswersIsLimitedToo) {
  Limits limits;
  limits.pause_messages = 10;
  MakeServer(limits);
  const int client = ConnectRaw();
  Octets payload;
  Writer(&payload).u32(100U << 10);
  for (std::uint32_t i = 0; i < 20; ++i) Write(client, Frame(kBig, i, payload));
  Step();
  const auto left = static_cast<int>(ReadAll(client).size() / (kHeaderSize + (100U << 10)));
  EXPECT_LE(handled, 10 + left);
  EXPECT_LT(handled, 20);
}

TEST_F(WireServerTest, ClientThatReadsNoNotificationsIsClosedBeyondTheLimit) {
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

TEST_F(WireServerTest, NotificationToALostClientClosesIt) {
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

// A sub-agent acknowledges notifications and ends, while the next one is on its way to it.
TEST_F(WireServerTest, LastMessagesOfAClientThatClosedAreHandledAlthoughAWriteToItFails) {
  const int client = ConnectRaw();
  Write(client, Frame(kEcho, 1, {1}));
  Write(client, Frame(kEcho, 2, {2}));
  CloseWhileWrittenTo(client);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 2);
  EXPECT_EQ(closed, 1);
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(WireServerTest, ClientThatEndedIsClosedAfterItsMessagesAlthoughTheyTakeSeveralSlices) {
  Limits limits;
  limits.slice = 1;  // one message at a time
  MakeServer(limits);
  const int client = ConnectRaw();
  for (std::uint32_t request = 1; request <= 5; ++request) Write(client, Frame(kEcho, request, {}));
  CloseRaw(client);
  for (int turn = 0; turn < 20; ++turn) Step();
  EXPECT_EQ(handled, 5);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, LastMessagesOfAClientThatMayOnlyReadAreNotHandled) {
  const int client = ConnectRaw(Peer{});
  Write(client, Frame(kEcho, 1, {}));
  CloseWhileWrittenTo(client);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 0);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, ClientThatTakesNoAnswersIsNotReadFurther) {
  const int client = ConnectRaw();
  Write(client, Frame(kEcho, 1, {}));
  ASSERT_EQ(shutdown(client, SHUT_RD), 0);
  WriteToEach();
  const Octets more = Frame(kEcho, 2, {});
  EXPECT_EQ(send(client, more.data(), more.size(), MSG_NOSIGNAL), -1);
  EXPECT_EQ(errno, EPIPE);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, ClientThatEndedIsReadNoFurtherAfterAMalformedRequest) {
  const int client = ConnectRaw();
  Write(client, Frame(kMalformed, 1, {}));
  Write(client, Frame(kEcho, 2, {}));
  CloseWhileWrittenTo(client);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, ClientThatEndedWithinAMessageIsClosedAlthoughAWriteToItFailed) {
  const int client = ConnectRaw();
  const Octets frame = Frame(kEcho, 1, {1});
  Write(client, {frame.begin(), frame.begin() + 7});
  Step();
  CloseWhileWrittenTo(client);
  for (int turn = 0; turn < 5; ++turn) Step();
  EXPECT_EQ(handled, 0);
  EXPECT_EQ(closed, 1);
}

TEST_F(WireServerTest, AnswerThatWaitsHasItsTimeWhenItIsSentAndAMalformedRequestHasNone) {
  ManualClock clock(kNanosecondsPerSecond);
  std::vector<std::pair<std::uint16_t, std::uint64_t>> times;
  server->on_answer([&](std::uint16_t type, std::uint64_t time) { times.emplace_back(type, time); });
  const int client = ConnectRaw();
  Write(client, Frame(kHeld, 1, {}));
  Write(client, Frame(kEcho, 2, {}));
  Write(client, Frame(kMalformed, 3, {}));
  Step();
  EXPECT_TRUE(times.empty());
  clock.advance(7000);
  ReleaseHeld();
  Step();
  EXPECT_EQ(times, (std::vector<std::pair<std::uint16_t, std::uint64_t>>{{kHeld, 7000}, {kEcho, 0}}));
}

}  // namespace
}  // namespace wire
