// Lookups of the interface database: by key, by handle, within a VRF, over invalid and valid VRFs.
#include <array>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

class IfLookup : public DaemonTest {
 protected:
  // A handful of interfaces: red 7, 9; blue 3 (a longer name, so after red).
  void Fill() {
    red7_ = CreateIf("red", 7, "ge7", 0x70);
    red9_ = CreateIf("red", 9, "ge9", 0x20);
    blue3_ = CreateIf("blue", 3, "ge3", 0x30);
    ClearPrints();
  }
  std::vector<std::string> InvalidVrfs() {
    std::vector<std::string> names;
    for (const char* name = mpls_vpn_mib_get_first_invalid_vrf(); name != nullptr;
         name = mpls_vpn_mib_get_next_invalid_vrf(name)) {
      names.emplace_back(name);
    }
    return names;
  }
  IfNode* red7_ = nullptr;
  IfNode* red9_ = nullptr;
  IfNode* blue3_ = nullptr;
};

}  // namespace

TEST_F(IfLookup, ExactGetFindsOnlyItsKey) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", 9), red9_);
  EXPECT_THAT(Prints(),
              ElementsAre("Found interface (mpls_vpn_mib_get_if): vrf_name = red, if_index = 9, if_name = "
                          "ge9, if_handle = 0x20"));
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", 8), nullptr);
  EXPECT_THAT(Prints(), ElementsAre("get_greater_equal found node NULL"));
}

TEST_F(IfLookup, GreaterOrEqualGetFindsTheNextKeyAlsoOfTheNextVrf) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 8), red9_);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 9), red9_);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 10), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, nullptr, 0), red7_);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "blue", 4), nullptr);
  EXPECT_EQ(Prints().back(), "get_greater_equal found node NULL");
}

// A search may continue from the latest answer, which is deleted here as well as its neighbors.
TEST_F(IfLookup, NextNodeDependsOnTheDatabaseAlone) {
  using Key = std::tuple<std::size_t, std::string, std::uint32_t>;
  constexpr std::array<const char*, 4> kNames = {"a", "b", "bb", "cc"};
  std::map<Key, IfNode*> expected;
  std::minstd_rand random(7);
  const auto below = [&random](std::uint32_t bound) { return static_cast<std::uint32_t>(random()) % bound; };
  for (std::uint32_t turn = 1; turn <= 4000; ++turn) {
    const char* const vrf_name = kNames.at(below(kNames.size()));
    const std::uint32_t if_index = 1 + below(8);
    const Key key(std::strlen(vrf_name), vrf_name, if_index);
    const auto next = expected.lower_bound(key);
    IfNode* const found = mpls_vpn_mib_get_if(false, vrf_name, if_index);
    ASSERT_EQ(found, next == expected.end() ? nullptr : next->second) << turn;
    if (below(4) != 0) continue;
    if (next != expected.end() && below(2) == 0) {
      DeleteIf(found);
      expected.erase(next);
    } else if (!expected.contains(key)) {
      expected[key] = CreateIf(vrf_name, if_index, "ge0", turn);
    }
  }
}

TEST_F(IfLookup, GetThatLandsOnANodeWithoutNameIsNullAndDoesNotSkipIt) {
  Fill();
  CreateIf("red", 8, nullptr, 0x80);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 8), nullptr);
  EXPECT_THAT(Prints(),
              ElementsAre("Invalid node: if_name is NULL", "Found invalid if node in mpls_vpn_mib_get_if"));
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", 8), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 9), red9_);
}

TEST_F(IfLookup, HandleLookupIsExactOrGreaterOrEqual) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(true, 0x30), blue3_);
  EXPECT_THAT(Prints(),
              ElementsAre("Found interface (mpls_vpn_mib_get_if_by_handle): vrf_name = blue, if_index = 3, "
                          "if_name = ge3, if_handle = 0x30"));
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(true, 0x31), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(false, 0x21), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(false, 0x71), nullptr);
}

TEST_F(IfLookup, HandleLookupReturnsInvalidNodes) {
  IfNode* node = CreateIf("red", 7, nullptr, 0x10);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(true, 0x10), node);
  EXPECT_EQ(
      Prints().back(),
      "Found interface (mpls_vpn_mib_get_if_by_handle): vrf_name = red, if_index = 7, if_name = (null), "
      "if_handle = 0x10");
}

TEST_F(IfLookup, InterfacesOfAVrfAreARun) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("red"), red7_);
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(red7_, "red"), red9_);
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(red9_, "red"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("blue"), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(blue3_, "blue"), nullptr);
}

TEST_F(IfLookup, VrfWithoutInterfacesHasNoFirst) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("rec"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("white"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(red7_, "rec"), nullptr);
}

TEST_F(IfLookup, FindsByVrfAndHandle) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_handle("red", 0x20), red9_);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_get_if_by_vrf_and_handle",
                          "Found interface (mpls_vpn_mib_get_if_by_vrf_and_handle): vrf_name = red, "
                          "if_index = 9, if_name = ge9, if_handle = 0x20"));
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_handle("red", 0x30), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_handle("none", 0x30), nullptr);
}

