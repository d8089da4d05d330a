// Tests of who may connect: limits of users, reserved connections, eviction, and deadlines of messages.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/core/base/clock.h"
#include "platform/core/wire/test_server.h"

namespace wire {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class SlotsTest : public WireServerTest {
 protected:
  static Peer Reader(uid_t uid) { return {uid, uid, 0, {}}; }
  // Clients of as many readers as are needed, and the descriptors they have.
  std::vector<int> FillWithReaders(std::size_t clients) {
    std::vector<int> all;
    for (std::size_t i = 0; i < clients; ++i)
      all.push_back(ConnectRaw(Reader(static_cast<uid_t>(60001 + i / Limits{}.clients_per_user))));
    return all;
  }
  void ConnectAdministrator(std::size_t clients) {
    const group* administrators = getgrnam("adm");
    ASSERT_NE(administrators, nullptr);
    setenv("MPLS_VPN_MIB_ADMIN_GROUP", "adm", 1);
    Peer administrator = Reader(60001);
    administrator.groups = {administrators->gr_gid};
    for (std::size_t i = 0; i < clients; ++i) ConnectRaw(administrator);
    unsetenv("MPLS_VPN_MIB_ADMIN_GROUP");
  }
  static int CountOpen(const std::vector<int>& clients) {
    int open = 0;
    for (const int client : clients) open += IsClosed(client) ? 0 : 1;
    return open;
  }
  // What the server logs when this peer connects.
  std::string LogOfConnection(const Peer& peer) {
    ::testing::internal::CaptureStderr();
    ConnectRaw(peer);
    return ::testing::internal::GetCapturedStderr();
  }

  ManualClock clock{kNanosecondsPerSecond};
};

TEST_F(SlotsTest, SixtyFourClientsOfAReaderLockOutNeitherRootNorOtherReaders) {
  const Octets half_header{'M', 'V', 'P', 'N'};
  ::testing::internal::CaptureStderr();
  for (int i = 0; i < 64; ++i) {
    const int client = ConnectRaw(Reader(60001));
    // Fails if it was turned away.
    static_cast<void>(send(client, half_header.data(), half_header.size(), MSG_NOSIGNAL));
  }
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("echo: a client of user 60001 was turned away: this user has 16 clients already"));
  EXPECT_EQ(server->client_count(), Limits{}.clients_per_user);
  ExpectEcho(ConnectRaw());
  ExpectEcho(ConnectRaw(Reader(60002)));
}

TEST_F(SlotsTest, SomeConnectionsAreReservedForUsersWithMoreRights) {
  FillWithReaders(Limits{}.max_clients);
  EXPECT_EQ(server->client_count(), Limits{}.max_clients - Limits{}.reserved_clients);
  for (std::size_t i = 0; i < Limits{}.reserved_clients; ++i) ExpectEcho(ConnectRaw());
  EXPECT_EQ(server->client_count(), Limits{}.max_clients);
}

TEST_F(SlotsTest, ReaderWithFewClientsReplacesTheLongestIdleOfTheGreediestUser) {
  Limits limits;
  limits.max_clients = 8;
  limits.reserved_clients = 2;
  MakeServer(limits);
  const std::vector<int> one = {ConnectRaw(Reader(60001)), ConnectRaw(Reader(60001))};
  const std::vector<int> many = {ConnectRaw(Reader(60002)), ConnectRaw(Reader(60002)),
                                 ConnectRaw(Reader(60002)), ConnectRaw(Reader(60002))};
  for (const std::size_t active : {0U, 1U, 3U}) {
    clock.advance(1);
    ExpectEcho(many[active]);
  }
  EXPECT_THAT(LogOfConnection(Reader(60003)),
              AllOf(HasSubstr("echo: client 5 closed: "),
                    HasSubstr("user 60002 has the most clients, and user 60003")));
  EXPECT_TRUE(IsClosed(many[2]));
  ExpectEcho(raw_clients.back());
  EXPECT_EQ(CountOpen(one), 2);
  EXPECT_EQ(CountOpen(many), 3);
}

TEST_F(SlotsTest, ReaderReplacesNoClientOfAUserWithAsFewOrWithMoreRights) {
  Limits limits;
  limits.max_clients = 4;
  limits.reserved_clients = 0;
  MakeServer(limits);
  const std::vector<int> clients = {ConnectRaw(), ConnectRaw(), ConnectRaw(), ConnectRaw(Reader(60001))};
  EXPECT_THAT(LogOfConnection(Reader(60002)),
              HasSubstr("a client of user 60002 was turned away: there are 4 clients already"));
  EXPECT_EQ(CountOpen(clients), 4);
}

