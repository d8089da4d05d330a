// Tests of output that waits until something is stored: nothing leaves early, nothing waits for what changes
// later, and everything else continues.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <thread>

#include "platform/core/base/clock.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;

class OutputGateTest : public WireServerTest {
 protected:
  OutputGateTest() {
    set_output_gate([this] {
      ++asked;
      return next;
    });
  }
  ~OutputGateTest() override { set_output_gate(nullptr); }

  void Request(int client, std::uint32_t number, std::uint16_t type = kEcho) const {
    Write(client, Frame(type, number, {}));
    Step();
  }
  void RequestBig(int client, std::uint32_t octets) const {
    Octets payload;
    Writer(&payload).u32(octets);
    Write(client, Frame(kBig, 0, payload));
    Step();
  }
  void Open(std::uint64_t number) const {
    open_output_gate(number);
    Step();
  }
  void Notify(std::size_t octets = 0) const {
    server->for_each([&](Connection& each) { each.send(kEcho, 0, Octets(octets)); });
  }
  static std::size_t Readable(int client) {
    int octets = -1;
    EXPECT_EQ(ioctl(client, FIONREAD, &octets), 0);
    return static_cast<std::size_t>(octets);
  }
  static Octets Answers(std::uint32_t first, std::uint32_t last) {
    Octets all;
    for (std::uint32_t number = first; number <= last; ++number) {
      const Octets frame = Frame(kEcho, number, {});
      all.insert(all.end(), frame.begin(), frame.end());
    }
    return all;
  }
  // Takes everything that the server has for this client now.
  std::size_t Drain(int client) const {
    std::size_t octets = 0;
    for (std::size_t part = 0; Step(), (part = ReadAll(client).size()) > 0;) octets += part;
    return octets;
  }

  std::uint64_t next = 0;
  int asked = 0;
};

TEST_F(OutputGateTest, AnswerThatWaitsForNothingLeavesAtOnce) {
  ExpectEcho(ConnectRaw());
  EXPECT_EQ(asked, 1);
}

TEST_F(OutputGateTest, AnswerLeavesWhenTheGateOpensForItsNumber) {
  const int client = ConnectRaw();
  next = 2;
  Request(client, 1);
  EXPECT_EQ(handled, 1);
  Open(1);
  EXPECT_EQ(Readable(client), 0U);
  Open(2);
  EXPECT_EQ(ReadAll(client), Answers(1, 1));
}

TEST_F(OutputGateTest, OthersAreServedWhileAnAnswerWaits) {
  const int waiting = ConnectRaw();
  next = 1;
  Request(waiting, 1);
  next = 0;
  ExpectEcho(ConnectRaw());
  Request(waiting, 2);
  EXPECT_EQ(handled, 3) << "its own requests are handled, too";
  EXPECT_EQ(Readable(waiting), 0U) << "in their order";
  Open(1);
  EXPECT_EQ(ReadAll(waiting), Answers(1, 2));
}

TEST_F(OutputGateTest, ClosedGateDoesNotWakeTheLoop) {
  const int client = ConnectRaw();
  next = 1;
  Request(client, 1);
  EXPECT_FALSE(event_run_pending(manager));
}

TEST_F(OutputGateTest, LaterChangesDoNotDelayAnAnswer) {
  const int client = ConnectRaw();
  next = 1;
  Request(client, 1);
  next = 2;
  Request(client, 2);
  Open(1);
  EXPECT_EQ(ReadAll(client), Answers(1, 1));
  next = 3;
  Request(client, 3);
  Open(2);
  EXPECT_EQ(ReadAll(client), Answers(2, 2));
  Open(3);
  EXPECT_EQ(ReadAll(client), Answers(3, 3));
}

TEST_F(OutputGateTest, ClientIsNotStarvedByNotificationsUnderContinuousChanges) {
  Limits limits;
  limits.pause_messages = 8;
  MakeServer(limits);
  const int client = ConnectRaw();
  const std::size_t frame = Frame(kEcho, 0, {}).size();
  for (std::uint32_t round = 1; round <= 100; ++round) {
    next = round;
    Request(client, round);
    Notify();
    Notify();
    Open(round - 1);
    EXPECT_THAT(ReadAll(client), SizeIs(round == 1 ? 0 : 3 * frame)) << round;
    EXPECT_EQ(handled, static_cast<int>(round));
  }
}

TEST_F(OutputGateTest, UnaskedMessageWaitsToo) {
  const int client = ConnectRaw();
  next = 1;
  Notify();
  EXPECT_EQ(Readable(client), 0U);
  Open(1);
  EXPECT_EQ(ReadAll(client), Answers(0, 0));
}

TEST_F(OutputGateTest, AnswersOfOneWriteWaitForOneNumber) {
  const int client = ConnectRaw();
  Write(client, Answers(1, 2));
  Step();
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(ReadAll(client), Answers(1, 2));
}

TEST_F(OutputGateTest, NothingIsAskedWithoutOutput) {
  Write(ConnectRaw(), {'M', 'V'});
  Step();
  EXPECT_EQ(asked, 0);
}

TEST_F(OutputGateTest, GateOfAnotherThreadHasNoEffectHere) {
  const int client = ConnectRaw();
  std::thread([] {
    set_output_gate([] {
      ADD_FAILURE() << "that thread has no server";
      return std::uint64_t{1};
    });
  }).join();
  ExpectEcho(client);
}

