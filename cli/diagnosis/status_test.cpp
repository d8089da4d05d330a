// "show status" against a data store in this process.
#include <gmock/gmock.h>
#include <unistd.h>

#include "cli/served_test_fixture.h"
#include "platform/core/debug/debug.h"
#include "platform/store/status/status.h"

namespace cli {
namespace {

using ::testing::MatchesRegex;

class ShowStatus : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    ASSERT_EQ(process_status_start(manager_, {"1.2.3", "the kernel", [] { return 7; }, [] { return 3; }}),
              kStatusOk);
    debug_manager_ = event_manager_create("/dev/mpls/vpn/debug", 0);
    ASSERT_NE(debug_manager_, nullptr);
    ASSERT_EQ(debug_init_event(&flag_, &flag_, 0, 7, "prov", 1), kStatusOk);
    ASSERT_EQ(debug_register("/debug/mpls_vpn/", &flag_, 1, debug_manager_), kStatusOk);
    debug_thread_ = std::thread([this] {
      while (!is_over_) event_run_pending(debug_manager_, kNanosecondsPerSecond);
    });
  }
  void TearDown() override {
    EndDebugManager();
    process_status_stop();
    ServedCommandLine::TearDown();
  }
  void EndDebugManager() {
    if (!debug_thread_.joinable()) return;
    event_post(debug_manager_, [this] {
      EXPECT_EQ(debug_cleanup("/debug/mpls_vpn/"), kStatusOk);
      is_over_ = true;
    });
    debug_thread_.join();
    event_manager_destroy(debug_manager_);
  }

  DebugFlag flag_;
  EventManager* debug_manager_ = nullptr;
  std::thread debug_thread_;
  std::atomic<bool> is_over_{false};
};

constexpr const char* kClientTable =
    "CLIENT  USER +PROCESS  ROLE +AGE  REQUESTS  PER SECOND  LOOP MS  QUEUED\n"
    " +1  [^ ]+ +[0-9]+  configure  00:00:[0-9][0-9] +0 +0 +[0-9]+ +0\n";

TEST_F(ShowStatus, TextHasTheProcessAndALineForEachClient) {
  EXPECT_THAT(AskForText({"show", "status"}),
              MatchesRegex("version                     1\\.2\\.3\n"
                           "source                      the kernel\n"
                           "up for                      00:00:[0-9][0-9]\n"
                           "loop iterations over 50 ms  (none|[0-9]+, the longest .*)\n"
                           "route corrections           7\n"
                           "malformed messages          3\n"
                           "\n" +
                           std::string(kClientTable) + "\nclients of the debug socket:\n" + kClientTable));
}

TEST_F(ShowStatus, ClientsOfADebugSocketWithoutAServerAreUnknown) {
  EndDebugManager();
  EXPECT_THAT(
      AskForText({"show", "status"}),
      ::testing::EndsWith("\nclients of the debug socket: unknown (Transport endpoint is not connected)\n"));
  EXPECT_TRUE(AskForJson({"show", "status"})["debugClients"].is_null());
}

TEST_F(ShowStatus, JsonHasTheSame) {
  const Json status = AskForJson({"show", "status"});
  EXPECT_EQ(status["version"], "1.2.3");
  EXPECT_EQ(status["source"], "the kernel");
  EXPECT_EQ(status["routeCorrections"], 7);
  EXPECT_EQ(status["malformedMessages"], 3);
  ASSERT_EQ(status["clients"].size(), 1U);
  const Json& self = status["clients"][0];
  EXPECT_EQ(self["user"], getuid());
  EXPECT_EQ(self["process"], getpid());
  EXPECT_EQ(self["role"], "configure");
  EXPECT_EQ(self["requests"], 0);
  ASSERT_EQ(status["debugClients"].size(), 1U);
  EXPECT_EQ(status["debugClients"][0]["process"], getpid());
  EXPECT_EQ(status["debugClients"][0]["role"], "configure");
}

TEST_F(ShowStatus, SourceWithoutAKernelHasNeitherCorrectionsNorMalformedMessages) {
  process_status_stop();
  ASSERT_EQ(process_status_start(manager_, {"1.2.3", "router file a.yaml"}), kStatusOk);
  EXPECT_THAT(AskForText({"show", "status"}),
              ::testing::Not(::testing::ContainsRegex("corrections|malformed")));
  EXPECT_TRUE(AskForJson({"show", "status"})["routeCorrections"].is_null());
  EXPECT_TRUE(AskForJson({"show", "status"})["malformedMessages"].is_null());
}

TEST_F(ShowStatus, OlderDaemonIsReported) {
  process_status_stop();
  EXPECT_EQ(Ask({"show", "status"}), kExitFailed);
  EXPECT_THAT(Err(), ::testing::HasSubstr("/oper/process/status"));
}

}  // namespace
}  // namespace cli
