// Which sequences of events raise VRF-up and VRF-down: the cases of RFC 4382 (section 6, mplsL3VpnVrfUp and
// mplsL3VpnVrfDown), and where this system differs. docs/traps.md describes the same for operators.
#include "mpls/vpn/mib/src/traps/procedures.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What happens at one moment, and the notifications that it raises ("Up red 1": VRF "red", ifIndex 1).
struct Moment {
  const char* actions;
  const char* traps = "";
};

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start < list.size();) {
    const std::size_t end = std::min(list.find(", ", start), list.size());
    parts.push_back(list.substr(start, end - start));
    start = end + 2;
  }
  return parts;
}

// VRFs "red" and "blue", with both notifications on. Interfaces are numbered from 1 in the order they are
// added.
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
  void Play(const std::vector<Moment>& moments) {
    for (const Moment& moment : moments) {
      for (const std::string& action : split(moment.actions)) Do(action);
      Run();
      std::vector<std::string> expected;
      for (const std::string& trap : split(moment.traps)) expected.push_back(FullText(trap));
      EXPECT_EQ(Traps(), expected) << moment.actions;
    }
  }

 private:
  void Do(const std::string& action) {
    std::istringstream words(action);
    std::string verb, name, what;
    words >> verb >> name >> what;
    const auto rename = [&](bool up) {
      router::Interface changed = InterfaceOf(name);
      changed.name = what;
      changed.up = up;
      EXPECT_EQ(router_.change_interface(changed), kStatusOk);
    };
    const std::map<std::string_view, std::function<void()>> verbs = {
        {"add", [&] { Add(name, what); }},
        {"add-bare", [&] { AddInterface(name, what); }},
        {"address", [&] { AddAddress(name, what); }},
        {"only-address", [&] { SetOnlyAddress(name, what); }},
        {"no-address", [&] { SetAddresses(name, {}); }},
        {"up", [&] { LinkUp(name); }},
        {"down", [&] { LinkDown(name); }},
        {"move", [&] { Join(name, what); }},
        {"remove", [&] { RemoveInterface(name); }},
        {"rename", [&] { Rename(name, what); }},
        {"rename-up", [&] { rename(true); }},
        {"rename-down", [&] { rename(false); }},
    };
    const auto found = verbs.find(verb);
    ASSERT_NE(found, verbs.end()) << action;
    found->second();
  }
  // Down, with an address.
  void Add(const std::string& name, const std::string& vrf) {
    AddInterface(name, vrf);
    AddAddress(name, "192.0.2." + std::to_string(IndexOf(name)) + "/24");
  }
  static std::string FullText(const std::string& trap) {
    std::istringstream words(trap);
    std::string kind, vrf, index;
    words >> kind >> vrf >> index;
    return "mplsL3VpnVrf" + kind + " " + vrf + " if=" + index + " oper=" + (kind == "Up" ? "1" : "2") +
           " row=1";
  }
};

}  // namespace

// --- The cases of the RFC

TEST_F(TrapSequence, OnlyInterfaceOfAVrfIsUpAndThenDown) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}, {"down ge0", "Down red 1"}, {"up ge0", "Up red 1"}});
}

TEST_F(TrapSequence, FirstInterfaceThatJoinsAVrfAndIsUpAfterwards) {
  Play({{"add ge0 default"}, {"move ge0 red"}, {"up ge0", "Up red 1"}});
}

TEST_F(TrapSequence, TwoInterfacesComeUpOneAfterTheOtherAndOnlyTheFirstRaisesUp) {
  Play({{"add ge0 red, add ge1 red"}, {"up ge0", "Up red 1"}, {"up ge1"}});
}

TEST_F(TrapSequence, LastOfSeveralInterfacesDownRaisesDown) {
  Play({{"add ge0 red, add ge1 red, add ge2 red"},
        {"up ge0", "Up red 1"},
        {"up ge1"},
        {"down ge0"},
        {"down ge1", "Down red 2"}});
}

