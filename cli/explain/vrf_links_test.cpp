// Links of a VRF by what is configured for each address family.
#include <gmock/gmock.h>

#include "cli/explain/explain_test_fixture.h"

namespace cli::explain {
namespace {

using ::testing::HasSubstr;

constexpr char kVpnTable[] =
    "Route Distinguisher: 65000:110\n *>i 10.21.0.0/24     10.255.0.2               0    100      0 ?\n"
    "    UN=10.255.0.2 EC{65000:10} label=17 type=bgp, subtype=0\n";

class ExplainVrf : public ExplainedRouter {};

TEST_F(ExplainVrf, DistinguisherOfTheSuiteIsThereBeforeTheMibHasIt) {
  fake.vrfs["red"].rd.clear();
  const Judgement rd = Explain()["rd"];
  EXPECT_EQ(rd.state, State::kOk);
  EXPECT_EQ(rd.text, "65000:10; the MIB differs: none");
}

TEST_F(ExplainVrf, DistinguisherOfTheMibMayHaveAnotherNotation) {
  fake.vrfs["red"].rd = "64086.59904:30";
  Configure("  rd vpn export 4200000000:30\n");
  EXPECT_EQ(Explain()["rd"].text, "4200000000:30");
}

TEST_F(ExplainVrf, LinksOfAVrfThatDoesNotExistSaySo) {
  fake.vrfs.clear();
  Configure("");
  auto judged = Explain();
  for (const char* link : {"rd", "imports", "exports"})
    EXPECT_EQ(judged[link].text, "there is no such VRF") << link;
}

TEST_F(ExplainVrf, DeviceThatTheSuiteConfiguresIsTheCauseOfAnAbsentVrf) {
  fake.vrfs.clear();
  links_.clear();
  const Judgement device = Explain()["device"];
  EXPECT_EQ(device.text, "the kernel has no VRF device red, which the suite configures");
  EXPECT_EQ(device.fix, "ip link add red type vrf table NUMBER; ip link set dev red up");
  EXPECT_EQ(BrokenAndUnknown(), std::pair(std::string("device"), std::string()));
}

TEST_F(ExplainVrf, VrfThatNothingKnowsNeedsNoDevice) {
  fake.vrfs.clear();
  links_.clear();
  Answer("show running-config", "router bgp 65000\nexit\n");
  EXPECT_EQ(Explain()["device"].text, "there is no such VRF");
  EXPECT_EQ(BrokenAndUnknown(), std::pair(std::string("vrf"), std::string()));
}

TEST_F(ExplainVrf, AbsentDeviceIsNotCheckedIfTheSuiteIsSilent) {
  fake.vrfs.clear();
  links_.clear();
  std::filesystem::remove(Shell());
  const Judgement device = Explain()["device"];
  EXPECT_EQ(device.state, State::kNotChecked);
  EXPECT_THAT(device.text, HasSubstr("no VRF device red; whether the suite configures it is unknown: "));
}

TEST_F(ExplainVrf, AbsentDeviceIsNotBrokenWithoutADaemonThatReadsTheKernel) {
  links_.clear();
  socket_ = "nothing";
  EXPECT_EQ(Explain()["device"].state, State::kNotChecked);
  EXPECT_EQ(BrokenAndUnknown(), std::pair(std::string(), std::string("device")));
}

TEST_F(ExplainVrf, FamilyThatExportsWithoutADistinguisherIsBroken) {
  Configure("  no rd\n export vpn\n exit-address-family\n address-family ipv6 unicast\n  export vpn\n");
  const Judgement rd = Explain()["rd"];
  EXPECT_EQ(rd.text,
            "the VRF exports its ipv6 unicast routes without a route distinguisher: they are not announced");
  EXPECT_THAT(rd.fix, HasSubstr("address-family ipv6 unicast"));
}

TEST_F(ExplainVrf, TargetsOfAFamilyThatDoesNotImportAreNotImported) {
  Configure("  rt vpn both 65000:10\n  export vpn\n");
  auto judged = Explain();
  EXPECT_EQ(judged["imports"].state, State::kNotChecked);
  EXPECT_EQ(judged["imports"].text,
            "the VRF has import targets (65000:10) and no family with \"import vpn\"");
  EXPECT_EQ(judged["exports"].text, "ipv4: 65000:10, imported by no other VRF of this router");
}

TEST_F(ExplainVrf, TargetThatOnlyAnotherFamilyExportsIsImportedFromNone) {
  Answer("show bgp ipv6 vpn", kVpnTable);
  AnswerSession("Established");
  const Judgement imports = Explain()["imports"];
  EXPECT_EQ(imports.state, State::kBroken);
  EXPECT_EQ(imports.text, "no other VRF and no other router exports 65000:10 for ipv4");
}

TEST_F(ExplainVrf, EachTargetHasItsExporters) {
  Configure("  rt vpn both 65000:10 65000:11\n  export vpn\n  import vpn\n");
  Answer("show bgp ipv4 vpn", kVpnTable);
  EXPECT_EQ(Explain()["imports"].text, "ipv4: 65000:10 from 10.255.0.2; 65000:11 from none");
}

TEST_F(ExplainVrf, SessionThatIsNotEstablishedIsTheCauseOfImportsFromNone) {
  AnswerSession("Active");
  auto judged = Explain();
  EXPECT_EQ(judged["sessions"].state, State::kBroken);
  EXPECT_EQ(judged["sessions"].text,
            "no ipv4 vpn session is established; the ipv4 vpn session with 10.255.0.2 is Active");
  EXPECT_THAT(judged["sessions"].fix, HasSubstr("show bgp neighbors 10.255.0.2"));
  EXPECT_THAT(judged["imports"].text, HasSubstr("; the ipv4 vpn session with 10.255.0.2 is Active"));
  EXPECT_EQ(BrokenAndUnknown().first, "sessions");
}

TEST_F(ExplainVrf, EstablishedSessionIsOk) {
  AnswerSession("Established");
  EXPECT_EQ(Explain()["sessions"].text, "ipv4 vpn with 10.255.0.2: Established");
}

TEST_F(ExplainVrf, RouterWithoutNeighborsNeedsNoSession) {
  EXPECT_EQ(Explain()["sessions"].state, State::kNotChecked);
}

}  // namespace
}  // namespace cli::explain
