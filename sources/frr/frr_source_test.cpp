#include "sources/frr/frr_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/config/test_support.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/store/configuration/config.h"
#include "sources/frr/fake_suite_test_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kTurn = 20 * kNanosecondsPerMillisecond;
constexpr auto kBound = std::chrono::seconds(30);

constexpr char kRd10[] = "  rd vpn export 65000:10\n";
constexpr char kTarget10[] = "  rt vpn import 65000:10\n";
constexpr char kRd10Words[] = "vrf red rd 65000:10 ipv4";
constexpr char kTarget10Words[] = "vrf red rt import 65000:10 ipv4";
constexpr char kStaticRed[] = "vrf red\n ip route 10.9.0.0/16 red1\nexit-vrf\n";

std::string bgp_red(const std::string& lines) {
  return "router bgp 65000 vrf red\n address-family ipv4 unicast\n" + lines + " exit-address-family\nexit\n";
}

class FrrSourceTest : public ::testing::Test {
 protected:
  FrrSourceTest() {
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
    EXPECT_EQ(kvtree_keep_configuration(directory.path()), kStatusOk);
    AddInterface("blue1", "10.2.0.1/30", "blue");
  }
  ~FrrSourceTest() override {
    source.reset();
    kvtree_reset();
    event_manager_destroy(manager);
    fault_disarm_all();
  }
  void AddInterface(const std::string& name, const std::string& address, const std::string& vrf) {
    router::Interface added;
    added.name = name;
    added.vrf = vrf;
    added.index = static_cast<std::uint32_t>(router.interface_count()) + 1;
    added.addresses.emplace_back();
    ASSERT_TRUE(router::parse_address(address, &added.addresses.back()));
    ASSERT_EQ(router.add_interface(added), kStatusOk);
  }
  FrrSource::Options Options() const {
    FrrSource::Options options;
    options.shell = suite.shell();
    options.limits.patience = 3600 * kNanosecondsPerSecond;  // the clock runs ahead of the processes
    return options;
  }
  void Start() { Start(Options()); }
  void Start(const FrrSource::Options& options) {
    source = std::make_unique<FrrSource>(&router, options);
    ASSERT_EQ(source->load(&error), kStatusOk) << error;
    ASSERT_EQ(source->start(manager), kStatusOk);
  }
  void Restart() {
    source.reset();
    Start();
  }
  // Lets the program be asked until an answer to a question from now on has been taken: a further question
  // was asked behind it.
  void Hear(const std::string& program) {
    const std::size_t wanted = suite.Asked(program) + 2;
    PumpUntil([&] { return suite.Asked(program) >= wanted; });
  }
  // Until a shell was started anew, and again after that.
  void HearNothing(const std::string& program) {
    const std::size_t wanted = suite.Started(program) + 2;
    PumpUntil([&] { return suite.Started(program) >= wanted; });
  }
  void HearEach(const std::vector<std::string>& programs) {
    for (const std::string& program : programs) Hear(program);
  }
  // The program is there with this configuration, and heard.
  void StartWith(const std::string& program, const std::string& configuration) {
    suite.Configure(program, configuration);
    Start();
    Hear(program);
  }
  // Goes, and comes back with this configuration.
  void StartBgpdAgain(const std::string& configuration) {
    suite.Become("bgpd", "absent");
    HearNothing("bgpd");
    suite.Configure("bgpd", configuration);
    suite.Become("bgpd", "ok");
    Hear("bgpd");
  }
  // The clock stands while an answer is on its way, however long the processes take for it.
  template <typename Condition>
  void PumpUntil(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      const bool waits = source->awaited_answers() > silent_programs;
      if (!event_run_pending(manager, waits ? kTurn : 0) && !waits) clock.advance(kStep);
    }
    EXPECT_TRUE(condition());
  }
  void PumpFor(std::uint64_t nanoseconds) {
    const std::uint64_t end = clock_monotonic() + nanoseconds;
    PumpUntil([end] { return clock_monotonic() >= end; });
  }
  // Too short to be believed, with the questions before and behind it, too; twice as long is enough.
  static constexpr std::uint64_t kNotEnough = FrrSource::Options().settling / 2;
  // What the suite holds, in words.
  std::vector<std::string> Held() const { return vrf_config::words_owned(kConfigOwnerFrr); }

  // A tenth of the interval, so that a second of a test is a few questions.
  static constexpr std::uint64_t kStep = 100 * kNanosecondsPerMillisecond;
  ManualClock clock{1'000'000 * kNanosecondsPerSecond};
  TestRunDirectory directory;
  FakeSuite suite;
  EventManager* manager = nullptr;
  router::Router router;
  std::unique_ptr<FrrSource> source;
  std::size_t silent_programs = 0;
  std::string error;
};

