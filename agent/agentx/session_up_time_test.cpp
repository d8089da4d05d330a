// The master agent's uptime as the session knows it.
#include "agent/agentx/master_test_support.h"
#include "agent/agentx/session.h"
#include "agent/agentx/session_test_support.h"

namespace {

using namespace agentx;
using namespace agent_test;

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

}  // namespace
