// "doctor" for what processes of one build cannot show: a daemon of another version, a database on a disk
// that fails, a program of the suite that has stopped answering, and VRFs of a kernel.
// tests/e2e/doctor_test.py has the other checks.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iostream>

#include "cli/doctor/facts.h"
#include "cli/doctor/suite_checks.h"
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

// A suite that runs without naming the kernel's VRF "mgmt"; no daemon runs.
class UnusedVrf : public CommandLine {
 protected:
  void SetUp() override {
    std::ofstream(request_.suite_shell)
        << "#!/bin/sh\ncase $2 in *daemons) echo bgpd;; *) echo 'router bgp 1';; esac\n";
    std::filesystem::permissions(request_.suite_shell, std::filesystem::perms::owner_all);
  }
  void Save(const std::string& text) const { std::ofstream(request_.suite_file) << text; }
  doctor::Finding Check() const {
    const Session session{std::cout, std::cerr, false, Directory() + "/none", "", ""};
    kernel::LinkSeen device;
    device.link.name = "mgmt";
    device.link.is_vrf = true;
    doctor::Facts facts(session, request_, {.links = [device] { return std::vector{device}; }, .routes = {}});
    try {
      const doctor::Findings findings = check_unused_vrfs(facts);
      return findings.size() == 1 ? findings[0] : doctor::Finding{doctor::Level::kError, "not one", ""};
    } catch (const Failure& failure) {
      return {doctor::Level::kError, failure.what(), ""};
    }
  }
  DoctorRequest request_{.only = {},
                         .skip = {},
                         .snmp = "",
                         .suite_shell = Directory() + "/shell",
                         .suite_file = Directory() + "/frr.conf"};
};

TEST_F(UnusedVrf, IsNotAcquittedWhileItIsUnknownWhetherItIsAVpn) {
  Save("router bgp 1 vrf mgmt\n");
  EXPECT_EQ(Check().level, doctor::Level::kWarning);
  Save("");
  EXPECT_EQ(Check().level, doctor::Level::kNotPossible) << "only the daemon knows";
  EXPECT_THAT(Check().text, HasSubstr("mgmt; whether they are VPNs is unknown: mpls_vpn_mib is not running"));
}

TEST_F(UnusedVrf, SavedFileThatCannotBeReadSaysNothingOfIt) {
  std::filesystem::create_directory(request_.suite_file);
  EXPECT_EQ(Check().level, doctor::Level::kNotPossible);
  EXPECT_THAT(Check().text, HasSubstr("unknown: " + request_.suite_file + ": it is a directory"));
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