TEST_F(FrrSourceTest, ConfigurationComesIntoTheTree) {
  suite.Configure("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Configure("ospfd", "router ospf vrf blue\n network 10.2.0.0/30 area 0\n");
  Start();
  Hear("bgpd");
  Hear("ospfd");
  EXPECT_THAT(Held(), IsSupersetOf({std::string(kRd10Words), std::string(kTarget10Words)}));
  EXPECT_EQ(Held().size(), 3U);
}

TEST_F(FrrSourceTest, ChangesAreFollowed) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Configure("bgpd", bgp_red("  rd vpn export 65000:11\n  rt vpn import 65000:12\n"));
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre("vrf red rd 65000:11 ipv4", "vrf red rt import 65000:12 ipv4"));
}

TEST_F(FrrSourceTest, RemovalIsFollowedWithTheNextAnswer) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Configure("bgpd", "");
  Hear("bgpd");
  EXPECT_THAT(Held(), IsEmpty());
}

TEST_F(FrrSourceTest, UnchangedConfigurationIsNoCommit) {
  StartWith("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
  Hear("bgpd");
  EXPECT_EQ(fault_reached("kvtree_config_replace"), 0U);
}

TEST_F(FrrSourceTest, ProgramsAreFollowedApart) {
  suite.Configure("bgpd", bgp_red(kRd10));
  suite.Configure("staticd", kStaticRed);
  Start();
  Hear("bgpd");
  Hear("staticd");
  suite.Become("bgpd", "silent");
  silent_programs = 1;
  suite.Configure("staticd", "");
  Hear("staticd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, ProgramThatWentAwayKeepsItsConfiguration) {
  StartWith("bgpd", bgp_red(kRd10));
  for (const char* state : {"gone", "absent", "ending", "garbage", "cut", "mended"}) {
    suite.Become("bgpd", state);
    HearNothing("bgpd");
    EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words)) << state;
  }
}

TEST_F(FrrSourceTest, ProgramThatIsStartedAgainIsHeardAgain) {
  StartWith("bgpd", bgp_red(kRd10));
  StartBgpdAgain(bgp_red(std::string(kRd10) + kTarget10));
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words, kTarget10Words));
}

// A program that was just started has not loaded its configuration yet.
TEST_F(FrrSourceTest, StartedProgramWithoutItsConfigurationRemovesNothing) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  StartBgpdAgain("");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words, kTarget10Words));
  suite.Configure("bgpd", bgp_red(kTarget10));
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words, kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramAddsAndChangesAtOnce) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  StartBgpdAgain(bgp_red("  rd vpn export 65000:11\n  rt vpn export 65000:12\n"));
  EXPECT_THAT(Held(), UnorderedElementsAre("vrf red rd 65000:11 ipv4", "vrf red rt export 65000:12 ipv4",
                                           kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramIsBelievedWhenItStaysWithWhatItSays) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  StartBgpdAgain(bgp_red(kRd10));
  PumpFor(Options().settling);
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, StartedProgramIsNotBelievedWhileItsConfigurationChanges) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  StartBgpdAgain(bgp_red(kRd10));
  PumpFor(kNotEnough);
  suite.Configure("bgpd", bgp_red(std::string(kRd10) + "  rt vpn export 65000:12\n"));
  Hear("bgpd");
  PumpFor(kNotEnough);
  Hear("bgpd");
  EXPECT_THAT(Held(), Contains(kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramIsNotBelievedWhenItIsStartedOnceMore) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  for (int time = 0; time < 2; ++time) {
    StartBgpdAgain(bgp_red(kRd10));
    PumpFor(kNotEnough);
  }
  Hear("bgpd");
  EXPECT_THAT(Held(), Contains(kTarget10Words));
}

TEST_F(FrrSourceTest, StartedProgramThatSaysNothingIsBelievedLater) {
  StartWith("bgpd", bgp_red(kRd10));
  StartBgpdAgain("");
  PumpFor(Options().settling);
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
  PumpFor(Options().settling_empty);
  Hear("bgpd");
  EXPECT_THAT(Held(), IsEmpty());
}

