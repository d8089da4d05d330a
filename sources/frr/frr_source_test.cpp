#include "sources/frr/frr_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/config/owners.h"
#include "sources/frr/frr_source_test_support.h"
#include "sources/large_configuration_test_support.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::StartsWith;
using testing::UnorderedElementsAre;

TEST_F(FrrSourceTest, ConfigurationIsStoredInTheTree) {
  StartWith({{"bgpd", bgp_red(std::string(kRd10) + kTarget10)},
             {"ospfd", "router ospf vrf blue\n network 10.2.0.0/30 area 0\n"}});
  EXPECT_THAT(Stored(), IsSupersetOf({std::string(kRd10Words), std::string(kTarget10Words)}));
  EXPECT_EQ(Stored().size(), 3U);
}

// Many more nodes than a client may change in one commit. With sanitizers 10,000 VRFs take most of the time
// that an answer has.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr unsigned kVrfs = 4000;
#else
constexpr unsigned kVrfs = 10000;
#endif

TEST_F(FrrSourceTest, TenThousandVrfsAreStored) {
  StartWith("bgpd", suite_configuration(kVrfs));
  EXPECT_EQ(Stored().size(), kVrfs * kNodesOfSuitesVrf);
  suite.Configure("bgpd", suite_configuration(1));
  AwaitAnswer("bgpd");
  EXPECT_EQ(Stored().size(), kNodesOfSuitesVrf);
}

TEST_F(FrrSourceTest, StateNamesTheProgramsThatAnswer) {
  StopSuite();
  suite.Become("bgpd", "ok");
  StartWith("bgpd", bgp_red(kRd10));
  EXPECT_EQ(source->state(), "FRR: bgpd answers");
  suite.Become("ospfd", "ok");
  AwaitAnswer("ospfd");
  EXPECT_EQ(source->state(), "FRR: bgpd, ospfd answer");
  StopSuite();
  AwaitFailure("bgpd");
  AwaitFailure("ospfd");
  EXPECT_EQ(source->state(), "no program of FRR answers");
}

TEST_F(FrrSourceTest, FactsHaveVersionAndLastAnswerOfEachProgramThatAnswered) {
  StopSuite();
  suite.Become("bgpd", "ok");
  StartWith("bgpd", "frr version 10.3\n" + bgp_red(kRd10));
  const auto answered = source->facts();
  ASSERT_EQ(answered.size(), 1U);
  EXPECT_EQ(answered[0].name, "bgpd");
  EXPECT_EQ(answered[0].version, "10.3");
  EXPECT_TRUE(answered[0].is_up);
  EXPECT_GE(answered[0].last_answer, 1'000'000U);
  EXPECT_EQ(answered[0].problem, "");
  suite.Become("bgpd", "ended");
  AwaitFailure("bgpd");
  PumpFor(5 * kNanosecondsPerSecond);
  const auto lost = source->facts();
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_FALSE(lost[0].is_up);
  EXPECT_LE(lost[0].last_answer + 4, clock_stamp() / kNanosecondsPerSecond);
  EXPECT_NE(lost[0].problem, "");
}

TEST_F(FrrSourceTest, FactsNameTheSuiteIfItIsWantedAndNoProgramAnswers) {
  StopSuite();
  StartWanted();
  const auto facts = source->facts();
  ASSERT_EQ(facts.size(), 1U);
  EXPECT_EQ(facts[0].name, "frr");
  EXPECT_FALSE(facts[0].is_up);
  EXPECT_EQ(facts[0].last_answer, 0U);
  EXPECT_NE(facts[0].problem, "");
  Restart();
  AwaitFailure("bgpd");
  EXPECT_TRUE(source->facts().empty());
}

TEST_F(FrrSourceTest, ChangesAreFollowed) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Configure("bgpd", bgp_red("  rd vpn export 65000:11\n  rt vpn import 65000:12\n"));
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre("vrf red rd 65000:11 ipv4", "vrf red rt import 65000:12 ipv4"));
}

