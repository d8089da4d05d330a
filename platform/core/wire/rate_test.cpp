// Tests of the rate of a reader's requests and connections: what exceeds it waits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/wire/test_server.h"
#include "platform/core/wire/users.h"

namespace wire {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::uint64_t kMillisecond = kNanosecondsPerMillisecond;
const Peer kReader{60001, 60001, 0, {}};
const Peer kOther{60002, 60002, 0, {}};

// A thousand requests in a second, ten at once; a connection is worth two.
class RateTest : public WireServerTest {
 protected:
  RateTest() { MakeServer(limits); }

  static Limits Slow() {
    Limits slow;
    slow.requests_per_second = 1000;
    slow.request_burst = 10;
    slow.requests_per_connection = 2;
    return slow;
  }
  static void Request(int client, unsigned count) {
    Octets requests;
    for (unsigned i = 0; i < count; ++i) finish_frame(&requests, begin_frame(&requests, kEcho, i));
    Write(client, requests);
  }
  std::size_t Answers(int client) const {
    Step();
    return ReadAll(client).size() / kHeaderSize;
  }

  const Limits limits = Slow();
  ManualClock clock{kNanosecondsPerSecond};
};

TEST_F(RateTest, RequestsBeyondItWaitAndAreAllAnswered) {
  const int client = ConnectRaw(kReader);
  Request(client, 20);
  EXPECT_EQ(Answers(client), 8U);
  EXPECT_EQ(Answers(client), 0U);
  clock.advance(kMillisecond);
  EXPECT_EQ(Answers(client), 1U);
  clock.advance(5 * kMillisecond);
  EXPECT_EQ(Answers(client), 5U);
  clock.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Answers(client), 6U);
}

TEST_F(RateTest, OtherUsersAreServedMeanwhile) {
  Request(ConnectRaw(kReader), 100);
  const int other = ConnectRaw(kOther);
  Request(other, 3);
  EXPECT_EQ(Answers(other), 3U);
}

// Each connection of the first is worth two milliseconds of its rate.
TEST_F(RateTest, LongPauseOfOneUserDoesNotExtendThatOfAnother) {
  for (int i = 0; i < 9; ++i) Request(ConnectRaw(kReader), 1);
  Step();
  const int other = ConnectRaw(kOther);
  Request(other, 9);
  EXPECT_EQ(Answers(other), 8U);
  clock.advance(kMillisecond);
  EXPECT_EQ(Answers(other), 1U);
}

TEST_F(RateTest, UsersWithRightsAreNotLimited) {
  const int client = ConnectRaw();
  Request(client, 200);
  EXPECT_EQ(Answers(client), 200U);
}

TEST_F(RateTest, AllClientsOfAUserShareIt) {
  std::size_t answers = 0;
  std::vector<int> clients;
  for (int i = 0; i < 3; ++i) Request(clients.emplace_back(ConnectRaw(kReader)), 10);
  for (const int client : clients) answers += Answers(client);
  EXPECT_EQ(answers, 4U) << "three connections are worth six requests";
}

TEST_F(RateTest, ReconnectingDoesNotRenewIt) {
  const int first = ConnectRaw(kReader);
  Request(first, 8);
  EXPECT_EQ(Answers(first), 8U);
  shutdown(first, SHUT_RDWR);
  Step();
  const int second = ConnectRaw(kReader);
  Request(second, 1);
  EXPECT_EQ(Answers(second), 0U);
  clock.advance(3 * kMillisecond);
  EXPECT_EQ(Answers(second), 1U);
}

TEST_F(RateTest, ConnectionsFarBeyondItAreTurnedAway) {
  for (int i = 0; i < 10; ++i) {
    const int client = ConnectRaw(kReader);
    EXPECT_FALSE(IsClosed(client));
    shutdown(client, SHUT_RDWR);
    Step();
  }
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(IsClosed(ConnectRaw(kReader)));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("a client of user 60001 was turned away: this user connects too often"));
  ExpectEcho(ConnectRaw(kOther));
  clock.advance(2 * kMillisecond);
  EXPECT_FALSE(IsClosed(ConnectRaw(kReader)));
}

TEST_F(RateTest, FloodOfConnectionsIsLoggedInOneLineWithACount) {
  log_limit(1, kNanosecondsPerSecond);
  ::testing::internal::CaptureStderr();
  for (std::size_t i = 0; i < limits.clients_per_user + 50; ++i) ConnectRaw(kReader);
  clock.advance(kNanosecondsPerSecond);
  log_info("test", "the first line after the interval");
  log_limit(0, 0);
  EXPECT_THAT(
      ::testing::internal::GetCapturedStderr(),
      ::testing::StartsWith("echo: a client of user 60001 was turned away: this user connects too often\n"
                            "echo: 55 similar lines were suppressed, the last one: "));
}

TEST_F(RateTest, ServerThatEndsWhileRequestsWaitIsNotServedByItsTimer) {
  const int client = ConnectRaw(kReader);
  Request(client, 20);
  EXPECT_EQ(Answers(client), 8U);
  server = nullptr;
  clock.advance(kNanosecondsPerSecond);
  Step();
  EXPECT_THAT(ReadAll(client), IsEmpty());
}

// A user with a client, and many that have left.
class ForgottenUsers : public ::testing::Test {
 protected:
  static constexpr std::size_t kMany = 5000;
  std::shared_ptr<User> Find(uid_t uid) { return users.find({uid, 0, 0, {}}, Role::kRead); }
  void LetManyLeave(std::uint64_t requests) {
    for (uid_t uid = 1; uid <= kMany; ++uid) users.spend(*Find(uid), requests, clock_monotonic());
  }

  const Limits limits{};
  ManualClock clock{kNanosecondsPerSecond};
  Users users{limits};
  const std::shared_ptr<User> connected = Find(60001);
};

TEST_F(ForgottenUsers, AreThoseWhoLeftAndKeepToTheirRate) {
  LetManyLeave(1);
  clock.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Find(60001), connected);
  EXPECT_EQ(users.count(), 1U);
}

TEST_F(ForgottenUsers, AreOthersTooOnceThereAreTooMany) {
  LetManyLeave(limits.requests_per_second);
  EXPECT_LT(users.count(), kMany / 2);
  EXPECT_EQ(Find(60001), connected);
}

}  // namespace
}  // namespace wire