TEST_F(FrrSourceTest, StartedProgramIsBelievedOnceItSaidEverything) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Become("bgpd", "absent");
  HearNothing("bgpd");
  suite.Become("bgpd", "ok");
  Hear("bgpd");
  suite.Configure("bgpd", bgp_red(kRd10));
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, LastKnownConfigurationOutlivesTheProcess) {
  suite.Configure("bgpd", bgp_red(kRd10));
  suite.Configure("staticd", kStaticRed);
  Start();
  Hear("bgpd");
  Hear("staticd");
  const std::vector<std::string> before = Held();
  suite.Become("bgpd", "absent");
  suite.Configure("staticd", kStaticRed);
  Restart();
  HearNothing("bgpd");
  Hear("staticd");
  EXPECT_EQ(Held(), before);
}

TEST_F(FrrSourceTest, RestartWithTheSameConfigurationIsNoCommit) {
  StartWith("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
  Restart();
  Hear("bgpd");
  EXPECT_EQ(fault_reached("kvtree_config_replace"), 0U);
}

constexpr char kImportsBlue[] =
    "router bgp 65000 vrf red\n address-family ipv4 unicast\n  import vrf blue\n exit-address-family\nexit\n";
constexpr char kDerivedRd[] = "vrf red rd 10.1.0.1:2 ipv4";
constexpr char kDerivedTarget[] = "vrf red rt import 10.3.0.1:3 ipv4";

std::string leaks_of_red(const std::string& rd, const std::string& imports) {
  return R"({"vrfs":{"red":{"routeDistinguisher":")" + rd + R"(","importRts":")" + imports +
         R"(","exportRts":"none"}}})";
}

class DerivedItemsOfTheSuite : public FrrSourceTest {
 protected:
  void Leak(const std::string& rd, const std::string& imports) const {
    suite.Show("show bgp vrf all ipv4 unicast route-leak json", leaks_of_red(rd, imports));
    suite.Show("show bgp vrf all ipv6 unicast route-leak json", R"({"vrfs":{}})");
  }
  std::vector<std::string> HeldDerived() const { return vrf_config::words_owned(kConfigOwnerFrrDerived); }
};

TEST_F(DerivedItemsOfTheSuite, ComeIntoTheTreeUnderTheirOwnOwner) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  StartWith("bgpd", kImportsBlue);
  Hear("bgpd");  // the commands are asked for when the configuration is known
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  EXPECT_THAT(Held(), IsEmpty());
}

// The text of the configuration is what it was: the suite says nothing when it derives another RD.
TEST_F(DerivedItemsOfTheSuite, FollowAChangeOfTheRouterId) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  StartWith("bgpd", kImportsBlue);
  Hear("bgpd");  // the commands are asked for when the configuration is known
  Leak("10.9.9.9:2", "10.9.9.8:3");
  Hear("bgpd");
  EXPECT_THAT(HeldDerived(),
              UnorderedElementsAre("vrf red rd 10.9.9.9:2 ipv4", "vrf red rt import 10.9.9.8:3 ipv4"));
}

TEST_F(DerivedItemsOfTheSuite, ReplaceWhatWasConfiguredInOneStep) {
  StartWith("bgpd", bgp_red(kRd10));
  std::vector<std::string> seen;
  Leak("10.1.0.1:2", "none");
  suite.Configure("bgpd", kImportsBlue);
  const std::size_t wanted = suite.Asked("bgpd") + 3;
  PumpUntil([&] {
    const std::vector<std::string> now = vrf_config::words_in_force();
    if (seen.empty() || seen.back() != now.at(0)) seen.push_back(now.at(0));
    return suite.Asked("bgpd") >= wanted;
  });
  EXPECT_THAT(seen, testing::ElementsAre(kRd10Words, kDerivedRd));
}

TEST_F(DerivedItemsOfTheSuite, GoWithTheImportByName) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  StartWith("bgpd", kImportsBlue);
  Hear("bgpd");  // the commands are asked for when the configuration is known
  suite.Configure("bgpd", bgp_red(kRd10));
  Hear("bgpd");
  Hear("bgpd");  // without the commands
  EXPECT_THAT(HeldDerived(), IsEmpty());
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
}

