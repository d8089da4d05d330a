// Interfaces that join a VRF.
#include "mpls/vpn/mib/src/membership/membership_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

using InterfaceJoin = Membership;

TEST_F(InterfaceJoin, EntersTheInterfaceAndTouchesTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  Connect();
  PassSeconds(10);
  ClearPrints();
  Join("ge0", "red");
  Run();
  const IfNode* node = NodeOf("red", "ge0");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->if_handle, handle);
  EXPECT_THAT(node->if_name, StrEq("ge0"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_TRUE(Printed("VMAP: interface " + Hex(handle) + " updated under vrf red"));
  EXPECT_TRUE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
}

TEST_F(InterfaceJoin, SameInterfaceAnnouncedTwiceLeavesOneNodeAndDoesNotTouchTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  const IfNode* node = NodeOf("red", "ge0");
  PassSeconds(10);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_TRUE(Printed("Interface was already in this vrf. VRF is created or deleted"));
  EXPECT_EQ(NodeOf("red", "ge0"), node);
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceJoin, NewNameOfTheSameInterfaceIsStoredWithoutTouchingTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  ClearPrints();
  Rename("ge0", "wan0");
  Run();
  EXPECT_THAT(NodeOf("red", "wan0")->if_name, StrEq("wan0"));
  EXPECT_TRUE(Printed("Updated in VRF red the ifname for ifhandle " + Hex(handle) + ", ifindex " +
                      std::to_string(IndexOf("wan0"))));
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceJoin, NewNameWithoutMemoryForItLeavesTheOldOne) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  const IfNode* node = CreateIf("red", IndexOf("ge0"), "old", handle);
  ClearPrints();
  {
    const ScopedFault fault("text_copy", kStatusNoMemory);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  }
  EXPECT_THAT(node->if_name, StrEq("old"));
  EXPECT_EQ(Prints().back(), "Error in mpls_vpn_mib_if2vrf_add: text_copy failed: Cannot allocate memory");
  EXPECT_THAT(PrintsOf({"Updated in VRF"}), IsEmpty());
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_THAT(node->if_name, StrEq("ge0"));
}

TEST_F(InterfaceJoin, MissingHandleOrVrfIsDroppedAtOnce) {
  mpls_vpn_mib_if2vrf_add(0, "red");
  mpls_vpn_mib_if2vrf_add(5, nullptr);
  mpls_vpn_mib_if2vrf_del(0, "red");
  mpls_vpn_mib_if2vrf_del(5, nullptr);
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_EQ(Nodes(), 0U);
}

TEST_F(InterfaceJoin, SubscriberInterfacesAreNeverEnteredNorFoundWhenTheyLeave) {
  AddVrf("red");
  Connect();
  for (const char* name : {"ge0.ip1", "ge0.pppoe7", ".ip", "be1.100.ipsub.3"}) {
    const std::uint32_t handle = AddInterface(name, "red");
    Run();
    EXPECT_EQ(Nodes(), 0U) << name;
    ClearPrints();
    Leave(name);
    Run();
    EXPECT_TRUE(Printed("mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface " +
                        Hex(handle) + " in VRF red"));
  }
  EXPECT_EQ(LastChanged("red"), 0U);
}

TEST_F(InterfaceJoin, SubscriberInterfacesAreNotResolved) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0.ip1");
  fault_arm("ifname_to_index", kStatusIo, 100);         // counts
  fault_arm("ifindex_get_index_list", kStatusIo, 100);  // the same
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_EQ(fault_reached("ifname_to_index"), 0U);
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 0U);
}

TEST_F(InterfaceJoin, IsPrintedBeforeTheNameIsLookedUp) {
  AddVrf("red");
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  EXPECT_THAT(PrintsOf({"VMAP: interface", "Error in mpls_vpn_get_interface_name"}),
              ElementsAre("VMAP: interface 0xdead updated under vrf red",
                          StartsWith("Error in mpls_vpn_get_interface_name: qic_s_interface_name failed")));
}

TEST_F(InterfaceJoin, LooksForTheKeyBeforeTheHandle) {
  AddVrf("red");
  AddVrf("blue");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "blue");
  EXPECT_THAT(PrintsOf({"get_greater_equal", "Found interface"}),
              ElementsAre("get_greater_equal found node NULL",
                          StartsWith("Found interface (mpls_vpn_mib_get_if_by_handle): vrf_name = red")));
}

TEST_F(InterfaceJoin, TouchesTheVrfBeforeTheTrapIsDecided) {
  AddVrf("red");
  AddInterface("ge0");
  Connect();
  ClearPrints();
  Join("ge0", "red");
  Run();
  EXPECT_THAT(PrintsOf({"Updated timestamp", "mpls vpn mib vrf up trap"}),
              ElementsAre("Updated timestamp to: " + std::to_string(kStartSeconds),
                          "mpls vpn mib vrf up trap generate: FALSE"));
}

TEST_F(InterfaceJoin, LongestNameThatARouterHasIsStoredWhole) {
  const std::string longest(router::kInterfaceNameMax, 'x');
  AddVrf("red");
  AddInterface(longest, "red");
  Connect();
  ASSERT_NE(NodeOf("red", longest), nullptr);
  EXPECT_EQ(NodeOf("red", longest)->if_name, longest);
}