TEST_F(TrapSequence, LastActiveInterfaceIsRemovedFromTheVrf) {
  Play({{"add ge0 red, add ge1 red"}, {"up ge0", "Up red 1"}, {"move ge0 default", "Down red 1"}});
}

TEST_F(TrapSequence, OnlyActiveInterfaceMovesToAnotherVrf) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}, {"move ge0 blue", "Down red 1, Up blue 1"}});
}

TEST_F(TrapSequence, InterfaceThatMovesBetweenVrfsThatStayUpRaisesNothing) {
  Play({{"add ge0 red, add ge1 red, add ge2 blue"},
        {"up ge0", "Up red 1"},
        {"up ge1, up ge2", "Up blue 3"},
        {"move ge0 blue"}});
}

// --- Changes of what keeps the VRF up

TEST_F(TrapSequence, InterfacesUpInAlternationRaiseOncePerTransitionOfTheVrf) {
  Play({{"add ge0 red, add ge1 red"},
        {"up ge0", "Up red 1"},
        {"up ge1"},
        {"down ge0"},
        {"down ge1", "Down red 2"},
        {"up ge0", "Up red 1"},
        {"down ge0", "Down red 1"},
        {"up ge1", "Up red 2"}});
}

TEST_F(TrapSequence, VrfsDoNotMixTheirInterfaces) {
  Play({{"add ge0 red, add ge1 blue"},
        {"up ge0", "Up red 1"},
        {"up ge1", "Up blue 2"},
        {"down ge0", "Down red 1"}});
}

TEST_F(TrapSequence, InterfaceWithoutAnAddressKeepsNoVrfUp) {
  Play({{"add ge0 red, add-bare ge1 red"}, {"up ge1"}, {"up ge0", "Up red 1"}, {"down ge0", "Down red 1"}});
}

TEST_F(TrapSequence, InterfacesOfNoVrfRaiseNothing) {
  Play({{"add ge0 default"}, {"up ge0"}, {"down ge0"}});
}

TEST_F(TrapSequence, LastActiveInterfaceIsRemovedWhileUp) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}, {"remove ge0", "Down red 1"}});
}

TEST_F(TrapSequence, InterfacesThatComeUpOrGoDownTogetherRaiseOneUpOfTheFirstAndOneDownOfTheLast) {
  Play({{"add ge0 red, add ge1 red"}, {"up ge0, up ge1", "Up red 1"}, {"down ge0, down ge1", "Down red 2"}});
}

// A host renames an interface only while it is down, and may leave it down: one change says both.
TEST_F(TrapSequence, InterfaceThatIsRenamedAndChangesItsStateAtOnceRaisesBoth) {
  Play({{"add ge0 red"}, {"rename-up ge0 ge9", "Up red 1"}, {"rename-down ge9 ge0", "Down red 1"}});
}

// Names that are swapped are freed under a name in between, which no client may have seen.
TEST_F(TrapSequence, InterfaceThatIsRenamedTwiceInOneMomentRaisesBoth) {
  Play({{"add ge0 red"},
        {"up ge0", "Up red 1"},
        {"rename ge0 aside, rename-down aside ge9", "Down red 1"},
        {"rename ge9 aside, rename-up aside ge0", "Up red 1"}});
}

// Until an interface's departure is delivered, its name means that interface and no later one of that
// name.
TEST_F(TrapSequence, NameThatAnotherInterfaceGetsAtOnceStillMeansTheOneThatLeft) {
  Play({{"add ge0 red, add ge1 default"},
        {"up ge0, up ge1", "Up red 1"},
        {"move ge0 default, rename ge0 aside, rename ge1 ge0, rename aside ge1", "Down red 1"}});
}

TEST_F(TrapSequence, InterfacesThatAreDownAndCreatedAgainInOneMomentRaiseOneDown) {
  Play({{"add ge0 red, add ge1 red"},
        {"up ge0", "Up red 1"},
        {"up ge1"},
        {"down ge1, remove ge0, add-bare ge0 default", "Down red 1"}});
}

