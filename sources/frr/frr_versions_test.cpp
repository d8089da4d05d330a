// Upgrades of the suite: recorded configurations of two versions, of which one has the management program
// mgmtd.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sources/frr/frr_source_test_support.h"

namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

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
    AwaitAnswers(kAll);
    if (version != "8.4.4") AwaitAnswer("mgmtd");
  }
  void StopAndAwaitFailure() {
    StopSuite();
    AwaitFailure("bgpd");
    AwaitFailure("staticd");
  }
  // Starts another version, whose mgmtd has no configuration yet.
  void StartAnotherVersion(const std::string& version) {
    suite.Install(version);
    if (version == "8.4.4") return;
    loaded_ = suite.Configuration("mgmtd");
    suite.Configure("mgmtd", "");
  }
  void LoadConfiguration() { suite.Configure("mgmtd", loaded_); }
  // Long enough for every program to settle.
  void PumpUntilSettled() {
    PumpFor(Options().settling_empty + Options().settling);
    AwaitAnswers(kAll);
  }

  const std::vector<std::string> kAll{"bgpd", "ospfd", "eigrpd", "zebra", "ripd", "staticd"};

 private:
  std::uint32_t last_vrf_ = 100;
  std::string loaded_;
};

TEST_F(RecordedSuite, EveryVersionGivesTheSameNodes) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Stored();
  EXPECT_THAT(before, IsSupersetOf({std::string(kRd10Words)}));
  source.reset();
  ASSERT_EQ(FrrSource::remove_configured(&error), kStatusOk) << error;
  StartWithVersion("10.3");
  EXPECT_EQ(Stored(), before);
}

TEST_F(RecordedSuite, UpgradeChangesNothing) {
  for (const char* next : {"10.3", "8.4.4"}) {
    StartWithVersion(next == std::string("10.3") ? "8.4.4" : "10.3");
    const std::vector<std::string> before = Stored();
    StopAndAwaitFailure();
    fault_arm("kvtree_config_replace", kStatusIo, 1, 0);
    StartAnotherVersion(next);
    AwaitAnswers(kAll);
    PumpFor(kNotEnough);
    LoadConfiguration();
    PumpUntilSettled();
    EXPECT_EQ(fault_reached("kvtree_config_replace"), 0U) << next;
    EXPECT_EQ(Stored(), before) << next;
    fault_disarm_all();
  }
}

TEST_F(RecordedSuite, UpgradeWaitsForTheManagementProgram) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Stored();
  StopAndAwaitFailure();
  StartAnotherVersion("10.3");
  suite.Become("mgmtd", "absent");
  AwaitAnswers(kAll);
  PumpUntilSettled();
  EXPECT_EQ(Stored(), before);
}

TEST_F(RecordedSuite, UpgradeRemovesNothingWhileTheManagementProgramLoads) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Stored();
  StopAndAwaitFailure();
  suite.Configure("mgmtd", "");
  suite.Become("mgmtd", "ok");
  AwaitAnswer("mgmtd");
  StartAnotherVersion("10.3");
  AwaitAnswers(kAll);
  PumpFor(Options().settling_empty / 2);
  std::string loaded = kStaticRed;
  for (std::uint64_t time = 0; time < Options().settling_empty; time += kNotEnough) {
    suite.Configure("mgmtd", loaded += "!\n");
    AwaitAnswer("mgmtd");
    PumpFor(kNotEnough);
  }
  EXPECT_THAT(Stored(), IsSupersetOf(before));
}

TEST_F(RecordedSuite, UpgradedShellIsAskedForTheManagementProgramAtOnce) {
  FrrSource::Options options = Options();
  options.longest_pause = 3600 * kNanosecondsPerSecond;
  suite.Install("8.4.4");
  Start(options);
  AwaitAnswers(kAll);
  PumpFor(130 * kNanosecondsPerSecond);  // the next question would be as much later
  const std::vector<std::string> before = Stored();
  suite.Become("zebra", "absent");
  AwaitFailure("zebra");
  suite.Become("mgmtd", "absent");
  suite.Configure("zebra", "vrf red\n vni 100\nexit-vrf\n");
  suite.Become("zebra", "ok");
  AwaitAnswer("zebra");
  PumpFor(options.settling);
  AwaitAnswer("zebra");
  EXPECT_EQ(Stored(), before) << "mgmtd may have the description now";
}

