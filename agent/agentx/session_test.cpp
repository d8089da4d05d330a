// The session against a master agent that the test plays at the other end of a socket pair.
#include "agent/agentx/session.h"

#include <poll.h>

#include <utility>

#include "agent/agentx/master_test_support.h"

namespace {

using namespace agentx;
using agent_test::Master;
using agent_test::Pdu;
using oid::Oid;

const Oid kSubtree{1, 3, 6, 1, 2, 1, 10, 166, 11, 1};

class SessionTest : public testing::Test {
 protected:
  SessionTest()
      : clock_(1000 * kNanosecondsPerSecond),
        session_(Options(), Handler(), [this](std::uint32_t packet, std::uint16_t error) {
          notified_.emplace_back(packet, error);
        }) {}

  SessionOptions Options() {
    SessionOptions options;
    options.master = "test";
    options.connect = [this] { return master_.Accept(); };
    options.description = "d";
    options.subtree = kSubtree;
    return options;
  }

  Session::Handler Handler() {
    return [this](const Header& header, Bytes payload, Writer* writer) {
      ++requests_;
      last_payload_ = payload.size();
      begin_response(writer, header, Error::kNone, 0);
      for (std::size_t i = 0; i < answer_words_; ++i) writer->number32(0);
      writer->end();
    };
  }

  // Lets the session see everything that is there for it.
  void Pump() {
    for (int round = 0; round < 200; ++round) {
      session_.step();
      pollfd watched{session_.fd(), session_.events(), 0};
      if (session_.fd() < 0 || poll(&watched, 1, 0) <= 0) return;
      session_.handle(watched.revents);
    }
    ADD_FAILURE() << "the session is never idle";
  }

  void Open() {
    Pump();
    const Pdu open = master_.Next();
    ASSERT_EQ(open.header.type, PduType::kOpen);
    master_.Reply(open.header, Error::kNone, 77);
    Pump();
  }

  void Register() {
    Open();
    session_.allow_registration();
    const Pdu registration = master_.Next();
    ASSERT_EQ(registration.header.type, PduType::kRegister);
    ASSERT_EQ(registration.header.session, 77U);
    master_.Reply(registration.header, Error::kNone, 77);
    Pump();
    ASSERT_TRUE(session_.registered());
  }

  // The session returned: Open and Register were sent again.
  void ExpectReturn() {
    clock_.advance(500 * kNanosecondsPerMillisecond);
    Pump();
    const Pdu open = master_.Next();
    ASSERT_EQ(open.header.type, PduType::kOpen);
    master_.Reply(open.header, Error::kNone, 78);
    Pump();
    const Pdu registration = master_.Next();
    ASSERT_EQ(registration.header.type, PduType::kRegister);
    EXPECT_EQ(registration.header.session, 78U);
    master_.Reply(registration.header, Error::kNone, 78);
    Pump();
    EXPECT_TRUE(session_.registered());
  }

  ManualClock clock_;
  Master master_;
  int requests_ = 0;
  std::size_t last_payload_ = 0;
  std::size_t answer_words_ = 0;
  std::vector<std::pair<std::uint32_t, std::uint16_t>> notified_;
  Session session_;
};

TEST_F(SessionTest, OpensAtOnceAndRegistersOnlyWhenAllowed) {
  Open();
  EXPECT_EQ(master_.Next().header.type, PduType{0});
  EXPECT_FALSE(session_.registered());
  session_.allow_registration();
  const Pdu registration = master_.Next();
  ASSERT_EQ(registration.header.type, PduType::kRegister);
  Reader reader(registration.payload, true);
  std::uint32_t head = 0;
  Oid subtree;
  ASSERT_TRUE(reader.number32(&head) && reader.name(&subtree, nullptr));
  EXPECT_TRUE(oid::compare(subtree.view(), kSubtree.view()) == 0);
  EXPECT_FALSE(session_.registered()) << "not before the master says so";
  master_.Reply(registration.header, Error::kNone, 77);
  Pump();
  EXPECT_TRUE(session_.registered());
}

TEST_F(SessionTest, MasterThatIsNotThereIsTriedAgainAtTheInterval) {
  master_.listening = false;
  testing::internal::CaptureStderr();
  Pump();
  Pump();
  EXPECT_EQ(master_.attempts, 1);
  for (int i = 0; i < 5; ++i) {
    clock_.advance(300 * kNanosecondsPerMillisecond);
    Pump();
  }
  EXPECT_EQ(master_.attempts, 6);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "master agent at test: away (Connection refused); trying again until it is back\n");
  EXPECT_EQ(session_.deadline(), clock_monotonic() + 300 * kNanosecondsPerMillisecond);
}

