// The connection to the membership service: registration, opening, closing, and which items are for us.
#include "mpls/vpn/mib/src/membership/connection.h"

#include "mpls/vpn/mib/src/membership/membership_test_support.h"
#include "platform/router/vmap/service.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

class MembershipConnection : public Membership {
 protected:
  static std::string OpenFailure(const char* step, Status status) {
    return Failure("connection_manager_open_handler", step, status);
  }
  // The service fails at a change, and then refuses to bind until faults are disarmed.
  void LoseConnection() {
    fault_arm("vmap_service", kStatusUnavailable, 1, 0);
    AddInterface("trigger", "none");
    RemoveInterface("trigger");
    Run();
  }
  static VrfNode* CreateVrfUnderTheMutex(const char* name) MPLS_NO_THREAD_SAFETY_ANALYSIS {
    return mpls_vpn_mib_create_vrf_wavl_node(name, get_vrf_record(name));
  }
  static void VrfEvent(VmapEvent event, const char* name, std::uint32_t flags) {
    const VmapVrfItem item{name, 9, 4, flags, nullptr};
    vrf_reg_cb_func(nullptr, event, &item);
  }
  static void IntfEvent(VmapEvent event, std::uint32_t handle, std::uint32_t flags) {
    const VmapIntfItem item{handle, "red", 9, flags, nullptr};
    intf_reg_cb_func(nullptr, event, &item);
  }
};

// A client of the test's own, which the handlers open and close.
class MembershipOpen : public MembershipConnection {
 protected:
  void SetUp() override {
    MembershipConnection::SetUp();
    const auto ignored = [](void*) { return 1; };
    ASSERT_EQ(vmap_c_lib_init("test", manager_, ignored, &client_), kStatusOk);
    ClearPrints();
  }
  void TearDown() override {
    vmap_c_lib_end(client_);
    MembershipConnection::TearDown();
  }
  int Open() { return connection_manager_open_handler(client_, manager_); }
  Status Close() { return connection_manager_close_handler(client_); }
  VmapClient* client_ = nullptr;
};

using MembershipItems = MembershipConnection;

}  // namespace

TEST_F(MembershipConnection, WhatExistsIsInTheDatabasesWhenRegistrationReturns) {
  AddVrf("blue");
  AddVrf("red");
  AddInterface("ge0", "red");
  AddInterface("free");
  ASSERT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusOk);
  EXPECT_THAT(VrfNames(), ElementsAre("red", "blue"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_THAT(Prints(), Contains(MatchesRegex("In connection_manager_open_handler, connection established: "
                                              "fd = [0-9]+, num_results = 3")));
}

TEST_F(MembershipConnection, ChangesFollowLive) {
  Connect();
  AddVrf("red");
  AddInterface("ge0", "red");
  Run();
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
  EXPECT_EQ(Nodes(), 1U);
  RemoveInterface("ge0");
  DeleteVrf("red");
  Run();
  EXPECT_THAT(VrfNames(), IsEmpty());
  EXPECT_EQ(Nodes(), 0U);
}

TEST_F(MembershipConnection, ClientHasItsNameAndItsTypeOfDatabase) {
  Connect();
  ASSERT_NE(vmap::service().client, nullptr);
  const VmapClient& client = *vmap::service().client;
  EXPECT_EQ(client.name, "mpls_vpn");
  ASSERT_TRUE(client.is_registered);
  EXPECT_EQ(client.database->type, 2U);
}

TEST_F(MembershipConnection, LiveJoinsComeFortyAtATime) {
  AddVrf("red");
  Connect();
  for (int n = 1; n <= 41; ++n) AddInterface("ge" + std::to_string(n), "red");
  ASSERT_EQ(Nodes(), 0U);
  std::vector<std::uint32_t> seen;  // noted by another event, which is dispatched before each delivery
  std::function<void()> look = [&] {
    seen.push_back(Nodes());
    if (seen.size() < 3) event_post(manager_, look);
  };
  event_post(manager_, look);
  Run();
  EXPECT_THAT(seen, ElementsAre(0U, 40U, 41U));
}

TEST_F(MembershipConnection, FailedStepOfTheRegistrationIsItsResult) {
  for (const char* step : {"vmap_c_lib_init", "event_conn_create", "event_conn_notify", "event_conn_open"}) {
    const ScopedFault fault(step, kStatusIo);
    ClearPrints();
    EXPECT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusIo) << step;
    EXPECT_THAT(Prints(),
                ElementsAre(Failure("mpls_vpn_mib_vmap_register_for_notification", step, kStatusIo)));
    mpls_vpn_mib_vmap_end();
  }
}

