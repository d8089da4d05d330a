// Interfaces that join a VRF.
#include "mpls/vpn/mib/src/membership/membership_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::StrEq;

// VRFs "red" and "blue", and the interface ge0 in neither.
class InterfaceJoin : public Membership {
 protected:
  void SetUp() override {
    Membership::SetUp();
    AddVrf("red");
    AddVrf("blue");
    handle_ = AddInterface("ge0");
    index_ = std::to_string(IndexOf("ge0"));
    ClearPrints();
  }
  // ge0 is in "red" for ten seconds.
  void EnterRed() {
    Join("ge0", "red");
    Connect();
    PassSeconds(10);
    ClearPrints();
  }
  std::uint32_t handle_ = 0;
  std::string index_;
};

TEST_F(InterfaceJoin, EntersTheInterfaceAndTouchesTheVrfBeforeTheTrapIsDecided) {
  Connect();
  PassSeconds(10);
  ClearPrints();
  Join("ge0", "red");
  Run();
  const IfNode* node = NodeOf("red", "ge0");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->if_handle, handle_);
  EXPECT_THAT(node->if_name, StrEq("ge0"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_THAT(PrintsOf({"VMAP: interface", "Updated timestamp", "mpls vpn mib vrf up trap"}),
              ElementsAre("VMAP: interface " + Hex(handle_) + " updated under vrf red",
                          "Updated timestamp to: " + std::to_string(kStartSeconds + 10),
                          "mpls vpn mib vrf up trap generate: FALSE"));
}

TEST_F(InterfaceJoin, SameInterfaceAnnouncedTwiceLeavesOneNodeAndDoesNotTouchTheVrf) {
  EnterRed();
  const IfNode* node = NodeOf("red", "ge0");
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_TRUE(Printed("Interface was already in this vrf. VRF is created or deleted"));
  EXPECT_EQ(NodeOf("red", "ge0"), node);
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceJoin, NewNameOfTheSameInterfaceIsStoredWithoutTouchingTheVrf) {
  EnterRed();
  Rename("ge0", "wan0");
  Run();
  EXPECT_THAT(NodeOf("red", "wan0")->if_name, StrEq("wan0"));
  EXPECT_TRUE(Printed("Updated in VRF red the ifname for ifhandle " + Hex(handle_) + ", ifindex " +
                      std::to_string(IndexOf("wan0"))));
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceJoin, NewNameWithoutMemoryForItLeavesTheOldOne) {
  const IfNode* node = CreateIf("red", IndexOf("ge0"), "old", handle_);
  ClearPrints();
  WithFault("text_copy", kStatusNoMemory, [&] { mpls_vpn_mib_if2vrf_add(handle_, "red"); });
  EXPECT_THAT(node->if_name, StrEq("old"));
  EXPECT_EQ(Prints().back(), Failure("mpls_vpn_mib_if2vrf_add", "text_copy failed", kStatusNoMemory));
  EXPECT_THAT(PrintsOf({"Updated in VRF"}), IsEmpty());
  mpls_vpn_mib_if2vrf_add(handle_, "red");
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
  const std::uint32_t handle = AddInterface("ge0.ip1");
  fault_arm("ifname_to_index", kStatusIo, 100);         // counts
  fault_arm("ifindex_get_index_list", kStatusIo, 100);  // the same
  mpls_vpn_mib_if2vrf_add(handle, "red");
  EXPECT_EQ(fault_reached("ifname_to_index"), 0U);
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 0U);
}

TEST_F(InterfaceJoin, IsPrintedBeforeTheNameIsLookedUp) {
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  EXPECT_THAT(PrintsOf({"VMAP: interface", "Error in mpls_vpn_get_interface_name"}),
              ElementsAre("VMAP: interface 0xdead updated under vrf red",
                          StartsWith("Error in mpls_vpn_get_interface_name: qic_s_interface_name failed")));
}

TEST_F(InterfaceJoin, LooksForTheKeyBeforeTheHandle) {
  EnterRed();
  mpls_vpn_mib_if2vrf_add(handle_, "blue");
  EXPECT_THAT(PrintsOf({"get_greater_equal", "Found interface"}),
              ElementsAre("get_greater_equal found node NULL",
                          StartsWith("Found interface (mpls_vpn_mib_get_if_by_handle): vrf_name = red")));
}

TEST_F(InterfaceJoin, LongestNameThatARouterHasIsStoredWhole) {
  const std::string longest(router::kInterfaceNameMax, 'x');
  AddInterface(longest, "red");
  Connect();
  ASSERT_NE(NodeOf("red", longest), nullptr);
  EXPECT_EQ(NodeOf("red", longest)->if_name, longest);
}

