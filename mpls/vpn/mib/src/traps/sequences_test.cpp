// Which sequences of events raise VRF-up and VRF-down: the cases of RFC 4382 (section 6, mplsL3VpnVrfUp and
// mplsL3VpnVrfDown), and where this system differs. docs/traps.md describes the same for operators.
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// VRFs "red" and "blue"; every interface that is added has an address. Both notifications are on.
class TrapSequence : public TrapTest {
 protected:
  void SetUp() override {
    TrapTest::SetUp();
    AddVrf("red");
    AddVrf("blue");
    Connect();
    Enable(kTrapVrfUp);
    Enable(kTrapVrfDown);
  }
  // Returns the index.
  std::uint32_t Add(const std::string& name, const std::string& vrf) {
    AddInterface(name, vrf);
    AddAddress(name, "192.0.2." + std::to_string(IndexOf(name)) + "/24");
    Run();
    return IndexOf(name);
  }
  void ComeUp(const char* name) {
    LinkUp(name);
    Run();
  }
  void GoDown(const char* name) {
    LinkDown(name);
    Run();
  }
  void Move(const char* name, std::string_view vrf) {
    Join(name, vrf);
    Run();
  }
  void RenameAndSetLink(const char* name, const char* to, bool up) {
    router::Interface changed = InterfaceOf(name);
    changed.name = to;
    changed.up = up;
    EXPECT_EQ(router_.change_interface(changed), kStatusOk);
    Run();
  }
  static std::string UpTrap(const char* vrf, std::uint32_t index) {
    return std::string("mplsL3VpnVrfUp ") + vrf + " if=" + std::to_string(index) + " oper=1 row=1";
  }
  static std::string DownTrap(const char* vrf, std::uint32_t index) {
    return std::string("mplsL3VpnVrfDown ") + vrf + " if=" + std::to_string(index) + " oper=2 row=1";
  }
};

}  // namespace

// --- The cases of the RFC

TEST_F(TrapSequence, OnlyInterfaceOfAVrfIsUpAndThenDown) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
  GoDown("ge0");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
  ComeUp("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

TEST_F(TrapSequence, FirstInterfaceThatJoinsAVrfAndIsUpAfterwards) {
  const std::uint32_t ge0 = Add("ge0", "default");
  Join("ge0", "red");
  Run();
  EXPECT_THAT(Traps(), IsEmpty());
  ComeUp("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

TEST_F(TrapSequence, TwoInterfacesComeUpOneAfterTheOtherAndOnlyTheFirstRaisesUp) {
  const std::uint32_t ge0 = Add("ge0", "red");
  Add("ge1", "red");
  ComeUp("ge0");
  ComeUp("ge1");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

TEST_F(TrapSequence, LastOfSeveralInterfacesDownRaisesDown) {
  Add("ge0", "red");
  const std::uint32_t ge1 = Add("ge1", "red");
  Add("ge2", "red");  // never up
  ComeUp("ge0");
  ComeUp("ge1");
  Traps();
  GoDown("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
  GoDown("ge1");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge1)));
}

TEST_F(TrapSequence, LastActiveInterfaceIsRemovedFromTheVrf) {
  const std::uint32_t ge0 = Add("ge0", "red");
  Add("ge1", "red");
  ComeUp("ge0");
  Traps();
  Move("ge0", "default");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, OnlyActiveInterfaceMovesToAnotherVrf) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  Traps();
  Move("ge0", "blue");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0), UpTrap("blue", ge0)));
}

TEST_F(TrapSequence, InterfaceThatMovesBetweenVrfsThatStayUpRaisesNothing) {
  Add("ge0", "red");
  Add("ge1", "red");
  Add("ge2", "blue");
  for (const char* name : {"ge0", "ge1", "ge2"}) ComeUp(name);
  Traps();
  Move("ge0", "blue");
  EXPECT_THAT(Traps(), IsEmpty());
}

// --- Changes of who keeps the VRF up

TEST_F(TrapSequence, InterfacesUpInAlternationRaiseOncePerTransitionOfTheVrf) {
  const std::uint32_t ge0 = Add("ge0", "red");
  const std::uint32_t ge1 = Add("ge1", "red");
  ComeUp("ge0");
  ComeUp("ge1");
  GoDown("ge0");
  GoDown("ge1");
  ComeUp("ge0");
  GoDown("ge0");
  ComeUp("ge1");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0), DownTrap("red", ge1), UpTrap("red", ge0),
                                   DownTrap("red", ge0), UpTrap("red", ge1)));
}