TEST_F(TrapSequence, FirstAddressOfALinkThatIsUpRaisesUpAndRemovalOfTheLastRaisesDown) {
  Play({{"add-bare ge0 red"},
        {"up ge0"},
        {"address ge0 2001:db8::1/64", "Up red 1"},
        {"address ge0 192.0.2.1/24"},
        {"no-address ge0", "Down red 1"}});
}

TEST_F(TrapSequence, ActiveInterfaceThatChangesItsFamilyAtOnceRaisesNothing) {
  Play({{"add ge0 red, add ge1 red"},
        {"up ge0", "Up red 1"},
        {"up ge1"},
        {"down ge0"},
        {"only-address ge1 2001:db8::1/64"},
        {"down ge1", "Down red 2"}});
}

// --- What the handlers do by themselves

TEST_F(TrapSequence, JoinOfAnActiveInterfaceCountsItAndRaisesNothingByItself) {
  Play({{"add ge0 default"}, {"up ge0"}});
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
  EXPECT_TRUE(Printed("Entering mpls_vpn_mib_trap_vrf_up"));
  EXPECT_TRUE(Printed("active=1 conn=1 no trap"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSequence, JoinOfAnInterfaceThatIsDownMakesNoDecision) {
  Play({{"add ge0 default"}});
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
  EXPECT_FALSE(Printed("Entering mpls_vpn_mib_trap_vrf_up"));
}

TEST_F(TrapSequence, JoinWithoutAnIndexIsNotCountedAndRaisesUpWithoutOne) {
  Play({{"add ge0 default"}, {"up ge0"}});
  WithFault("ifname_to_index", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(HandleOf("ge0"), "red"); });
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfUp red oper=1 row=1"));
}

TEST_F(TrapSequence, LeaveOfAnActiveInterfaceCountsItAndRaisesNothingByItself) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}});
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
  EXPECT_TRUE(Printed("Entering mpls_vpn_mib_trap_vrf_down"));
  EXPECT_TRUE(Printed("active=1 conn=1 no trap"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSequence, LeaveOfAnInterfaceThatRaisedDownMakesNoDecision) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}});
  mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge0")->vrf_down_trap_sent = 1;
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(HandleOf("ge0"), "red");
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: TRUE"));
  EXPECT_FALSE(Printed("Entering mpls_vpn_mib_trap_vrf_down"));
}

TEST_F(TrapSequence, StateChangesAskForUpAndDown) {
  Play({{"add ge0 red"}});
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

// --- Start, and switches that change

TEST_F(TrapSequence, VrfThatIsUpWhenTheDaemonStartsRaisesNothingThenAndDownLater) {
  Play({{"add ge0 red"}, {"up ge0", "Up red 1"}});
  RestartDaemon();
  Play({{""}, {"down ge0", "Down red 1"}});
}

TEST_F(TrapSequence, SwitchingOnRaisesNothingForWhatHappenedBefore) {
  Disable(kTrapVrfUp);
  Play({{"add ge0 red"}, {"up ge0"}});
  Enable(kTrapVrfUp);
  Play({{""}});
}

TEST_F(TrapSequence, WithOnlyUpSwitchedOnAnInterfaceRaisesItOnce) {
  Disable(kTrapVrfDown);
  Play({{"add ge0 red, add ge1 red"},
        {"up ge0", "Up red 1"},
        {"down ge0"},
        {"up ge1", "Up red 2"},
        {"down ge1"}});
  Play({{"up ge0"}, {"down ge0"}, {"up ge1"}, {"down ge1"}});
}

TEST_F(TrapSequence, WithOnlyDownSwitchedOnAnInterfaceRaisesItOnce) {
  Disable(kTrapVrfUp);
  Play({{"add ge0 red"}, {"up ge0"}, {"down ge0", "Down red 1"}, {"up ge0"}, {"down ge0"}});
}