TEST_F(MembershipConnection, ServiceThatIsNotThereYetDoesNotFailTheRegistration) {
  fault_arm("vmap_service", kStatusUnavailable, 1, 0);
  EXPECT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusOk);
  EXPECT_THAT(Prints(),
              ElementsAre(OpenFailure("vmap_c_bind", kStatusUnavailable), "retry connection open with VMAP"));
  AddVrf("red");
  fault_disarm_all();
  PassSeconds(1);
  Run();
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
}

TEST_F(MembershipConnection, DroppedConnectionKeepsTheDatabasesAndIsOpenedAgain) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  LoseConnection();
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
  EXPECT_EQ(Nodes(), 1U);
  const std::uint32_t changed = AttributesOf("red")->conf_last_changed_time;
  AddVrf("blue");
  fault_disarm_all();
  PassSeconds(1);
  Run();
  EXPECT_THAT(VrfNames(), ElementsAre("red", "blue"));
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, changed) << "a repeated join changes nothing";
}

TEST_F(MembershipConnection, WhatWasRemovedWhileTheConnectionWasDownIsRemovedAfterItsReturn) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  LoseConnection();
  RemoveInterface("ge0");
  DeleteVrf("red");
  Run();
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
  fault_disarm_all();
  PassSeconds(1);
  Run();
  EXPECT_THAT(VrfNames(), IsEmpty());
  EXPECT_EQ(Nodes(), 0U);
}

TEST_F(MembershipConnection, CloseHandlerUnbinds) {
  Connect();
  fault_arm("vmap_c_unbind", kStatusIo, 2);  // counts
  LoseConnection();
  EXPECT_EQ(fault_reached("vmap_c_unbind"), 1U);
}

TEST_F(MembershipOpen, CloseAnswersTheUnbind) {
  EXPECT_EQ(Close(), kStatusNotConnected);
  EXPECT_GE(Open(), 0);
  EXPECT_EQ(Close(), kStatusOk);
}

TEST_F(MembershipOpen, WithoutAClientIsReported) {
  EXPECT_EQ(connection_manager_open_handler(nullptr, manager_), -1);
  EXPECT_THAT(Prints(), ElementsAre(OpenFailure("vmap_handle", kStatusInvalid)));
}

TEST_F(MembershipOpen, FailedBindHasNothingToUndo) {
  fault_arm("vmap_c_bind", kStatusIo);
  fault_arm("vmap_c_unbind", kStatusIo, 100);  // counts
  EXPECT_EQ(Open(), -1);
  EXPECT_EQ(fault_reached("vmap_c_unbind"), 0U);
  EXPECT_THAT(Prints(), ElementsAre(OpenFailure("vmap_c_bind", kStatusIo)));
}

TEST_F(MembershipOpen, EachLaterStepThatFailsUnbindsAndAnswersMinusOne) {
  AddVrf("red");
  const char* const steps[] = {"vmap_c_mdb_init", "vmap_c_mdb_add_intf_all", "vmap_c_mdb_add_vrf_all",
                               "vmap_c_notif_reg"};
  for (const char* const& step : steps) {
    // The later ones would fail, too: the first is what is said.
    for (const char* const* failing = &step; failing != std::end(steps); ++failing)
      fault_arm(*failing, kStatusIo);
    fault_arm("vmap_c_unbind", kStatusIo, 100);  // counts
    ClearPrints();
    EXPECT_EQ(Open(), -1) << step;
    EXPECT_THAT(Prints(), ElementsAre(OpenFailure(step, kStatusIo)));
    EXPECT_EQ(fault_reached("vmap_c_unbind"), 1U) << step;
    fault_disarm_all();
  }
  EXPECT_THAT(VrfNames(), IsEmpty());
  EXPECT_GE(Open(), 0) << "nothing was left bound";
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
}