TEST_F(TrapSequence, VrfsDoNotMixTheirInterfaces) {
  const std::uint32_t ge0 = Add("ge0", "red");
  const std::uint32_t ge1 = Add("ge1", "blue");
  ComeUp("ge0");
  ComeUp("ge1");
  GoDown("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0), UpTrap("blue", ge1), DownTrap("red", ge0)));
}

TEST_F(TrapSequence, InterfaceWithoutAnAddressKeepsNoVrfUp) {
  const std::uint32_t ge0 = Add("ge0", "red");
  AddInterface("bare", "red");
  LinkUp("bare");
  Run();
  Traps();
  ComeUp("ge0");
  GoDown("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0), DownTrap("red", ge0)));
}

TEST_F(TrapSequence, InterfacesOfNoVrfRaiseNothing) {
  Add("ge0", "default");
  ComeUp("ge0");
  GoDown("ge0");
  EXPECT_THAT(Traps(), IsEmpty());
}

// --- What the handlers do by themselves

TEST_F(TrapSequence, JoinOfAnActiveInterfaceCountsItAndRaisesNothingByItself) {
  Add("ge0", "default");
  ComeUp("ge0");
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
  EXPECT_TRUE(Printed("Entering mpls_vpn_mib_trap_vrf_up"));
  EXPECT_TRUE(Printed("active=1 conn=1 no trap"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSequence, JoinOfAnInterfaceThatIsDownMakesNoDecision) {
  Add("ge0", "default");
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
  EXPECT_FALSE(Printed("Entering mpls_vpn_mib_trap_vrf_up"));
}

TEST_F(TrapSequence, JoinWithoutAnIndexIsNotCountedAndRaisesUpWithoutOne) {
  Add("ge0", "default");
  ComeUp("ge0");
  WithFault("ifname_to_index", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red"); });
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfUp red oper=1 row=1"));
}

TEST_F(TrapSequence, LeaveOfAnActiveInterfaceCountsItAndRaisesNothingByItself) {
  Add("ge0", "red");
  ComeUp("ge0");
  Traps();
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
  EXPECT_TRUE(Printed("Entering mpls_vpn_mib_trap_vrf_down"));
  EXPECT_TRUE(Printed("active=1 conn=1 no trap"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSequence, LeaveOfAnInterfaceThatRaisedDownMakesNoDecision) {
  Add("ge0", "red");
  ComeUp("ge0");
  mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge0")->vrf_down_trap_sent = 1;
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: TRUE"));
  EXPECT_FALSE(Printed("Entering mpls_vpn_mib_trap_vrf_down"));
}

TEST_F(TrapSequence, StateChangesAskForUpAndDown) {
  Add("ge0", "red");
  OnlyArea(TRAPS);
  LinkUp("ge0");
  Run();
  EXPECT_EQ(TimesPrinted("Entering mpls_vpn_mib_trap_vrf_up"), 1U);
  EXPECT_EQ(TimesPrinted("Entering mpls_vpn_mib_trap_vrf_down"), 0U);
  ClearPrints();
  LinkDown("ge0");
  Run();
  EXPECT_EQ(TimesPrinted("Entering mpls_vpn_mib_trap_vrf_up"), 0U);
  EXPECT_EQ(TimesPrinted("Entering mpls_vpn_mib_trap_vrf_down"), 1U);
}

TEST_F(TrapSequence, LastActiveInterfaceIsRemovedWhileUp) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  Traps();
  RemoveInterface("ge0");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, InterfacesThatGoDownTogetherRaiseOneDownOfTheLast) {
  Add("ge0", "red");
  const std::uint32_t ge1 = Add("ge1", "red");
  ComeUp("ge0");
  ComeUp("ge1");
  Traps();
  LinkDown("ge0");
  LinkDown("ge1");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge1)));
}

TEST_F(TrapSequence, InterfacesThatComeUpTogetherRaiseOneUpOfTheFirst) {
  const std::uint32_t ge0 = Add("ge0", "red");
  Add("ge1", "red");
  LinkUp("ge0");
  LinkUp("ge1");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

// A host renames an interface only while it is down, and may leave it down: one change says both.
TEST_F(TrapSequence, LastActiveInterfaceThatIsRenamedAndDownAtOnceRaisesDown) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
  RenameAndSetLink("ge0", "ge9", false);
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, InterfaceThatIsRenamedAndUpAtOnceRaisesUp) {
  const std::uint32_t ge0 = Add("ge0", "red");
  RenameAndSetLink("ge0", "ge9", true);
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

// Names that are swapped are freed under a name in between, which no client may have seen.
TEST_F(TrapSequence, InterfaceThatIsRenamedTwiceAndDownInOneMomentRaisesDown) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
  Rename("ge0", "aside");
  RenameAndSetLink("aside", "ge9", false);
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
  Rename("ge9", "aside");
  RenameAndSetLink("aside", "ge0", true);
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
}

// Until an interface's departure is delivered, its name means that interface and no later one of that name.
TEST_F(TrapSequence, NameThatAnotherInterfaceGetsAtOnceStillMeansTheOneThatLeft) {
  const std::uint32_t ge0 = Add("ge0", "red");
  Add("ge1", "default");
  ComeUp("ge0");
  ComeUp("ge1");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
  Join("ge0", "default");
  Rename("ge0", "aside");
  Rename("ge1", "ge0");
  Rename("aside", "ge1");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, InterfacesThatAreDownAndCreatedAgainInOneMomentRaiseOneDown) {
  const std::uint32_t ge0 = Add("ge0", "red");
  Add("ge1", "red");
  ComeUp("ge0");
  ComeUp("ge1");
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0)));
  LinkDown("ge1");
  RemoveInterface("ge0");
  AddInterface("ge0", "default");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, FirstAddressOfALinkThatIsUpRaisesUpAndRemovalOfTheLastRaisesDown) {
  AddInterface("ge0", "red");
  LinkUp("ge0");
  Run();
  EXPECT_THAT(Traps(), IsEmpty());
  AddAddress("ge0", "2001:db8::1/64");
  Run();
  AddAddress("ge0", "192.0.2.1/24");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", IndexOf("ge0"))));
  router::Interface bare = InterfaceOf("ge0");
  bare.addresses.clear();
  ASSERT_EQ(router_.change_interface(bare), kStatusOk);
  Run();
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", IndexOf("ge0"))));
}

