// Tests of whose message is next: the handler's cost is simulated by a manual clock, and what is counted is
// messages between two events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "platform/core/base/clock.h"
#include "platform/core/evm/test_manager.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using ::testing::ElementsAre;
using ::testing::Le;
using ::testing::SizeIs;

const Peer kGreedyUser{60001, 60001, 0, {}};
const Peer kOtherUser{60002, 60002, 0, {}};
constexpr std::uint32_t kMicrosecond = 1000;
constexpr std::uint32_t kLoneRequest = 100 * kMicrosecond;

// The payload of a request states what its handler costs, in nanoseconds.
class FairServerTest : public WireServerTest {
 protected:
  FairServerTest() { MakeFairServer({}); }

  // A greedy user has many clients.
  void MakeFairServer(Limits limits) {
    limits.reserved_clients = 0;
    limits.clients_per_user = limits.max_clients;
    server = nullptr;
    server =
        std::make_unique<Server>(manager, "fair", limits, [this](Connection& from, const Message& message) {
          clock.advance(Reader(message.payload).u32());
          from.send(message.type, message.request, {});
          served.push_back(from.id());
          return true;
        });
  }

  static void Request(int client, std::uint32_t cost, unsigned count = 1) {
    Octets requests;
    for (unsigned i = 0; i < count; ++i) {
      const std::size_t frame = begin_frame(&requests, kEcho, i);
      Writer(&requests).u32(cost);
      finish_frame(&requests, frame);
    }
    Write(client, requests);
  }
  // One wait and one dispatch.
  bool Iterate() const {
    std::array<unsigned char, 1024> buffer;
    EventContext context{manager, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, 0) != 0) return false;
    event_dispatch(&context);
    return true;
  }
  // The number of other messages that are handled before the client has an answer.
  std::size_t MessagesBefore(int client) {
    served.clear();
    while (ReadAll(client).empty() && Iterate()) {
    }
    return served.size() - 1;
  }
  std::map<std::uint64_t, int> ServedByClient() const {
    std::map<std::uint64_t, int> counts;
    for (const std::uint64_t id : served) ++counts[id];
    return counts;
  }

  ManualClock clock{kNanosecondsPerSecond};
  std::vector<std::uint64_t> served;  // the client of each message
};

TEST_F(FairServerTest, RequestOfAnotherUserWaitsForOneSliceOfAGreedyUsersSixtyClients) {
  for (int i = 0; i < 60; ++i) Request(ConnectRaw(kGreedyUser), kMillisecond, 200);
  Iterate();
  const int bystander = ConnectRaw(kOtherUser);
  Request(bystander, kLoneRequest);
  EXPECT_THAT(MessagesBefore(bystander), Le(3U));
}

TEST_F(FairServerTest, RequestOfTheSameUserIsPreferredToThePipeliningClients) {
  for (std::uint32_t i = 0; i < 60; ++i) Request(ConnectRaw(kGreedyUser), kMillisecond + i, 200);
  for (int i = 0; i < 100; ++i) Iterate();
  const int bystander = ConnectRaw(kGreedyUser);
  Request(bystander, kLoneRequest);
  EXPECT_THAT(MessagesBefore(bystander), Le(3U));
}

TEST_F(FairServerTest, DescriptorsTimersAndPostedFunctionsAreServedBetweenSlices) {
  const Pipe pipe;
  Request(ConnectRaw(kGreedyUser), kMillisecond, 200);
  Iterate();
  served.clear();
  std::vector<std::size_t> before;
  ASSERT_EQ(event_fd_add(manager, pipe.read_end, EPOLLIN,
                         [&](int fd, std::uint32_t) {
                           event_fd_remove(manager, fd);
                           before.push_back(served.size());
                         }),
            kStatusOk);
  pipe.Fill();
  event_timer_start(manager, 0, [&] { before.push_back(served.size()); });
  event_post(manager, [&] { before.push_back(served.size()); });
  Iterate();
  Iterate();
  ASSERT_THAT(before, SizeIs(3));
  EXPECT_THAT(before, ::testing::Each(Le(4U)));
}

TEST_F(FairServerTest, SliceEndsAfterItsTime) {
  Request(ConnectRaw(kGreedyUser), 300 * kMicrosecond, 200);
  Iterate();
  EXPECT_THAT(served, SizeIs(7)) << "the slice ends with the message that exceeds two milliseconds";
  Iterate();
  EXPECT_THAT(served, SizeIs(14));
}

TEST_F(FairServerTest, UsersShareTheTimeEquallyWhateverTheNumberOfTheirClients) {
  for (int i = 0; i < 20; ++i) Request(ConnectRaw(kGreedyUser), kMillisecond, 100);
  const int alone = ConnectRaw(kOtherUser);
  Request(alone, kMillisecond, 100);
  for (int i = 0; i < 50; ++i) Iterate();
  const int by_alone = ServedByClient()[21];
  EXPECT_NEAR(by_alone, static_cast<int>(served.size()) / 2, 2);
}

