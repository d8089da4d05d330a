// The callbacks for changes of records and interfaces.
#include <cstddef>
#include <type_traits>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/attributes/record_test_support.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class RecordCallbacks : public VrfRecords {
 protected:
  // ge0 of the VRF "red" has an address.
  void AddGe0() {
    AddVrf("red");
    AddInterface("ge0", "red");
    AddAddress("ge0", "10.0.0.1/24");
    Run();
  }
};

TEST_F(RecordCallbacks, CreationIsPrintedAndChangesNothing) {
  OnlyArea(VTAB);
  AddVrf("red");
  Run();
  EXPECT_THAT(Prints(), ElementsAre("VTAB: VRF red Callback event create"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("VTAB: VRF red Callback event create"));
  EXPECT_EQ(AttributesOf("red")->creation_time, 0U);
}

TEST_F(RecordCallbacks, DeletionFreesTheTexts) {
  AddVrf("red");
  Run();
  OnlyArea(VTAB);
  FillAttributes(AttributesOf("red"));  // what is not freed is a leak that the sanitizer build reports
  DeleteVrf("red");
  Run();
  EXPECT_THAT(Prints(), ElementsAre("VTAB: VRF Callback event delete"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("VRF red: record deleted"));
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
}

TEST_F(RecordCallbacks, DeletionClearsTheTextsAndLeavesTheNumbers) {
  AddVrf("red");
  Run();
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  FillAttributes(attributes);
  DeleteVrf("red");
  {
    const ScopedFault fault("vtab_unlock_end_access_vrf_record", kStatusIo);  // keeps the record
    EXPECT_EQ(vrf_cb("red"), kStatusIo);
  }
  EXPECT_EQ(attributes->rd, nullptr);
  EXPECT_EQ(attributes->description, nullptr);
  for (unsigned family = 0; family < kMplsVpnFamilies; ++family) {
    EXPECT_EQ(attributes->import_route_policy[family], nullptr);
    EXPECT_EQ(attributes->export_route_policy[family], nullptr);
    EXPECT_EQ(attributes->flowspec_import_route_policy[family], nullptr);
    EXPECT_EQ(attributes->flowspec_export_route_policy[family], nullptr);
  }
  EXPECT_EQ(attributes->high_thresh, 1000U);
  EXPECT_EQ(attributes->creation_time, 5U);
}

TEST_F(RecordCallbacks, UpdateToAVrfThatExistsIsPrintedAndDoesNothingElse) {
  NameVrf("green");
  Run();
  OnlyArea(VTAB);
  AddVrf("green");
  FillAttributes(AttributesOf("green"));
  mpls_vpn_debug_flags[CHKPT].enabled.store(1);
  mpls_vpn_debug_flags[ERR].enabled.store(1);
  Run();
  EXPECT_THAT(Prints(), ElementsAre("VTAB: VRF Callback event update"));
  EXPECT_STREQ(AttributesOf("green")->description, "customer");
  EXPECT_EQ(AttributesOf("green")->creation_time, 5U);
  EXPECT_THAT(Traced("mpls_vpn/error"), IsEmpty());
}

// The update that takes a VRF's id away deletes its checkpoint record, because no deletion follows. The
// configuration keeps its texts, and the deletion of the name finds no record to report as missing.
TEST_F(RecordCallbacks, UpdateToAForwardReferenceDeletesTheCheckpointRecordOnce) {
  NameVrf("green");
  AddVrf("green");
  Connect();
  text_replace(&AttributesOf("green")->description, "customer");
  ASSERT_NE(AttributesOf("green")->chkpt_objid, 0U);
  OnlyArea(CHKPT);
  mpls_vpn_debug_flags[VTAB].enabled.store(1);
  mpls_vpn_debug_flags[ERR].enabled.store(1);
  ClearPrints();
  DeleteVrf("green");
  Run();
  EXPECT_THAT(Prints(),
              ElementsAre("VTAB: VRF Callback event update", StartsWith("Checkpoint delete VRF objid = ")));
  EXPECT_EQ(AttributesOf("green")->chkpt_objid, 0U);
  EXPECT_STREQ(AttributesOf("green")->description, "customer");
  EXPECT_THAT(Traced("mpls_vpn/error"), IsEmpty());
}

TEST_F(RecordCallbacks, VrfCallbackWhoseAccessFailsIsReported) {
  AddVrf("red");
  const ScopedFault fault("vtab_lock_begin_access_vrf_record", kStatusIo);
  EXPECT_EQ(vrf_cb("red"), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre(Failure("vrf_cb", "Error received from vtab_lock_begin_access_vrf_record",
                                            kStatusIo)));
  ExpectErrorTraced("vrf_cb: Error received from vtab_lock_begin_access_vrf_record", kStatusIo);
}

TEST_F(RecordCallbacks, VrfCallbackWithoutARecordDoesNotEndAnAccess) {
  fault_arm("vtab_unlock_end_access_vrf_record", kStatusIo, 1, 0);
  EXPECT_EQ(vrf_cb("nothing"), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("VRF Callback vrf_rec is NULL!!!"));
  ExpectErrorTraced("VRF Callback vrf_rec is NULL!!!", kStatusNoVrfRecord);
  EXPECT_EQ(fault_reached("vtab_unlock_end_access_vrf_record"), 0U);
}

TEST_F(RecordCallbacks, VrfCallbackThatCannotLockEndsTheAccess) {
  AddVrf("red");
  OnlyArea(DBASE);
  WithFault("pthread_mutex_lock", kStatusIo, [&] { EXPECT_EQ(vrf_cb("red"), kStatusOk); });
  EXPECT_THAT(Prints(), ElementsAre("Error (vrf_cb): pthread mutex lock failed"));
  DeleteVrf("red");
  OnlyArea(VTAB);
  EXPECT_EQ(vrf_cb("red"), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("VTAB: VRF Callback event delete"));
}

TEST_F(RecordCallbacks, VrfCallbackContinuesWhenItCannotUnlock) {
  AddVrf("red");
  OnlyArea(DBASE);
  WithFault("pthread_mutex_unlock", kStatusIo, [&] { EXPECT_EQ(vrf_cb("red"), kStatusOk); });
  EXPECT_THAT(Prints(), ElementsAre("Error (vrf_cb): pthread mutex unlock failed"));
  ReleaseMutex();
}

TEST_F(RecordCallbacks, VrfCallbackAnswersTheFailedEndOfItsAccess) {
  AddVrf("red");
  const ScopedFault fault("vtab_unlock_end_access_vrf_record", kStatusIo);
  EXPECT_EQ(vrf_cb("red"), kStatusIo);
  EXPECT_EQ(Prints().back(),
            Failure("vrf_cb", "Error received from vtab_lock_end_access_vrf_record", kStatusIo));
  ExpectErrorTraced("vrf_cb: Error received from vtab_lock_end_access_vrf_record", kStatusIo);
}

TEST_F(RecordCallbacks, InterfaceOfTheDefaultVrfIsIgnoredWithoutAPrint) {
  fault_arm("vtab_lock_begin_access_if_record", kStatusIo, 1, 0);
  const std::size_t traced = Traced("mpls_vpn/vtab").size();
  EXPECT_EQ(if_cb("ge0", "default"), kStatusOk);
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_EQ(Traced("mpls_vpn/vtab").size(), traced);
  EXPECT_THAT(Traced("mpls_vpn/error"), IsEmpty());
  EXPECT_EQ(fault_reached("vtab_lock_begin_access_if_record"), 0U);
}

TEST_F(RecordCallbacks, InterfaceOfAVrfWhoseNameBeginsLikeDefaultIsNotIgnored) {
  AddVrf("default1");
  AddVrf("defaul");
  AddInterface("ge0", "default1");
  AddInterface("ge1", "defaul");
  AddAddress("ge0", "10.0.0.1/24");
  AddAddress("ge1", "10.0.1.1/24");
  Run();
  LinkUp("ge0");
  LinkUp("ge1");
  Run();
  EXPECT_TRUE(Printed("VTAB: Interface ge0 Callback, vrf = default1"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("interface ge0 of VRF default1 is up"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("interface ge1 of VRF defaul is up"));
}

TEST_F(RecordCallbacks, InterfaceThatChangesIsPrintedAndItsDirectionTraced) {
  AddGe0();
  OnlyArea(VTAB);
  LinkUp("ge0");
  Run();
  LinkDown("ge0");
  Run();
  EXPECT_EQ(TimesPrinted("VTAB: Interface ge0 Callback, vrf = red"), 2U);
  const std::vector<std::string> traced = Traced("mpls_vpn/vtab");
  EXPECT_THAT(traced, Contains("interface ge0 of VRF red is up").Times(1));
  EXPECT_THAT(traced, Contains("interface ge0 of VRF red is down").Times(1));
  EXPECT_THAT(traced, Contains("callback of interface ge0").Times(2));
}

TEST_F(RecordCallbacks, FamilyThatIsUpOutweighsTheOneThatIsDown) {
  AddGe0();
  LinkUp("ge0");
  Run();
  SetOnlyAddress("ge0", "2001:db8::1/64");
  Run();
  const std::vector<std::string> traced = Traced("mpls_vpn/vtab");
  EXPECT_THAT(traced, Contains("interface ge0 of VRF red is up").Times(2));
  EXPECT_THAT(traced, Not(Contains("interface ge0 of VRF red is down")));
}

TEST_F(RecordCallbacks, InterfaceWithoutAChangeToReportHasNoRecord) {
  OnlyArea(ERR);
  fault_arm("vtab_unlock_end_access_if_record", kStatusIo, 1, 0);
  EXPECT_EQ(if_cb("ge0", "red"), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Could not find IF record 1898"));
  ExpectErrorTraced("Could not find IF record 1898", kStatusNoSuchRow);
  EXPECT_EQ(fault_reached("vtab_unlock_end_access_if_record"), 0U);
}

TEST_F(RecordCallbacks, InterfaceCallbackWhoseAccessFailsIsReported) {
  const ScopedFault fault("vtab_lock_begin_access_if_record", kStatusIo);
  EXPECT_EQ(if_cb("ge0", "red"), kStatusOk);
  EXPECT_EQ(Prints().back(),
            Failure("if_cb", "Error received from vtab_lock_begin_access_if_record", kStatusIo));
  ExpectErrorTraced("if_cb: Error received from vtab_lock_begin_access_if_record", kStatusIo);
}

TEST_F(RecordCallbacks, InterfaceCallbackThatCannotLockEndsTheAccess) {
  AddGe0();
  LinkUp("ge0");
  LinkDown("ge0");
  OnlyArea(DBASE);
  WithFault("pthread_mutex_lock", kStatusIo, [&] { EXPECT_EQ(if_cb("ge0", "red"), kStatusOk); });
  EXPECT_THAT(Prints(), ElementsAre("Error (if_cb): pthread mutex lock failed"));
  EXPECT_EQ(if_cb("ge0", "red"), kStatusOk);
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("interface ge0 of VRF red is down"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Not(Contains("interface ge0 of VRF red is up")));
}

TEST_F(RecordCallbacks, InterfaceCallbackContinuesWhenItCannotUnlock) {
  AddGe0();
  LinkUp("ge0");
  OnlyArea(DBASE);
  WithFault("pthread_mutex_unlock", kStatusIo, [&] { EXPECT_EQ(if_cb("ge0", "red"), kStatusOk); });
  EXPECT_THAT(Prints(), ElementsAre("Error (if_cb): pthread mutex unlock failed"));
  ReleaseMutex();
}

TEST_F(RecordCallbacks, InterfaceCallbackAnswersTheFailedEndOfItsAccess) {
  AddGe0();
  LinkUp("ge0");
  const ScopedFault fault("vtab_unlock_end_access_if_record", kStatusIo);
  EXPECT_EQ(if_cb("ge0", "red"), kStatusIo);
  EXPECT_EQ(Prints().back(),
            Failure("if_cb", "Error received from vtab_lock_end_access_if_record", kStatusIo));
  ExpectErrorTraced("if_cb: Error received from vtab_lock_end_access_if_record", kStatusIo);
}

TEST(InterfaceChange, OneStateUpCountsAsUpOtherwiseOneDownAsDown) {
  EXPECT_EQ(mpls_vpn_mib_if_change(1, 0), IfChange::kUp);
  EXPECT_EQ(mpls_vpn_mib_if_change(0, 1), IfChange::kUp);
  EXPECT_EQ(mpls_vpn_mib_if_change(2, 1), IfChange::kUp);
  EXPECT_EQ(mpls_vpn_mib_if_change(1, 2), IfChange::kUp);
  EXPECT_EQ(mpls_vpn_mib_if_change(2, 0), IfChange::kDown);
  EXPECT_EQ(mpls_vpn_mib_if_change(0, 2), IfChange::kDown);
  EXPECT_EQ(mpls_vpn_mib_if_change(2, 2), IfChange::kDown);
  EXPECT_EQ(mpls_vpn_mib_if_change(0, 0), IfChange::kNone);
  EXPECT_EQ(mpls_vpn_mib_if_change(7, 9), IfChange::kNone);
}

}  // namespace
