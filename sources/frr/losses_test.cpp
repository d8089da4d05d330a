// Programs of the suite that are absent, lost, or started again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "sources/frr/frr_source.h"
#include "sources/frr/frr_source_test_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

TEST_F(FrrSourceTest, ConfigurationOfALostProgramStays) {
  StartWith("bgpd", bgp_red(kRd10));
  for (const char* state : {"ended", "absent", "ending", "garbage", "cut", "reconnected"}) {
    suite.Become("bgpd", state);
    AwaitFailure("bgpd");
    EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words)) << state;
  }
}

TEST_F(FrrSourceTest, RestartedProgramIsFollowedAgain) {
  StartWith("bgpd", bgp_red(kRd10));
  RestartBgpd(bgp_red(std::string(kRd10) + kTarget10));
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words, kTarget10Words));
}

// A program that was just started has not loaded its configuration yet.
TEST_F(FrrSourceTest, StartedProgramWithoutItsConfigurationRemovesNothing) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  RestartBgpd("");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words, kTarget10Words));
  suite.Configure("bgpd", bgp_red(kTarget10));
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words, kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramAddsAndChangesAtOnce) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  RestartBgpd(bgp_red("  rd vpn export 65000:11\n  rt vpn export 65000:12\n"));
  EXPECT_THAT(Stored(), UnorderedElementsAre("vrf red rd 65000:11 ipv4", "vrf red rt export 65000:12 ipv4",
                                             kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramSettlesWhenItReportsTheSameForAWhile) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  RestartBgpd(bgp_red(kRd10));
  PumpFor(Options().settling);
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, StartedProgramDoesNotSettleWhileItsConfigurationChanges) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  RestartBgpd(bgp_red(kRd10));
  PumpFor(kNotEnough);
  suite.Configure("bgpd", bgp_red(std::string(kRd10) + "  rt vpn export 65000:12\n"));
  AwaitAnswer("bgpd");
  PumpFor(kNotEnough);
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), Contains(kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramDoesNotSettleWhenItIsRestarted) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  for (int time = 0; time < 2; ++time) {
    RestartBgpd(bgp_red(kRd10));
    PumpFor(kNotEnough);
  }
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), Contains(kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramWithoutConfigurationSettlesLater) {
  StartWith("bgpd", bgp_red(kRd10));
  RestartBgpd("");
  PumpFor(Options().settling);
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
  PumpFor(Options().settling_empty);
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(FrrSourceTest, StartedProgramSettlesWhenItHasReportedEverything) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Become("bgpd", "absent");
  AwaitFailure("bgpd");
  suite.Become("bgpd", "ok");
  AwaitAnswer("bgpd");
  suite.Configure("bgpd", bgp_red(kRd10));
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, MissingSuiteIsNotLogged) {
  StopSuite();
  testing::internal::CaptureStderr();
  Start();
  AwaitFailure("bgpd");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(FrrSourceTest, MissingWantedSuiteIsLoggedOnce) {
  StopSuite();
  testing::internal::CaptureStderr();
  StartWanted();
  AwaitFailure("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log,
              HasSubstr("frr: no program of the routing suite answers through '" + suite.shell()[0] + " "));
  EXPECT_THAT(log, HasSubstr("failed to connect to any daemons"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(FrrSourceTest, MissingWantedShellIsLoggedOnce) {
  FrrSource::Options options = Options();
  options.shell = {"/nowhere/vtysh", "-N", "pe1"};
  for (const bool wanted : {true, false}) {
    testing::internal::CaptureStderr();
    options.wanted = wanted;
    Start(options);
    PumpFor(10 * options.longest_pause);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              wanted ? "frr: no program of the routing suite answers through '/nowhere/vtysh -N pe1' "
                       "(No such file or directory); start the suite or correct 'frr' in platform.yaml\n"
                     : "");
  }
}

TEST_F(FrrSourceTest, SuiteThatTheUserMayNotAskIsLoggedOnceWhateverTheSetting) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can become another user";
  StopSuite();
  FrrSource::Options options = Options();
  options.sockets = directory.path();
  ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
  for (const char* program : {"bgpd", "zebra"}) {
    const std::string socket = directory.path() + "/" + program + ".vty";
    std::ofstream(socket).close();
    ASSERT_EQ(chmod(socket.c_str(), 0700), 0);
  }
  Start(options);
  testing::internal::CaptureStderr();
  ASSERT_EQ(seteuid(65534), 0);
  PumpFor(10 * options.longest_pause);
  ASSERT_EQ(seteuid(0), 0);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr(".vty; add it to the group root and restart the daemon, or set 'frr: false'"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
  const auto facts = source->facts();
  ASSERT_EQ(facts.size(), 1U);
  EXPECT_EQ(facts[0].name, "frr");
  EXPECT_FALSE(facts[0].is_up);
  EXPECT_THAT(facts[0].problem, HasSubstr(".vty; add it to the group root and restart the daemon"));
}

TEST_F(FrrSourceTest, WantedSuiteThatRunsInPartIsNotLogged) {
  StopSuite();
  suite.Become("zebra", "ok");
  testing::internal::CaptureStderr();
  StartWanted();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("no program")));
}

TEST_F(FrrSourceTest, LossAndReturnAreLoggedOnce) {
  suite.Configure("bgpd", bgp_red(kRd10));
  testing::internal::CaptureStderr();
  Start();
  AwaitAnswer("bgpd");
  suite.Become("bgpd", "absent");
  AwaitFailure("bgpd");
  AwaitFailure("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  const std::size_t lost = log.find("frr: bgpd does not answer");
  EXPECT_NE(lost, std::string::npos) << log;
  EXPECT_EQ(log.rfind("frr: bgpd does not answer"), lost);
  EXPECT_NE(log.find("frr: bgpd answers"), std::string::npos);
}

TEST_F(FrrSourceTest, ProgramThatNeverAnsweredIsAskedAtGrowingIntervals) {
  suite.Become("bgpd", "absent");
  Start();
  PumpUntil([&] { return suite.Started("bgpd") >= 3; });
  const std::uint64_t before = clock_monotonic();
  PumpUntil([&] { return suite.Started("bgpd") >= 5; });
  EXPECT_GE(clock_monotonic() - before, 2 * 8 * kNanosecondsPerSecond);
  EXPECT_LE(clock_monotonic() - before, 3 * Options().longest_pause);
}

// Each question to a lost program starts a shell.
TEST_F(FrrSourceTest, ProgramThatIsLostIsAskedEveryFourSeconds) {
  StartWith("bgpd", bgp_red(kRd10));
  suite.Become("bgpd", "absent");
  const std::size_t started = suite.Started("bgpd");
  PumpUntil([&] { return suite.Started("bgpd") >= started + 4; });
  const std::uint64_t before = clock_monotonic();
  PumpUntil([&] { return suite.Started("bgpd") >= started + 7; });
  EXPECT_GE(clock_monotonic() - before, 3 * Options().longest_pause_of_lost - kStep);
  EXPECT_LE(clock_monotonic() - before, 4 * Options().longest_pause_of_lost);
}

// Whose folder has sockets of the others.
TEST_F(FrrSourceTest, ShellIsNotStartedAgainForAProgramWithoutASocket) {
  FrrSource::Options options = Options();
  options.sockets = directory.path();
  const SuiteSocket zebra(directory.path() + "/zebra.vty");
  suite.Become("bgpd", "absent");
  suite.Configure("bgpd", bgp_red(kRd10));
  Start(options);
  PumpUntil([&] { return suite.Started("bgpd") >= 1; });
  AwaitAnswer("zebra");  // whose answer has bgpd asked once more
  PumpFor(2 * options.longest_pause);
  const std::size_t started = suite.Started("bgpd");
  EXPECT_LE(started, 2U);
  PumpFor(10 * options.longest_pause);
  EXPECT_EQ(suite.Started("bgpd"), started);
  suite.Become("bgpd", "ok");
  const SuiteSocket bgpd(directory.path() + "/bgpd.vty");
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, LostProgramIsAskedSoonerWhenAnotherOneReturns) {
  FrrSource::Options options = Options();
  options.longest_pause_of_lost = 600 * kNanosecondsPerSecond;
  Start(options);
  AwaitAnswers({"bgpd", "ospfd"});
  suite.Become("ospfd", "absent");
  const std::size_t started = suite.Started("ospfd");
  PumpUntil([&] { return suite.Started("ospfd") >= started + 5; });  // the next start is in 16 s
  PumpFor(options.interval);                                         // this one has failed
  suite.Become("ospfd", "ok");
  RestartBgpd(bgp_red(kRd10));
  const std::uint64_t before = clock_monotonic();
  AwaitAnswer("ospfd");
  EXPECT_LE(clock_monotonic() - before, 4 * options.interval);
}

TEST_F(FrrSourceTest, RemovalDuringARestartDoesNotWaitForAProgramThatTheSuiteDoesNotHave) {
  StartWith("staticd", std::string(kStaticRed) + "vrf blue\n ip route 10.9.0.0/16 blue1\nexit-vrf\n");
  suite.Become("staticd", "absent");
  AwaitFailure("staticd");
  suite.Configure("staticd", kStaticRed);
  suite.Become("staticd", "ok");
  AwaitAnswer("staticd");
  EXPECT_EQ(Stored().size(), 2U);
  PumpFor(Options().settling);
  AwaitAnswer("staticd");
  EXPECT_EQ(Stored().size(), 1U);
}

}  // namespace