TEST_F(SessionTest, SocketThatRefusesThisUserIsLoggedOnceAfterAnotherReason) {
  master_.listening = false;
  testing::internal::CaptureStderr();
  for (const int refusal : {ENOENT, ENOENT, EACCES, ECONNREFUSED, EACCES}) {
    master_.refusal = refusal;
    Pump();
    clock_.advance(300 * kNanosecondsPerMillisecond);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "master agent at test: away (No such file or directory); trying again until it is back\n"
            "master agent at test: away (Permission denied; permit this user's group with \"agentXPerms\" in "
            "snmpd.conf and restart snmpd); trying again until it is back\n");
}

TEST_F(SessionTest, ReconnectsByItselfAfterTheMasterClosed) {
  Register();
  for (int i = 0; i < 3; ++i) {
    testing::internal::CaptureStderr();
    master_.HangUp();
    Pump();
    EXPECT_FALSE(session_.registered());
    EXPECT_EQ(session_.fd(), -1);
    ExpectReturn();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "master agent at test: away (it closed the connection); trying again until it is back\n"
              "master agent at test: registered 1.3.6.1.2.1.10.166.11.1\n");
  }
}

TEST_F(SessionTest, ClosePduOpensAgain) {
  Register();
  master_.Ask(PduType::kClose, 1);
  Pump();
  EXPECT_FALSE(session_.registered());
  ExpectReturn();
}

TEST_F(SessionTest, RefusedRegistrationIsTriedAgainAndLoggedOnce) {
  Open();
  session_.allow_registration();
  testing::internal::CaptureStderr();
  for (int i = 0; i < 3; ++i) {
    const Pdu registration = master_.Next();
    ASSERT_EQ(registration.header.type, PduType::kRegister);
    master_.Reply(registration.header, Error::kDuplicateRegistration, 77);
    Pump();
    EXPECT_FALSE(session_.registered());
    clock_.advance(500 * kNanosecondsPerMillisecond);
    Pump();
    master_.Reply(master_.Next().header, Error::kNone, 77);
    Pump();
  }
  EXPECT_EQ(
      testing::internal::GetCapturedStderr(),
      "master agent at test: away (it refused registering: duplicateRegistration, because another agent "
      "serves 1.3.6.1.2.1.10.166.11.1: stop one of them); trying again until it is back\n");
}

TEST_F(SessionTest, RefusedOpenIsTriedAgain) {
  Pump();
  master_.Reply(master_.Next().header, Error::kOpenFailed, 0);
  Pump();
  EXPECT_EQ(session_.fd(), -1);
  session_.allow_registration();
  ExpectReturn();
}

TEST_F(SessionTest, QuietSessionIsPingedAndTheReplyKeepsIt) {
  Register();
  for (int i = 0; i < 3; ++i) {
    clock_.advance(10 * kNanosecondsPerSecond);
    Pump();
    const Pdu ping = master_.Next();
    ASSERT_EQ(ping.header.type, PduType::kPing);
    EXPECT_EQ(ping.header.session, 77U);
    master_.Reply(ping.header, Error::kNone, 77);
    Pump();
  }
  EXPECT_TRUE(session_.registered());
}

// Opens with sysUpTime 5 s, then a ping is answered with this one after this time.
class UpTime : public SessionTest {
 protected:
  std::int64_t Now() const { return static_cast<std::int64_t>(clock_stamp()); }
  void OpenWithFiveSeconds() {
    Pump();
    master_.Reply(master_.Next().header, Error::kNone, 77, 500);
    Pump();
  }
  void Ping(std::uint64_t after_ns, std::uint16_t uptime, Error error = Error::kNone) {
    clock_.advance(after_ns);
    Pump();
    const Pdu ping = master_.Next();
    ASSERT_EQ(ping.header.type, PduType::kPing);
    master_.Reply(ping.header, error, 77, uptime);
    Pump();
  }
};

