// Joins, leaves, VRFs created and deleted: what the membership service's events do to the databases.
#include "mpls/vpn/mib/src/mpls_vpn_mib_membership.h"

#include "mpls/vpn/mib/src/mpls_vpn_mib_if_dbase_internal.h"
#include "mpls/vpn/mib/src/mpls_vpn_test_fixture.h"
#include "platform/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

class Membership : public DaemonTest {
 protected:
  std::uint32_t Nodes() const { return wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle); }
  // The lines that begin with one of these texts, in their order.
  std::vector<std::string> PrintsOf(const std::vector<std::string>& beginnings) const {
    std::vector<std::string> lines;
    for (const std::string& line : Prints()) {
      for (const std::string& beginning : beginnings) {
        if (line.starts_with(beginning)) lines.push_back(line);
      }
    }
    return lines;
  }
  std::uint32_t LastChanged(const char* vrf) { return AttributesOf(vrf)->conf_last_changed_time; }
  IfNode* NodeOf(const char* vrf, std::string_view interface) {
    return mpls_vpn_mib_get_if(true, vrf, IndexOf(interface));
  }
  void VrfCreated(const char* name, std::uint32_t id, std::uint32_t flags) {
    if (!mpls_vpn_mutex_lock("VrfCreated", ERR)) {
      ADD_FAILURE();
      return;
    }
    mpls_vpn_mib_vrf_created(name, id, flags);
    mpls_vpn_mutex_unlock("VrfCreated", ERR);
  }
  void VrfDeleted(const char* name, std::uint32_t id) {
    if (!mpls_vpn_mutex_lock("VrfDeleted", ERR)) {
      ADD_FAILURE();
      return;
    }
    mpls_vpn_mib_vrf_deleted(name, id);
    mpls_vpn_mutex_unlock("VrfDeleted", ERR);
  }
};

using InterfaceJoin = Membership;
using InterfaceLeave = Membership;
using VrfLife = Membership;
using VrfRouteDistinguisher = Membership;

}  // namespace

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

TEST_F(InterfaceLeave, DeletesTheNodeAndTouchesTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  ClearPrints();
  Leave("ge0");
  Run();
  EXPECT_EQ(Nodes(), 0U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_TRUE(Printed("VMAP: interface " + Hex(handle) + " has been removed from vrf red"));
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
}

TEST_F(InterfaceLeave, FlagOfAnEarlierTrapIsShown) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  NodeOf("red", "ge0")->vrf_down_trap_sent = 1;
  Leave("ge0");
  Run();
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: TRUE"));
}

TEST_F(InterfaceLeave, InterfaceWithoutARecordMakesNoTrapDecision) {
  AddVrf("red");
  CreateIf("red", 77, "ghost", 0x77);
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(0x77, "red");
  EXPECT_EQ(Nodes(), 0U);
  EXPECT_FALSE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
}

TEST_F(InterfaceLeave, InterfaceThatIsNotThereChangesNothing) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(0xbeef, "red");
  EXPECT_TRUE(
      Printed("mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface 0xbeef in VRF red"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceLeave, InterfaceKnownByHandleOnlyIsNotFound) {
  AddVrf("red");
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  mpls_vpn_mib_if2vrf_del(0xdead, "red");
  EXPECT_TRUE(
      Printed("mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface 0xdead in VRF red"));
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceLeave, FailedDeletionDoesNotTouchTheVrf) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  PassSeconds(10);
  {
    const ScopedFault fault("wavl_delete", kStatusIo);
    mpls_vpn_mib_if2vrf_del(handle, "red");
  }
  EXPECT_TRUE(Printed("Could not delete interface " + Hex(handle) + " in VRF red from the WAVL tree"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceLeave, MutexThatCannotBeTakenDropsTheEvent) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  {
    const ScopedFault fault("pthread_mutex_lock", kStatusIo);
    mpls_vpn_mib_if2vrf_del(handle, "red");
  }
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_del): pthread mutex lock failed");
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceLeave, UnlockFailureIsReported) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  Connect();
  {
    const ScopedFault fault("pthread_mutex_unlock", kStatusIo);
    mpls_vpn_mib_if2vrf_del(handle, "red");
  }
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_del): pthread mutex unlock failed");
  EXPECT_EQ(Nodes(), 0U);
  ReleaseMutex();
}

TEST_F(InterfaceLeave, UpInterfaceIsTracedAsLeavingWhileUp) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0", "red");
  AddAddress("ge0", "2001:db8::1/64");
  LinkUp("ge0");
  Connect();
  mpls_vpn_mib_if2vrf_del(handle, "red");
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 leaves VRF red while up"));
}

TEST_F(VrfLife, CreatedVrfHasItsNodeItsTimeAndNoRouteDistinguisher) {
  AddVrf("red");
  text_replace(&AttributesOf("red")->rd, "65000:1");
  PassMilliseconds(7900);  // times are whole seconds, rounded down
  ClearPrints();
  VrfCreated("red", 101, 0);
  EXPECT_EQ(Prints().front(), "VMAP: VRF red created");
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, "red");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->vrf_rec, vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_EQ(AttributesOf("red")->creation_time, kStartSeconds + 7);
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, 0U);
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_EQ(AttributesOf("red")->is_big_vrf, 0U);
}

