// Requests of the master agent: whole, cut, many at once, and answers that it does not read.
#include <poll.h>

#include "agent/agentx/master_test_support.h"
#include "agent/agentx/session.h"
#include "agent/agentx/session_test_support.h"

namespace {

using namespace agentx;
using namespace agent_test;

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

}  // namespace