TEST_F(OutputGateTest, WithoutAGateEverythingLeaves) {
  const int client = ConnectRaw();
  next = 7;
  Request(client, 1);
  set_output_gate(nullptr);
  EXPECT_EQ(ReadAll(client), Answers(1, 1));
  ExpectEcho(client);
}

TEST_F(OutputGateTest, ClientThatShutsDownItsSendingSideGetsTheAnswersThatWait) {
  const int client = ConnectRaw();
  next = 1;
  Request(client, 1);
  ASSERT_EQ(shutdown(client, SHUT_WR), 0);
  Step();
  EXPECT_EQ(closed, 0);
  Open(1);
  EXPECT_EQ(ReadAll(client), Answers(1, 1));
  EXPECT_TRUE(IsClosed(client));
  EXPECT_EQ(closed, 1);
}

TEST_F(OutputGateTest, ClientThatLeavesWhileItsAnswerWaitsIsForgotten) {
  const int client = ConnectRaw();
  next = 1;
  Request(client, 1);
  ::close(client);
  raw_clients.clear();
  Step();
  EXPECT_EQ(server->client_count(), 0U);
  Open(1);
  ExpectEcho(ConnectRaw());
}

TEST_F(OutputGateTest, ClientWithManyWaitingAnswersIsPausedAndThenServedOn) {
  Limits limits;
  limits.pause_messages = 10;
  MakeServer(limits);
  const int client = ConnectRaw();
  next = 1;
  Write(client, Answers(1, 30));
  Step();
  EXPECT_EQ(handled, 10);
  next = 0;
  Open(1);
  EXPECT_EQ(ReadAll(client), Answers(1, 30));
}

TEST_F(OutputGateTest, ClientIsNotClosedForTheWait) {
  constexpr std::size_t kMegabyte = 1U << 20;
  const int client = ConnectRaw();
  next = 1;
  for (std::size_t sent = 0; sent <= Limits{}.close_octets; sent += kMegabyte) Notify(kMegabyte);
  EXPECT_EQ(server->client_count(), 1U);
  Open(1);
  EXPECT_EQ(Drain(client), 17 * (kHeaderSize + kMegabyte));
  EXPECT_EQ(server->client_count(), 1U);
}

TEST_F(OutputGateTest, ClientThatReadsNothingIsClosedWhetherOrNotItsOutputWaited) {
  constexpr std::size_t kMegabyte = 1U << 20;
  ConnectRaw();
  ::testing::internal::CaptureStderr();
  std::uint64_t sent = 0;
  for (; sent < 100 && server->client_count() > 0; ++sent) {
    next = sent + 1;
    Notify(kMegabyte);
    Open(next);
  }
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("it does not read what it is sent"));
  EXPECT_LE(sent, 18U);
}

TEST_F(OutputGateTest, MessageDeadlineDoesNotPassForAClientWhoseAnswersWait) {
  ManualClock clock(1'000'000'000);
  const int client = ConnectRaw();
  next = 1;
  Request(client, 1);
  clock.advance(2 * Limits{}.message_deadline);
  Step();
  Open(1);
  EXPECT_EQ(ReadAll(client), Answers(1, 1));
}

TEST_F(OutputGateTest, RefusalOfAnotherVersionDoesNotWait) {
  const int client = ConnectRaw();
  next = 1;
  Octets request = Frame(kEcho, 1, {});
  request[4] = kVersion + 1;
  Write(client, request);
  Step();
  EXPECT_EQ(ReadAll(client), Frame(kTypeVersionMismatch, 0, {}));
  EXPECT_TRUE(IsClosed(client));
}

TEST_F(OutputGateTest, LargeAnswerWaitsWholeAndLeavesAsThePeerReads) {
  constexpr std::uint32_t kSize = 3U << 20;
  const int client = ConnectRaw();
  next = 1;
  RequestBig(client, kSize);
  EXPECT_EQ(Readable(client), 0U);
  next = 2;
  Open(1);
  EXPECT_EQ(Drain(client), kHeaderSize + kSize) << "although the next change is not stored";
  Request(client, 2);
  EXPECT_EQ(Readable(client), 0U);
  Open(2);
  EXPECT_EQ(ReadAll(client), Answers(2, 2));
}

TEST_F(OutputGateTest, ClientsForWhichThereIsNoTimeWhenTheGateOpensAreWrittenLater) {
  ManualClock clock(1'000'000'000);
  server = std::make_unique<Server>(
      manager, "echo", Limits{},
      [this](Connection& from, const Message& message) { return Answer(from, message); },
      [&clock](Connection&) { clock.advance(1'000'000'000); });
  std::vector<int> clients;
  next = 1;
  for (std::uint32_t number = 1; number <= 3; ++number) {
    clients.push_back(ConnectRaw());
    Request(clients.back(), number);
  }
  ::close(clients[0]);
  raw_clients.erase(raw_clients.begin());
  open_output_gate(1);
  EXPECT_EQ(Readable(clients[1]), 0U);
  EXPECT_EQ(Readable(clients[2]), 0U);
  Step();
  EXPECT_EQ(ReadAll(clients[1]), Answers(2, 2));
  EXPECT_EQ(ReadAll(clients[2]), Answers(3, 3));
}

}  // namespace
}  // namespace wire