TEST_F(SlotsTest, UserWithMoreRightsReplacesAReaderWhenAllConnectionsAreUsed) {
  Limits limits;
  limits.max_clients = 4;
  limits.reserved_clients = 2;
  MakeServer(limits);
  const int reader = ConnectRaw(Reader(60001));
  for (int i = 0; i < 3; ++i) ConnectRaw();
  ExpectEcho(ConnectRaw());
  EXPECT_TRUE(IsClosed(reader));
}

// An administrator who connects too often must not lock out root either.
TEST_F(SlotsTest, AdministratorWithAllConnectionsIsReplacedByRoot) {
  ConnectAdministrator(Limits{}.max_clients);
  EXPECT_EQ(server->client_count(), Limits{}.max_clients);
  ExpectEcho(ConnectRaw());
  EXPECT_EQ(server->client_count(), Limits{}.max_clients);
}

TEST_F(SlotsTest, ReaderIsReplacedBeforeAnAdministratorWithMoreClients) {
  Limits limits;
  limits.max_clients = 4;
  limits.reserved_clients = 0;
  MakeServer(limits);
  ConnectAdministrator(3);
  const int reader = ConnectRaw(Reader(60002));
  ExpectEcho(ConnectRaw());
  EXPECT_TRUE(IsClosed(reader));
}

TEST_F(SlotsTest, ConnectionsThatEndAreAvailableAgain) {
  std::vector<int> clients = FillWithReaders(Limits{}.clients_per_user);
  shutdown(clients.back(), SHUT_RDWR);
  Step();
  ExpectEcho(ConnectRaw(Reader(60001)));
}

// --- Deadlines

class DeadlineTest : public SlotsTest {
 protected:
  void Pass(std::uint64_t nanoseconds) {
    clock.advance(nanoseconds);
    Step();
  }
  static constexpr std::uint64_t kDeadline = Limits{}.message_deadline;
};

TEST_F(DeadlineTest, HalfAMessageIsClosedAfterTheDeadline) {
  Octets half_payload = Frame(kEcho, 1, {1, 2, 3});
  half_payload.pop_back();
  for (const Octets& half : {Octets{'M'}, half_payload}) {
    const int client = ConnectRaw();
    Write(client, half);
    Step();
    Pass(kDeadline - 1);
    EXPECT_FALSE(IsClosed(client));
    ::testing::internal::CaptureStderr();
    Pass(1);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("it did not complete a message within 10 seconds"));
    EXPECT_TRUE(IsClosed(client));
  }
}

TEST_F(DeadlineTest, EachClientHasADeadlineOfItsOwn) {
  const int early = ConnectRaw();
  const int late = ConnectRaw();
  Write(early, {'M'});
  Step();
  Pass(kDeadline / 2);
  Write(late, {'M'});
  Step();
  Pass(kDeadline / 2);
  EXPECT_TRUE(IsClosed(early));
  EXPECT_FALSE(IsClosed(late));
  Pass(kDeadline / 2);
  EXPECT_TRUE(IsClosed(late));
}

TEST_F(DeadlineTest, OneOctetASecondDoesNotExtendTheDeadline) {
  const int client = ConnectRaw();
  const Octets frame = Frame(kEcho, 1, Octets(100));
  for (std::size_t i = 0; i < 11 && !IsClosed(client); ++i) {
    Write(client, {frame[i]});
    Step();
    Pass(kNanosecondsPerSecond);
  }
  EXPECT_EQ(server->client_count(), 0U);
}

TEST_F(DeadlineTest, EachMessageHasTheWholeTime) {
  const int client = ConnectRaw();
  const Octets frame = Frame(kEcho, 1, {1});
  Octets tail_and_head(frame.begin() + 4, frame.end());
  tail_and_head.insert(tail_and_head.end(), frame.begin(), frame.begin() + 4);
  Write(client, Octets(frame.begin(), frame.begin() + 4));
  for (int i = 0; i < 5; ++i) {
    Step();
    Pass(kDeadline - 1);
    Write(client, tail_and_head);
  }
  Step();
  EXPECT_EQ(handled, 5);
  EXPECT_EQ(server->client_count(), 1U);
}

TEST_F(DeadlineTest, IdleClientStays) {
  const int client = ConnectRaw();
  ExpectEcho(client);
  Pass(100 * kDeadline);
  ExpectEcho(client);
}

// The server does not read a client whose answer has to wait.
TEST_F(DeadlineTest, TimeInWhichTheServerDoesNotReadDoesNotCount) {
  const int client = ConnectRaw();
  Octets octets = Frame(kHeld, 1, {});
  const Octets next = Frame(kEcho, 2, {});
  octets.insert(octets.end(), next.begin(), next.begin() + 4);
  Write(client, octets);
  Step();
  Pass(2 * kDeadline);
  ReleaseHeld();
  Step();
  Write(client, Octets(next.begin() + 4, next.end()));
  Step();
  EXPECT_EQ(handled, 2);
}

}  // namespace
}  // namespace wire
