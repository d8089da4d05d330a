// The sub-agent as a whole, between a simulated master agent and a data store in its own process.
#include "agent/sub_agent.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "agent/sub_agent_test_support.h"
#include "platform/core/base/log.h"

namespace {

using agent_test::if_conf;
using agent_test::Reply;
using agent_test::scalar;
using agent_test::SubAgentTest;
using agent_test::write_request;
using agentx::PduType;
using oid::Oid;

TEST_F(SubAgentTest, RegistersOnlyWithDataAtHand) {
  Run();
  EXPECT_FALSE(sub_agent_.registered());
  daemon_.Start(5, false);
  Pass(200);
  Run();
  EXPECT_FALSE(sub_agent_.registered()) << "the daemon is there, but serves nothing yet";
  daemon_.Kill();
  daemon_.Start(5);
  Pass(200);
  Run();
  Pass(200);
  Run();
  EXPECT_TRUE(sub_agent_.registered());
}

TEST_F(SubAgentTest, RegistersWhenADaemonThatHungAtTheStartAnswers) {
  daemon_.Start(5);
  daemon_.Hang();
  Run();
  EXPECT_FALSE(sub_agent_.registered());
  daemon_.GoOn();
  for (int i = 0; i < 500 && !sub_agent_.registered(); ++i) {
    sub_agent_.run_once(-1, 10);
    Run();
  }
  EXPECT_TRUE(sub_agent_.registered());
}

TEST_F(SubAgentTest, WalksTheWholeTable) {
  daemon_.Start(300);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  Oid at = scalar(7);
  for (std::uint32_t row = 0; row < 4 * 300; ++row) {
    const Reply reply = Ask(PduType::kGetNext, {at});
    ASSERT_EQ(reply.variables.size(), 1U);
    const Oid expected = if_conf(2 + row / 300, "RED", row % 300 + 1);
    ASSERT_EQ(reply.variables[0].name, oid::to_text(expected.view()));
    at = expected;
  }
}

TEST_F(SubAgentTest, StaysRegisteredAndAnswersGenErrWhileTheDaemonIsAway) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  daemon_.Kill();
  Pass(1000);
  for (const PduType type : {PduType::kGet, PduType::kGetNext}) {
    EXPECT_EQ(Ask(type, {scalar(1)}).head.error, 5);
    EXPECT_EQ(Ask(type, {if_conf(5, "RED", 1)}).head.error, 5);
  }
  EXPECT_TRUE(sub_agent_.registered());
  daemon_.Start(5);
  Pass(200);
  Run();
  EXPECT_EQ(Ask(PduType::kGet, {if_conf(5, "RED", 1)}).head.error, 0);
}

TEST_F(SubAgentTest, LossOfTheDaemonIsNoticedWithoutARequest) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  testing::internal::CaptureStderr();
  daemon_.Kill();
  Run();
  EXPECT_NE(testing::internal::GetCapturedStderr().find("away"), std::string::npos);
}

TEST_F(SubAgentTest, RegistersAgainAfterTheMasterClosed) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  HangUp();
  Run();
  EXPECT_FALSE(sub_agent_.registered());
  Pass(300);
  Run();
  EXPECT_TRUE(sub_agent_.registered());
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
}

TEST_F(SubAgentTest, MasterThatReturnsWhileTheDaemonIsAwayGetsErrorsAndNoGap) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  testing::internal::CaptureStderr();
  daemon_.Kill();
  HangUp();
  Pass(1000);
  Run();
  Pass(300);
  Run();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::Not(testing::HasSubstr("epoll_ctl")))
      << "descriptors that were closed together must not be watched again";
  EXPECT_TRUE(sub_agent_.registered());
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 5);
}

TEST_F(SubAgentTest, OneHangingReadIsAllThatARequestWithManyRangesWaitsFor) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  daemon_.Hang();
  Pass(1000);
  std::vector<Oid> names;
  for (std::uint32_t i = 0; i < 200; ++i) names.push_back(if_conf(5, "RED", i));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Ask(PduType::kGetNext, names).head.error, 5);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
  EXPECT_TRUE(sub_agent_.registered());
}

// No other line need follow, and no request.
TEST_F(SubAgentTest, FloodOfLogLinesIsCountedWhenItsIntervalEnds) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  constexpr int kInterval = 50;
  log_limit(1, kInterval * kNanosecondsPerMillisecond);
  testing::internal::CaptureStderr();
  for (int line = 0; line < 3; ++line) log_warning("test", "line %d", line);
  const auto begin = std::chrono::steady_clock::now();
  sub_agent_.run_once(-1, -1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5))
      << "it waits for the interval only";
  Pass(kInterval);
  sub_agent_.run_once(-1, 0);
  log_limit(0, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "test: line 0\ntest: 2 similar lines were suppressed, the last one: line 2\n");
}

