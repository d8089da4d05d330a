// Interface nodes: creation, deletion, both orderings, validity and the diagnostic walk.
#include "mpls/vpn/mib/src/interface/database.h"

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class IfDatabase : public DaemonTest {
 protected:
  std::uint32_t NodesByVrf() const { return wavl_size(mpls_vpn_mib_if_tree(), kIfByVrf); }
  std::uint32_t NodesByHandle() const { return wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle); }
  std::vector<std::string> KeysInOrder() {
    std::vector<std::string> keys;
    for (IfNode* node = mpls_vpn_mib_if_dbase_first(); node != nullptr;
         node = mpls_vpn_mib_if_dbase_next(node)) {
      keys.push_back(std::string(node->vrf_name) + "/" + std::to_string(node->if_index));
    }
    return keys;
  }
};

}  // namespace

TEST_F(IfDatabase, NodeOwnsCopiesAndStartsWithNothingCounted) {
  std::string vrf = "red";
  std::string name = "ge0";
  const IfNode* node = CreateIf(vrf.c_str(), 7, name.c_str(), 0x10);
  ASSERT_NE(node, nullptr);
  vrf = "xxx";
  name = "xxx";
  EXPECT_STREQ(node->vrf_name, "red");
  EXPECT_STREQ(node->if_name, "ge0");
  EXPECT_EQ(node->if_index, 7U);
  EXPECT_EQ(node->if_handle, 0x10U);
  EXPECT_EQ(node->vrf_up_trap_sent, 0U);
  EXPECT_EQ(node->vrf_down_trap_sent, 0U);
  for (const std::uint32_t count : node->protocol_count) EXPECT_EQ(count, 0U);
}

TEST_F(IfDatabase, CreationPrintsItsArguments) {
  CreateIf("red", 7, "ge0", 0x1f);
  CreateIf("red", 8, nullptr, 0x20);
  EXPECT_THAT(
      Prints(),
      ElementsAre("Entering mpls_vpn_mib_create_if_wavl_node: vrf_name = red, if_index = 7, if_name = ge0, "
                  "if_handle = 0x1f",
                  "Entering mpls_vpn_mib_create_if_wavl_node: vrf_name = red, if_index = 8, if_name = "
                  "(null), if_handle = 0x20"));
}

TEST_F(IfDatabase, OrdersByVrfLengthFirstThenOctetsThenIndex) {
  CreateIf("vrf10", 1, "a", 1);
  CreateIf("abd", 1, "b", 2);
  CreateIf("vrf9", 9, "c", 3);
  CreateIf("abc", 20, "d", 4);
  CreateIf("abc", 3, "e", 5);
  CreateIf("abc", 0x80000000U, "f", 6);
  EXPECT_THAT(KeysInOrder(), ElementsAre("abc/3", "abc/20", "abc/2147483648", "abd/1", "vrf9/9", "vrf10/1"));
  EXPECT_EQ(wavl_check(mpls_vpn_mib_if_tree(), kIfByVrf), 1);
  EXPECT_EQ(wavl_check(mpls_vpn_mib_if_tree(), kIfByHandle), 1);
}