// Each act is done twice, with the area alone on and alone off.
TEST_F(InterfaceJoin, EachMessageIsPrintedUnderItsArea) {
  EnterRed();
  const auto join = [&](const char* vrf) { return [this, vrf] { mpls_vpn_mib_if2vrf_add(handle_, vrf); }; };
  ExpectUnder(VMAP, "VMAP: interface " + Hex(handle_) + " updated under vrf red", join("red"));
  ExpectUnder(VMAP, "Interface was already in this vrf. VRF is created or deleted", join("red"));
  const auto rename = [&] {
    IfNode* node = NodeOf("red", "ge0");
    {
      const MplsVpnLock lock(__func__, ERR);
      mpls_vpn_mib_set_if_name(node, text_copy("old"));
    }
    mpls_vpn_mib_if2vrf_add(handle_, "red");
  };
  ExpectUnder(VMAP, "Updated in VRF red the ifname for ifhandle " + Hex(handle_) + ", ifindex " + index_,
              rename);
  const auto move = [&] {
    mpls_vpn_mib_if2vrf_add(handle_, "blue");
    mpls_vpn_mib_if2vrf_add(handle_, "red");
  };
  ExpectUnder(VMAP,
              "CONFLICT: deleting node (VRF red, ifindex " + index_ + ", ifhandle " + Hex(handle_) +
                  ") due to new (VRF blue, ifindex " + index_ + ")",
              move);
  ExpectUnder(TRAPS, "mpls vpn mib vrf up trap generate: FALSE", move);
  const auto displace = [&] {
    DeleteIf(mpls_vpn_mib_get_if_by_handle(true, handle_));
    CreateIf("red", IndexOf("ge0"), "old", 0x999);
    mpls_vpn_mib_if2vrf_add(handle_, "red");
  };
  ExpectUnder(VMAP,
              "CONFLICT: deleting node (VRF red, ifindex " + index_ +
                  ", ifhandle 0x999) due to new ifhandle " + Hex(handle_),
              displace);
  ExpectUnder(VMAP, "Could not delete interface from the WAVL tree",
              [&] { WithFault("wavl_delete", kStatusIo, join("blue")); });
  ExpectUnder(ERR, "Error (mpls_vpn_mib_if2vrf_add): pthread mutex lock failed",
              [&] { WithFault("pthread_mutex_lock", kStatusIo, join("red")); });
}

TEST_F(InterfaceJoin, NamesThatMerelyContainIpAreEntered) {
  AddInterface("ipsec0", "red");
  AddInterface("pppoe0", "red");
  Connect();
  EXPECT_EQ(Nodes(), 2U);
}

TEST_F(InterfaceJoin, MoveUnderTheSameHandleDeletesTheOldNodeAndTouchesBothVrfs) {
  EnterRed();
  mpls_vpn_mib_if2vrf_add(handle_, "blue");  // without the leave that the service would send first
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index_ + ", ifhandle " + Hex(handle_) +
                      ") due to new (VRF blue, ifindex " + index_ + ")"));
  EXPECT_EQ(NodeOf("red", "ge0"), nullptr);
  ASSERT_NE(NodeOf("blue", "ge0"), nullptr);
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
}

TEST_F(InterfaceJoin, MoveThatTheServiceAnnouncesIsALeaveAndAJoin) {
  EnterRed();
  Join("ge0", "blue");
  Run();
  EXPECT_EQ(NodeOf("red", "ge0"), nullptr);
  EXPECT_NE(NodeOf("blue", "ge0"), nullptr);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
  EXPECT_TRUE(Printed("VMAP: interface " + Hex(HandleOf("ge0")) + " has been removed from vrf red"));
}

