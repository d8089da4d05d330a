// Notifications through the session.
#include <utility>

#include "agent/agentx/master_test_support.h"
#include "agent/agentx/session.h"
#include "agent/agentx/session_test_support.h"

namespace {

using namespace agentx;
using namespace agent_test;

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