TEST_F(TrapSequence, ActiveInterfaceThatChangesItsFamilyAtOnceRaisesNothing) {
  Add("ge0", "red");
  Add("ge1", "red");
  ComeUp("ge0");
  ComeUp("ge1");
  GoDown("ge0");
  Traps();
  router::Interface changed = InterfaceOf("ge1");
  ASSERT_TRUE(router::parse_address("2001:db8::1/64", changed.addresses.data()));
  ASSERT_EQ(router_.change_interface(changed), kStatusOk);
  Run();
  EXPECT_THAT(Traps(), IsEmpty());
  GoDown("ge1");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", IndexOf("ge1"))));
}

// --- Start, and switches that change

TEST_F(TrapSequence, VrfThatIsUpWhenTheDaemonStartsRaisesNothingThenAndDownLater) {
  const std::uint32_t ge0 = Add("ge0", "red");
  ComeUp("ge0");
  Traps();
  RestartDaemon();
  EXPECT_THAT(Traps(), IsEmpty());
  GoDown("ge0");
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}

TEST_F(TrapSequence, SwitchingOnRaisesNothingForWhatHappenedBefore) {
  Disable(kTrapVrfUp);
  Add("ge0", "red");
  ComeUp("ge0");
  Enable(kTrapVrfUp);
  Run();
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSequence, WithOnlyUpSwitchedOnAnInterfaceRaisesItOnce) {
  Disable(kTrapVrfDown);
  const std::uint32_t ge0 = Add("ge0", "red");
  const std::uint32_t ge1 = Add("ge1", "red");
  for (int round = 0; round < 2; ++round) {
    for (const char* name : {"ge0", "ge1"}) {
      ComeUp(name);
      GoDown(name);
    }
  }
  EXPECT_THAT(Traps(), ElementsAre(UpTrap("red", ge0), UpTrap("red", ge1)));
}

TEST_F(TrapSequence, WithOnlyDownSwitchedOnAnInterfaceRaisesItOnce) {
  Disable(kTrapVrfUp);
  const std::uint32_t ge0 = Add("ge0", "red");
  for (int round = 0; round < 2; ++round) {
    ComeUp("ge0");
    GoDown("ge0");
  }
  EXPECT_THAT(Traps(), ElementsAre(DownTrap("red", ge0)));
}