TEST_F(IfDatabase, NodeWithoutIndexIsKnownByHandleOnlyAndSetsDirty) {
  IfNode* node = CreateIf("red", 0, "nowhere", 0x10);
  ASSERT_NE(node, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_TRUE(Printed("DIRTY: no if_index for interface 0x10"));
  EXPECT_EQ(NodesByVrf(), 0U);
  EXPECT_EQ(mpls_vpn_mib_get_if_by_handle(true, 0x10), node);
  EXPECT_EQ(mpls_vpn_mib_get_if(false, "red", 0), nullptr);
}

TEST_F(IfDatabase, NodeWithIndexButWithoutNameIsStoredAndDoesNotSetDirty) {
  const IfNode* node = CreateIf("red", 7, nullptr, 0x10);
  ASSERT_NE(node, nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_EQ(mpls_vpn_mib_if_dbase_first(), node);
}

TEST_F(IfDatabase, HandleZeroIsRefusedAndAllocatesNothing) {
  fault_arm("calloc_tagged:IF node", kStatusNoMemory, 100);
  EXPECT_EQ(CreateIf("red", 7, "ge0", 0), nullptr);
  EXPECT_EQ(CreateIf(nullptr, 7, "ge0", 0), nullptr);
  EXPECT_EQ(fault_reached("calloc_tagged:IF node"), 0U);
  OnlyArea(ERR);
  ClearPrints();
  EXPECT_EQ(CreateIf("red", 7, "ge0", 0), nullptr);
  EXPECT_THAT(Prints(), ElementsAre("Error (mpls_vpn_mib_create_if_wavl_node): NULL interface handle"));
}

TEST_F(IfDatabase, MissingVrfIsRefusedAndAllocatesNothing) {
  fault_arm("calloc_tagged:IF node", kStatusNoMemory, 100);
  EXPECT_EQ(CreateIf(nullptr, 7, "ge0", 0xab), nullptr);
  EXPECT_EQ(fault_reached("calloc_tagged:IF node"), 0U);
  EXPECT_TRUE(Printed("Error (mpls_vpn_mib_create_if_wavl_node): NULL VRF for interface 0xab"));
  EXPECT_EQ(NodesByHandle(), 0U);
}

TEST_F(IfDatabase, CreationWithoutMemoryLeavesNothing) {
  for (const std::uint32_t text : {0U, 1U, 2U}) {  // the node, its VRF name, its interface name
    ClearPrints();
    if (text == 0) fault_arm("calloc_tagged:IF node", kStatusNoMemory);
    if (text != 0) fault_arm("text_copy", kStatusNoMemory, text);
    EXPECT_EQ(CreateIf("red", 7, "ge0", 0x10), nullptr) << text;
    fault_disarm_all();
    EXPECT_TRUE(
        Printed("Error (mpls_vpn_mib_create_if_wavl_node): No memory to create if node for ifhandle = 0x10"));
  }
  EXPECT_EQ(NodesByHandle(), 0U);
  EXPECT_EQ(NodesByVrf(), 0U);
  ExpectErrorTraced(Prints().back(), kStatusNoMemory);
}

TEST_F(IfDatabase, SecondNodeOfTheSameVrfAndIndexIsRefused) {
  CreateIf("red", 7, "ge0", 0x10);
  EXPECT_EQ(CreateIf("red", 7, "ge1", 0x11), nullptr);
  EXPECT_TRUE(
      Printed("Error (mpls_vpn_mib_create_if_wavl_node): Cannot insert node into vrf/ifindex WAVL thread "
              "for interface 0x11, if_index 7"));
  EXPECT_EQ(NodesByHandle(), 1U);
}

TEST_F(IfDatabase, SecondNodeOfTheSameHandleIsRefusedAndLeavesTheVrfOrdering) {
  CreateIf("red", 7, "ge0", 0x10);
  EXPECT_EQ(CreateIf("red", 8, "ge1", 0x10), nullptr);
  EXPECT_TRUE(
      Printed("Error (mpls_vpn_mib_create_if_wavl_node): Cannot insert node into ifhandle WAVL thread for "
              "interface 0x10, if_index"));
  EXPECT_THAT(KeysInOrder(), ElementsAre("red/7"));
}

TEST_F(IfDatabase, RefusedNodeThatCannotBeUnlinkedIsNotFreed) {
  CreateIf("red", 7, "ge0", 0x10);
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(CreateIf("red", 8, "ge1", 0x10), nullptr);
  }
  ExpectErrorTraced("interface 0x10 stays linked by its VRF", kStatusIo);
  IfNode* left = mpls_vpn_mib_get_if(true, "red", 8);
  ASSERT_NE(left, nullptr);
  EXPECT_STREQ(left->if_name, "ge1");
  EXPECT_EQ(DeleteIf(left), 1);
  EXPECT_THAT(KeysInOrder(), ElementsAre("red/7"));
}

TEST_F(IfDatabase, RefusedHandleOfANodeWithoutIndexIsRemovedToo) {
  CreateIf("red", 7, "ge0", 0x10);
  EXPECT_EQ(CreateIf("red", 0, "ge1", 0x10), nullptr);
  EXPECT_EQ(NodesByHandle(), 1U);
  EXPECT_EQ(NodesByVrf(), 1U);
  EXPECT_THAT(Traced("mpls_vpn/error"),
              testing::Not(testing::Contains("interface 0x10 stays linked by its VRF")));
}

TEST_F(IfDatabase, DeletionUnlinksFromBothOrderings) {
  IfNode* node = CreateIf("red", 7, "ge0", 0x10);
  ClearPrints();
  EXPECT_EQ(DeleteIf(node), 1);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_delete_if_wavl_node: with if_name = ge0, if_handle = "
                          "0x10"));
  EXPECT_EQ(NodesByVrf(), 0U);
  EXPECT_EQ(NodesByHandle(), 0U);
}

