// Tests of requests that are answered in steps, between which other clients are served.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "platform/core/base/clock.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t kMillisecond = kNanosecondsPerMillisecond;
const Peer kGreedyUser{60001, 60001, 0, {}};
const Peer kOtherUser{60002, 60002, 0, {}};

// The payload of a request states how many steps of a millisecond it takes. The answers are recorded, by the
// number of their request.
class StepsTest : public WireServerTest {
 protected:
  StepsTest() {
    server = std::make_unique<Server>(
        manager, "steps", Limits{},
        [this](Connection& from, const Message& message) { return TakeStep(from, message); });
  }

  bool TakeStep(Connection& from, const Message& message) {
    clock.advance(kMillisecond);
    ++steps;
    if (++taken[from.id()] < Reader(message.payload).u32()) {
      from.repeat();
      return true;
    }
    taken.erase(from.id());
    answered.push_back(message.request);
    from.send(message.type, message.request, {});
    return true;
  }
  static void Request(int client, std::uint32_t number, std::uint32_t steps) {
    Octets request;
    const std::size_t frame = begin_frame(&request, kEcho, number);
    Writer(&request).u32(steps);
    finish_frame(&request, frame);
    Write(client, request);
  }
  // One dispatch.
  void Iterate() const {
    std::array<unsigned char, 1024> buffer;
    EventContext context{manager, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, 0) == 0) event_dispatch(&context);
  }

  ManualClock clock{kNanosecondsPerSecond};
  std::map<std::uint64_t, std::uint32_t> taken;  // steps of the message at hand, by client
  std::vector<std::uint32_t> answered;
  unsigned steps = 0;
};

TEST_F(StepsTest, AreSpreadOverTheIterationsOfTheLoop) {
  Request(ConnectRaw(kGreedyUser), 1, 10);
  Iterate();
  EXPECT_EQ(steps, 2U) << "of a slice of two milliseconds";
  EXPECT_THAT(answered, IsEmpty());
  for (int i = 0; i < 4; ++i) Iterate();
  EXPECT_EQ(steps, 10U);
  EXPECT_THAT(answered, ElementsAre(1));
}

TEST_F(StepsTest, OtherUsersAreServedBetweenThem) {
  Request(ConnectRaw(kGreedyUser), 1, 100);
  Iterate();
  const int bystander = ConnectRaw(kOtherUser);
  Request(bystander, 2, 1);
  const unsigned before = steps;
  while (answered.empty()) Iterate();
  EXPECT_THAT(answered, ElementsAre(2));
  EXPECT_LE(steps - before, 3U);
}

TEST_F(StepsTest, AnswersStayInTheOrderOfTheRequests) {
  const int client = ConnectRaw(kGreedyUser);
  Request(client, 1, 5);
  Request(client, 2, 1);
  Request(client, 3, 3);
  Step();
  EXPECT_THAT(answered, ElementsAre(1, 2, 3));
}

TEST_F(StepsTest, TogetherAreOneRequest) {
  Limits limits;
  limits.requests_per_second = 1000;
  limits.request_burst = 10;
  limits.requests_per_connection = 2;
  server = std::make_unique<Server>(
      manager, "steps", limits,
      [this](Connection& from, const Message& message) { return TakeStep(from, message); });
  const int client = ConnectRaw(kGreedyUser);
  Request(client, 1, 100);
  Step();
  EXPECT_THAT(answered, ElementsAre(1));
  EXPECT_EQ(steps, 100U) << "none waited for the user's rate";
  server->for_each([](Connection& connection) {
    EXPECT_EQ(connection.statistics().requests, 1U);
    EXPECT_EQ(connection.statistics().nanoseconds, 100 * kMillisecond);
  });
}

TEST_F(StepsTest, AndTheWaitsBetweenThemAreTheTimeOfTheAnswer) {
  std::map<std::uint32_t, std::uint64_t> times;  // in milliseconds, by type
  server->on_answer([&](std::uint16_t type, std::uint64_t time) { times[type] += time / kMillisecond; });
  Request(ConnectRaw(kGreedyUser), 1, 5);
  Iterate();
  EXPECT_TRUE(times.empty()) << "it has not been answered";
  clock.advance(100 * kMillisecond);
  while (answered.empty()) Iterate();
  EXPECT_EQ(times[kEcho], 105U);
}

TEST_F(StepsTest, EndWithTheClient) {
  const int client = ConnectRaw(kGreedyUser);
  Request(client, 1, 100);
  Iterate();
  server->find(1)->close("the test ends it");
  Step();
  EXPECT_EQ(steps, 2U);
}

TEST_F(StepsTest, GoOnForAClientThatSendsNothingMore) {
  const int client = ConnectRaw(kGreedyUser);
  Request(client, 1, 10);
  ASSERT_EQ(shutdown(client, SHUT_WR), 0);
  Step();
  EXPECT_EQ(ReadAll(client), Frame(kEcho, 1, {}));
  EXPECT_TRUE(IsClosed(client));
}

}  // namespace
}  // namespace wire