TEST_F(SubAgentTest, HangingDaemonIsAnsweredForWithItsLatestRows) {
  daemon_.Start(5);
  Run();
  const std::vector<Oid> known = {scalar(1), if_conf(5, "RED", 1)};
  ASSERT_EQ(Ask(PduType::kGet, known).head.error, 0);
  daemon_.Hang();
  Pass(2000);  // the rows are no longer valid
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(Ask(PduType::kGet, known).head.error, 0);
    EXPECT_EQ(Ask(PduType::kGet, {if_conf(5, "A", 1)}).head.error, 5) << "unknown, not absent";
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "time-outs would take 20 s";
  Pass(3000);
  EXPECT_EQ(Ask(PduType::kGet, known).head.error, 5);
  daemon_.GoOn();
  for (int i = 0; i < 500 && Ask(PduType::kGet, known).head.error != 0; ++i) sub_agent_.run_once(-1, 10);
  EXPECT_EQ(Ask(PduType::kGet, {if_conf(5, "RED", 5)}).head.error, 0) << "although no time has passed";
}

TEST_F(SubAgentTest, RowsOfADaemonThatEndedAreNotServed) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  daemon_.Kill();
  Pass(1000);
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 5);
}

TEST_F(SubAgentTest, RequestFromAWindowReadsTheClockOnce) {
  daemon_.Start(100);
  Run();
  ASSERT_EQ(Ask(PduType::kGetNext, {if_conf(5, "RED", 1)}).head.error, 0);
  std::vector<std::uint8_t> octets;
  agentx::Writer writer(&octets);
  write_request(PduType::kGetNext, {if_conf(5, "RED", 2), if_conf(5, "RED", 3)}, &writer);
  master_.Send(octets);
  const std::uint64_t begin = clock_monotonic();
  clock_.tick(1);
  sub_agent_.run_once(-1, 0);
  clock_.tick(0);
  EXPECT_EQ(clock_monotonic() - begin, 1U);
  EXPECT_TRUE(TakePdus());
}

// More than the sub-agent reads at once; the kernel announces it once.
TEST_F(SubAgentTest, RequestsOfManyReadingsAreAllAnswered) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  constexpr std::size_t kRequests = 1500;
  std::vector<std::uint8_t> octets;
  agentx::Writer writer(&octets);
  for (std::size_t i = 0; i < kRequests; ++i) write_request(PduType::kGet, {scalar(1)}, &writer);
  ASSERT_GT(octets.size(), std::size_t{64} << 10U);
  master_.Send(octets);
  Run();
  EXPECT_EQ(replies_.size(), kRequests);
}

TEST_F(SubAgentTest, EndOfTheConnectionIsNoticedAfterTheOctetsBeforeIt) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  master_.Send({1, 5});  // part of a header
  HangUp();
  Run();
  EXPECT_FALSE(sub_agent_.registered());
}

TEST_F(SubAgentTest, WakeDescriptorEndsTheWait) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_FALSE(sub_agent_.run_once(ends[0], 0));
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_TRUE(sub_agent_.run_once(ends[0], -1));
  close(ends[0]);
  close(ends[1]);
}

// --- Queries that never come

TEST_F(SubAgentTest, SubtreeThatIsNeverAskedForIsLoggedOnceWithTheLikelyCause) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  const auto log_after = [this](std::uint64_t milliseconds) {
    testing::internal::CaptureStderr();
    Pass(milliseconds);
    Run();
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(log_after(659'000), "");
  EXPECT_THAT(log_after(2'000),
              testing::HasSubstr("registered for 11 minutes, and snmpd has not asked for any object: "));
  EXPECT_EQ(log_after(1'200'000), "");
}

TEST_F(SubAgentTest, SubtreeThatWasAskedForIsNotReported) {
  daemon_.Start(5);
  Run();
  ASSERT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
  testing::internal::CaptureStderr();
  Pass(661'000);
  Run();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// --- Connecting again

TEST_F(SubAgentTest, ReconnectsToTheMasterAgentAndTheDaemon) {
  daemon_.Start(5);
  Run();
  ASSERT_TRUE(sub_agent_.registered());
  sub_agent_.reconnect();
  EXPECT_FALSE(sub_agent_.registered());
  EXPECT_EQ(sub_agent_.condition(), agent::SubAgent::Condition::kWaitsForMaster);
  Run();
  EXPECT_EQ(sub_agent_.condition(), agent::SubAgent::Condition::kServes);
  EXPECT_EQ(Ask(PduType::kGet, {scalar(1)}).head.error, 0);
}

TEST_F(SubAgentTest, ConditionNamesWhatIsAwaited) {
  EXPECT_EQ(sub_agent_.condition(), agent::SubAgent::Condition::kWaitsForDaemon);
  daemon_.Start(5);
  Run();
  EXPECT_EQ(sub_agent_.condition(), agent::SubAgent::Condition::kServes);
  daemon_.Kill();
  Run();
  EXPECT_EQ(sub_agent_.condition(), agent::SubAgent::Condition::kLacksDaemon);
}

}  // namespace