TEST_F(RecordedSuite, UpgradeWhileTheDaemonIsDownWaitsForTheManagementProgram) {
  StartWithVersion("8.4.4");
  const std::vector<std::string> before = Stored();
  source.reset();
  StartAnotherVersion("10.3");
  suite.Become("mgmtd", "absent");
  Start();
  AwaitAnswers(kAll);
  PumpUntilSettled();
  EXPECT_EQ(Stored(), before);
  suite.Become("mgmtd", "ok");
  AwaitAnswer("mgmtd");
  PumpFor(Options().settling_empty / 2);
  LoadConfiguration();
  PumpUntilSettled();
  EXPECT_EQ(Stored(), before);
}

TEST_F(RecordedSuite, RestartedManagementProgramRemovesNothing) {
  StartWithVersion("10.3");
  const std::vector<std::string> before = Stored();
  suite.Become("mgmtd", "absent");
  PumpUntilSettled();
  EXPECT_EQ(Stored(), before);
  StartAnotherVersion("10.3");
  AwaitAnswer("mgmtd");
  PumpFor(Options().settling);
  LoadConfiguration();
  PumpUntilSettled();
  EXPECT_EQ(Stored(), before);
}

TEST_F(RecordedSuite, RemovalFromTheManagementProgramIsFollowedWithTheNextAnswer) {
  StartWithVersion("10.3");
  const std::size_t before = Stored().size();
  std::string text = suite.Configuration("mgmtd");
  const std::string rip = " network 10.3.0.0/30\n";
  ASSERT_NE(text.find(rip), std::string::npos);
  suite.Configure("mgmtd", text.erase(text.find(rip), rip.size()));
  AwaitAnswer("mgmtd");
  EXPECT_EQ(Stored().size(), before - 1);
}

// ripd reported it before the upgrade and does not run any more.
TEST_F(RecordedSuite, ItemRemovedByTheManagementProgramIsNotRetainedForALostProgram) {
  StartWithVersion("8.4.4");
  const std::size_t before = Stored().size();
  StopAndAwaitFailure();
  StartAnotherVersion("10.3");
  suite.Become("ripd", "absent");
  LoadConfiguration();
  AwaitAnswer("mgmtd");
  PumpFor(Options().settling);
  std::string text = suite.Configuration("mgmtd");
  const std::string rip = " network 10.3.0.0/30\n";
  suite.Configure("mgmtd", text.erase(text.find(rip), rip.size()));
  AwaitAnswer("mgmtd");
  EXPECT_EQ(Stored().size(), before - 1);
}

TEST_F(RecordedSuite, ItemRemovedDuringAnUpgradeIsRemovedLater) {
  StartWithVersion("8.4.4");
  StopAndAwaitFailure();
  StartAnotherVersion("10.3");
  suite.Configure("mgmtd", "vrf red\n ip route 192.168.50.0/24 10.1.0.2\nexit-vrf\n");
  AwaitAnswers(kAll);
  AwaitAnswer("mgmtd");
  const std::size_t all = Stored().size();
  PumpUntilSettled();
  AwaitAnswer("mgmtd");
  EXPECT_LT(Stored().size(), all);
  EXPECT_THAT(Stored(), IsSupersetOf({std::string(kRd10Words)}));
}

TEST_F(RecordedSuite, EarlierProgramThatNeverAnsweredRetainsNothing) {
  StartWithVersion("10.3");
  source.reset();
  suite.Become("ripd", "absent");
  suite.Configure("mgmtd", "vrf red\n ip route 192.168.50.0/24 10.1.0.2\nexit-vrf\n");
  Start();
  AwaitAnswer("mgmtd");
  const std::vector<std::string> before = Stored();
  PumpFor(2 * Options().settling_empty);
  AwaitAnswer("mgmtd");
  EXPECT_LT(Stored().size(), before.size());
  for (const std::string& words : Stored()) EXPECT_THAT(words, Not(HasSubstr("rip "))) << words;
}

TEST_F(RecordedSuite, ProgramThatTheSuiteDoesNotHaveIsNotLogged) {
  testing::internal::CaptureStderr();
  StartWithVersion("8.4.4");
  Restart();
  AwaitAnswers(kAll);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), Not(HasSubstr("mgmtd")));
}

}  // namespace
