// Interfaces that leave a VRF; VRFs that are created and deleted, and their missing route distinguishers.
#include "mpls/vpn/mib/src/membership/membership_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// The interface ge0 has been in the VRF "red" for ten seconds.
class InterfaceLeave : public Membership {
 protected:
  void SetUp() override {
    Membership::SetUp();
    AddVrf("red");
    handle_ = AddInterface("ge0", "red");
    Connect();
    PassSeconds(10);
    ClearPrints();
  }
  std::uint32_t handle_ = 0;
};

using VrfLife = Membership;

class VrfRouteDistinguisher : public Membership {
 protected:
  static void Complete() { mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red")); }
};

TEST_F(InterfaceLeave, OfADeletedVrfTouchesTheVrfThatHasItsName) {
  Leave("ge0");
  DeleteVrf("red");
  AddVrf("red");
  LetReadingsTake(kNanosecondsPerSecond / 2);
  Run();
  EXPECT_GE(LastChanged("red"), kStartSeconds + 10);
  EXPECT_GT(AttributesOf("red")->creation_time, LastChanged("red"));
}

TEST_F(InterfaceLeave, DeletesTheNodeAndTouchesTheVrf) {
  Leave("ge0");
  Run();
  EXPECT_EQ(Nodes(), 0U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 10);
  EXPECT_TRUE(Printed("VMAP: interface " + Hex(handle_) + " has been removed from vrf red"));
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
}

TEST_F(InterfaceLeave, FlagOfAnEarlierTrapIsShown) {
  NodeOf("red", "ge0")->vrf_down_trap_sent = 1;
  Leave("ge0");
  Run();
  EXPECT_TRUE(Printed("mpls vpn mib vrf down trap generate: TRUE"));
}

TEST_F(InterfaceLeave, InterfaceWithoutARecordMakesNoTrapDecision) {
  CreateIf("red", 77, "stale", 0x77);
  ClearPrints();
  mpls_vpn_mib_if2vrf_del(0x77, "red");
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_FALSE(Printed("mpls vpn mib vrf down trap generate: FALSE"));
}

TEST_F(InterfaceLeave, InterfaceThatIsNotThereChangesNothing) {
  mpls_vpn_mib_if2vrf_del(0xbeef, "red");
  EXPECT_TRUE(
      Printed("mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface 0xbeef in VRF red"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
}

TEST_F(InterfaceLeave, InterfaceKnownByHandleOnlyIsNotFound) {
  mpls_vpn_mib_if2vrf_add(0xdead, "red");
  mpls_vpn_mib_if2vrf_del(0xdead, "red");
  EXPECT_TRUE(
      Printed("mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface 0xdead in VRF red"));
  EXPECT_EQ(Nodes(), 2U);
}

TEST_F(InterfaceLeave, FailedDeletionDoesNotTouchTheVrf) {
  WithFault("wavl_delete", kStatusIo, [&] { mpls_vpn_mib_if2vrf_del(handle_, "red"); });
  EXPECT_TRUE(Printed("Could not delete interface " + Hex(handle_) + " in VRF red from the WAVL tree"));
  EXPECT_EQ(LastChanged("red"), kStartSeconds);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceLeave, MutexThatCannotBeTakenDropsTheEvent) {
  WithFault("pthread_mutex_lock", kStatusIo, [&] { mpls_vpn_mib_if2vrf_del(handle_, "red"); });
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_del): pthread mutex lock failed");
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(InterfaceLeave, UnlockFailureIsReported) {
  WithFault("pthread_mutex_unlock", kStatusIo, [&] { mpls_vpn_mib_if2vrf_del(handle_, "red"); });
  EXPECT_EQ(Prints().back(), "Error (mpls_vpn_mib_if2vrf_del): pthread mutex unlock failed");
  EXPECT_EQ(Nodes(), 0U);
  ReleaseMutex();
}

TEST_F(InterfaceLeave, UpInterfaceIsTracedAsLeavingWhileUp) {
  AddAddress("ge0", "2001:db8::1/64");
  LinkUp("ge0");
  Run();
  mpls_vpn_mib_if2vrf_del(handle_, "red");
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("interface ge0 leaves VRF red while up"));
}

TEST_F(InterfaceLeave, EachMessageIsPrintedUnderItsArea) {
  const auto leave = [this] {
    if (mpls_vpn_mib_get_if_by_handle(true, handle_) == nullptr)
      CreateIf("red", IndexOf("ge0"), "ge0", handle_);
    mpls_vpn_mib_if2vrf_del(handle_, "red");
  };
  ExpectUnder(VMAP, "VMAP: interface " + Hex(handle_) + " has been removed from vrf red", leave);
  ExpectUnder(TRAPS, "mpls vpn mib vrf down trap generate: FALSE", leave);
  ExpectUnder(VMAP, "mpls_vpn_mib_if2vrf_del: Cannot find matching WAVL node for interface 0xdead in VRF red",
              [] { mpls_vpn_mib_if2vrf_del(0xdead, "red"); });
  ExpectUnder(VMAP, "Could not delete interface " + Hex(handle_) + " in VRF red from the WAVL tree",
              [&] { WithFault("wavl_delete", kStatusIo, leave); });
  ExpectUnder(ERR, "Error (mpls_vpn_mib_if2vrf_del): pthread mutex lock failed",
              [&] { WithFault("pthread_mutex_lock", kStatusIo, leave); });
}

TEST_F(VrfLife, EachMessageIsPrintedUnderItsArea) {
  AddVrf("red", 0, "65000:100");
  Run();
  const auto create = [this] { VrfCreated("red", 101, 0); };
  const auto remove = [this] { VrfDeleted("red", 101); };
  ExpectUnder(VMAP, "VMAP: VRF red created", create);
  ExpectUnder(VMAP, "Could not insert into VRF database", create);
  ExpectUnder(VMAP, "VMAP: VRF red deleted", remove);
  ExpectUnder(VMAP, "Could not delete from VRF database", remove);
  ExpectUnder(ERR, "Could not checkpoint VRF red ", [&] { WithFault("chkpt_save", kStatusIo, create); });
  const auto complete = [this] {
    text_replace(&AttributesOf("red")->rd, nullptr);
    mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  };
  ExpectUnder(VMAP, "Entering function mpls_vpn_mib_vrf_complete_missing", complete);
  ExpectUnder(VMAP, "RD get succeeded for vrf red, RD = 65000:100", complete);
  ExpectUnder(VMAP, "NULL arguments in mpls_vpn_mib_vrf_complete_missing",
              [] { mpls_vpn_mib_vrf_complete_missing(nullptr); });
}

// The record is created before the node, and the node before the checkpoint, which has the new time.
TEST_F(VrfLife, StepsOfACreationAreInTheirOrder) {
  VrfCreated("green", 0, 0);
  EXPECT_THAT(PrintsOf({"VMAP:", "Create VTAB record"}),
              ElementsAre("VMAP: VRF green created", "Create VTAB record for VRF green"));
  AddVrf("red");
  VrfCreated("red", 101, 0);
  PassSeconds(7);
  ClearPrints();
  VrfCreated("red", 101, 0);
  EXPECT_THAT(PrintsOf({"VMAP:", "Could not insert", "Checkpoint save"}),
              ElementsAre("VMAP: VRF red created", "Could not insert into VRF database",
                          "Checkpoint save VRF red, vrf_id = 0x65, creation_time = 1700000007, "
                          "conf_last_changed_time = 0"));
}

TEST_F(VrfLife, CreatedVrfHasItsNodeItsTimeAndNoRouteDistinguisher) {
  AddVrf("red");
  text_replace(&AttributesOf("red")->rd, "65000:1");
  PassMilliseconds(7900);  // times are whole seconds, rounded down
  ClearPrints();
  VrfCreated("red", 101, 0);
  EXPECT_EQ(Prints().front(), "VMAP: VRF red created");
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("VRF red created, vrf_id 0x65, flags 0x0"));
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

TEST_F(VrfLife, CreationOfAVrfThatTheRecordServiceDoesNotHoldMakesItsRecordAndNoCheckpoint) {
  fault_arm("chkpt_create", kStatusIo, 100);
  VrfCreated("green", 0, 0);
  const VrfNode* node = mpls_vpn_mib_get_vrf_node(true, "green");
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->vrf_rec->vrf_id, 0U);
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
  // The checkpoint has it, too.
  AttributesOf("red")->creation_time = 0;
  EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusOk);
  EXPECT_EQ(AttributesOf("red")->creation_time, kStartSeconds + 7);
}

