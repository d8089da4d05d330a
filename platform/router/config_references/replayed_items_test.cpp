// Items that are replayed when an interface joins a VRF or a VRF is created.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/router/config_references/config_references.h"
#include "platform/router/config_references/config_references_test_support.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ReplayedItems, ItemsOfAnInterfaceAreReplayedAfterItJoined) {
  AddInterface("ge0", "red");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Move("ge0", "default");
  EXPECT_THAT(Reported(), ElementsAre("left red"));
  Move("ge0", "red");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  EXPECT_TRUE(IsReferenced("red")) << "a replay keeps the reference";
}

TEST_F(ReplayedItems, OnlyItemsOfTheInterfaceInItsVrfAreReplayed) {
  Set(vrf_config::rip_interface("red", "ge1"));
  Set(vrf_config::rip_interface("blue", "ge0"));
  Reported();
  AddInterface("ge0", "red");
  AddInterface("ge5", "red");
  AddInterface("ge1", "default");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "joined red", "-" + kRipPath, "+" + kRipPath));
}

TEST_F(StartedReferences, ItemsOfManyJoinsAreReplayedAfterTheirJoins) {
  Listen();
  for (int number = 0; number < 250; ++number) {
    Set(vrf_config::rip_interface("red", "ge" + std::to_string(number)));
  }
  Reported();
  for (int number = 0; number < 250; ++number) AddInterface("ge" + std::to_string(number), "red");
  Run();
  std::size_t joined = 0;
  std::size_t set = 0;
  for (const std::string& line : Reported()) {
    joined += line == "joined red" ? 1 : 0;
    set += line[0] == '+' ? 1 : 0;
    EXPECT_LE(set, joined);
  }
  EXPECT_EQ(joined, 250U);
  EXPECT_EQ(set, 250U);
}

TEST_F(ReplayedItems, ItemsOfAnInterfaceAreReplayedAfterItsNameOrIndexChanged) {
  AddInterface("new", "red");
  Reported();
  Rename("new", "ge0");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Rename("ge0", "ge0", 99);
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  router::Interface changed = Current("ge0");
  changed.up = true;
  ChangeInterface(changed);
  EXPECT_THAT(Reported(), IsEmpty()) << "name, index and VRF are the same";
}

TEST_F(ReplayedItems, InterfaceLeavesWithTheNameUnderWhichItHadItems) {
  AddInterface("ge0", "red");
  Reported();
  Rename("ge0", "ge1");
  EXPECT_THAT(Reported(), ElementsAre("left red", "joined red"));
  Rename("ge1", "ge0");
  EXPECT_THAT(Reported(), ElementsAre("joined red", "-" + kRipPath, "+" + kRipPath));
  Delete(kRedRip);
  Reported();
  Rename("ge0", "ge1");
  EXPECT_THAT(Reported(), ElementsAre("joined red")) << "nothing is counted under its former name";
}

// The time in the retained record could be before the creation of the VRF.
TEST_F(StartedReferences, DescriptionIsReplayedWhenAVrfIsCreatedUnderAReferencedName) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  Reported();
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("-" + kTextPath));
  Set(kRedText);
  DeleteVrf("red");
  Reported();
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("+" + kTextPath));
  AddVrf("blue", 20);
  EXPECT_THAT(Reported(), IsEmpty()) << "nothing names it";
}

TEST_F(StartedReferences, DescriptionThatCannotBeReplayedIsReplayedAtTheNextCreation) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  fault_arm("kvtree_config_announce", kStatusNoMemory);
  AddVrf("red", 10);
  Run();
  EXPECT_EQ(fault_reached("kvtree_config_announce"), 1U);
  EXPECT_THAT(Reported(), IsEmpty());
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("-" + kTextPath));
}

TEST_F(StartedReferences, NothingIsReplayedForAVrfThatIsDeletedAgain) {
  ListenTo(vrf_config::kVrfScope);
  Set(kRedBgp);
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ReplayedItems, ItemDeletedBeforeItsReplayIsNotReplayed) {
  AddInterface("ge0", "red");
  Delete(kRedRip);
  EXPECT_THAT(Reported(), testing::UnorderedElementsAre("joined red", "-" + kRipPath));
}

TEST_F(ReplayedItems, FailedReplayIsRetriedAtTheNextJoin) {
  fault_arm("kvtree_config_replay", kStatusNoMemory);
  AddInterface("ge0", "red");
  Run();
  EXPECT_EQ(fault_reached("kvtree_config_replay"), 1U);
  EXPECT_THAT(Reported(), ElementsAre("joined red"));
  Move("ge0", "blue");
  Move("ge0", "red");
  EXPECT_THAT(Reported(), testing::IsSupersetOf({"-" + kRipPath, "+" + kRipPath}));
}

}  // namespace
