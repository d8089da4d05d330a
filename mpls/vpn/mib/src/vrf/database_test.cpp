// The VRF database.
#include "mpls/vpn/mib/src/vrf/database.h"

#include <cstdlib>
#include <random>
#include <set>

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/test_time.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

class VrfDatabase : public DaemonTest {
 protected:
  VrfNode* Create(const char* name) { return CreateWith(name, &record_); }
  VrfNode* CreateWith(const char* name, VtabVrfRecord* record) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return nullptr;
    return mpls_vpn_mib_create_vrf_wavl_node(name, record);
  }
  int Delete(VrfNode* node) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return -1;
    return mpls_vpn_mib_delete_vrf_wavl_node(node);
  }
  int DeleteByName(const char* name) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return -1;
    return mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name(name);
  }
  VtabVrfRecord record_{};
};

}  // namespace

TEST_F(VrfDatabase, NodeTiesACopyOfTheNameToTheRecord) {
  std::string name = "red";
  const VrfNode* node = Create(name.c_str());
  ASSERT_NE(node, nullptr);
  name = "xxx";
  EXPECT_STREQ(node->vrf_name, "red");
  EXPECT_EQ(node->vrf_rec, &record_);
}

TEST_F(VrfDatabase, ShorterNamesComeFirst) {
  for (const char* name : {"blue", "vrf10", "red", "vrf9", "abd", "abc"}) Create(name);
  EXPECT_THAT(VrfNames(), ElementsAre("abc", "abd", "red", "blue", "vrf9", "vrf10"));
}

TEST_F(VrfDatabase, SearchesForOneNodeAfterTheOtherAreShort) {
  mpls_vpn_debug_flags[DBASE].enabled.store(0);
  std::vector<std::string> names;
  for (int n = 10'000; n < 20'000; ++n) names.push_back("vrf" + std::to_string(n));
  for (const std::string& name : names) Create(name.c_str());
  // Searches for all, those next to each other or not.
  const auto search = [&](std::size_t stride) {
    return least_time([&] {
      for (std::size_t first = 0; first < stride; ++first) {
        for (std::size_t n = first; n < names.size(); n += stride)
          ASSERT_NE(mpls_vpn_mib_get_vrf_node(true, names[n].c_str()), nullptr);
      }
    });
  };
  EXPECT_LT(search(1), search(3) * 2 / 3);
}

// Searches near an earlier one compare a name or two.
TEST_F(VrfDatabase, SearchesInAnyOrderFindTheNodesThatExist) {
  mpls_vpn_debug_flags[DBASE].enabled.store(0);
  std::set<std::string> present;
  std::mt19937 random(7);
  for (int step = 0; step < 5000; ++step) {
    const std::string name = "vrf" + std::to_string(random() % 12);
    switch (random() % 4) {
      case 0:
        ASSERT_EQ(Create(name.c_str()) != nullptr, present.insert(name).second) << "step " << step;
        break;
      case 1:
        ASSERT_EQ(DeleteByName(name.c_str()) != 0, present.erase(name) != 0) << "step " << step;
        break;
      default:
        ASSERT_EQ(mpls_vpn_mib_get_vrf_node(true, name.c_str()) != nullptr, present.contains(name))
            << "step " << step;
    }
  }
}

TEST_F(VrfDatabase, SecondNodeOfANameIsRefused) {
  Create("red");
  EXPECT_EQ(Create("red"), nullptr);
  EXPECT_THAT(Prints(),
              ElementsAre("Error (mpls_vpn_mib_create_vrf_wavl_node): Cannot insert node into WAVL tree"));
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
}

TEST_F(VrfDatabase, CreationWithoutMemoryLeavesNothing) {
  for (const char* point : {"calloc_tagged:VRF node", "text_copy"}) {
    const ScopedFault fault(point, kStatusNoMemory);
    ClearPrints();
    EXPECT_EQ(Create("red"), nullptr);
    EXPECT_THAT(Prints(),
                ElementsAre("Error (mpls_vpn_mib_create_vrf_wavl_node): No memory to create if node"));
  }
  EXPECT_THAT(VrfNames(), IsEmpty());
}

TEST_F(VrfDatabase, DeletionByNodeLeavesTheMemoryToTheCaller) {
  VrfNode* node = Create("red");
  EXPECT_EQ(Delete(node), 1);
  EXPECT_THAT(VrfNames(), IsEmpty());
  EXPECT_STREQ(node->vrf_name, "red");
  EXPECT_EQ(Delete(node), 0);
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_vrf_wavl_node: Cannot delete node from WAVL tree"));
  std::free(node->vrf_name);
  std::free(node);
}

TEST_F(VrfDatabase, DeletionByNameFreesTheNode) {
  Create("red");
  ClearPrints();
  EXPECT_EQ(DeleteByName("red"), 1);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: vrf_name = red"));
  EXPECT_THAT(VrfNames(), IsEmpty());
}

TEST_F(VrfDatabase, DeletionByAnAbsentNameChangesNothing) {
  Create("red");
  EXPECT_EQ(DeleteByName("reb"), 0);
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: Cannot find matching WAVL node"));
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
}

