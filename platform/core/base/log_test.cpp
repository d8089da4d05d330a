// The log: modules, the journal's priorities, and floods.
#include "platform/core/base/log.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/core/base/clock.h"

namespace {

constexpr std::uint64_t kSecond = kNanosecondsPerSecond;

class Log : public testing::Test {
 protected:
  Log() { testing::internal::CaptureStderr(); }
  ~Log() override {
    if (capturing_) testing::internal::GetCapturedStderr();
    log_limit(0, 0);
    unsetenv("JOURNAL_STREAM");
  }
  // Ends the capture.
  std::string Written() {
    capturing_ = false;
    return testing::internal::GetCapturedStderr();
  }
  static void MakeStandardErrorTheJournal() {
    struct stat status {};
    ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
    const std::string stream = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    setenv("JOURNAL_STREAM", stream.c_str(), 1);
  }
  static void Flood(const char* module, int lines) {
    for (int line = 1; line <= lines; ++line) log_warning(module, "client %d closed", line);
  }

 private:
  bool capturing_ = true;
};

TEST_F(Log, LineHasItsModule) {
  log_error("store", "%s: %d", "file", 7);
  log_info("", "no module");
  EXPECT_EQ(Written(), "store: file: 7\nno module\n");
}

TEST_F(Log, LongTextIsCut) {
  log_error("store", "%s", std::string(3000, 'x').c_str());
  EXPECT_EQ(Written(), "store: " + std::string(1023, 'x') + "\n");
}

TEST_F(Log, JournalReceivesThePriority) {
  MakeStandardErrorTheJournal();
  log_error("a", "x");
  log_warning("a", "x");
  log_notice("a", "x");
  log_info("", "x");
  EXPECT_EQ(Written(), "<3>a: x\n<4>a: x\n<5>a: x\n<6>x\n");
}

TEST_F(Log, OtherStreamsReceiveNoPriority) {
  setenv("JOURNAL_STREAM", "1:2", 1);
  log_error("a", "x");
  EXPECT_EQ(Written(), "a: x\n");
}

TEST_F(Log, FloodIsWrittenUpToTheLimit) {
  const ManualClock clock(0);
  log_limit(2, 10 * kSecond);
  Flood("a", 1000);
  EXPECT_EQ(Written(), "a: client 1 closed\na: client 2 closed\n");
}

TEST_F(Log, NextLineAfterTheIntervalReportsTheFlood) {
  ManualClock clock(0);
  log_limit(2, 10 * kSecond);
  Flood("a", 1000);
  clock.advance(10 * kSecond - 1);
  log_info("b", "too early");
  clock.advance(1);
  log_info("b", "something else");
  log_info("b", "reported once");
  EXPECT_EQ(Written(),
            "a: client 1 closed\na: client 2 closed\nb: too early\n"
            "a: 998 similar lines were suppressed, the last one: client 1000 closed\n"
            "b: something else\nb: reported once\n");
}

TEST_F(Log, FloodThatLastsIsOneLineInEachInterval) {
  ManualClock clock(0);
  log_limit(2, 10 * kSecond);
  for (int interval = 0; interval < 4; ++interval) {
    Flood("a", 1000);
    clock.advance(10 * kSecond);
  }
  log_info("b", "x");
  const std::string count = " similar lines were suppressed, the last one: client 1000 closed\n";
  EXPECT_EQ(Written(), "a: client 1 closed\na: client 2 closed\na: 998" + count + "a: 1000" + count +
                           "a: 1000" + count + "a: 1000" + count + "b: x\n");
}

TEST_F(Log, AfterAnIntervalWithoutLinesAFloodIsANewOne) {
  ManualClock clock(0);
  log_limit(1, kSecond);
  Flood("a", 2);
  clock.advance(kSecond);
  log_report_floods();
  clock.advance(kSecond);
  Flood("a", 2);
  const std::string count = "a: 1 similar line was suppressed, the last one: client 2 closed\n";
  EXPECT_EQ(Written(), "a: client 1 closed\n" + count + "a: client 1 closed\n");
}

TEST_F(Log, FloodThatEndsIsReportedWithoutAnotherLine) {
  ManualClock clock(0);
  log_limit(1, kSecond);
  Flood("a", 2);
  EXPECT_EQ(log_report_floods(), kSecond) << "when its interval ends";
  clock.advance(kSecond);
  EXPECT_EQ(log_report_floods(), UINT64_MAX);
  log_report_floods();
  EXPECT_EQ(Written(),
            "a: client 1 closed\na: 1 similar line was suppressed, the last one: client 2 closed\n");
}

TEST_F(Log, ReportHasTheSeverityOfItsLines) {
  ManualClock clock(0);
  MakeStandardErrorTheJournal();
  log_limit(1, kSecond);
  Flood("a", 2);
  clock.advance(kSecond);
  log_error("b", "x");
  EXPECT_EQ(Written(),
            "<4>a: client 1 closed\n<4>a: 1 similar line was suppressed, the last one: client 2 "
            "closed\n<3>b: x\n");
}

TEST_F(Log, FloodDoesNotSuppressOtherLines) {
  const ManualClock clock(0);
  log_limit(1, kSecond);
  Flood("a", 5);
  Flood("b", 1);
  log_warning("a", "another text");
  EXPECT_EQ(Written(), "a: client 1 closed\nb: client 1 closed\na: another text\n");
}

TEST_F(Log, LinesAreWrittenAgainAfterTheInterval) {
  ManualClock clock(0);
  log_limit(1, kSecond);
  for (int i = 0; i < 3; ++i) {
    Flood("a", 1);
    clock.advance(kSecond);
  }
  EXPECT_EQ(Written(), "a: client 1 closed\na: client 1 closed\na: client 1 closed\n");
}

TEST_F(Log, WithoutALimitEveryLineIsWritten) {
  Flood("a", 300);
  EXPECT_NE(Written().find("a: client 300 closed\n"), std::string::npos);
}

}  // namespace