TEST_F(MembershipOpen, FailedStepFreesTheMemberDatabaseWhateverTheUnbindDoes) {
  for (const char* step : {"vmap_c_mdb_add_intf_all", "vmap_c_mdb_add_vrf_all", "vmap_c_notif_reg"}) {
    fault_arm(step, kStatusIo);
    fault_arm("vmap_c_unbind", kStatusIo);
    EXPECT_EQ(Open(), -1) << step;
    fault_disarm_all();
    EXPECT_EQ(client_->database, nullptr) << step;
    EXPECT_EQ(vmap_c_unbind(client_), kStatusOk) << step;
  }
}

TEST_F(MembershipOpen, UnbindThatFailsWhileUndoingIsTraced) {
  fault_arm("vmap_c_mdb_init", kStatusIo);
  fault_arm("vmap_c_unbind", kStatusAccess);
  EXPECT_EQ(Open(), -1);
  ExpectErrorTraced("connection_manager_open_handler: vmap_c_unbind", kStatusAccess);
}

TEST_F(MembershipItems, EachMessageIsPrintedUnderItsArea) {
  const std::string vrf = ", flags: 0x0, attr: (nil)";
  ExpectUnder(VMAP, "VMAP Callback VRF Delete CB: vrf_name: 'red', vrf_id: 0x9, vr_id: 0x4" + vrf,
              [] { VrfEvent(VmapEvent::kDelete, "red", 0); });
  ExpectUnder(VMAP, "VMAP Callback INTF Delete CB: ifh: 0xdead, vrf_id: 0x9" + vrf,
              [] { IntfEvent(VmapEvent::kDelete, 0xdead, 0); });
  ExpectUnder(VMAP, "vrf_reg_cb_func invoked with NULL item",
              [] { vrf_reg_cb_func(nullptr, VmapEvent::kUpdate, nullptr); });
  ExpectUnder(VMAP, "intf_reg_cb_func invoked with NULL item",
              [] { intf_reg_cb_func(nullptr, VmapEvent::kUpdate, nullptr); });
  ExpectUnder(ERR, "Error (vrf_reg_cb_func): pthread mutex lock failed", [] {
    WithFault("pthread_mutex_lock", kStatusIo, [] { VrfEvent(VmapEvent::kUpdate, "red", 0); });
  });
}

TEST_F(MembershipConnection, EachMessageIsPrintedUnderItsArea) {
  const auto connect = [this] {
    mpls_vpn_mib_vmap_end();
    EXPECT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusOk);
  };
  connect();
  OnlyArea(VMAP);
  connect();
  EXPECT_THAT(Prints(),
              Contains(MatchesRegex("In connection_manager_open_handler, connection established: .*")));
  mpls_vpn_mib_vmap_end();
  fault_arm("vmap_service", kStatusUnavailable, 1, 0);
  ExpectUnder(VMAP, "retry connection open with VMAP", connect);
  ExpectUnder(ERR, OpenFailure("vmap_c_bind", kStatusUnavailable), connect);
  ExpectUnder(ERR, Failure("connection_manager_close_handler", "vmap_close_handler", kStatusInvalid),
              [] { EXPECT_EQ(connection_manager_close_handler(nullptr), kStatusInvalid); });
}

TEST_F(MembershipItems, VrfNamedDefaultIsIgnoredAndOneThatBeginsWithItIsNot) {
  VrfEvent(VmapEvent::kUpdate, "default", 0);
  EXPECT_THAT(VrfNames(), IsEmpty());
  EXPECT_TRUE(
      Printed("VMAP Callback VRF Update CB: vrf_name: 'default', vrf_id: 0x9, vr_id: 0x4, flags: 0x0, attr: "
              "(nil)"));
  VrfEvent(VmapEvent::kUpdate, "default1", 0);
  EXPECT_THAT(VrfNames(), ElementsAre("default1"));
}

