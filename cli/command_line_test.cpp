// Words, help, exit status, and a daemon that is not there.
#include "cli/command_line.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>

#include "cli/command_line_test_fixture.h"
#include "cli/output/json_list.h"
#include "platform/config/owners.h"
#include "platform/core/trace/trace.h"

namespace cli {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(CommandLine, HelpTeachesWithExamplesAndExitStatus) {
  EXPECT_EQ(Run({"--help"}), kExitOk);
  for (const char* part : {"show", "get", "debug", "trace", "router", "--json", "--run-dir", "--socket",
                           "Examples:", "mplsvpn show interfaces red",
                           "Exit status: 0 done, 1 the request failed, 2 usage error, 3 the daemon is not"}) {
    EXPECT_THAT(Out(), HasSubstr(part));
  }
  EXPECT_EQ(Err(), "");
}

TEST_F(CommandLine, EveryCommandHasItsOwnHelp) {
  for (const char* command : {"show", "get", "debug", "trace"}) {
    EXPECT_EQ(Run({command, "--help"}), kExitOk) << command;
    EXPECT_THAT(Out(), HasSubstr(command));
  }
}

TEST_F(CommandLine, HelpOfWatchNamesTheOriginOfEachOwner) {
  EXPECT_EQ(Run({"watch", "--help"}), kExitOk);
  std::string help = Out();
  std::replace(help.begin(), help.end(), '\n', ' ');  // lines are wrapped
  for (const vrf_config::Owner& owner : vrf_config::kOwners)
    EXPECT_THAT(help, HasSubstr(std::string(owner.origin)));
}

TEST_F(CommandLine, VersionIsPrinted) {
  EXPECT_EQ(Run({"--version"}), kExitOk);
  EXPECT_NE(Out(), "");
}

TEST_F(CommandLine, WordsThatMakeNoCommandAreUsageErrors) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"nonsense"},
      {"show"},
      {"show", "nothing"},
      {"show", "interfaces", "red", "blue"},
      {"--timeout", "0", "show", "scalars"},
      {"--timeout", "soon", "show", "scalars"},
      {"--unknown", "show", "scalars"},
      {"debug", "prov"},
      {"debug", "prov", "maybe"},
      {"debug", "a", "b", "c"},
      {"debug", "watch", "--seconds", "-1"},
      {"trace", "a", "b"},
      {"trace", "--last", "x"},
      {"router"},
      {"config"},
      {"config", "set"},
      {"config", "set", "traps", "vrf-up", "off"},
      {"config", "show", "routes"},
  };
  for (const auto& words : wrong) {
    EXPECT_EQ(Run(words), kExitUsage) << ::testing::PrintToString(words);
    EXPECT_EQ(Out(), "") << ::testing::PrintToString(words);
    EXPECT_NE(Err(), "") << ::testing::PrintToString(words);
  }
}

TEST_F(CommandLine, TimesAndCountsOfWatchingAreBounded) {
  for (const char* time : {"0", "-1", "soon", "nan", "inf", "1e400", "1e9", "366d", "5x", ""}) {
    const std::string reason =
        std::string(time) + " is not a time of more than 0 and at most 365d, such as 500ms, 30s or 2m";
    EXPECT_EQ(Run({"watch", "--timeout", time}), kExitUsage) << time;
    EXPECT_THAT(Err(), StartsWith("mplsvpn: --timeout: " + reason + " (mplsvpn watch --help)\n"));
    EXPECT_EQ(Run({"debug", "watch", "--seconds", time}), kExitUsage) << time;
    EXPECT_THAT(Err(), StartsWith("mplsvpn: --seconds: " + reason + " (mplsvpn debug --help)\n"));
  }
  for (const char* time : {"31536000", "365d", "0.5", "500ms", "2m"})
    EXPECT_EQ(Run({"watch", "--timeout", time}), kExitNoDaemon) << time;
  EXPECT_EQ(Run({"watch", "changes"}), kExitNoDaemon);
  EXPECT_EQ(Run({"watch", "everything"}), kExitUsage);
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"watch", "--count"}, {"debug", "watch", "--count"}, {"trace", "--last"}}) {
    for (const char* count : {"-1", "4294967296", "some"}) {
      std::vector<std::string> all = words;
      all.emplace_back(count);
      EXPECT_EQ(Run(all), kExitUsage) << ::testing::PrintToString(all);
      EXPECT_THAT(Err(),
                  ContainsRegex(std::string(": ") + count + " is not a number from [01] to 4294967295 "));
    }
  }
}

