// Error messages: the line, its destinations, and what reaches the system log. The test program defines
// syslog(3) and openlog(3) itself; the linker prefers them to the library's.
#include "platform/core/errmsg/errmsg.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/core/base/clock.h"

namespace {

struct SystemLog {
  int priority = -1;
  std::string text;
  std::string identity;
  int options = 0;
  int facility = 0;
};

SystemLog& system_log() {
  static SystemLog log;
  return log;
}

[[gnu::format(printf, 2, 0)]] void log_message(int priority, const char* format, va_list arguments) {
  char text[2048];
  std::vsnprintf(text, sizeof text, format, arguments);
  system_log().priority = priority;
  system_log().text = text;
}

}  // namespace

extern "C" [[gnu::format(printf, 2, 3)]] void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log_message(priority, format, arguments);
  va_end(arguments);
}

// What syslog() becomes in fortified builds.
extern "C" [[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int flag, const char* format, ...);
extern "C" void __syslog_chk(int priority, int flag, const char* format, ...) {
  static_cast<void>(flag);
  va_list arguments;
  va_start(arguments, format);
  log_message(priority, format, arguments);
  va_end(arguments);
}

extern "C" void openlog(const char* identity, int options, int facility) {
  system_log().identity = identity;
  system_log().options = options;
  system_log().facility = facility;
}

namespace {

constexpr ErrmsgRecord kInit = {"MPLS_VPN_MIB", "OS", 3, "ERR_INIT", "%s : %s", 2};
constexpr ErrmsgRecord kLoad = {"MPLS_VPN_MIB", "OS", 3, "ERR_DLL_LOAD", "Cannot load DLL: %s ", 0};

class ErrmsgTest : public testing::Test {
 protected:
  void SetUp() override {
    errmsg_open("test", 0, 0);
    system_log() = {};
    unsetenv("JOURNAL_STREAM");
    errmsg_capture(&lines_);
  }
  void TearDown() override {
    errmsg_capture(nullptr);
    unsetenv("JOURNAL_STREAM");
  }
  static std::string StandardErrorOf(const ErrmsgRecord& record) {
    testing::internal::CaptureStderr();
    errmsg_post(&record, "one", "two");
    return testing::internal::GetCapturedStderr();
  }
  std::string lines_;
  ManualClock clock_{kNanosecondsPerSecond};
};

TEST_F(ErrmsgTest, LineNamesFacilityCategorySeverityAndMnemonic) {
  errmsg_post(&kInit, "Debug initialization failed exiting...", "Input/output error");
  EXPECT_EQ(lines_,
            "%MPLS_VPN_MIB-OS-3-ERR_INIT : Debug initialization failed exiting... : Input/output error\n");
}

TEST_F(ErrmsgTest, SystemLogGetsTheLineWithTheRecordsSeverity) {
  errmsg_post(&kLoad, "mib/libipv4_forwardmib.dll");
  EXPECT_EQ(system_log().priority, LOG_ERR);
  EXPECT_EQ(system_log().text,
            "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: mib/libipv4_forwardmib.dll ");
}

TEST_F(ErrmsgTest, ArgumentsAreNotFormats) {
  errmsg_post(&kInit, "error in event_manager_create for main_evm: %s\n", "text");
  EXPECT_EQ(system_log().text,
            "%MPLS_VPN_MIB-OS-3-ERR_INIT : error in event_manager_create for main_evm: %s\n : text");
}

TEST_F(ErrmsgTest, OpeningPassesIdentityOptionsAndFacility) {
  errmsg_open("mpls_vpn_mib", 19, 24);
  EXPECT_EQ(system_log().identity, "mpls_vpn_mib");
  EXPECT_EQ(system_log().options, 19);
  EXPECT_EQ(system_log().facility, 24);
}

TEST_F(ErrmsgTest, StandardErrorGetsTheLineUnlessItIsTheJournal) {
  EXPECT_EQ(StandardErrorOf(kInit), "%MPLS_VPN_MIB-OS-3-ERR_INIT : one : two\n");
  setenv("JOURNAL_STREAM", "1:2", 1);
  clock_.advance(kErrmsgQuietTime);
  EXPECT_EQ(StandardErrorOf(kInit), "%MPLS_VPN_MIB-OS-3-ERR_INIT : one : two\n");
}

TEST_F(ErrmsgTest, RepeatedLineIsCountedUntilTheQuietTimeIsOver) {
  const std::string line = "%MPLS_VPN_MIB-OS-3-ERR_INIT : one : two\n";
  EXPECT_EQ(StandardErrorOf(kInit), line);
  clock_.advance(kErrmsgQuietTime - 1);
  system_log() = {};
  EXPECT_EQ(StandardErrorOf(kInit), "");
  EXPECT_EQ(StandardErrorOf(kInit), "");
  EXPECT_EQ(system_log().text, "");
  EXPECT_EQ(StandardErrorOf(kLoad), "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: one \n")
      << "another line";
  clock_.advance(1);
  EXPECT_EQ(StandardErrorOf(kInit), line + "last message repeated 2 times\n");
  EXPECT_EQ(lines_, line + line + line + "%MPLS_VPN_MIB-OS-3-ERR_DLL_LOAD : Cannot load DLL: one \n" + line);
  clock_.advance(kErrmsgQuietTime);
  EXPECT_EQ(StandardErrorOf(kInit), line) << "not repeated since";
}

TEST_F(ErrmsgTest, ManyDifferentLinesAreAllWritten) {
  for (int number = 0; number < 200; ++number) {
    errmsg_post(&kInit, std::to_string(number).c_str(), "x");
    EXPECT_EQ(system_log().text, "%MPLS_VPN_MIB-OS-3-ERR_INIT : " + std::to_string(number) + " : x");
  }
}

TEST_F(ErrmsgTest, JournalGetsTheLineOnce) {
  testing::internal::CaptureStderr();
  struct stat status {};
  ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
  setenv("JOURNAL_STREAM", (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
  errmsg_post(&kInit, "one", "two");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(system_log().text, "%MPLS_VPN_MIB-OS-3-ERR_INIT : one : two");
}

TEST_F(ErrmsgTest, LongLineIsCut) {
  errmsg_post(&kInit, std::string(5000, 'x').c_str(), "never reached");
  EXPECT_EQ(system_log().text.size(), 1023U);
}

TEST_F(ErrmsgTest, MissingRecordPostsNothing) {
  errmsg_post(nullptr);
  EXPECT_EQ(system_log().priority, -1);
  EXPECT_EQ(lines_, "");
}

}  // namespace