TEST_F(MembershipItems, VrfWithFlagEightIsIgnored) {
  for (const std::uint32_t flags : {0x8U, 0xaU, 0xfU}) VrfEvent(VmapEvent::kUpdate, "red", flags);
  EXPECT_THAT(VrfNames(), IsEmpty());
}

TEST_F(MembershipItems, VrfWithFlagTwoIsProcessedAndItsRecordMarked) {
  VrfEvent(VmapEvent::kUpdate, "red", 0x2);
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
  EXPECT_EQ(AttributesOf("red")->is_big_vrf, 1U);
}

TEST_F(MembershipItems, DeletionsThatAreNotForUsAreIgnoredToo) {
  VrfEvent(VmapEvent::kUpdate, "red", 0);
  VrfEvent(VmapEvent::kDelete, "red", 0x8);
  EXPECT_THAT(VrfNames(), ElementsAre("red"));
  EXPECT_FALSE(Printed("VMAP: VRF red deleted"));
  TakeMutex();
  const VrfNode* node = CreateVrfUnderTheMutex("default");
  ReleaseMutex();
  ASSERT_NE(node, nullptr);
  VrfEvent(VmapEvent::kDelete, "default", 0);
  EXPECT_THAT(VrfNames(), ElementsAre("red", "default"));
  const std::uint32_t handle = AddInterface("ge0");
  IntfEvent(VmapEvent::kUpdate, handle, 0);
  for (const std::uint32_t flags : {0x2U, 0x4U, 0x6U}) IntfEvent(VmapEvent::kDelete, handle, flags);
  EXPECT_EQ(Nodes(), 1U);
}

TEST_F(MembershipItems, VrfHandlersRunUnderTheMutex) {
  TakeMutex();
  VrfEvent(VmapEvent::kUpdate, "red", 0);
  ReleaseMutex();
  EXPECT_EQ(Prints().back(), "Error (vrf_reg_cb_func): pthread mutex lock failed");
  EXPECT_THAT(VrfNames(), IsEmpty());
  for (const VmapEvent event : {VmapEvent::kUpdate, VmapEvent::kDelete}) {
    OnlyArea(ERR);
    mpls_vpn_debug_flags[VMAP].enabled.store(1);
    // The report says when the mutex is released.
    WithFault("pthread_mutex_unlock", kStatusIo, [&] { VrfEvent(event, "red", 0); });
    ReleaseMutex();
    ASSERT_EQ(Prints().size(), 3U);
    EXPECT_EQ(Prints()[1], event == VmapEvent::kUpdate ? "VMAP: VRF red created" : "VMAP: VRF red deleted");
    EXPECT_EQ(Prints()[2], "Error (vrf_reg_cb_func): pthread mutex unlock failed");
  }
}

TEST_F(MembershipItems, InterfaceWithFlagTwoOrFourIsIgnored) {
  for (const std::uint32_t flags : {0x2U, 0x4U, 0x6U, 0xfU}) IntfEvent(VmapEvent::kUpdate, 0x10, flags);
  EXPECT_EQ(Nodes(), 0U);
  EXPECT_TRUE(Printed("VMAP Callback INTF Update CB: ifh: 0x10, vrf_id: 0x9, flags: 0x2, attr: (nil)"));
}

TEST_F(MembershipItems, InterfaceWithFlagOneOrEightIsProcessed) {
  IntfEvent(VmapEvent::kUpdate, AddInterface("ge0"), 0x1);
  IntfEvent(VmapEvent::kUpdate, AddInterface("ge1"), 0x8);
  EXPECT_EQ(Nodes(), 2U);
  ClearPrints();
  IntfEvent(VmapEvent::kDelete, HandleOf("ge0"), 0x9);
  EXPECT_EQ(Nodes(), 1U);
  EXPECT_EQ(Prints().front(), "VMAP Callback INTF Delete CB: ifh: " + Hex(HandleOf("ge0")) +
                                  ", vrf_id: 0x9, flags: 0x9, attr: (nil)");
}