TEST_F(InterfaceJoin, NewHandleWithAnIndexAlreadyHeldDisplacesTheOldNode) {
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index_ +
                      ", ifhandle 0x999) due to new ifhandle " + Hex(handle_)));
  EXPECT_EQ(NodeOf("red", "ge0")->if_handle, handle_);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceJoin, BothConflictsAtOnceDeleteBothNodes) {
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  CreateIf("blue", 500, "ge0", handle_);
  PassSeconds(10);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_THAT(PrintsOf({"CONFLICT"}),
              ElementsAre("CONFLICT: deleting node (VRF red, ifindex " + index_ +
                              ", ifhandle 0x999) due to new ifhandle " + Hex(handle_),
                          "CONFLICT: deleting node (VRF blue, ifindex 500, ifhandle " + Hex(handle_) +
                              ") due to new (VRF red, ifindex " + index_ + ")"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(NodeOf("red", "ge0")->if_handle, handle_);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_EQ(LastChanged("blue"), kStartSeconds + 10);
}

TEST_F(InterfaceJoin, FailedDeletionOfAConflictingNodeEndsTheJoin) {
  CreateIf("red", IndexOf("ge0"), "old", 0x999);
  const std::vector<std::string> steps = {"Updated timestamp", "CONFLICT", "Could not delete"};
  const std::string conflict = "CONFLICT: deleting node (VRF red, ifindex " + index_ + ", ifhandle 0x999) ";
  PassSeconds(10);
  WithFault("wavl_delete", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(handle_, "red"); });
  EXPECT_THAT(PrintsOf(steps), ElementsAre("Updated timestamp to: " + std::to_string(kStartSeconds + 10),
                                           conflict + "due to new ifhandle " + Hex(handle_),
                                           "Could not delete interface from the WAVL tree"));
  EXPECT_THAT(NodeOf("red", "ge0")->if_name, StrEq("old"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  PassSeconds(10);
  ClearPrints();
  // No interface has this handle: it joins by handle only.
  WithFault("wavl_delete", kStatusIo, [] { mpls_vpn_mib_if2vrf_add(0x999, "blue"); });
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
  CreateIf("red", IndexOf("ge0"), nullptr, handle_);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_TRUE(Printed("CONFLICT: deleting node (VRF red, ifindex " + index_ + ", ifhandle " + Hex(handle_) +
                      ") due to new (VRF red, ifindex " + index_ + ")"));
  EXPECT_EQ(Nodes(), 1U);
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);
  EXPECT_THAT(NodeOf("red", "ge0")->if_name, StrEq("ge0"));
}

TEST_F(InterfaceJoin, UnresolvedIndexIsCompletedByALaterLookup) {
  WithFault("ifname_to_index", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(handle_, "red"); });
  EXPECT_TRUE(Printed(std::string("Interface index error ") + err_text(kStatusIo)));
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(InterfaceJoin, UnresolvedInterfaceAnnouncedAgainReplacesItsNode) {
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  EXPECT_TRUE(Printed(
      "CONFLICT: deleting node (VRF red, ifindex 0, ifhandle 0xdead) due to new (VRF red, ifindex 0)"));
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceJoin, LookupsInsideAJoinDoNotRepairADirtyDatabase) {
  const std::uint32_t late = AddInterface("late");
  const IfNode* unresolved = CreateIf("red", 0, nullptr, late);
  ClearPrints();
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_EQ(TimesPrinted("Error (mpls_vpn_mib_clean_if_dbase): pthread mutex lock failed"), 2U);
  EXPECT_EQ(unresolved->if_name, nullptr);
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  ASSERT_NE(NodeOf("red", "ge0"), nullptr);  // this lookup repairs
  EXPECT_THAT(unresolved->if_name, StrEq("late"));
}

TEST_F(InterfaceJoin, MutexThatCannotBeTakenDropsTheEvent) {
  WithFault("pthread_mutex_lock", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(handle_, "red"); });
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_add): pthread mutex lock failed");
  EXPECT_EQ(Nodes(), 0U);
}

TEST_F(InterfaceJoin, UnlockFailureIsReported) {
  WithFault("pthread_mutex_unlock", kStatusIo, [&] { mpls_vpn_mib_if2vrf_add(handle_, "red"); });
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_add): pthread mutex unlock failed");
  ReleaseMutex();
}

TEST_F(InterfaceJoin, NodeThatCannotBeCreatedDoesNotTouchTheVrf) {
  const ScopedFault fault("calloc_tagged:IF node", kStatusNoMemory);
  mpls_vpn_mib_if2vrf_add(handle_, "red");
  EXPECT_EQ(LastChanged("red"), 0U);
  EXPECT_FALSE(Printed("mpls vpn mib vrf up trap generate: FALSE"));
}

TEST_F(InterfaceJoin, InterfaceThatIsUpIsTracedAsSuch) {
  AddInterface("ge1", "red");
  AddAddress("ge0", "10.0.0.1/24");
  LinkUp("ge0");
  Run();
  EnterRed();
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 is up in VRF red"));
  EXPECT_THAT(Traced("mpls_vpn/vmap"), testing::Not(Contains("interface ge1 is up in VRF red")));
}

}  // namespace
