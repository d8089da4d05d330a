// For tests of the session: the session and a master agent that the test plays.
#pragma once

#include <poll.h>

#include <utility>

#include "agent/agentx/master_test_support.h"
#include "agent/agentx/session.h"

namespace agent_test {

using namespace agentx;
using oid::Oid;

inline const Oid kSubtree{1, 3, 6, 1, 2, 1, 10, 166, 11, 1};

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

}  // namespace agent_test