// Each act is done twice, with the area alone on and alone off.
TEST_F(InterfaceJoin, EachMessageIsPrintedUnderItsArea) {
  AddVrf("red");
  AddVrf("blue");
  AddVrf("gray");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  const std::string index = std::to_string(IndexOf("ge0"));
  const auto join = [&](const char* vrf) { return [=] { mpls_vpn_mib_if2vrf_add(handle, vrf); }; };
  ExpectUnder(VMAP, "VMAP: interface " + Hex(handle) + " updated under vrf red", join("red"));
  ExpectUnder(VMAP, "Interface was already in this vrf. VRF is created or deleted", join("red"));
  const auto rename = [&] {
    IfNode* node = NodeOf("red", "ge0");
    text_replace(&node->if_name, "old");
    mpls_vpn_mib_if2vrf_add(handle, "red");
  };
  ExpectUnder(VMAP, "Updated in VRF red the ifname for ifhandle " + Hex(handle) + ", ifindex " + index,
              rename);
  const auto move = [&] {
    mpls_vpn_mib_if2vrf_add(handle, "blue");
    mpls_vpn_mib_if2vrf_add(handle, "red");
  };
  ExpectUnder(VMAP,
              "CONFLICT: deleting node (VRF red, ifindex " + index + ", ifhandle " + Hex(handle) +
                  ") due to new (VRF blue, ifindex " + index + ")",
              move);
  ExpectUnder(TRAPS, "mpls vpn mib vrf up trap generate: FALSE", move);
  const auto displace = [&] {
    DeleteIf(mpls_vpn_mib_get_if_by_handle(true, handle));
    CreateIf("red", IndexOf("ge0"), "old", 0x999);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  };
  ExpectUnder(VMAP,
              "CONFLICT: deleting node (VRF red, ifindex " + index +
                  ", ifhandle 0x999) due to new ifhandle " + Hex(handle),
              displace);
  const auto stuck = [&] {
    const ScopedFault fault("wavl_delete", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "blue");
  };
  ExpectUnder(VMAP, "Could not delete interface from the WAVL tree", stuck);
  const auto locked = [&] {
    const ScopedFault fault("pthread_mutex_lock", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  };
  ExpectUnder(ERR, "Error (mpls_vpn_mib_if2vrf_add): pthread mutex lock failed", locked);
}

TEST_F(InterfaceJoin, NamesThatMerelyContainIpAreEntered) {
  AddVrf("red");
  AddInterface("ipsec0", "red");
  AddInterface("pppoe0", "red");
  Connect();
  EXPECT_EQ(Nodes(), 2U);
}

TEST_F(InterfaceJoin, MoveUnderTheSameHandleDeletesTheOldNodeAndTouchesBothVrfs) {
  AddVrf("red");
  AddVrf("blue");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "blue");  // without the leave that the service would send first
  const std::string index = std::to_string(IndexOf("ge0"));
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index + ", ifhandle " + Hex(handle) +
                      ") due to new (VRF blue, ifindex " + index + ")"));
  EXPECT_EQ(NodeOf("red", "ge0"), nullptr);
  ASSERT_NE(NodeOf("blue", "ge0"), nullptr);
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
}

TEST_F(InterfaceJoin, MoveThatTheServiceAnnouncesIsALeaveAndAJoin) {
  AddVrf("red");
  AddVrf("blue");
  AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  ClearPrints();
  Join("ge0", "blue");
  Run();
  EXPECT_EQ(NodeOf("red", "ge0"), nullptr);
  EXPECT_NE(NodeOf("blue", "ge0"), nullptr);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
  EXPECT_TRUE(Printed("VMAP: interface " + Hex(HandleOf("ge0")) + " has been removed from vrf red"));
}

