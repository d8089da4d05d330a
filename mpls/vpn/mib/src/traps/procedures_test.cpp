// Which situation raises which notification.
#include "mpls/vpn/mib/src/traps/procedures.h"

#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// VRF "red" with the interfaces ge0 (index 1) and ge1 (index 2), both with an address and down.
class VrfTraps : public TrapTest {
 protected:
  void SetUp() override {
    TrapTest::SetUp();
    AddVrf("red");
    for (const char* name : {"ge0", "ge1"}) {
      AddInterface(name, "red");
      AddAddress(name, name == std::string("ge0") ? "192.0.2.1/24" : "2001:db8::1/64");
    }
    Connect();
    Enable(kTrapVrfUp);
    Enable(kTrapVrfDown);
    ClearPrints();
  }
  IfNode* Node(const char* name) { return mpls_vpn_mib_get_if_by_vrf_and_name("red", name); }
  static void Up(const char* name, IfNode* node = nullptr) { ConsiderUp("red", name, node); }
  static void Down(const char* name) { ConsiderDown("red", name); }
  // With nothing raised and the flags as at first.
  void MakeActive(const char* name) {
    LinkUp(name);
    Run();
    Forget();
  }
  void Forget() {
    Traps();
    for (const char* name : {"ge0", "ge1"}) Node(name)->vrf_up_trap_sent = Node(name)->vrf_down_trap_sent = 0;
    ClearPrints();
  }
  void ExpectFlags(const char* name, std::uint32_t up, std::uint32_t down) {
    EXPECT_EQ(Node(name)->vrf_up_trap_sent, up) << name;
    EXPECT_EQ(Node(name)->vrf_down_trap_sent, down) << name;
  }
  static constexpr char kUpOfGe0[] = "mplsL3VpnVrfUp red if=1 oper=1 row=1";
  static constexpr char kUpOfGe1[] = "mplsL3VpnVrfUp red if=2 oper=1 row=1";
  static constexpr char kDownOfGe0[] = "mplsL3VpnVrfDown red if=1 oper=2 row=1";
};

}  // namespace

// --- Up

TEST_F(VrfTraps, UpIsRaisedWhileNoInterfaceIsActive) {
  OnlyArea(TRAPS);
  Up("ge0");
  EXPECT_THAT(Traps(), ElementsAre(kUpOfGe0));
  ExpectFlags("ge0", 1, 0);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_trap_vrf_up", "active=0 conn=2 generating trap VRF-Up",
                          "Entering function generate_trap_notification"));
}

TEST_F(VrfTraps, UpUsesTheGivenNode) {
  Up("no such name", Node("ge1"));
  EXPECT_THAT(Traps(), ElementsAre(kUpOfGe1));
  ExpectFlags("ge1", 1, 0);
}

TEST_F(VrfTraps, UpIsNotRaisedWhenTheVrfWasUpAlready) {
  MakeActive("ge0");
  OnlyArea(TRAPS);
  Up("ge1");
  EXPECT_THAT(Traps(), IsEmpty());
  ExpectFlags("ge1", 0, 0);
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_up", "active=1 conn=2 no trap"));
}

TEST_F(VrfTraps, UpIsNotRaisedWhenTheInterfaceItselfCountsAlready) {
  MakeActive("ge0");
  Up("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, UpIsRaisedOnceForAnInterfaceUntilADownIsConsidered) {
  Up("ge0");
  Traps();
  OnlyArea(TRAPS);
  Up("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_up"));
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 raised up for VRF red already"));
}

TEST_F(VrfTraps, InterfaceThatIsDownAndUpAgainRaisesUpAgain) {
  Up("ge0");
  Down("ge0");
  Up("ge0");
  EXPECT_THAT(Traps(), ElementsAre(kUpOfGe0, kDownOfGe0, kUpOfGe0));
  ExpectFlags("ge0", 1, 0);
}

TEST_F(VrfTraps, UpClearsTheFlagOfTheDownEvenWhenNothingIsRaised) {
  MakeActive("ge1");
  Node("ge0")->vrf_down_trap_sent = 1;
  Up("ge0");
  ExpectFlags("ge0", 0, 0);
  Node("ge0")->vrf_up_trap_sent = Node("ge0")->vrf_down_trap_sent = 1;
  Up("ge0");
  ExpectFlags("ge0", 1, 0);
}

TEST_F(VrfTraps, UpOfAnUnknownInterfaceIsReported) {
  OnlyArea(TRAPS);
  Up("ge7");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_up", "Cannot find interface node"));
  ExpectErrorTraced("Cannot find interface node", kStatusNoSuchRow);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, UpThatIsSwitchedOffTouchesNothing) {
  Disable(kTrapVrfUp);
  Node("ge0")->vrf_down_trap_sent = 1;
  OnlyArea(TRAPS);
  Up("ge0");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_up"));
  ExpectFlags("ge0", 0, 1);
  Enable(kTrapAll);
  Up("ge0");
  EXPECT_THAT(Traps(), ElementsAre(kUpOfGe0));
}

// --- Down

