// The connection to the daemon: bounded calls, rate-limited attempts, one log line per transition.
#include "agent/daemon_source.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>

#include "agent/daemon_test_support.h"
#include "platform/core/base/clock.h"

namespace {

using agent::DaemonLimits;
using agent::DaemonSource;
using agent_test::DaemonProcess;
using SteadyClock = std::chrono::steady_clock;

constexpr const char* kScalars = "/oper/mpls_vpn/gl/scalars";
constexpr const char* kFirstRow = "/oper/mpls_vpn/gl/interface-next//0";

class DaemonSourceTest : public testing::Test {
 protected:
  static DaemonLimits Limits() {
    DaemonLimits limits;
    limits.call_timeout = std::chrono::milliseconds(100);
    return limits;
  }
  void Pass(std::uint64_t milliseconds) {
    clock_.advance(milliseconds * kNanosecondsPerMillisecond);
    source_.begin_request();
  }

  void WaitUntilReadable() const {
    pollfd watched{source_.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 10'000), 1);
  }

  ManualClock clock_{1000 * kNanosecondsPerSecond};
  DaemonProcess daemon_;
  DaemonSource source_{daemon_.socket(), Limits()};
};

TEST_F(DaemonSourceTest, ReadsRecordsAndRows) {
  daemon_.Start(300);
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  const kvtree::WalkResult rows = source_.walk(kFirstRow, 128);
  EXPECT_EQ(rows.status, kStatusOk);
  EXPECT_EQ(rows.rows.size(), 128U);
  EXPECT_FALSE(rows.end);
  const kvtree::WalkResult last = source_.walk("/oper/mpls_vpn/gl/interface-next/RED/250", 128);
  EXPECT_EQ(last.rows.size(), 51U);
  EXPECT_TRUE(last.end);
  EXPECT_EQ(source_.walk("/oper/mpls_vpn/gl/interface-next/RED/301", 128).status, kStatusNoSuchRow);
  EXPECT_TRUE(source_.fd() >= 0);
}

TEST_F(DaemonSourceTest, AwayDaemonFailsAtOnceAndIsTriedAtTheInterval) {
  testing::internal::CaptureStderr();
  for (int i = 0; i < 3; ++i) {
    Pass(200);
    EXPECT_EQ(source_.get(kScalars).status, kStatusNotConnected);
  }
  daemon_.Start(1);
  EXPECT_EQ(source_.get(kScalars).status, kStatusNotConnected) << "not before the interval has passed";
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 200 * kNanosecondsPerMillisecond);
  Pass(200);
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log, "daemon at " + daemon_.socket() + ": away (" + err_text(kStatusNotConnected) +
                     "); answering with errors until it is back\n" + "daemon at " + daemon_.socket() +
                     ": answers again\n");
}

TEST_F(DaemonSourceTest, ReconnectsAfterTheDaemonWasKilled) {
  daemon_.Start(1);
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  for (int i = 0; i < 2; ++i) {
    daemon_.Kill();
    EXPECT_NE(source_.get(kScalars).status, kStatusOk);
    EXPECT_EQ(source_.fd(), -1);
    daemon_.Start(1);
    Pass(200);
    EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  }
}

TEST_F(DaemonSourceTest, HangUpIsNoticedWithoutARequest) {
  daemon_.Start(1);
  source_.step();
  ASSERT_GE(source_.fd(), 0);
  daemon_.Kill();
  source_.handle_readable();
  EXPECT_EQ(source_.fd(), -1);
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 200 * kNanosecondsPerMillisecond);
}

TEST_F(DaemonSourceTest, HangingDaemonCostsOneTimeOutAndIsAskedAgainAsSoonAsItAnswers) {
  daemon_.Start(1);
  ASSERT_EQ(source_.get(kScalars).status, kStatusOk);
  daemon_.Hang();
  testing::internal::CaptureStderr();
  const auto begin = SteadyClock::now();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(source_.get(kScalars).status, kStatusTimedOut);
    Pass(100);
  }
  EXPECT_LT(SteadyClock::now() - begin, std::chrono::seconds(5)) << "a thousand time-outs would take 100 s";
  daemon_.GoOn();
  WaitUntilReadable();
  source_.handle_readable();
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk) << "although no time has passed";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "daemon at " + daemon_.socket() + ": away (" + err_text(kStatusTimedOut) +
                "); answering with errors until it is back\n" + "daemon at " + daemon_.socket() +
                ": answers again\n");
}

TEST_F(DaemonSourceTest, DaemonThatIsKilledWhileItHangsIsAway) {
  daemon_.Start(1);
  ASSERT_EQ(source_.get(kScalars).status, kStatusOk);
  daemon_.Hang();
  EXPECT_EQ(source_.get(kScalars).status, kStatusTimedOut);
  EXPECT_EQ(source_.get(kScalars).status, kStatusTimedOut);
  daemon_.Kill();
  WaitUntilReadable();
  source_.handle_readable();
  EXPECT_EQ(source_.get(kScalars).status, kStatusNotConnected);
  EXPECT_EQ(source_.fd(), -1);
}

TEST_F(DaemonSourceTest, DaemonThatEndsAfterTheBudgetIsSpentIsAway) {
  daemon_.Start(1);
  source_.begin_request();
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  clock_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_EQ(source_.get(kScalars).status, kStatusTimedOut);
  daemon_.Kill();
  WaitUntilReadable();
  source_.handle_readable();
  EXPECT_EQ(source_.get(kScalars).status, kStatusNotConnected) << "rows that were read before may be served";
}

TEST_F(DaemonSourceTest, RequestThatHasSpentItsBudgetGetsNoFurtherCall) {
  daemon_.Start(1);
  source_.begin_request();
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
  clock_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_NE(source_.get(kScalars).status, kStatusOk);
  EXPECT_NE(source_.walk(kFirstRow, 1).status, kStatusOk);
  EXPECT_GE(source_.fd(), 0) << "the connection is as good as before";
  source_.begin_request();
  EXPECT_EQ(source_.get(kScalars).status, kStatusOk);
}

TEST_F(DaemonSourceTest, ProbeHasDataOnlyWhenThePathIsServed) {
  daemon_.Start(1, false);
  source_.probe(kScalars);
  EXPECT_FALSE(source_.had_data());
  EXPECT_GE(source_.fd(), 0);
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 200 * kNanosecondsPerMillisecond);
  daemon_.Kill();
  daemon_.Start(1);
  source_.handle_readable();
  Pass(200);
  source_.probe(kScalars);
  EXPECT_TRUE(source_.had_data());
  EXPECT_EQ(source_.deadline(), UINT64_MAX);
}

TEST_F(DaemonSourceTest, RefusalLeavesTheConnection) {
  daemon_.Start(1);
  EXPECT_EQ(source_.get("/oper/mpls_vpn/gl/nothing").status, kStatusUnknownPath);
  EXPECT_GE(source_.fd(), 0);
  EXPECT_FALSE(source_.had_data());
}

}  // namespace