TEST_F(DerivedItemsOfTheSuite, StayWhileTheSuiteRestartsAndOverARestartOfTheProcess) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  StartWith("bgpd", kImportsBlue);
  Hear("bgpd");  // the commands are asked for when the configuration is known
  StartBgpdAgain("");
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  Restart();
  Hear("bgpd");
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  suite.Configure("bgpd", kImportsBlue);
  Leak("10.1.0.1:2", "none");
  Hear("bgpd");
  PumpFor(Options().settling);
  Hear("bgpd");
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd));
}

TEST_F(DerivedItemsOfTheSuite, StayWhenTheyCannotBeRead) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  StartWith("bgpd", kImportsBlue);
  Hear("bgpd");  // the commands are asked for when the configuration is known
  suite.Show("show bgp vrf all ipv4 unicast route-leak json", "{\"vrfs\":");
  Hear("bgpd");
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
}

TEST_F(DerivedItemsOfTheSuite, TooManyVpnRoutesDoNotKeepTheConfigurationFromBeingFollowed) {
  FrrSource::Options options = Options();
  options.limits.answer_size = 10000;
  suite.Show("show bgp ipv4 vpn rd 10.9.3.1:5 json",
             "{" + std::string(options.limits.answer_size, ' ') + "}");
  suite.Configure("bgpd", bgp_red("  rd vpn export 65000:10\n  rt vpn export 10.9.3.1:5\n"));
  Start(options);
  for (int time = 0; time < 3; ++time) Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words, "vrf red rt export 10.9.3.1:5 ipv4"));
}

TEST_F(DerivedItemsOfTheSuite, AreWrittenLaterWhenThatFailed) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  suite.Configure("bgpd", kImportsBlue);
  fault_arm("kvtree_config_replace", kStatusIo, 1, 1);
  Start();
  Hear("bgpd");
  Hear("bgpd");
  EXPECT_THAT(HeldDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  source.reset();
  EXPECT_EQ(FrrSource::release(&error), kStatusOk) << error;
  EXPECT_THAT(HeldDerived(), IsEmpty());
}

TEST_F(FrrSourceTest, RipAndRipngOfAnInterfaceComeAndGoApart) {
  suite.Configure("ripd", "router rip vrf blue\n network blue1\n");
  suite.Configure("ripngd", "router ripng vrf blue\n network blue1\n");
  Start();
  Hear("ripd");
  Hear("ripngd");
  EXPECT_THAT(Held(), UnorderedElementsAre("vrf blue rip interface blue1", "vrf blue ripng interface blue1"));
  suite.Configure("ripd", "");
  Hear("ripd");
  EXPECT_THAT(Held(), UnorderedElementsAre("vrf blue ripng interface blue1"));
}

TEST_F(FrrSourceTest, InterfacesAreFollowedWithoutAChangeOfText) {
  StartWith("ospfd", "router ospf vrf blue\n network 10.0.0.0/8 area 0\n");
  EXPECT_EQ(Held().size(), 1U);
  AddInterface("blue2", "10.7.0.1/30", "blue");
  Hear("ospfd");
  EXPECT_EQ(Held().size(), 2U);
}

