// "show status" against a data store in this process.
#include <gmock/gmock.h>
#include <unistd.h>

#include "cli/served_test_fixture.h"
#include "platform/store/status/status.h"

namespace cli {
namespace {

using ::testing::MatchesRegex;

class ShowStatus : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    ASSERT_EQ(process_status_start(manager_, {"1.2.3", "the kernel"}), kStatusOk);
  }
  void TearDown() override {
    process_status_stop();
    ServedCommandLine::TearDown();
  }
};

TEST_F(ShowStatus, TextHasTheProcessAndALineForEachClient) {
  EXPECT_THAT(AskForText({"show", "status"}),
              MatchesRegex("version                     1\\.2\\.3\n"
                           "source                      the kernel\n"
                           "up for                      00:00:[0-9][0-9]\n"
                           "loop iterations over 50 ms  (none|[0-9]+, the longest .*)\n"
                           "\n"
                           "CLIENT  USER +PROCESS  ROLE +AGE  REQUESTS  PER SECOND  LOOP MS  QUEUED\n"
                           " +1  [^ ]+ +[0-9]+  configure  00:00:[0-9][0-9] +0 +0 +[0-9]+ +0\n"));
}

TEST_F(ShowStatus, JsonHasTheSame) {
  const Json status = AskForJson({"show", "status"});
  EXPECT_EQ(status["version"], "1.2.3");
  EXPECT_EQ(status["source"], "the kernel");
  ASSERT_EQ(status["clients"].size(), 1U);
  const Json& self = status["clients"][0];
  EXPECT_EQ(self["user"], getuid());
  EXPECT_EQ(self["process"], getpid());
  EXPECT_EQ(self["role"], "configure");
  EXPECT_EQ(self["requests"], 0);
}

TEST_F(ShowStatus, OlderDaemonIsReported) {
  process_status_stop();
  EXPECT_EQ(Ask({"show", "status"}), kExitFailed);
  EXPECT_THAT(Err(), ::testing::HasSubstr("/oper/process/status"));
}

}  // namespace
}  // namespace cli