TEST_F(VrfDatabase, DeletionWithoutANameIsRefused) {
  EXPECT_EQ(DeleteByName(nullptr), 0);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: vrf_name = (null)",
                          "Invoked mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name with NULL vrf_name"));
}

TEST_F(VrfDatabase, DeletionByNameThatCannotUnlinkKeepsTheNode) {
  Create("red");
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(DeleteByName("red"), 0);
  }
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: Cannot delete node from WAVL tree"));
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
}

TEST_F(VrfDatabase, ExactGetFindsOnlyItsName) {
  VrfNode* node = Create("red");
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "red"), node);
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "reb"), nullptr);
  EXPECT_THAT(Prints(), ElementsAre("get_greater_equal found node NULL"));
}

TEST_F(VrfDatabase, GreaterOrEqualGetPastTheLastNameIsNull) {
  VrfNode* red = Create("red");
  VrfNode* blue = Create("blue");
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(false, "rea"), red);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(false, "red"), red);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(false, "ree"), blue);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(false, nullptr), red);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(false, "bluf"), nullptr);
  EXPECT_THAT(Prints(), ElementsAre("get_greater_equal found node NULL"));
}

TEST_F(VrfDatabase, GetThatLandsOnANodeWithoutRecordIsNullAndDoesNotSkipIt) {
  CreateWith("red", nullptr);
  Create("blue");
  for (const bool exact : {false, true}) {
    ClearPrints();
    EXPECT_EQ(mpls_vpn_mib_get_vrf_node(exact, "red"), nullptr);
    EXPECT_THAT(Prints(), ElementsAre("Invalid node: vrf_rec is NULL",
                                      "Found invalid if node in mpls_vpn_mib_get_vrf_node"));
  }
}

TEST_F(VrfDatabase, FailuresOfACreationAreErrorsAndAllElseTheDatabases) {
  Create("red");
  CreateWith("blue", nullptr);
  const struct {
    MplsVpnDebugArea area;
    const char* line;
    std::function<void()> act;
  } says[] = {
      {ERR, "Error (mpls_vpn_mib_create_vrf_wavl_node): Cannot insert node into WAVL tree",
       [this] { Create("red"); }},
      {ERR, "Error (mpls_vpn_mib_create_vrf_wavl_node): No memory to create if node",
       [this] {
         const ScopedFault fault("calloc_tagged:VRF node", kStatusNoMemory);
         Create("green");
       }},
      {DBASE, "Entering mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: vrf_name = reb",
       [this] { DeleteByName("reb"); }},
      {DBASE, "mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: Cannot find matching WAVL node",
       [this] { DeleteByName("reb"); }},
      {DBASE, "Invoked mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name with NULL vrf_name",
       [this] { DeleteByName(nullptr); }},
      {DBASE, "mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name: Cannot delete node from WAVL tree",
       [this] {
         const ScopedFault fault("wavl_delete", kStatusIo);
         DeleteByName("red");
       }},
      {DBASE, "get_greater_equal found node NULL", [] { mpls_vpn_mib_get_vrf_node(true, "reb"); }},
      {DBASE, "Invalid node: vrf_rec is NULL", [] { mpls_vpn_mib_get_vrf_node(true, "blue"); }},
      {DBASE, "Found invalid if node in mpls_vpn_mib_get_vrf_node",
       [] { mpls_vpn_mib_get_vrf_node(true, "blue"); }},
      {DBASE, "Start print", [] { mpls_vpn_mib_vrf_dbase_print(); }},
      {DBASE, "VRF = red", [] { mpls_vpn_mib_vrf_dbase_print(); }},
      {DBASE, "Found invalid if node in print_vrf_fn", [] { mpls_vpn_mib_vrf_dbase_print(); }},
      {DBASE, "End print", [] { mpls_vpn_mib_vrf_dbase_print(); }},
  };
  for (const auto& say : says) ExpectUnder(say.area, say.line, say.act);
}

TEST_F(VrfDatabase, NameIsTestedBeforeTheRecord) {
  VrfNode node{};
  EXPECT_EQ(mpls_vpn_mib_vrf_node_validate(&node), 0x42698600U);
  EXPECT_THAT(Prints(), ElementsAre("Invalid node: vrf_name is NULL"));
}

TEST_F(VrfDatabase, PrintShowsValidAndInvalidNodesAndContinues) {
  CreateWith("red", nullptr);
  Create("blue");
  mpls_vpn_mib_vrf_dbase_print();
  EXPECT_THAT(Prints(), ElementsAre("Start print", "Invalid node: vrf_rec is NULL",
                                    "Found invalid if node in print_vrf_fn", "VRF = blue", "End print"));
}

TEST_F(VrfDatabase, StoppedPrintIsTraced) {
  Create("blue");
  const ScopedFault fault("wavl_walk", kStatusIo);
  mpls_vpn_mib_vrf_dbase_print();
  EXPECT_THAT(Prints(), ElementsAre("Start print", "End print"));
  EXPECT_THAT(Traced("mpls_vpn/error"), ElementsAre("the walk of the VRF database was stopped"));
}

TEST_F(VrfDatabase, InitialisationFailsWithTheTree) {
  const ScopedFault fault("wavl_init", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_vrf_dbase_init(), kStatusIo);
}