TEST_F(IfLookup, FindsByVrfAndName) {
  Fill();
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge9"), red9_);
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_get_if_by_vrf_and_name",
                                    "Found interface (mpls_vpn_mib_get_if_by_vrf_and_name): vrf_name = red, "
                                    "if_index = 9, if_name = ge9, if_handle = 0x20"));
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge3"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", nullptr), nullptr);
}

// For the moment of a rename two interfaces have one name.
TEST_F(IfLookup, FindsTheFirstOfTheVrfsInterfacesWithOneName) {
  IfNode* red1 = CreateIf("red", 1, "ge1", 0x11);
  CreateIf("red", 2, "ge1", 0x12);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge1"), red1);
  CreateIf("blue", 4, "ge1", 0x14);
  IfNode* blue3 = CreateIf("blue", 3, "ge1", 0x13);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("blue", "ge1"), blue3);
}

TEST_F(IfLookup, InvalidNodeBeforeTheMatchEndsTheSearchInAVrf) {
  Fill();
  CreateIf("red", 8, nullptr, 0x80);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_handle("red", 0x20), nullptr);
  EXPECT_TRUE(Printed("Invalid node found by mpls_vpn_mib_get_if_by_vrf_and_handle"));
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge9"), nullptr);
  EXPECT_TRUE(Printed("Invalid node found by mpls_vpn_mib_get_if_by_vrf_and_name"));
  EXPECT_EQ(mpls_vpn_mib_get_if_by_vrf_and_name("red", "ge7"), red7_);
}

TEST_F(IfLookup, EmptyDatabaseIsNullFromEveryIteration) {
  EXPECT_EQ(mpls_vpn_mib_get_first_invalid_vrf(), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("red"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("red", 0), nullptr);
  EXPECT_EQ(mpls_vpn_mib_if_dbase_first(), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("red"), nullptr);
}

TEST_F(IfLookup, InvalidVrfsAreThoseWithoutACompleteRecordEachOnce) {
  AddVrf("red");
  NameVrf("green");
  CreateIf("red", 1, "a", 1);
  CreateIf("vrf10", 2, "b", 2);
  CreateIf("vrf9", 3, "c", 3);
  CreateIf("vrf9", 4, "d", 4);
  CreateIf("green", 5, "e", 5);
  EXPECT_THAT(InvalidVrfs(), ElementsAre("vrf9", "green", "vrf10"));
  EXPECT_TRUE(Printed("Found invalid vrf9"));
  EXPECT_TRUE(Printed("Returning invalid vrf vrf10"));
}

TEST_F(IfLookup, NextInvalidVrfIsTheOneAfterTheNameWhichNeedNotBeThere) {
  CreateIf("vrf9", 3, "c", 3);
  EXPECT_THAT(mpls_vpn_mib_get_next_invalid_vrf("vrf8"), StrEq("vrf9"));
  EXPECT_THAT(mpls_vpn_mib_get_next_invalid_vrf(nullptr), StrEq("vrf9"));
  EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("vrf9"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("vrf10"), nullptr);
}

TEST_F(IfLookup, NextInvalidVrfStepsOverValidVrfsToTheEnd) {
  AddVrf("blue");
  CreateIf("red", 1, "a", 1);
  CreateIf("blue", 2, "b", 2);
  EXPECT_THAT(InvalidVrfs(), ElementsAre("red"));
  EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("red"), nullptr);
  EXPECT_FALSE(Printed("Found invalid blue"));
}

TEST_F(IfLookup, NextInvalidVrfStepsOverNodesWithoutNameOfItsOwnVrfOnly) {
  CreateIf("red", 1, "a", 1);
  CreateIf("red", 2, nullptr, 2);
  CreateIf("blue", 3, "c", 3);
  EXPECT_THAT(mpls_vpn_mib_get_next_invalid_vrf("red"), StrEq("blue"));
  CreateIf("blue", 2, nullptr, 4);
  ClearPrints();
  EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("red"), nullptr);
  EXPECT_TRUE(Printed("Invalid node found by mpls_vpn_mib_get_next_invalid_vrf"));
}

TEST_F(IfLookup, NodeWithoutNameEndsTheFirstInvalidVrf) {
  CreateIf("red", 1, nullptr, 1);
  CreateIf("blue", 3, "c", 3);
  EXPECT_EQ(mpls_vpn_mib_get_first_invalid_vrf(), nullptr);
  EXPECT_TRUE(Printed("Invalid node found by mpls_vpn_mib_get_first_invalid_vrf"));
}

TEST_F(IfLookup, NextValidInterfaceSkipsInvalidVrfs) {
  AddVrf("blue");
  NameVrf("green");
  Fill();
  IfNode* last = CreateIf("blue", 5, "ge5", 0x50);
  CreateIf("green", 1, "ge1", 0x90);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("", 0), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("red", 9), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("blue", 3), blue3_);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("blue", 4), last);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("blue", 6), nullptr);
}