TEST_F(FrrSourceTest, RemovalIsFollowedWithTheNextAnswer) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + kTarget10));
  suite.Configure("bgpd", "");
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(FrrSourceTest, UnchangedConfigurationMakesNoCommit) {
  StartWith("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
  AwaitAnswer("bgpd");
  EXPECT_EQ(fault_reached("kvtree_config_replace"), 0U);
}

TEST_F(FrrSourceTest, ProgramsAreFollowedIndependently) {
  StartWith({{"bgpd", bgp_red(kRd10)}, {"staticd", kStaticRed}});
  suite.Become("bgpd", "silent");
  silent_programs = 1;
  suite.Configure("staticd", "");
  AwaitAnswer("staticd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, LastKnownConfigurationOutlivesTheProcess) {
  StartWith({{"bgpd", bgp_red(kRd10)}, {"staticd", kStaticRed}});
  const std::vector<std::string> before = Stored();
  suite.Become("bgpd", "absent");
  suite.Configure("staticd", kStaticRed);
  Restart();
  AwaitFailure("bgpd");
  AwaitAnswer("staticd");
  EXPECT_EQ(Stored(), before);
}

// Earlier versions stored items in other places, which no item of today has.
TEST_F(FrrSourceTest, StoredItemsOfEarlierVersionsAreRemoved) {
  for (const char* former :
       {"/cfg/gl/vmap/vrf/red/former", "/cfg/gl/ip-bgp/former", "/cfg/gl/rip/ord_B/former",
        "/cfg/gl/ipv4-ospf/proc/former", "/cfg/gl/eigrp/proc/former", "/cfg/gl/static/router/ord_v/former",
        "/cfg/gl/bgp-common/former", "/cfg/gl/former/red"}) {
    ASSERT_EQ(kvtree_config_commit(kConfigOwnerFrr, {{former, KvValue{}}}, ""), kStatusOk);
  }
  StartWith("bgpd", bgp_red(kRd10));
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, RestartWithTheSameConfigurationMakesNoCommit) {
  StartWith("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
  Restart();
  AwaitAnswer("bgpd");
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
  void StartDeriving() {
    Leak("10.1.0.1:2", "10.3.0.1:3");
    StartWith("bgpd", kImportsBlue);
    AwaitAnswer("bgpd");  // the commands are asked for when the configuration is known
  }
  std::vector<std::string> StoredDerived() const { return vrf_config::words_owned(kConfigOwnerFrrDerived); }
};

TEST_F(DerivedItemsOfTheSuite, AreStoredUnderTheirOwnOwner) {
  StartDeriving();
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  EXPECT_THAT(Stored(), IsEmpty());
}

// The configuration does not change when the suite derives another RD.
TEST_F(DerivedItemsOfTheSuite, FollowAChangeOfTheRouterId) {
  StartDeriving();
  Leak("10.9.9.9:2", "10.9.9.8:3");
  AwaitAnswer("bgpd");
  EXPECT_THAT(StoredDerived(),
              UnorderedElementsAre("vrf red rd 10.9.9.9:2 ipv4", "vrf red rt import 10.9.9.8:3 ipv4"));
}

TEST_F(DerivedItemsOfTheSuite, ReplaceConfiguredItemsInOneStep) {
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

TEST_F(DerivedItemsOfTheSuite, AreRemovedWithTheImportByName) {
  StartDeriving();
  suite.Configure("bgpd", bgp_red(kRd10));
  AwaitAnswer("bgpd");
  AwaitAnswer("bgpd");  // without the commands
  EXPECT_THAT(StoredDerived(), IsEmpty());
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(DerivedItemsOfTheSuite, StayWhileTheSuiteRestartsAndOverARestartOfTheProcess) {
  StartDeriving();
  RestartBgpd("");
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  Restart();
  AwaitAnswer("bgpd");
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  suite.Configure("bgpd", kImportsBlue);
  Leak("10.1.0.1:2", "none");
  AwaitAnswer("bgpd");
  PumpFor(Options().settling);
  AwaitAnswer("bgpd");
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd));
}

TEST_F(DerivedItemsOfTheSuite, StayWhenTheyCannotBeRead) {
  StartDeriving();
  suite.Show("show bgp vrf all ipv4 unicast route-leak json", "{\"vrfs\":");
  AwaitAnswer("bgpd");
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
}

TEST_F(DerivedItemsOfTheSuite, TooManyVpnRoutesDoNotDisturbTheConfiguration) {
  FrrSource::Options options = Options();
  options.limits.answer_size = 10000;
  suite.Show("show bgp ipv4 vpn rd 10.9.3.1:5 json",
             "{" + std::string(options.limits.answer_size, ' ') + "}");
  suite.Configure("bgpd", bgp_red("  rd vpn export 65000:10\n  rt vpn export 10.9.3.1:5\n"));
  Start(options);
  for (int time = 0; time < 3; ++time) AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words, "vrf red rt export 10.9.3.1:5 ipv4"));
}

TEST_F(DerivedItemsOfTheSuite, AreWrittenLaterWhenTheCommitFails) {
  Leak("10.1.0.1:2", "10.3.0.1:3");
  suite.Configure("bgpd", kImportsBlue);
  fault_arm("kvtree_config_replace", kStatusIo, 1, 1);
  Start();
  AwaitAnswer("bgpd");
  AwaitAnswer("bgpd");
  EXPECT_THAT(StoredDerived(), UnorderedElementsAre(kDerivedRd, kDerivedTarget));
  source.reset();
  EXPECT_EQ(FrrSource::remove_configured(&error), kStatusOk) << error;
  EXPECT_THAT(StoredDerived(), IsEmpty());
}

TEST_F(FrrSourceTest, RipAndRipngOfAnInterfaceAreIndependent) {
  StartWith({{"ripd", "router rip vrf blue\n network blue1\n"},
             {"ripngd", "router ripng vrf blue\n network blue1\n"}});
  EXPECT_THAT(Stored(),
              UnorderedElementsAre("vrf blue rip interface blue1", "vrf blue ripng interface blue1"));
  suite.Configure("ripd", "");
  AwaitAnswer("ripd");
  EXPECT_THAT(Stored(), UnorderedElementsAre("vrf blue ripng interface blue1"));
}

TEST_F(FrrSourceTest, InterfacesAreFollowedWithoutAChangeOfText) {
  StartWith("ospfd", "router ospf vrf blue\n network 10.0.0.0/8 area 0\n");
  EXPECT_EQ(Stored().size(), 1U);
  AddInterface("blue2", "10.7.0.1/30", "blue");
  AwaitAnswer("ospfd");
  EXPECT_EQ(Stored().size(), 2U);
}

TEST_F(FrrSourceTest, FailedCommitIsRetried) {
  suite.Configure("bgpd", bgp_red(kRd10));
  fault_arm("kvtree_config_replace", kStatusIo, 1, 1);
  Start();
  AwaitAnswer("bgpd");
  AwaitAnswer("bgpd");
  EXPECT_THAT(Stored(), UnorderedElementsAre(kRd10Words));
}

TEST_F(FrrSourceTest, InvalidItemsDoNotAffectOthers) {
  suite.Configure("bgpd", bgp_red(std::string("  rd vpn export nonsense\n") + kTarget10));
  testing::internal::CaptureStderr();
  Start();
  AwaitAnswer("bgpd");
  AwaitAnswer("bgpd");
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(Stored(), UnorderedElementsAre(kTarget10Words));
  EXPECT_THAT(log, HasSubstr("'nonsense' is not a route distinguisher"));
  EXPECT_EQ(log.find("nonsense"), log.rfind("nonsense")) << "logged once";
}

TEST_F(FrrSourceTest, FactsNameTheLinesThatAreLeftOut) {
  StartWith("bgpd", bgp_red(std::string(kRd10) + "  rt vpn import nosuch\n"));
  const auto problem_of_bgpd = [this] {
    for (const auto& fact : source->facts())
      if (fact.name == "bgpd") return fact.problem;
    return std::string("no bgpd");
  };
  EXPECT_THAT(problem_of_bgpd(),
              StartsWith("line 7 of its running configuration is left out: 'nosuch' is not a "));
  suite.Configure("bgpd", bgp_red(kRd10));
  AwaitAnswer("bgpd");
  EXPECT_EQ(problem_of_bgpd(), "");
}

TEST_F(FrrSourceTest, ReleaseRemovesEverything) {
  StartWith("bgpd", bgp_red(kRd10));
  source.reset();
  EXPECT_EQ(FrrSource::remove_configured(&error), kStatusOk) << error;
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(FrrSourceTest, ReleaseThatFailsIsReported) {
  StartWith("bgpd", bgp_red(kRd10));
  source.reset();
  const ScopedFault fault("kvtree_config_replace", kStatusIo);
  EXPECT_EQ(FrrSource::remove_configured(&error), kStatusIo);
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

}  // namespace
