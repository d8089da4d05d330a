// "doctor" for what processes of one build cannot show: a daemon of another version, a database on a disk
// that fails, and a program of the suite that has stopped answering. tests/e2e/doctor_test.py has the other
// checks.
#include <gmock/gmock.h>

#include "cli/doctor/suite_configuration.h"
#include "cli/served_test_fixture.h"
#include "platform/store/status/status.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Doctor : public ServedCommandLine {
 protected:
  void TearDown() override {
    process_status_stop();
    ServedCommandLine::TearDown();
  }
  // The state of the check, and its findings' texts.
  std::string Diagnose(const std::string& check, const ProcessIdentity& identity, int exit_status) {
    EXPECT_EQ(process_status_start(manager_, identity), kStatusOk);
    EXPECT_EQ(Ask({"doctor", "--only", check}), exit_status) << Err();
    process_status_stop();
    return Out();
  }
};

TEST_F(Doctor, DaemonOfAnotherVersionIsAWarning) {
  EXPECT_THAT(Diagnose("daemon-version", {.version = "0.0.1"}, 1),
              HasSubstr("the daemon is of version 0.0.1, this command line of " MPLS_VERSION));
  EXPECT_THAT(Diagnose("daemon-version", {.version = MPLS_VERSION}, kExitOk), HasSubstr("ok"));
}

TEST_F(Doctor, DatabaseThatCannotBeWrittenIsAnError) {
  const auto databases = [] {
    return std::vector<process_status::DatabaseFact>{
        {"checkpoint", "/nowhere/c.db", "No space left on device"}};
  };
  EXPECT_THAT(Diagnose("databases", {.databases = databases}, 2),
              HasSubstr("/nowhere/c.db cannot be written: No space left on device"));
}

TEST_F(Doctor, ProgramOfTheSuiteThatDoesNotAnswerIsAnError) {
  const auto sources = [] {
    return std::vector<process_status::SourceFact>{{"kernel", "6.1", true, 1},
                                                   {"bgpd", "10.3", false, 0, "it hangs"}};
  };
  const std::string text = Diagnose("sources", {.sources = sources}, 2);
  EXPECT_THAT(text, HasSubstr("bgpd: it hangs\n      fix: systemctl status frr\n"));
  EXPECT_THAT(text, ::testing::Not(HasSubstr("kernel:")));
}

TEST(SuiteConfiguration, HasWhatEachFamilyExchanges) {
  const doctor::SuiteConfiguration read = doctor::parse_suite_configuration(
      "vrf blue\nexit-vrf\n"
      "router bgp 65000\n address-family ipv4 vpn\n  rd vpn export 9:9\n"
      "router bgp 65000 vrf red\n"
      " address-family ipv4 unicast\n  rd vpn export 65000:10\n  rt vpn both 65000:1 65000:2\n  export vpn\n"
      "  label vpn export auto\n exit-address-family\n"
      " address-family ipv6 unicast\n  rt vpn import 65000:3\n  export vpn\n exit-address-family\nexit\n");
  EXPECT_THAT(read.vrfs, ElementsAre("blue", "red"));
  EXPECT_THAT(read.used_vrfs, ElementsAre("red"));
  ASSERT_EQ(read.families.size(), 2U);
  EXPECT_EQ(read.families[0].instance, "router bgp 65000 vrf red");
  EXPECT_EQ(read.families[0].rd, "65000:10");
  EXPECT_THAT(read.families[0].targets,
              ElementsAre("export 65000:1", "export 65000:2", "import 65000:1", "import 65000:2"));
  EXPECT_TRUE(read.families[0].exports);
  EXPECT_TRUE(read.families[0].has_label);
  EXPECT_FALSE(read.families[0].has_segment);
  EXPECT_EQ(read.families[1].rd, "");
  EXPECT_FALSE(read.families[1].has_label);
}

TEST(SuiteConfiguration, VrfIsUsedIfAnythingIsConfiguredForIt) {
  const doctor::SuiteConfiguration read = doctor::parse_suite_configuration(
      "vrf empty\nexit-vrf\n!\nvrf gold\n vni 100\nexit-vrf\nrouter ospf vrf blue\nexit\ninterface e0 vrf "
      "x\n a\n");
  EXPECT_THAT(read.vrfs, ElementsAre("blue", "empty", "gold"));
  EXPECT_THAT(read.used_vrfs, ElementsAre("blue", "gold"));
}

TEST(SuiteConfiguration, SegmentIdentifierOfTheVrfIsForAllFamilies) {
  const doctor::SuiteConfiguration read = doctor::parse_suite_configuration(
      "router bgp 1 vrf red\n sid vpn per-vrf export auto\n address-family ipv4 unicast\n  export vpn\n"
      "router bgp 1 vrf blue\n address-family ipv4 unicast\n  export vpn\n");
  EXPECT_TRUE(read.families.at(0).has_segment);
  EXPECT_FALSE(read.families.at(0).has_label);
  EXPECT_FALSE(read.families.at(1).has_segment);
}

TEST(SuiteConfiguration, ModeOfLabelsIsNotALabel) {
  const auto has_label = [](const std::string& line) {
    return doctor::parse_suite_configuration("router bgp 1 vrf red\n address-family ipv4 unicast\n  " + line +
                                             "\n")
        .families.at(0)
        .has_label;
  };
  EXPECT_FALSE(has_label("label vpn export allocation-mode per-nexthop"));
  EXPECT_TRUE(has_label("label vpn export 1000"));
}

}  // namespace
}  // namespace cli