TEST_F(IfDatabase, NodeKnownByHandleOnlyCanBeDeleted) {
  IfNode* node = CreateIf("red", 0, nullptr, 0x10);
  EXPECT_EQ(DeleteIf(node), 1);
  EXPECT_EQ(NodesByHandle(), 0U);
}

TEST_F(IfDatabase, FailedDeletionFreesNothing) {
  IfNode* node = CreateIf("red", 7, "ge0", 0x10);
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    EXPECT_EQ(DeleteIf(node), 0);
  }
  EXPECT_TRUE(Printed("mpls_vpn_mib_delete_if_wavl_node: Cannot delete node from WAVL tree"));
  EXPECT_EQ(mpls_vpn_mib_get_if(true, "red", 7), node);
}

TEST_F(IfDatabase, InitialisationFailsWithTheTreeOrTheMutex) {
  fault_arm("wavl_init", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_if_dbase_init(), kStatusIo);
  fault_disarm_all();
  fault_arm("pthread_mutex_lock", kStatusAccess);
  EXPECT_EQ(mpls_vpn_mib_if_dbase_init(), kStatusAccess);
  EXPECT_TRUE(Printed("Error (mpls_vpn_mib_if_dbase_init): pthread mutex lock failed"));
}

TEST_F(IfDatabase, NodeWithoutVrfNameIsInvalidBeforeOneWithoutName) {
  IfNode node{};
  EXPECT_EQ(mpls_vpn_mib_if_node_validate(&node), 0x42698600U);
  char name[] = "red";
  node.vrf_name = name;
  EXPECT_EQ(mpls_vpn_mib_if_node_validate(&node), 0x42698600U);
  node.if_name = name;
  EXPECT_EQ(mpls_vpn_mib_if_node_validate(&node), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Invalid node: vrf_name is NULL", "Invalid node: if_name is NULL"));
}

TEST_F(IfDatabase, WalkPrintsEveryNodeOfTheVrfOrdering) {
  CreateIf("red", 7, "ge0", 0x10);
  CreateIf("red", 8, nullptr, 0x11);
  CreateIf("red", 0, "ge2", 0x12);
  ClearPrints();
  mpls_vpn_mib_if_dbase_walk();
  EXPECT_THAT(
      Prints(),
      ElementsAre("Start walk", "vrf_name = red, if_index = 7, if_name = ge0, if_handle = 0x10, valid? yes",
                  "Invalid node: if_name is NULL",
                  std::string("vrf_name = red, if_index = 8, if_name = (null), if_handle = 0x11, valid? ") +
                      err_text(kStatusInvalidNode),
                  "End walk"));
}

TEST_F(IfDatabase, PrintOfANodeAlwaysContinuesTheWalk) {
  IfNode node{};
  node.if_handle = 0x9;
  EXPECT_EQ(mpls_vpn_mib_if_node_print(&node), 1);
  EXPECT_EQ(Prints().back(),
            std::string("vrf_name = (null), if_index = 0, if_name = (null), if_handle = 0x9, "
                        "valid? ") +
                err_text(kStatusInvalidNode));
}

TEST_F(IfDatabase, StoppedWalkIsTraced) {
  CreateIf("red", 7, "ge0", 0x10);
  const ScopedFault fault("wavl_walk", kStatusIo);
  ClearPrints();
  mpls_vpn_mib_if_dbase_walk();
  EXPECT_THAT(Prints(), ElementsAre("Start walk", "End walk"));
  EXPECT_THAT(Traced("mpls_vpn/error"), ElementsAre("the walk of the interface database was stopped"));
}

TEST_F(IfDatabase, ChangesAreTraced) {
  DeleteIf(CreateIf("red", 7, "ge0", 0x10));
  EXPECT_THAT(Traced("mpls_vpn/dbase"),
              ElementsAre("created: VRF red, if_index 7, if_handle 0x10",
                          "Entering mpls_vpn_mib_delete_if_wavl_node: with if_name = ge0, if_handle = 0x10"));
}

TEST_F(IfDatabase, FailuresThatBeginWithErrorAreErrorsAndTheOthersTheDatabases) {
  CreateIf("red", 7, "ge0", 0x10);
  const std::string create = "Error (mpls_vpn_mib_create_if_wavl_node): ";
  ExpectUnder(ERR, create + "NULL interface handle", [this] { CreateIf("red", 7, "ge0", 0); });
  ExpectUnder(ERR, create + "NULL VRF for interface 0xab", [this] { CreateIf(nullptr, 7, "ge0", 0xab); });
  ExpectUnder(ERR, create + "No memory to create if node for ifhandle = 0x11", [this] {
    const ScopedFault fault("calloc_tagged:IF node", kStatusNoMemory);
    CreateIf("red", 8, "ge1", 0x11);
  });
  ExpectUnder(ERR, create + "Cannot insert node into vrf/ifindex WAVL thread for interface 0x11, if_index 7",
              [this] { CreateIf("red", 7, "ge1", 0x11); });
  ExpectUnder(ERR, create + "Cannot insert node into ifhandle WAVL thread for interface 0x10, if_index",
              [this] { CreateIf("red", 8, "ge1", 0x10); });
  ExpectUnder(DBASE, "mpls_vpn_mib_delete_if_wavl_node: Cannot delete node from WAVL tree", [this] {
    const ScopedFault fault("wavl_delete", kStatusIo);
    DeleteIf(mpls_vpn_mib_get_if(true, "red", 7));
  });
  IfNode node{};
  ExpectUnder(DBASE, "Invalid node: vrf_name is NULL",
              [&] { EXPECT_EQ(mpls_vpn_mib_if_node_validate(&node), kStatusInvalidNode); });
  char name[] = "red";
  node.vrf_name = name;
  ExpectUnder(DBASE, "Invalid node: if_name is NULL",
              [&] { EXPECT_EQ(mpls_vpn_mib_if_node_validate(&node), kStatusInvalidNode); });
}

TEST_F(IfDatabase, AnnouncementsAndTheWalkAreTheDatabases) {
  CreateIf("red", 7, "ge0", 0x10);
  ExpectUnder(DBASE,
              "Entering mpls_vpn_mib_create_if_wavl_node: vrf_name = red, if_index = 7, if_name = ge0, "
              "if_handle = 0x10",
              [this] { CreateIf("red", 7, "ge0", 0x10); });
  ExpectUnder(DBASE, "Entering mpls_vpn_mib_delete_if_wavl_node: with if_name = ge1, if_handle = 0x11",
              [this] { DeleteIf(CreateIf("red", 8, "ge1", 0x11)); });
  ExpectUnder(DBASE, "DIRTY: no if_index for interface 0x11",
              [this] { DeleteIf(CreateIf("red", 0, "ge1", 0x11)); });
  for (const char* line :
       {"Start walk", "vrf_name = red, if_index = 7, if_name = ge0, if_handle = 0x10, valid? yes",
        "End walk"}) {
    ExpectUnder(DBASE, line, [] { mpls_vpn_mib_if_dbase_walk(); });
  }
}

TEST_F(IfDatabase, ManyNodesStayInBothOrders) {
  for (std::uint32_t i = 1; i <= 1000; ++i) {
    const std::string vrf = "vrf" + std::to_string(i % 17);
    ASSERT_NE(CreateIf(vrf.c_str(), (i * 7919) % 100003, "if", i), nullptr);
  }
  for (std::uint32_t i = 1; i <= 1000; i += 3) {
    ASSERT_EQ(DeleteIf(mpls_vpn_mib_get_if_by_handle(true, i)), 1);
  }
  EXPECT_EQ(wavl_check(mpls_vpn_mib_if_tree(), kIfByVrf), 1);
  EXPECT_EQ(wavl_check(mpls_vpn_mib_if_tree(), kIfByHandle), 1);
  EXPECT_EQ(NodesByVrf(), 666U);
  EXPECT_EQ(NodesByHandle(), 666U);
}