TEST_F(VrfTraps, DownIsRaisedOnceNoInterfaceIsActive) {
  OnlyArea(TRAPS);
  Down("ge0");
  EXPECT_THAT(Traps(), ElementsAre(kDownOfGe0));
  ExpectFlags("ge0", 0, 1);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_trap_vrf_down", "active=0 conn=2 generating trap VRF-Down",
                          "Entering function generate_trap_notification"));
}

TEST_F(VrfTraps, DownIsNotRaisedWhileAnotherInterfaceIsActive) {
  MakeActive("ge1");
  OnlyArea(TRAPS);
  Down("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  ExpectFlags("ge0", 0, 0);
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_down", "active=1 conn=2 no trap"));
}

TEST_F(VrfTraps, DownIsRaisedOnceForAnInterfaceUntilAnUpIsConsidered) {
  Down("ge0");
  Traps();
  OnlyArea(TRAPS);
  Down("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_down"));
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 raised down for VRF red already"));
  Up("ge0");
  Down("ge0");
  EXPECT_THAT(Traps(), ElementsAre(kUpOfGe0, kDownOfGe0));
}

TEST_F(VrfTraps, DownClearsTheFlagOfTheUpEvenWhenNothingIsRaised) {
  MakeActive("ge1");
  Node("ge0")->vrf_up_trap_sent = 1;
  Down("ge0");
  ExpectFlags("ge0", 0, 0);
}

TEST_F(VrfTraps, DownOfAnUnknownInterfaceIsSilent) {
  OnlyArea(TRAPS);
  Down("ge7");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_down"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, DownWithoutBothNamesIsReported) {
  OnlyArea(ERR);
  ConsiderDown(nullptr, "ge0");
  ConsiderDown("red", nullptr);
  EXPECT_THAT(Prints(), ElementsAre("NULL parameter", "NULL parameter"));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("NULL parameter").Times(2));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, DownThatIsSwitchedOffTouchesNothing) {
  Disable(kTrapVrfDown);
  Node("ge0")->vrf_up_trap_sent = 1;
  Down("ge0");
  ConsiderDown(nullptr, nullptr);
  ExpectFlags("ge0", 1, 0);
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_FALSE(Printed("NULL parameter"));
}

// --- Routes and labels

namespace {

struct Threshold {
  const char* name;
  void (*raise)(const char*);
  MplsVpnTrapRow row;
  const char* procedure;
  const char* trap;
};

class ThresholdTraps : public TrapTest, public testing::WithParamInterface<Threshold> {};

}  // namespace

TEST_P(ThresholdTraps, IsRaisedWithItsValuesWhenSwitchedOn) {
  Enable(GetParam().row);
  OnlyArea(TRAPS);
  GetParam().raise("red");
  EXPECT_THAT(Traps(), ElementsAre(GetParam().trap));
  EXPECT_THAT(Prints(), ElementsAre(std::string("Entering ") + GetParam().procedure,
                                    "Entering function generate_trap_notification"));
}

TEST_P(ThresholdTraps, IsRaisedEachTime) {
  Enable(kTrapAll);
  GetParam().raise("red");
  GetParam().raise("red");
  EXPECT_THAT(Traps(), ElementsAre(GetParam().trap, GetParam().trap));
}

TEST_P(ThresholdTraps, IsNotRaisedByOtherSwitches) {
  for (std::uint32_t row = kTrapVrfUp; row < kTrapAll; ++row) mpls_vpn_mib_trap_info[row].enabled = 1;
  Disable(GetParam().row);
  OnlyArea(TRAPS);
  GetParam().raise("red");
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_THAT(Prints(), ElementsAre(std::string("Entering ") + GetParam().procedure));
}

INSTANTIATE_TEST_SUITE_P(
    Each, ThresholdTraps,
    testing::Values(
        Threshold{"MidExceeded", [](const char* vrf) { mpls_vpn_mib_trap_mid_thresh_exc(vrf, 80, 81); },
                  kTrapMidThreshExceeded, "mpls_vpn_mib_trap_mid_thresh_exc",
                  "mplsL3VpnVrfRouteMidThreshExceeded red mid=80 routes=81"},
        Threshold{"MaxExceeded", [](const char* vrf) { mpls_vpn_mib_trap_high_thresh_exc(vrf, 100, 101); },
                  kTrapMaxThreshExceeded, "mpls_vpn_mib_trap_high_thresh_exc",
                  "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red high=100 routes=101"},
        Threshold{"MaxCleared", [](const char* vrf) { mpls_vpn_mib_trap_high_thresh_clr(vrf, 100, 99); },
                  kTrapMaxThreshCleared, "mpls_vpn_mib_trap_high_thresh_clr",
                  "mplsL3VpnNumVrfRouteMaxThreshCleared red high=100 routes=99"},
        Threshold{"IllegalLabels", [](const char* vrf) { mpls_vpn_mib_trap_ilg_lbl_vltns(vrf, 5); },
                  kTrapIllegalLabels, "mpls_vpn_mib_trap_ilg_lbl_vltns",
                  "mplsL3VpnNumVrfSecIllglLblThrshExcd red labels=5"}),
    [](const auto& threshold) { return std::string(threshold.param.name); });