TEST_F(FrrSourceTest, CommitThatFailedIsMadeLater) {
  suite.Configure("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 1);
  Start();
  Hear("bgpd");
  Hear("bgpd");
  EXPECT_THAT(Held(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, MistakesLeaveTheRestInForce) {
  suite.Configure("bgpd", bgp_red(std::string("  rd vpn export nonsense\n") + kTarget10));
  testing::internal::CaptureStderr();
  Start();
  Hear("bgpd");
  Hear("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(Held(), UnorderedElementsAre(kTarget10Words));
  EXPECT_THAT(log, HasSubstr("'nonsense' is not a route distinguisher"));
  EXPECT_EQ(log.find("nonsense"), log.rfind("nonsense")) << "said once";
}

TEST_F(FrrSourceTest, SuiteThatIsNotThereIsNotCommented) {
  for (const auto& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
  testing::internal::CaptureStderr();
  Start();
  HearNothing("bgpd");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The log of a source that was asked to follow the suite by name.
TEST_F(FrrSourceTest, WantedSuiteThatIsNotThereIsSaidOnce) {
  for (const auto& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
  testing::internal::CaptureStderr();
  FrrSource::Options options = Options();
  options.wanted = true;
  Start(options);
  HearNothing("bgpd");
  HearNothing("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log,
              HasSubstr("frr: no program of the routing suite answers through '" + suite.shell()[0] + " "));
  EXPECT_THAT(log, HasSubstr("failed to connect to any daemons"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(FrrSourceTest, WantedShellThatIsNotThereIsSaidOnce) {
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

TEST_F(FrrSourceTest, WantedSuiteThatRunsInPartIsNotCommented) {
  for (const auto& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
  suite.Become("zebra", "ok");
  testing::internal::CaptureStderr();
  FrrSource::Options options = Options();
  options.wanted = true;
  Start(options);
  HearNothing("bgpd");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("no program")));
}

TEST_F(FrrSourceTest, LossAndReturnAreSaidOnce) {
  suite.Configure("bgpd", bgp_red(kRd10));
  testing::internal::CaptureStderr();
  Start();
  Hear("bgpd");
  suite.Become("bgpd", "absent");
  HearNothing("bgpd");
  HearNothing("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  const std::size_t lost = log.find("frr: bgpd does not answer");
  EXPECT_NE(lost, std::string::npos) << log;
  EXPECT_EQ(log.rfind("frr: bgpd does not answer"), lost);
  EXPECT_NE(log.find("frr: bgpd answers"), std::string::npos);
}

TEST_F(FrrSourceTest, ProgramThatNeverAnsweredIsAskedLessAndLess) {
  suite.Become("bgpd", "absent");
  Start();
  PumpUntil([&] { return suite.Started("bgpd") >= 3; });
  const std::uint64_t before = clock_monotonic();
  PumpUntil([&] { return suite.Started("bgpd") >= 5; });
  EXPECT_GE(clock_monotonic() - before, 2 * 8 * kNanosecondsPerSecond);
  EXPECT_LE(clock_monotonic() - before, 3 * Options().longest_pause);
}

// Each question to a program that is away costs the start of a shell.
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

TEST_F(FrrSourceTest, LostProgramIsAskedSoonerWhenAnotherOneIsBack) {
  FrrSource::Options options = Options();
  options.longest_pause_of_lost = 600 * kNanosecondsPerSecond;
  Start(options);
  HearEach({"bgpd", "ospfd"});
  suite.Become("ospfd", "absent");
  const std::size_t started = suite.Started("ospfd");
  PumpUntil([&] { return suite.Started("ospfd") >= started + 5; });  // the next time is in 16 s
  PumpFor(options.interval);                                         // this one has failed
  suite.Become("ospfd", "ok");
  StartBgpdAgain(bgp_red(kRd10));
  const std::uint64_t before = clock_monotonic();
  Hear("ospfd");
  EXPECT_LE(clock_monotonic() - before, 4 * options.interval);
}

TEST_F(FrrSourceTest, ReleaseRemovesEverything) {
  StartWith("bgpd", bgp_red(kRd10));
  source.reset();
  EXPECT_EQ(FrrSource::release(&error), kStatusOk) << error;
  EXPECT_THAT(Held(), IsEmpty());
}

TEST_F(FrrSourceTest, ReleaseThatFailsIsReported) {
  StartWith("bgpd", bgp_red(kRd10));
  source.reset();
  const ScopedFault fault("kvtree_config_replace", kStatusIo);
  EXPECT_EQ(FrrSource::release(&error), kStatusIo);
  EXPECT_EQ(error,
            std::string("cannot remove the configuration of the routing suite: ") + err_text(kStatusIo));
}

TEST_F(FrrSourceTest, StartHasItsFaultPointAndHappensOnce) {
  source = std::make_unique<FrrSource>(&router, Options());
  {
    const ScopedFault fault("frr_source_start", kStatusIo);
    EXPECT_EQ(source->start(manager), kStatusIo);
  }
  EXPECT_EQ(source->start(manager), kStatusOk);
  EXPECT_EQ(source->start(manager), kStatusExists);
}

// --- Versions of the suite: what real programs of each printed of one configuration ---

const std::vector<std::string> kMovedPrograms{"zebra", "ripd", "staticd"};

class RecordedSuite : public FrrSourceTest {
 protected:
  RecordedSuite() {
    AddInterface("red1", "10.1.0.1/30", "red");
    AddInterface("grn1", "10.3.0.1/30", "green");
    for (const char* name : {"red", "blue", "green"}) {
      router::Vrf vrf;
      vrf.name = name;
      vrf.id = ++last_vrf_;
      EXPECT_EQ(router.create_vrf(vrf), kStatusOk);
    }
  }
  void StartWithVersion(const std::string& version) {
    suite.Install(version);
    Start();
    HearEach(kAll);
    if (version != "8.4.4") Hear("mgmtd");
  }
  void StopSuite() {
    for (const auto& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
    HearNothing("bgpd");
    HearNothing("staticd");
  }
  // Another version is started: mgmtd, as it was just started, has no configuration yet.
  void StartAnotherVersion(const std::string& version) {
    suite.Install(version);
    if (version == "8.4.4") return;
    loaded_ = suite.Configuration("mgmtd");
    suite.Configure("mgmtd", "");
  }
  void LoadConfiguration() { suite.Configure("mgmtd", loaded_); }
  // Long enough for whatever is not said to be believed.
  void PumpForBelief() {
    PumpFor(Options().settling_empty + Options().settling);
    HearEach(kAll);
  }

  const std::vector<std::string> kAll{"bgpd", "ospfd", "eigrpd", "zebra", "ripd", "staticd"};

 private:
  std::uint32_t last_vrf_ = 100;
  std::string loaded_;
};

TEST_F(RecordedSuite, EveryVersionIsFollowedAlike) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Held();
  EXPECT_THAT(before, IsSupersetOf({std::string(kRd10Words)}));
  source.reset();
  ASSERT_EQ(FrrSource::release(&error), kStatusOk) << error;
  StartWithVersion("10.3");
  EXPECT_EQ(Held(), before);
}

TEST_F(RecordedSuite, UpgradeIsNoChange) {
  for (const char* next : {"10.3", "8.4.4"}) {
    StartWithVersion(next == std::string("10.3") ? "8.4.4" : "10.3");
    const std::vector<std::string> before = Held();
    StopSuite();
    fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
    StartAnotherVersion(next);
    HearEach(kAll);
    PumpFor(kNotEnough);
    LoadConfiguration();
    PumpForBelief();
    EXPECT_EQ(fault_reached("kvtree_config_replace"), 0U) << next;
    EXPECT_EQ(Held(), before) << next;
    fault_disarm_all();
  }
}

TEST_F(RecordedSuite, UpgradeWaitsForTheManagementProgram) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Held();
  StopSuite();
  StartAnotherVersion("10.3");
  suite.Become("mgmtd", "absent");
  HearEach(kAll);
  PumpForBelief();
  EXPECT_EQ(Held(), before);
}

TEST_F(RecordedSuite, UpgradeIsNotBelievedWhileTheManagementProgramLoads) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Held();
  StopSuite();
  suite.Configure("mgmtd", "");
  suite.Become("mgmtd", "ok");
  Hear("mgmtd");
  StartAnotherVersion("10.3");
  HearEach(kAll);
  PumpFor(Options().settling_empty / 2);
  std::string loaded = kStaticRed;
  for (std::uint64_t time = 0; time < Options().settling_empty; time += kNotEnough) {
    suite.Configure("mgmtd", loaded += "!\n");
    Hear("mgmtd");
    PumpFor(kNotEnough);
  }
  EXPECT_THAT(Held(), IsSupersetOf(before));
}

TEST_F(RecordedSuite, UpgradedShellIsAskedForTheManagementProgramAtOnce) {
  FrrSource::Options options = Options();
  options.longest_pause = 3600 * kNanosecondsPerSecond;
  suite.Install("8.4.4");
  Start(options);
  HearEach(kAll);
  PumpFor(130 * kNanosecondsPerSecond);  // the next question would come as much later
  const std::vector<std::string> before = Held();
  suite.Become("zebra", "absent");
  HearNothing("zebra");
  suite.Become("mgmtd", "absent");
  suite.Configure("zebra", "vrf red\n vni 100\nexit-vrf\n");
  suite.Become("zebra", "ok");
  Hear("zebra");
  PumpFor(options.settling);
  Hear("zebra");
  EXPECT_EQ(Held(), before) << "the description may be mgmtd's now";
}

TEST_F(RecordedSuite, UpgradeWhileTheDaemonIsDownWaitsForTheManagementProgram) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Held();
  source.reset();
  StartAnotherVersion("10.3");
  suite.Become("mgmtd", "absent");
  Start();
  HearEach(kAll);
  PumpForBelief();
  EXPECT_EQ(Held(), before);
  suite.Become("mgmtd", "ok");
  Hear("mgmtd");
  PumpFor(Options().settling_empty / 2);
  LoadConfiguration();
  PumpForBelief();
  EXPECT_EQ(Held(), before);
}

TEST_F(RecordedSuite, ManagementProgramThatIsStartedAgainRemovesNothing) {
  StartWithVersion("10.3");
  const std::vector<std::string> before = Held();
  suite.Become("mgmtd", "absent");
  PumpForBelief();
  EXPECT_EQ(Held(), before);
  StartAnotherVersion("10.3");
  Hear("mgmtd");
  PumpFor(Options().settling);
  LoadConfiguration();
  PumpForBelief();
  EXPECT_EQ(Held(), before);
}

TEST_F(RecordedSuite, RemovalFromTheManagementProgramIsFollowedWithTheNextAnswer) {
  StartWithVersion("10.3");
  const std::size_t before = Held().size();
  std::string text = suite.Configuration("mgmtd");
  const std::string rip = " network 10.3.0.0/30\n";
  ASSERT_NE(text.find(rip), std::string::npos);
  suite.Configure("mgmtd", text.erase(text.find(rip), rip.size()));
  Hear("mgmtd");
  EXPECT_EQ(Held().size(), before - 1);
}

// ripd said it before the upgrade and does not run any more.
TEST_F(RecordedSuite, WhatTheManagementProgramRemovesDoesNotStayWithAProgramThatDoesNotAnswer) {
  StartWithVersion("8.4.4");
  const std::size_t before = Held().size();
  StopSuite();
  StartAnotherVersion("10.3");
  suite.Become("ripd", "absent");
  LoadConfiguration();
  Hear("mgmtd");
  PumpFor(Options().settling);
  std::string text = suite.Configuration("mgmtd");
  const std::string rip = " network 10.3.0.0/30\n";
  suite.Configure("mgmtd", text.erase(text.find(rip), rip.size()));
  Hear("mgmtd");
  EXPECT_EQ(Held().size(), before - 1);
}

TEST_F(RecordedSuite, WhatAnUpgradeRemovedIsRemovedLater) {
  StartWithVersion("8.4.4");
  StopSuite();
  StartAnotherVersion("10.3");
  suite.Configure("mgmtd", "vrf red\n ip route 192.168.50.0/24 10.1.0.2\nexit-vrf\n");
  HearEach(kAll);
  Hear("mgmtd");
  const std::size_t all = Held().size();
  PumpForBelief();
  Hear("mgmtd");
  EXPECT_LT(Held().size(), all);
  EXPECT_THAT(Held(), IsSupersetOf({std::string(kRd10Words)}));
}

TEST_F(RecordedSuite, EarlierProgramThatNeverAnsweredKeepsNothing) {
  StartWithVersion("10.3");
  source.reset();
  suite.Become("ripd", "absent");
  suite.Configure("mgmtd", "vrf red\n ip route 192.168.50.0/24 10.1.0.2\nexit-vrf\n");
  Start();
  Hear("mgmtd");
  const std::vector<std::string> before = Held();
  PumpFor(2 * Options().settling_empty);
  Hear("mgmtd");
  EXPECT_LT(Held().size(), before.size());
  for (const std::string& words : Held()) EXPECT_THAT(words, Not(HasSubstr("rip "))) << words;
}

TEST_F(RecordedSuite, ProgramThatTheSuiteDoesNotHaveIsNotCommented) {
  testing::internal::CaptureStderr();
  StartWithVersion("8.4.4");
  Restart();
  HearEach(kAll);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("mgmtd")));
}

TEST_F(FrrSourceTest, RemovalDuringARestartDoesNotWaitForAProgramThatTheSuiteDoesNotHave) {
  StartWith("staticd", std::string(kStaticRed) + "vrf blue\n ip route 10.9.0.0/16 blue1\nexit-vrf\n");
  suite.Become("staticd", "absent");
  HearNothing("staticd");
  suite.Configure("staticd", kStaticRed);
  suite.Become("staticd", "ok");
  Hear("staticd");
  EXPECT_EQ(Held().size(), 2U);
  PumpFor(Options().settling);
  Hear("staticd");
  EXPECT_EQ(Held().size(), 1U);
}

}  // namespace