TEST_F(VrfLife, VrfThatBecomesBigIsNotCreatedAnew) {
  AddVrf("red");
  Connect();
  PassSeconds(7);
  ClearPrints();
  SetVrfFlags("red", router::kVrfFlagBig);
  Run();
  EXPECT_EQ(AttributesOf("red")->creation_time, kStartSeconds);
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(VrfLife, VrfThatIsToBeIgnoredBeforeItIsDeletedLeavesNoNodeWithoutARecord) {
  AddVrf("red");
  AddVrf("blue");
  Connect();
  SetVrfFlags("red", 0x8);
  SetVrfFlags("blue", 0x8);
  DeleteVrf("red");
  Run();
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "red"), nullptr);
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "blue"), nullptr);
  DeleteVrf("blue");
  Run();
  EXPECT_EQ(mpls_vpn_mib_vrf_dbase_first(), nullptr);
  EXPECT_FALSE(Printed("Could not delete from VRF database"));
}

TEST_F(VrfLife, DeletedVrfLosesItsNodeAndKeepsRecordAndInterfaces) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  ClearPrints();
  VrfDeleted("red", 101);
  EXPECT_EQ(Prints().front(), "VMAP: VRF red deleted");
  EXPECT_THAT(Traced("mpls_vpn/vmap"), Contains("VRF red deleted, vrf_id 0x65"));
  EXPECT_EQ(mpls_vpn_mib_get_vrf_node(true, "red"), nullptr);
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(VrfLife, DeletionOfAnUnknownVrfIsReported) {
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
  Complete();
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:100");
  EXPECT_EQ(LastChanged("red"), kStartSeconds + 3);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_vrf_complete_missing",
                                    "RD get succeeded for vrf red, RD = 65000:100",
                                    "Updated timestamp to: " + std::to_string(kStartSeconds + 3)));
}

