// The session against a master agent that the test plays at the other end of a socket pair.
#include "agent/agentx/session.h"

#include "agent/agentx/master_test_support.h"
#include "agent/agentx/session_test_support.h"

namespace {

using namespace agent_test;

using namespace agentx;
using oid::Oid;

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

TEST_F(SessionTest, OctetsThatAreNoAgentXEndTheConnection) {
  Register();
  master_.Send(std::vector<std::uint8_t>(40, 'x'));
  Pump();
  EXPECT_EQ(session_.fd(), -1);
  ExpectReturn();
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

}  // namespace