TEST_F(VrfLife, FlagBitOfValueTwoMarksABigVrf) {
  AddVrf("red");
  VrfCreated("red", 101, 0x2);
  EXPECT_EQ(AttributesOf("red")->is_big_vrf, 1U);
  VrfCreated("red", 101, 0xfd);
  EXPECT_EQ(AttributesOf("red")->is_big_vrf, 0U);
}

TEST_F(VrfLife, CreationOfAVrfThatTheRecordServiceDoesNotHoldMakesItsRecord) {
  VrfCreated("green", 0, 0);
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, "green");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->vrf_rec->vrf_id, 0U);
}

TEST_F(VrfLife, CreationWithIdZeroSavesNoRecord) {
  fault_arm("chkpt_create", kStatusIo, 100);
  VrfCreated("green", 0, 0);
  EXPECT_NE(mpls_vpn_mib_get_vrf_node(true, "green"), nullptr);
  EXPECT_EQ(fault_reached("chkpt_create"), 0U);
  EXPECT_EQ(AttributesOf("green")->chkpt_objid, 0U);
}

TEST_F(VrfLife, CreationWithoutARecordMakesNoNode) {
  const ScopedFault fault("vtab_create_vrf_record", kStatusIo);
  VrfCreated("green", 5, 0);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "green"), nullptr);
  EXPECT_FALSE(Printed("Could not insert into VRF database"));
}

TEST_F(VrfLife, SecondCreationStampsAgainAndKeepsTheNode) {
  AddVrf("red");
  VrfCreated("red", 101, 0);
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, "red");
  PassSeconds(7);
  ClearPrints();
  VrfCreated("red", 101, 0);
  EXPECT_TRUE(Printed("Could not insert into VRF database"));
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "red"), node);
  EXPECT_EQ(AttributesOf("red")->creation_time, kStartSeconds + 7);
}

TEST_F(VrfLife, DeletedVrfLosesItsNodeAndKeepsRecordAndInterfaces) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  ClearPrints();
  VrfDeleted("red", 101);
  EXPECT_EQ(Prints().front(), "VMAP: VRF red deleted");
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "red"), nullptr);
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(VrfLife, DeletionOfAnUnknownVrfIsSaid) {
  VrfDeleted("red", 101);
  EXPECT_EQ(Prints().back(), "Could not delete from VRF database");
}

TEST_F(VrfLife, DeletedAndCreatedAgainBeforeAnythingIsDeliveredHasTheNewRecord) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  DeleteVrf("red");
  const std::uint32_t id = AddVrf("red");
  Run();
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, "red");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->vrf_rec, vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_EQ(node->vrf_rec->vrf_id, id);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(VrfRouteDistinguisher, IsFetchedWhenMissingAndTouchesTheVrf) {
  AddVrf("red", 0, "65000:100");
  PassSeconds(3);
  mpls_vpn_debug_flags[CHKPT].enabled.store(0);
  mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:100");
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 3);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_vrf_complete_missing",
                                    "RD get succeeded for vrf red, RD = 65000:100",
                                    "Updated timestamp to: " + std::to_string(kStartSeconds + 3)));
  text_replace(&AttributesOf("red")->rd, nullptr);
}

TEST_F(VrfRouteDistinguisher, ThatIsThereIsNotFetchedAgain) {
  AddVrf("red", 0, "65000:100");
  text_replace(&AttributesOf("red")->rd, "1:1");
  mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_STREQ(AttributesOf("red")->rd, "1:1");
  EXPECT_EQ(LastChanged("red"), 0U);
  text_replace(&AttributesOf("red")->rd, nullptr);
}

TEST_F(VrfRouteDistinguisher, ThatCannotBeFetchedIsReported) {
  AddVrf("red");
  mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_EQ(Prints().back(),
            std::string("Error in mpls_vpn_mib_vrf_complete_missing: bgp_vpn_rd_get failed: ") +
                err_text(kStatusNoSuchRow));
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_EQ(LastChanged("red"), 0U);
}

TEST_F(VrfRouteDistinguisher, WithoutMemoryForItStaysMissingAndDoesNotTouchTheVrf) {
  AddVrf("red", 0, "65000:100");
  {
    const ScopedFault fault("text_copy", kStatusNoMemory);
    mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  }
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_EQ(LastChanged("red"), 0U);
  EXPECT_EQ(Prints().back(),
            "Error in mpls_vpn_mib_vrf_complete_missing: text_copy failed: Cannot allocate memory");
}

TEST_F(VrfRouteDistinguisher, MissingRecordIsReported) {
  mpls_vpn_mib_vrf_complete_missing(nullptr);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_vrf_complete_missing",
                                    "NULL arguments in mpls_vpn_mib_vrf_complete_missing"));
}