TEST_F(FairServerTest, ClientsOfOneUserShareItsTimeByTimeAndNotByMessages) {
  Request(ConnectRaw(kGreedyUser), kMillisecond, 200);
  Request(ConnectRaw(kGreedyUser), 100 * kMicrosecond, 200);
  for (int i = 0; i < 20; ++i) Iterate();
  const std::map<std::uint64_t, int> counts = ServedByClient();
  EXPECT_NEAR(counts.at(2), 10 * counts.at(1), 20);
}

TEST_F(FairServerTest, IdleUserSavesUpNothing) {
  const int late = ConnectRaw(kOtherUser);
  Request(late, kLoneRequest);
  Iterate();
  const int early = ConnectRaw(kGreedyUser);
  Request(early, kMillisecond, 400);
  for (int i = 0; i < 100; ++i) Iterate();  // 200 ms
  Request(late, kMillisecond, 400);
  served.clear();
  for (int i = 0; i < 10; ++i) Iterate();
  const std::map<std::uint64_t, int> counts = ServedByClient();
  EXPECT_NEAR(counts.at(1), counts.at(2), 4);
}

TEST_F(FairServerTest, UserWhoArrivesLaterIsNotPreferredToOneWhoReturns) {
  const int early = ConnectRaw(kGreedyUser);
  Request(early, kMillisecond, 400);
  while (Iterate()) {
  }
  Request(ConnectRaw(kOtherUser), kMillisecond, 400);
  Iterate();
  Request(early, kMillisecond, 400);
  served.clear();
  for (int i = 0; i < 10; ++i) Iterate();
  const std::map<std::uint64_t, int> counts = ServedByClient();
  EXPECT_NEAR(counts.at(1), counts.at(2), 4);
}

// The number of messages of one client, which pipelines, while others of this user ask once and end.
TEST_F(FairServerTest, ConnectionForEachRequestIsNotPreferredToOneForAll) {
  for (const Peer& user : {kGreedyUser, kOtherUser}) {
    MakeFairServer({});
    Request(ConnectRaw(kGreedyUser), kMillisecond, 200);
    Iterate();
    served.clear();
    for (int i = 0; i < 50; ++i) {
      const std::size_t before = raw_clients.size();
      for (int j = 0; j < 2; ++j) Request(ConnectRaw(user), kMillisecond);
      Iterate();
      for (; raw_clients.size() > before; raw_clients.pop_back()) {
        ReadAll(raw_clients.back());
        ::close(raw_clients.back());
      }
    }
    EXPECT_THAT(served, SizeIs(100));
    EXPECT_GE(ServedByClient()[1], 30);
  }
}

TEST_F(FairServerTest, ClientsThatAskOnceAreAnsweredInTheOrderOfTheirConnections) {
  for (int i = 0; i < 5; ++i) Request(ConnectRaw(kGreedyUser), kMicrosecond);
  Iterate();
  EXPECT_THAT(served, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(FairServerTest, ClientIsChargedForNoOtherDescriptorOrTimerOfTheIteration) {
  const int other = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  ASSERT_EQ(event_fd_add(manager, other, EPOLLIN | EPOLLET,
                         [this](int, std::uint32_t) { clock.advance(kMillisecond); }),
            kStatusOk);
  const auto make_ready = [other] { EXPECT_EQ(eventfd_write(other, 1), 0); };
  const int client = ConnectRaw(kGreedyUser);
  for (const bool is_first : {true, false}) {
    if (is_first) make_ready();
    Request(client, kMicrosecond);
    if (!is_first) make_ready();
    Iterate();
  }
  event_timer_start(manager, 0, [this] { clock.advance(kMillisecond); });
  Request(client, kMicrosecond);
  Iterate();
  EXPECT_THAT(served, SizeIs(3));
  EXPECT_EQ(server->find(1)->statistics().nanoseconds, 3 * kMicrosecond);
  event_fd_remove(manager, other);
  ::close(other);
}

TEST_F(FairServerTest, LoneRequestsOfOneIterationAreAnsweredInIt) {
  std::vector<int> clients;
  for (int i = 0; i < 10; ++i) {
    clients.push_back(ConnectRaw(kGreedyUser));
    Request(clients.back(), kMicrosecond);
  }
  Iterate();
  for (const int client : clients) EXPECT_EQ(ReadAll(client), Frame(kEcho, 0, {}));
}

TEST_F(FairServerTest, SlowWritesToManyClientsAreSpreadOverIterations) {
  constexpr unsigned kClients = 50;
  constexpr unsigned kRequests = 100;
  unsigned writes = 0;
  set_output_gate([&] {
    ++writes;
    clock.advance(1000 * kMicrosecond);
    return 0;
  });
  std::vector<int> clients;
  for (unsigned i = 0; i < kClients; ++i) clients.push_back(ConnectRaw(kGreedyUser));
  for (const int client : clients) Request(client, 40 * kMicrosecond, kRequests);
  for (unsigned before = 0; Iterate(); before = writes) EXPECT_LE(writes - before, 8U);
  set_output_gate(nullptr);
  for (const int client : clients) EXPECT_THAT(ReadAll(client), SizeIs(kRequests * kHeaderSize));
}

}  // namespace
}  // namespace wire