TEST_F(CommandLine, DaemonThatIsNotRunningIsReportedWithItsSocket) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"show", "scalars"},
                                             {"show", "interfaces"},
                                             {"get", "scalars"},
                                             {"router", "show"},
                                             {"watch"},
                                             {"config", "set", "traps", "all"}}) {
    EXPECT_EQ(Run(words), kExitNoDaemon);
    EXPECT_EQ(Out(), "");
    EXPECT_THAT(Err(), StartsWith("mplsvpn: mpls_vpn_mib is not running (nothing listens on " + Directory() +
                                  "/dev.mpls.vpn.main); "));
    EXPECT_THAT(Err(),
                HasSubstr("start it, or set its run directory with --run-dir or MPLS_VPN_MIB_RUN_DIR\n"));
  }
}

TEST_F(CommandLine, FailureAsJsonHasStatusNameAndMessage) {
  const std::vector<std::pair<std::vector<std::string>, std::pair<int, const char*>>> failures = {
      {{"show", "scalars"}, {kExitNoDaemon, "notRunning"}},
      {{"config", "show", "routes"}, {kExitUsage, "usage"}},
      {{"nonsense"}, {kExitUsage, "usage"}},
      {{"--timeout", "soon", "show", "scalars"}, {kExitUsage, "usage"}},
      {{"trace", "nothing"}, {kExitFailed, "failed"}}};
  for (const auto& [words, expected] : failures) {
    std::vector<std::string> all = words;
    all.emplace_back("--json");
    EXPECT_EQ(Run(all), expected.first) << ::testing::PrintToString(all);
    EXPECT_EQ(Out(), "");
    ASSERT_TRUE(Json::accept(Err())) << Err();
    const Json error = Json::parse(Err())["error"];
    EXPECT_EQ(error["status"], expected.first);
    EXPECT_EQ(error["name"], expected.second);
    EXPECT_NE(error["message"], "");
  }
}

TEST_F(CommandLine, DebugOfADaemonThatIsNotRunningNamesItsOwnSocket) {
  for (const char* words : {"list", "watch"}) {
    EXPECT_EQ(Run({"debug", words}), kExitNoDaemon);
    EXPECT_THAT(Err(), HasSubstr(Directory() + "/dev.mpls.vpn.debug"));
  }
}

TEST_F(CommandLine, RunDirectoryAndSocketSelectTheDaemon) {
  EXPECT_EQ(Run({"--run-dir", "/nowhere/at/all", "show", "scalars"}), kExitNoDaemon);
  EXPECT_THAT(Err(), HasSubstr("nothing listens on /nowhere/at/all/dev.mpls.vpn.main)"));
  EXPECT_EQ(Run({"--socket", "/nowhere/socket", "show", "scalars"}), kExitNoDaemon);
  EXPECT_THAT(Err(), HasSubstr("nothing listens on /nowhere/socket)"));
}

TEST_F(CommandLine, OptionsMayFollowTheCommand) {
  EXPECT_EQ(Run({"show", "scalars", "--socket", "/nowhere/socket"}), kExitNoDaemon);
  EXPECT_THAT(Err(), HasSubstr("/nowhere/socket"));
}

TEST_F(CommandLine, RouterWordsAreNotOurOptions) {
  EXPECT_EQ(Run({"--socket", "/nowhere/socket", "router", "add-vrf", "red", "description", "--json"}),
            kExitNoDaemon);
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  std::ostringstream err;
  std::ostream nowhere(nullptr);
  TraceBuffer* buffer = nullptr;
  ASSERT_EQ(trace_open("mpls_vpn/init", 4, 0, 0, 0, &buffer), kStatusOk);
  EXPECT_EQ(run({"trace"}, nowhere, err), kExitFailed);
  EXPECT_EQ(err.str(), "mplsvpn: the output cannot be written\n");
  trace_close(buffer);
}

}  // namespace
}  // namespace cli
