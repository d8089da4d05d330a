// The connection to the daemon: bounded calls, rate-limited attempts, one log line per transition.
#include "agent/daemon_source.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

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
  // Reads and waits.
  Status Read(const std::string& path, std::uint32_t max_rows = 1) {
    source_.begin_request();
    std::optional<Status> status;
    Ask(path, max_rows, &status);
    while (!status && source_.wait()) {
    }
    return status.value_or(kStatusUnfinished);
  }
  void Ask(const std::string& path, std::uint32_t max_rows, std::optional<Status>* status) {
    source_.read({path, max_rows, kKeys}, [this, status](const tables::Batch& batch) {
      *status = batch.status;
      rows_ = batch.rows;
      end_ = batch.end;
    });
  }

  void WaitUntilReadable() const {
    pollfd watched{source_.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 10'000), 1);
  }

  static constexpr std::uint8_t kKeys[] = {0, 1};
  ManualClock clock_{1000 * kNanosecondsPerSecond};
  DaemonProcess daemon_;
  DaemonSource source_{daemon_.socket(), Limits()};
  std::uint32_t rows_ = 0;
  bool end_ = false;
};

TEST_F(DaemonSourceTest, ReadsBatchesOfRows) {
  daemon_.Start(300);
  EXPECT_EQ(Read(kScalars), kStatusOk);
  EXPECT_EQ(rows_, 1U);
  EXPECT_TRUE(end_);
  EXPECT_EQ(Read(kFirstRow, 128), kStatusOk);
  EXPECT_EQ(rows_, 128U);
  EXPECT_FALSE(end_);
  EXPECT_EQ(Read("/oper/mpls_vpn/gl/interface-next/RED/250", 128), kStatusOk);
  EXPECT_EQ(rows_, 51U);
  EXPECT_TRUE(end_);
  EXPECT_EQ(Read("/oper/mpls_vpn/gl/interface-next/RED/301", 128), kStatusNoSuchRow);
  EXPECT_GE(source_.fd(), 0);
}

TEST_F(DaemonSourceTest, SeveralBatchesAreUnderWayAndAnsweredInOrder) {
  daemon_.Start(300);
  std::vector<int> order;
  for (int i = 0; i < 5; ++i)
    source_.read({kScalars, 1, kKeys}, [&, i](const tables::Batch&) { order.push_back(i); });
  while (source_.wait()) {
  }
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(DaemonSourceTest, AwayDaemonFailsAtOnceAndIsTriedAtTheInterval) {
  testing::internal::CaptureStderr();
  for (int i = 0; i < 3; ++i) {
    Pass(200);
    EXPECT_EQ(Read(kScalars), kStatusNotConnected);
  }
  daemon_.Start(1);
  EXPECT_EQ(Read(kScalars), kStatusNotConnected) << "not before the interval has passed";
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 200 * kNanosecondsPerMillisecond);
  Pass(200);
  EXPECT_EQ(Read(kScalars), kStatusOk);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(log, "daemon at " + daemon_.socket() + ": away (" + err_text(kStatusNotConnected) +
                     "); answering with errors until it is back\n" + "daemon at " + daemon_.socket() +
                     ": answers again\n");
}

TEST_F(DaemonSourceTest, ReconnectsAfterTheDaemonWasKilled) {
  daemon_.Start(1);
  EXPECT_EQ(Read(kScalars), kStatusOk);
  for (int i = 0; i < 2; ++i) {
    daemon_.Kill();
    EXPECT_NE(Read(kScalars), kStatusOk);
    EXPECT_EQ(source_.fd(), -1);
    daemon_.Start(1);
    Pass(200);
    EXPECT_EQ(Read(kScalars), kStatusOk);
  }
}