TEST_F(InterfaceJoin, NewHandleWithAnIndexAlreadyHeldDisplacesTheOldNode) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  const std::string index = std::to_string(IndexOf("ge0"));
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index +
                      ", ifhandle 0x999) due to new ifhandle " + Hex(handle)));
  EXPECT_EQ(NodeOf("red", "ge0")->if_handle, handle);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceJoin, BothConflictsAtOnceDeleteBothNodes) {
  AddVrf("red");
  AddVrf("blue");
  const std::uint32_t handle = AddInterface("ge0");
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  CreateIf("blue", 500, "ge0", handle);
  PassSeconds(10);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "red");
  const std::string index = std::to_string(IndexOf("ge0"));
  EXPECT_THAT(PrintsOf({"CONFLICT"}),
              ElementsAre("CONFLICT: deleting node (VRF red, ifindex " + index +
                              ", ifhandle 0x999) due to new ifhandle " + Hex(handle),
                          "CONFLICT: deleting node (VRF blue, ifindex 500, ifhandle " + Hex(handle) +
                              ") due to new (VRF red, ifindex " + index + ")"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(NodeOf("red", "ge0")->if_handle, handle);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
}

TEST_F(InterfaceJoin, FailedDeletionOfAConflictingNodeEndsTheJoin) {
  AddVrf("red");
  AddVrf("blue");
  const std::uint32_t handle = AddInterface("ge0");
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  const std::vector<std::string> steps = {"Updated timestamp", "CONFLICT", "Could not delete"};
  const std::string conflict =
      "CONFLICT: deleting node (VRF red, ifindex " + std::to_string(IndexOf("ge0")) + ", ifhandle 0x999) ";
  PassSeconds(10);
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  }
  EXPECT_THAT(PrintsOf(steps), ElementsAre("Updated timestamp to: " + std::to_string(kStartSeconds + 10),
                                           conflict + "due to new ifhandle " + Hex(handle),
                                           "Could not delete interface from the WAVL tree"));
  EXPECT_THAT(NodeOf("red", "ge0")->if_name, StrEq("old"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  PassSeconds(10);
  ClearPrints();
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    mpls_vpn_mib_if2vrf_add(0x999, "blue");  // no such interface: by handle only
  }
  EXPECT_THAT(PrintsOf(steps), ElementsAre("Updated timestamp to: " + std::to_string(kStartSeconds + 20),
                                           conflict + "due to new (VRF blue, ifindex 0)",
                                           "Could not delete interface from the WAVL tree"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 20);
  EXPECT_EQ(LastChanged("blue"), 0U) << "nothing joined it";
  EXPECT_EQ(Nodes(), 1U);
  TakeMutex();  // it was given back
  ReleaseMutex();
}

TEST_F(InterfaceJoin, UnresolvedNameIsStoredAsTheEmptyTextByHandleOnly) {
  AddVrf("red");
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  const IfNode* node = mpls_vpn_mib_get_if_by_handle(true, 0xdead);
  ASSERT_NE(node, nullptr);
  EXPECT_THAT(node->if_name, StrEq(""));
  EXPECT_EQ(node->if_index, 0U);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
  EXPECT_FALSE(Printed("mpls vpn mib vrf up trap generate: FALSE")) << "there is no record to decide by";
}

TEST_F(InterfaceJoin, NodeWithoutANameIsReplacedByTheJoinOfItsHandle) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  CreateIf("red", IndexOf("ge0"), nullptr, handle);
  const std::string index = std::to_string(IndexOf("ge0"));
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index + ", ifhandle " + Hex(handle) +
                      ") due to new (VRF red, ifindex " + index + ")"));
  EXPECT_EQ(Nodes(), 1U);
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);
  EXPECT_THAT(NodeOf("red", "ge0")->if_name, StrEq("ge0"));
}

TEST_F(InterfaceJoin, UnresolvedIndexIsCompletedByALaterLookup) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  {
    const ScopedFault fault("ifname_to_index", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  }
  EXPECT_TRUE(Printed(std::string("Interface index error ") + err_text(kStatusIo)));
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(InterfaceJoin, UnresolvedInterfaceAnnouncedAgainReplacesItsNode) {
  AddVrf("red");
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  EXPECT_TRUE(Printed(
      "CONFLICT: deleting node (VRF red, ifindex 0, ifhandle 0xdead) due to new (VRF red, ifindex 0)"));
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceJoin, LookupsInsideAJoinDoNotRepairADirtyDatabase) {
  AddVrf("red");
  const std::uint32_t late = AddInterface("late");
  const std::uint32_t other = AddInterface("ge0");
  const IfNode* unresolved = CreateIf("red", 0, nullptr, late);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(other, "red");
  EXPECT_EQ(TimesPrinted("Error (mpls_vpn_mib_clean_if_dbase): pthread mutex lock failed"), 2U);
  EXPECT_EQ(unresolved->if_name, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);  // this lookup repairs
  EXPECT_THAT(unresolved->if_name, StrEq("late"));
}

TEST_F(InterfaceJoin, MutexThatCannotBeTakenDropsTheEvent) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  {
    const ScopedFault fault("pthread_mutex_lock", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  }
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_add): pthread mutex lock failed");
  EXPECT_EQ(Nodes(), 0U);
}

TEST_F(InterfaceJoin, UnlockFailureIsReported) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  {
    const ScopedFault fault("pthread_mutex_unlock", kStatusIo);
    mpls_vpn_mib_if2vrf_add(handle, "red");
  }
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_add): pthread mutex unlock failed");
  ReleaseMutex();
}

TEST_F(InterfaceJoin, NodeThatCannotBeCreatedDoesNotTouchTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  const ScopedFault fault("calloc_tagged:IF node", kStatusNoMemory);
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_EQ(LastChanged("red"), 0U);
  EXPECT_FALSE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
}

TEST_F(InterfaceJoin, InterfaceThatIsUpIsTracedAsSuch) {
  AddVrf("red");
  AddInterface("ge0", "red");
  AddInterface("ge1", "red");
  AddAddress("ge0", "10.0.0.1/24");
  LinkUp("ge0");
  Run();
  Connect();
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 is up in VRF red"));
  EXPECT_THAT(Traced("mpls_vpn/vmap"), testing::Not(Contains("interface ge1 is up in VRF red")));
}

}  // namespace