// The longest text that a route distinguisher has.
TEST_F(VrfRouteDistinguisher, OfTwentyOneOctetsIsFetchedWhole) {
  AddVrf("red", 0, "255.255.255.255:65535");
  Complete();
  EXPECT_STREQ(AttributesOf("red")->rd, "255.255.255.255:65535");
}

TEST_F(VrfRouteDistinguisher, ThatIsThereIsNotFetchedAgain) {
  AddVrf("red", 0, "65000:100");
  text_replace(&AttributesOf("red")->rd, "1:1");
  Complete();
  EXPECT_STREQ(AttributesOf("red")->rd, "1:1");
  EXPECT_EQ(LastChanged("red"), 0U);
}

TEST_F(VrfRouteDistinguisher, ThatCannotBeFetchedIsReported) {
  AddVrf("red");
  Complete();
  EXPECT_EQ(Prints().back(),
            std::string("Error in mpls_vpn_mib_vrf_complete_missing: bgp_vpn_rd_get failed: ") +
                err_text(kStatusNoSuchRow));
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_EQ(LastChanged("red"), 0U);
}

TEST_F(VrfRouteDistinguisher, WithoutMemoryForItStaysMissingAndDoesNotTouchTheVrf) {
  AddVrf("red", 0, "65000:100");
  WithFault("text_copy", kStatusNoMemory, [&] { Complete(); });
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_EQ(LastChanged("red"), 0U);
  EXPECT_EQ(Prints().back(),
            Failure("mpls_vpn_mib_vrf_complete_missing", "text_copy failed", kStatusNoMemory));
}

}  // namespace
