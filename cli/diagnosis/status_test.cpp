// "show status" against a data store in this process.
#include <gmock/gmock.h>
#include <unistd.h>

#include <memory>

#include "cli/output/times.h"
#include "cli/served_test_fixture.h"
#include "platform/core/debug/debug.h"
#include "platform/store/server/server.h"
#include "platform/store/status/status.h"

namespace cli {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class ShowStatus : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    StartStatus({MPLS_VERSION, "the kernel", [] { return 7; }, [] { return 3; }});
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
  void StartStatus(const ProcessIdentity& identity) {
    process_status_stop();
    ASSERT_EQ(process_status_start(manager_, identity), kStatusOk);
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
              MatchesRegex("version                     " MPLS_VERSION "\n"
                           "source                      the kernel\n"
                           "up for                      00:00:[0-9][0-9]\n"
                           "loop iterations over 50 ms  (none|[0-9]+, the longest .*)\n"
                           "route corrections           7\n"
                           "malformed messages          3\n"
                           "route modules               loaded\n"
                           "metrics                     off\n"
                           "missing routes              unknown\n"
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
  EXPECT_EQ(status["version"], MPLS_VERSION);
  EXPECT_EQ(status["commandLineVersion"], MPLS_VERSION);
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
  StartStatus({MPLS_VERSION, "router file a.yaml"});
  EXPECT_THAT(AskForText({"show", "status"}),
              ::testing::Not(::testing::ContainsRegex("corrections|malformed")));
  EXPECT_TRUE(AskForJson({"show", "status"})["routeCorrections"].is_null());
  EXPECT_TRUE(AskForJson({"show", "status"})["malformedMessages"].is_null());
}

TEST_F(ShowStatus, DaemonOfAnotherVersionIsNamed) {
  StartStatus({"0.0.1", "the kernel"});
  EXPECT_THAT(AskForText({"show", "status"}),
              StartsWith("version                     0.0.1, this command line is of version " MPLS_VERSION));
}

ProcessIdentity identity_with_facts() {
  return {.version = MPLS_VERSION,
          .source = "the kernel",
          .sources =
              [] {
                return std::vector<process_status::SourceFact>{{"kernel", "6.1.0", true, 1'700'000'000, ""},
                                                               {"bgpd", "", false, 0, "it does not run"}};
              },
          .databases =
              [] {
                return std::vector<process_status::DatabaseFact>{
                    {"checkpoint", "/nowhere/c.db", "disk full", {3, "quarantine_record"}}};
              },
          .route_module_failures = [] { return std::vector<std::string>{"mib/x.dll: missing"}; },
          .traps =
              [] {
                return std::optional(process_status::TrapsFact{3, 4096, 2, 1});
              }};
}

TEST_F(ShowStatus, TextHasSourcesDatabasesTrapsAndRouteModules) {
  StartStatus(identity_with_facts());
  const std::string text = AskForText({"show", "status"});
  EXPECT_THAT(text, HasSubstr("route modules               not loaded: mib/x.dll: missing\n"));
  EXPECT_THAT(text, ContainsRegex("SNMP front end              .+, process " + std::to_string(getpid()) +
                                  ", connected for 00:00:.., of an unknown version\n"));
  EXPECT_THAT(text,
              HasSubstr("traps waiting for it        3 of at most 4096, 2 lost while the queue was full\n"));
  EXPECT_THAT(text, ContainsRegex("SOURCE  STATE  VERSION  LAST ANSWER\n"
                                  "kernel  up     6\\.1\\.0 +[0-9]+d[0-9]+h\n"
                                  "bgpd    down   - +-\n"
                                  "bgpd: it does not run\n\n"));
  EXPECT_THAT(text, HasSubstr("databases in /nowhere:\n"
                              "DATABASE     SIZE  SET ASIDE  QUARANTINED  FILE\n"
                              "checkpoint  0 KiB          0            3  c.db\n"
                              "checkpoint: disk full\n\n"));
}

TEST_F(ShowStatus, JsonOfFactsIsTyped) {
  StartStatus(identity_with_facts());
  const Json status = AskForJson({"show", "status"});
  EXPECT_EQ(status["sources"][0], Json({{"name", "kernel"},
                                        {"state", "up"},
                                        {"version", "6.1.0"},
                                        {"lastAnswer", 1'700'000'000},
                                        {"lastAnswerText", local_time_text(1'700'000'000)},
                                        {"problem", nullptr}}));
  EXPECT_EQ(status["sources"][1], Json({{"name", "bgpd"},
                                        {"state", "down"},
                                        {"version", nullptr},
                                        {"lastAnswer", nullptr},
                                        {"lastAnswerText", nullptr},
                                        {"problem", "it does not run"}}));
  EXPECT_EQ(status["routeModules"], Json({{"loaded", false}, {"problems", {"mib/x.dll: missing"}}}));
  EXPECT_EQ(status["traps"],
            Json({{"waiting", 3}, {"capacity", 4096}, {"lost", 2}, {"withoutFrontEnd", nullptr}}));
  EXPECT_EQ(status["frontEnd"]["kind"], "other");
  EXPECT_EQ(status["frontEnd"]["process"], getpid());
  EXPECT_EQ(status["databases"][0]["problem"], "disk full");
  EXPECT_EQ(status["databases"][0]["quarantined"], 3);
}

TEST_F(ShowStatus, FrontEndThatWasNotStartedAgainAfterAnUpgradeIsNamed) {
  ProcessIdentity identity = identity_with_facts();
  identity.version = "2.0";
  StartStatus(identity);
  const auto queue = std::make_shared<kvtree::NotificationQueue>("the front end", 2);
  kvtree::the_server()->subscriptions[1] = {{1, "/", queue, "1.0"}};  // of the client that asks
  EXPECT_THAT(AskForText({"show", "status"}),
              ContainsRegex(", version 1.0: start it again, the daemon is of another one\n"));
}

TEST_F(ShowStatus, FrontEndThatIsNotConnectedIsNull) {
  StartStatus({.traps = [] { return std::optional(process_status::TrapsFact{0, 4096, 0, 0, 65}); }});
  EXPECT_THAT(AskForText({"show", "status"}),
              HasSubstr("SNMP front end              none is connected for 00:01:05; traps wait\n"));
  EXPECT_TRUE(AskForJson({"show", "status"})["frontEnd"].is_null());
  EXPECT_EQ(AskForJson({"show", "status"})["traps"]["withoutFrontEnd"], 65);
}

TEST_F(ShowStatus, OlderDaemonIsReported) {
  process_status_stop();
  EXPECT_EQ(Ask({"show", "status"}), kExitFailed);
  EXPECT_EQ(Err(),
            "mplsvpn: show status: mpls_vpn_mib does not know this request: it is of an earlier release than "
            "mplsvpn, or still starting\n");
}

}  // namespace
}  // namespace cli
