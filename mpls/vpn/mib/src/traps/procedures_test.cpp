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
  static constexpr char kUpOfGe0[] = "mplsL3VpnVrfUp red if=1 oper=1 row=1";
  static constexpr char kDownOfGe0[] = "mplsL3VpnVrfDown red if=1 oper=2 row=1";
};

}  // namespace

// --- Up and down

namespace {

struct Direction {
  const char* name;
  MplsVpnTrapRow row;
  void (*consider)(const char* interface);
  void (*consider_opposite)(const char* interface);
  std::uint32_t IfNode::*sent;
  std::uint32_t IfNode::*opposite_sent;
  const char* procedure;
  const char* print;
  const char* trap;  // of ge0
  const char* opposite_trap;
};

class VrfTrap : public VrfTraps, public testing::WithParamInterface<Direction> {
 protected:
  static void Consider(const char* name) { GetParam().consider(name); }
  void ExpectSent(std::uint32_t sent, std::uint32_t opposite_sent) {
    EXPECT_EQ(Node("ge0")->*GetParam().sent, sent);
    EXPECT_EQ(Node("ge0")->*GetParam().opposite_sent, opposite_sent);
  }
  static std::string Entering() { return std::string("Entering ") + GetParam().procedure; }

 public:
  static void Up(const char* name) { VrfTraps::Up(name); }
  static void Down(const char* name) { VrfTraps::Down(name); }
  static constexpr Direction kDirections[] = {
      {"Up", kTrapVrfUp, Up, Down, &IfNode::vrf_up_trap_sent, &IfNode::vrf_down_trap_sent,
       "mpls_vpn_mib_trap_vrf_up", "VRF-Up", kUpOfGe0, kDownOfGe0},
      {"Down", kTrapVrfDown, Down, Up, &IfNode::vrf_down_trap_sent, &IfNode::vrf_up_trap_sent,
       "mpls_vpn_mib_trap_vrf_down", "VRF-Down", kDownOfGe0, kUpOfGe0},
  };
};

}  // namespace

TEST_P(VrfTrap, IsRaisedWhileNoInterfaceIsActive) {
  OnlyArea(TRAPS);
  Consider("ge0");
  EXPECT_THAT(Traps(), ElementsAre(GetParam().trap));
  ExpectSent(1, 0);
  EXPECT_THAT(Prints(),
              ElementsAre(Entering(), std::string("active=0 conn=2 generating trap ") + GetParam().print,
                          "Entering function generate_trap_notification"));
}

TEST_P(VrfTrap, IsNotRaisedWhileAnotherInterfaceIsActive) {
  MakeActive("ge1");
  OnlyArea(TRAPS);
  Consider("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  ExpectSent(0, 0);
  EXPECT_THAT(Prints(), ElementsAre(Entering(), "active=1 conn=2 no trap"));
}

TEST_P(VrfTrap, IsRaisedOnceForAnInterfaceUntilTheOppositeIsConsidered) {
  Consider("ge0");
  Traps();
  OnlyArea(TRAPS);
  Consider("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_THAT(Prints(), ElementsAre(Entering()));
  const std::string word = GetParam().row == kTrapVrfUp ? "up" : "down";
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 raised " + word + " for VRF red already"));
  GetParam().consider_opposite("ge0");
  Consider("ge0");
  EXPECT_THAT(Traps(), ElementsAre(GetParam().opposite_trap, GetParam().trap));
  ExpectSent(1, 0);
}

TEST_P(VrfTrap, ClearsTheFlagOfTheOppositeEvenWhenNothingIsRaised) {
  MakeActive("ge1");
  for (const std::uint32_t sent : {0U, 1U}) {
    Node("ge0")->*GetParam().sent = sent;
    Node("ge0")->*GetParam().opposite_sent = 1;
    Consider("ge0");
    ExpectSent(sent, 0);
  }
}

TEST_P(VrfTrap, ThatIsSwitchedOffTouchesNothing) {
  Disable(GetParam().row);
  Node("ge0")->*GetParam().opposite_sent = 1;
  OnlyArea(TRAPS);
  Consider("ge0");
  EXPECT_THAT(Prints(), ElementsAre(Entering()));
  ExpectSent(0, 1);
  Enable(kTrapAll);
  Consider("ge0");
  EXPECT_THAT(Traps(), ElementsAre(GetParam().trap));
}

INSTANTIATE_TEST_SUITE_P(Each, VrfTrap, testing::ValuesIn(VrfTrap::kDirections),
                         [](const auto& direction) { return std::string(direction.param.name); });

TEST_F(VrfTraps, UpUsesTheGivenNode) {
  Up("no such name", Node("ge1"));
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfUp red if=2 oper=1 row=1"));
  EXPECT_EQ(Node("ge1")->vrf_up_trap_sent, 1U);
}

TEST_F(VrfTraps, UpIsNotRaisedWhenTheInterfaceItselfCountsAlready) {
  MakeActive("ge0");
  Up("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, UnknownInterfaceIsReportedForAnUpOnly) {
  OnlyArea(TRAPS);
  Up("ge7");
  Down("ge7");
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_trap_vrf_up", "Cannot find interface node",
                                    "Entering mpls_vpn_mib_trap_vrf_down"));
  ExpectErrorTraced("Cannot find interface node", kStatusNoSuchRow);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(VrfTraps, DownWithoutBothNamesIsReportedWhenSwitchedOn) {
  OnlyArea(ERR);
  ConsiderDown(nullptr, "ge0");
  ConsiderDown("red", nullptr);
  Disable(kTrapVrfDown);
  ConsiderDown(nullptr, nullptr);
  EXPECT_THAT(Prints(), ElementsAre("NULL parameter", "NULL parameter"));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("NULL parameter").Times(2));
  EXPECT_THAT(Traps(), IsEmpty());
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