TEST_F(IfLookup, NodeWithoutNameEndsTheNextValidInterface) {
  AddVrf("blue");
  Fill();
  CreateIf("red", 10, nullptr, 0x80);
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("red", 7), nullptr);
  EXPECT_TRUE(Printed("Invalid node found by mpls_vpn_mib_get_next_valid_intf"));
  EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("red", 10), nullptr);
  EXPECT_TRUE(Printed("Found invalid if node in mpls_vpn_mib_get_if"));
}

TEST_F(IfLookup, EveryLookupRepairsADirtyDatabaseFirst) {
  const std::string name = "late";
  const std::uint32_t handle = AddInterface(name);
  const auto lookups = {
      +[] { mpls_vpn_mib_get_if(true, "red", 1); },
      +[] { mpls_vpn_mib_get_if_by_handle(true, 1); },
      +[] { mpls_vpn_mib_get_first_if_of_vrf("red"); },
      +[] { mpls_vpn_mib_get_if_by_vrf_and_handle("red", 1); },
      +[] { mpls_vpn_mib_get_if_by_vrf_and_name("red", "late"); },
      +[] { mpls_vpn_mib_get_first_invalid_vrf(); },
      +[] { mpls_vpn_mib_get_next_invalid_vrf("red"); },
      +[] { mpls_vpn_mib_get_next_valid_intf("red", 1); },
      +[] { mpls_vpn_mib_if_dbase_first(); },
  };
  for (const auto lookup : lookups) {
    IfNode* node = CreateIf("red", 0, nullptr, handle);
    lookup();
    EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
    EXPECT_EQ(node->if_index, IndexOf(name));
    DeleteIf(node);
  }
}

TEST_F(IfLookup, StepsFromACursorRepairADirtyDatabaseFirst) {
  IfNode* cursor = CreateIf("red", 1000, "first", 0x500);
  const std::uint32_t handle = AddInterface("late");
  IfNode* late = CreateIf("red", 0, nullptr, handle);
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(cursor, "red"), nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
  DeleteIf(late);
  CreateIf("red", 0, nullptr, handle);
  EXPECT_EQ(mpls_vpn_mib_if_dbase_next(cursor), nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(IfLookup, WalksThatBeginAtANodeWithoutNameFindNothing) {
  CreateIf("red", 1, nullptr, 1);
  CreateIf("red", 2, "b", 2);
  CreateIf("blue", 3, "c", 3);
  const std::function<void()> walks[] = {
      [] { EXPECT_EQ(mpls_vpn_mib_get_first_if_of_vrf("red"), nullptr); },
      [] { EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("red"), nullptr); },
      [] { EXPECT_EQ(mpls_vpn_mib_get_next_invalid_vrf("rec"), nullptr) << "the VRF before it"; },
      [] { EXPECT_EQ(mpls_vpn_mib_get_next_valid_intf("red", 0), nullptr); },
  };
  for (const auto& walk : walks) {
    ClearPrints();
    walk();
    EXPECT_TRUE(Printed("Found invalid if node in mpls_vpn_mib_get_if"));
  }
}

TEST_F(IfLookup, EverythingIsPrintedUnderDbase) {
  CreateIf("red", 7, "ge7", 0x70);
  CreateIf("vrf9", 3, "ge3", 0x30);
  CreateIf("vrf10", 4, nullptr, 0x40);
  const struct {
    const char* line;
    std::function<void()> act;
  } says[] = {
      {"get_greater_equal found node NULL", [] { mpls_vpn_mib_get_if(true, "red", 8); }},
      {"Invalid node: if_name is NULL", [] { mpls_vpn_mib_get_if(true, "vrf10", 4); }},
      {"Found invalid if node in mpls_vpn_mib_get_if", [] { mpls_vpn_mib_get_if(true, "vrf10", 4); }},
      {"Found interface (mpls_vpn_mib_get_if): vrf_name = red, if_index = 7, if_name = ge7, if_handle = 0x70",
       [] { mpls_vpn_mib_get_if(true, "red", 7); }},
      {"Entering mpls_vpn_mib_get_if_by_vrf_and_handle",
       [] { mpls_vpn_mib_get_if_by_vrf_and_handle("red", 1); }},
      {"Invalid node found by mpls_vpn_mib_get_next_invalid_vrf",
       [] { mpls_vpn_mib_get_next_invalid_vrf("vrf9"); }},
      {"Found invalid red", [] { mpls_vpn_mib_get_first_invalid_vrf(); }},
      {"Returning invalid vrf vrf9", [] { mpls_vpn_mib_get_next_invalid_vrf("red"); }},
  };
  for (const auto& say : says) ExpectUnder(DBASE, say.line, say.act);
}

TEST_F(IfLookup, CursorSurvivesTheRepairThatItsNextStepRuns) {
  IfNode* cursor = CreateIf("red", 1000, "first", 0x500);
  CreateIf("red", 0, nullptr, AddInterface("late"));
  EXPECT_EQ(mpls_vpn_mib_if_dbase_next(cursor), nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
  IfNode* late = mpls_vpn_mib_if_dbase_first();
  ASSERT_NE(late, nullptr);
  EXPECT_THAT(late->if_name, StrEq("late"));
  EXPECT_EQ(mpls_vpn_mib_get_next_if_of_vrf(late, "red"), cursor);
}