TEST_F(UpTime, IsKnownFromTheFirstReplyOn) {
  EXPECT_FALSE(session_.up_time_zero());
  const std::int64_t begin = Now();
  OpenWithFiveSeconds();
  ASSERT_TRUE(session_.up_time_zero());
  EXPECT_EQ(*session_.up_time_zero(), begin - 5'000'000'000);
}

TEST_F(UpTime, StaysTheSameWhenRepliesTakeTheirTime) {
  OpenWithFiveSeconds();
  const auto zero = session_.up_time_zero();
  Ping(10 * kNanosecondsPerSecond, 1500);
  Ping(11 * kNanosecondsPerSecond, 2400);
  EXPECT_EQ(session_.up_time_zero(), zero);
}

TEST_F(UpTime, FollowsAWallClockThatWasSetAndASysUpTimeThatWrapped) {
  OpenWithFiveSeconds();
  Ping(10 * kNanosecondsPerSecond, 100);
  EXPECT_EQ(session_.up_time_zero(), Now() - 1'000'000'000);
  Ping(10 * kNanosecondsPerSecond, 60000);
  EXPECT_EQ(session_.up_time_zero(), Now() - 600'000'000'000);
}

TEST_F(UpTime, IsForgottenWithTheSession) {
  OpenWithFiveSeconds();
  master_.HangUp();
  Pump();
  EXPECT_FALSE(session_.up_time_zero());
  clock_.advance(500 * kNanosecondsPerMillisecond);
  Pump();
  master_.Reply(master_.Next().header, Error::kNone, 78, 100);
  Pump();
  EXPECT_EQ(session_.up_time_zero(), Now() - 1'000'000'000);
}

TEST_F(UpTime, IsNotTakenFromARefusal) {
  Pump();
  master_.Reply(master_.Next().header, Error::kOpenFailed, 0, 100);
  Pump();
  EXPECT_FALSE(session_.up_time_zero());
}

TEST_F(SessionTest, MasterThatForgotTheSessionIsOpenedAgain) {
  Register();
  clock_.advance(10 * kNanosecondsPerSecond);
  Pump();
  master_.Reply(master_.Next().header, Error::kNotOpen, 77);
  Pump();
  EXPECT_FALSE(session_.registered());
  ExpectReturn();
}

TEST_F(SessionTest, BusyMasterHasTimeAndADeadOneIsDisconnected) {
  Register();
  clock_.advance(10 * kNanosecondsPerSecond);
  Pump();
  ASSERT_EQ(master_.Next().header.type, PduType::kPing);
  clock_.advance(29 * kNanosecondsPerSecond);
  Pump();
  EXPECT_TRUE(session_.registered());
  EXPECT_EQ(master_.Next().header.type, PduType{0}) << "one question at a time";
  clock_.advance(kNanosecondsPerSecond);
  Pump();
  EXPECT_FALSE(session_.registered());
}

TEST_F(SessionTest, ReplyToNothingIsIgnored) {
  Register();
  Header stray;
  stray.packet = 4711;
  master_.Reply(stray, Error::kNotOpen, 77);
  stray.packet = 0;
  master_.Reply(stray, Error::kNotOpen, 77);
  Pump();
  EXPECT_TRUE(session_.registered());
}

TEST_F(SessionTest, MalformedReplyEndsTheConnection) {
  Pump();
  const Pdu open = master_.Next();
  Header header = open.header;
  header.type = PduType::kResponse;
  std::vector<std::uint8_t> output;
  Writer writer(&output);
  writer.begin(header);
  writer.end();
  master_.Send(output);
  Pump();
  EXPECT_EQ(session_.fd(), -1);
}

TEST_F(SessionTest, RequestCutAnywhereIsAnsweredOnceItIsWhole) {
  Register();
  Header header;
  header.type = PduType::kGet;
  header.session = 77;
  std::vector<std::uint8_t> octets;
  Writer writer(&octets);
  writer.begin(header);
  writer.name(kSubtree.view());
  writer.name({});
  writer.end();
  for (std::size_t cut = 1; cut < octets.size(); ++cut) {
    const auto middle = octets.begin() + static_cast<std::ptrdiff_t>(cut);
    requests_ = 0;
    master_.Send({octets.begin(), middle});
    Pump();
    EXPECT_EQ(requests_, 0) << cut;
    master_.Send({middle, octets.end()});
    Pump();
    EXPECT_EQ(requests_, 1) << cut;
    EXPECT_EQ(last_payload_, octets.size() - kHeaderSize);
    EXPECT_EQ(master_.Next().header.type, PduType::kResponse);
  }
}

TEST_F(SessionTest, SeveralRequestsInOneReadingAreAllAnswered) {
  Register();
  for (std::uint32_t packet = 1; packet <= 50; ++packet) master_.Ask(PduType::kGetNext, packet);
  Pump();
  EXPECT_EQ(requests_, 50);
  for (std::uint32_t packet = 1; packet <= 50; ++packet) EXPECT_EQ(master_.Next().header.packet, packet);
}

TEST_F(SessionTest, AnswerOfManyVariablesLeavesInOneWrite) {
  master_.socket_type = SOCK_SEQPACKET;
  Register();
  answer_words_ = 10'000;
  master_.Ask(PduType::kGetNext, 5);
  Pump();
  EXPECT_EQ(master_.NextWrite(), kHeaderSize + 8 + 4 * answer_words_);
}

TEST_F(SessionTest, AnswersThatDoNotFitTheSocketAreSentInParts) {
  Register();
  answer_words_ = 200'000;
  master_.Ask(PduType::kGet, 5);
  Pdu response;
  for (int round = 0; round < 100 && response.header.packet != 5; ++round) {
    pollfd watched{session_.fd(), session_.events(), 0};
    if (poll(&watched, 1, 0) > 0) session_.handle(watched.revents);
    Pdu pdu = master_.Next();
    if (pdu.payload.size() > 0) response = pdu;
  }
  EXPECT_EQ(response.header.packet, 5U);
  EXPECT_EQ(response.payload.size(), 8 + 4 * 200'000U);
}

TEST_F(SessionTest, MasterThatDoesNotReadIsNotReadEither) {
  Register();
  answer_words_ = 200'000;
  for (std::uint32_t packet = 1; packet <= 40; ++packet) master_.Ask(PduType::kGet, packet);
  pollfd watched{session_.fd(), POLLIN, 0};
  ASSERT_EQ(poll(&watched, 1, 0), 1);
  session_.handle(POLLIN);
  EXPECT_LT(requests_, 10);
  EXPECT_EQ(session_.events() & POLLIN, 0);
}

TEST_F(SessionTest, RequestsHeldBackAreAnsweredWhenTheMasterReads) {
  Register();
  answer_words_ = 200'000;
  for (std::uint32_t packet = 1; packet <= 12; ++packet) master_.Ask(PduType::kGet, packet);
  std::uint32_t answered = 0;
  for (int round = 0; round < 2000 && answered < 12; ++round) {
    pollfd watched{session_.fd(), session_.events(), 0};
    if (poll(&watched, 1, 0) > 0) session_.handle(watched.revents);
    for (Pdu pdu = master_.Next(); pdu.header.type != PduType{0}; pdu = master_.Next()) ++answered;
  }
  EXPECT_EQ(answered, 12U);
}

TEST_F(SessionTest, HangUpAfterOctetsMayHaveMoreUntilItIsRead) {
  Register();
  EXPECT_FALSE(session_.has_more());
  master_.Send({1, 5});  // part of a header
  master_.HangUp();
  session_.handle(POLLIN | POLLHUP);
  EXPECT_TRUE(session_.has_more()) << "the end of the connection";
  session_.handle(POLLIN | POLLHUP);
  EXPECT_EQ(session_.fd(), -1);
  EXPECT_FALSE(session_.has_more());
}

TEST_F(SessionTest, OctetsThatAreNoAgentXEndTheConnection) {
  Register();
  master_.Send(std::vector<std::uint8_t>(40, 'x'));
  Pump();
  EXPECT_EQ(session_.fd(), -1);
  ExpectReturn();
}

TEST_F(SessionTest, RequestOfAnotherSessionIsNotOpen) {
  Register();
  master_.Ask(PduType::kGet, 9, 12);
  Pump();
  EXPECT_EQ(requests_, 0);
  const Pdu response = master_.Next();
  Reader reader(response.payload, true);
  Response body;
  ASSERT_TRUE(reader.response(&body));
  EXPECT_EQ(body.error, static_cast<std::uint16_t>(Error::kNotOpen));
}

TEST_F(SessionTest, ShutDownUnregistersAndCloses) {
  Register();
  session_.shut_down();
  EXPECT_EQ(session_.fd(), -1);
  EXPECT_EQ(master_.Next().header.type, PduType::kUnregister);
  const Pdu close = master_.Next();
  EXPECT_EQ(close.header.type, PduType::kClose);
  EXPECT_EQ(close.payload[0], kReasonShutdown);
}

TEST(ConnectUnix, PathTooLongForASocketAddressIsAnError) {
  EXPECT_EQ(connect_unix(std::string(200, 'x')), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(connect_unix("/nonexistent/socket"), -1);
  EXPECT_EQ(errno, ENOENT);
}

// --- Notifications

TEST_F(SessionTest, NotifyIsSentOnlyWhileRegistered) {
  Open();
  EXPECT_EQ(session_.notify([](Writer*) { ADD_FAILURE(); }), 0U);
  EXPECT_EQ(master_.Next().header.type, PduType{0});
}

TEST_F(SessionTest, NotifyCarriesItsVariablesAndTheAnswerIsReported) {
  Register();
  const std::uint32_t packet = session_.notify([](Writer* writer) { writer->number32(5); });
  session_.flush_notifies();
  const Pdu notify = master_.Next();
  ASSERT_EQ(notify.header.type, PduType::kNotify);
  EXPECT_EQ(notify.header.session, 77U);
  EXPECT_EQ(notify.header.packet, packet);
  EXPECT_EQ(notify.payload, (std::vector<std::uint8_t>{0, 0, 0, 5}));
  EXPECT_TRUE(notified_.empty());
  master_.Reply(notify.header, Error::kProcessingError, 77);
  Pump();
  EXPECT_EQ(notified_, (std::vector<std::pair<std::uint32_t, std::uint16_t>>{{packet, 268}}));
}

TEST_F(SessionTest, AnswersOfAMasterThatHasEndedAreReportedThoughNothingMoreCanBeSent) {
  Register();
  std::vector<std::uint32_t> packets;
  for (int i = 0; i < 2; ++i) packets.push_back(session_.notify([](Writer*) {}));
  session_.flush_notifies();
  for (int i = 0; i < 2; ++i) master_.Reply(master_.Next().header, Error::kNone, 77);
  master_.HangUp();
  session_.notify([](Writer*) {});
  session_.flush_notifies();
  EXPECT_EQ(notified_,
            (std::vector<std::pair<std::uint32_t, std::uint16_t>>{{packets[0], 0}, {packets[1], 0}}));
  EXPECT_FALSE(session_.registered());
}

TEST_F(SessionTest, NotifiesUnderWayAreBoundedAndForgottenWithTheSession) {
  Register();
  for (std::size_t i = 0; i < Session::kMaxNotifies; ++i) EXPECT_NE(session_.notify([](Writer*) {}), 0U);
  EXPECT_EQ(session_.notify([](Writer*) {}), 0U);
  const std::uint32_t losses = session_.losses();
  master_.HangUp();
  Pump();
  EXPECT_EQ(session_.losses(), losses + 1);
  ExpectReturn();
  EXPECT_NE(session_.notify([](Writer*) {}), 0U);
}

TEST_F(SessionTest, MasterThatDoesNotAnswerANotifyIsDisconnected) {
  Register();
  EXPECT_NE(session_.notify([](Writer*) {}), 0U);
  clock_.advance(29 * kNanosecondsPerSecond);
  Pump();
  EXPECT_TRUE(session_.registered());
  clock_.advance(kNanosecondsPerSecond);
  session_.step();
  EXPECT_FALSE(session_.registered());
}

}  // namespace