TEST_F(DaemonSourceTest, BatchesUnderWayFailWhenTheDaemonIsKilled) {
  daemon_.Start(1);
  ASSERT_EQ(Read(kScalars), kStatusOk);
  daemon_.Hang();
  std::optional<Status> first;
  std::optional<Status> second;
  Ask(kScalars, 1, &first);
  Ask(kFirstRow, 1, &second);
  daemon_.Kill();
  source_.handle_readable();
  EXPECT_EQ(first, std::optional(kStatusNotConnected));
  EXPECT_EQ(second, std::optional(kStatusNotConnected));
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
  ASSERT_EQ(Read(kScalars), kStatusOk);
  daemon_.Hang();
  testing::internal::CaptureStderr();
  const auto begin = SteadyClock::now();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(Read(kScalars), kStatusTimedOut);
    Pass(100);
  }
  EXPECT_LT(SteadyClock::now() - begin, std::chrono::seconds(5)) << "a thousand time-outs would take 100 s";
  daemon_.GoOn();
  WaitUntilReadable();
  source_.handle_readable();
  EXPECT_EQ(Read(kScalars), kStatusOk) << "although no time has passed";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "daemon at " + daemon_.socket() + ": away (" + err_text(kStatusTimedOut) +
                "); answering with errors until it is back\n" + "daemon at " + daemon_.socket() +
                ": answers again\n");
}

TEST_F(DaemonSourceTest, DaemonThatIsKilledWhileItHangsIsAway) {
  daemon_.Start(1);
  ASSERT_EQ(Read(kScalars), kStatusOk);
  daemon_.Hang();
  EXPECT_EQ(Read(kScalars), kStatusTimedOut);
  EXPECT_EQ(Read(kScalars), kStatusTimedOut);
  daemon_.Kill();
  WaitUntilReadable();
  source_.handle_readable();
  EXPECT_EQ(Read(kScalars), kStatusNotConnected);
  EXPECT_EQ(source_.fd(), -1);
}

TEST_F(DaemonSourceTest, ReadingFromAHangingDaemonDoesNotWait) {
  daemon_.Start(1);
  ASSERT_EQ(Read(kScalars), kStatusOk);
  daemon_.Hang();
  std::optional<Status> status;
  Ask(kScalars, 1, &status);
  EXPECT_FALSE(status);
  clock_.advance(100 * kNanosecondsPerMillisecond - 1);
  source_.step();
  EXPECT_FALSE(status);
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 1);
  clock_.advance(1);
  source_.step();
  EXPECT_EQ(status, std::optional(kStatusTimedOut));
}

TEST_F(DaemonSourceTest, RequestThatHasSpentItsBudgetDoesNotWait) {
  daemon_.Start(1);
  EXPECT_EQ(Read(kScalars), kStatusOk);
  std::optional<Status> status;
  source_.begin_request();
  Ask(kScalars, 1, &status);
  clock_.advance(500 * kNanosecondsPerMillisecond);
  EXPECT_FALSE(source_.wait());
  EXPECT_GE(source_.fd(), 0) << "the connection is as good as before";
}

TEST_F(DaemonSourceTest, ProbeHasDataOnlyWhenThePathIsServed) {
  const auto probe = [this] {
    source_.begin_request();
    source_.probe(kScalars);
    while (source_.wait()) {
    }
  };
  daemon_.Start(1, false);
  probe();
  EXPECT_FALSE(source_.had_data());
  EXPECT_GE(source_.fd(), 0);
  EXPECT_EQ(source_.deadline(), clock_monotonic() + 200 * kNanosecondsPerMillisecond);
  daemon_.Kill();
  daemon_.Start(1);
  source_.handle_readable();
  Pass(200);
  probe();
  EXPECT_TRUE(source_.had_data());
  EXPECT_EQ(source_.deadline(), UINT64_MAX);
}

TEST_F(DaemonSourceTest, RefusalLeavesTheConnection) {
  daemon_.Start(1);
  EXPECT_EQ(Read("/oper/mpls_vpn/gl/nothing"), kStatusNoHandler);
  EXPECT_GE(source_.fd(), 0);
  EXPECT_FALSE(source_.had_data());
}

}  // namespace
