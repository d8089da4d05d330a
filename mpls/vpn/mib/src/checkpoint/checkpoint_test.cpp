// The times of VRFs across restarts of the daemon.
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"

#include "mpls/vpn/mib/src/checkpoint/checkpoint_test_support.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"
#include "platform/core/chkpt/chkpt.h"

// --wrap in the build file puts these in the place of the store's: some of the values change nothing that a
// caller sees.
Status real_register(
    const ChkptTableDescriptor* descriptor, std::uint32_t table_id, ChkptTable** table,
    bool* had_contents) __asm__("__real__Z14chkpt_registerPK20ChkptTableDescriptorjPP10ChkptTablePb");
Status noted_register(
    const ChkptTableDescriptor* descriptor, std::uint32_t table_id, ChkptTable** table,
    bool* had_contents) __asm__("__wrap__Z14chkpt_registerPK20ChkptTableDescriptorjPP10ChkptTablePb");

namespace {

ChkptTableDescriptor registered_descriptor{};
std::uint32_t registered_table = 0;

}  // namespace

Status noted_register(const ChkptTableDescriptor* descriptor, std::uint32_t table_id, ChkptTable** table,
                      bool* had_contents) {
  registered_descriptor = *descriptor;
  registered_table = table_id;
  return real_register(descriptor, table_id, table, had_contents);
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using CheckpointInit = VrfCheckpoint;
using CheckpointSave = VrfCheckpoint;
using CheckpointDelete = VrfCheckpoint;

}  // namespace

// --- A full disk

TEST_F(CheckpointSave, VrfThatIsCreatedWhileTheDiskIsFullIsStoredOnceItIsNot) {
  const std::uint32_t red = SaveRed();
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  PassSeconds(2);
  fault_arm("chkpt_flush", ENOSPC, 1, 1);
  ASSERT_EQ(Save("red"), kStatusOk);
  EXPECT_EQ(chkpt_flush(), ENOSPC);
  const std::uint32_t blue = AddVrf("blue");
  event_run_pending(manager_);
  PassSeconds(2);
  for (int i = 0; i < 50; ++i) event_run_pending(manager_, kNanosecondsPerMillisecond);
  ASSERT_EQ(chkpt_flush(), kStatusOk);
  EXPECT_THAT(Stored(), testing::SizeIs(2)) << red << " and " << blue << " " << TimesOf("blue");
}

// --- Init

TEST_F(CheckpointInit, FirstRunDiffersFromALaterOne) {
  EXPECT_EQ(mpls_vpn_mib_chkpt_first_run(), 1U);
  SaveRed(CHKPT);
  mpls_vpn_mib_chkpt_end();
  ClearPrints();
  ASSERT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusOk);
  EXPECT_EQ(mpls_vpn_mib_chkpt_first_run(), 0U);
  EXPECT_THAT(Prints(), ElementsAre("First run =0"));
  EXPECT_EQ(Traced("mpls_vpn/chkpt").front(), "First run =1");
  EXPECT_EQ(Traced("mpls_vpn/chkpt").back(), "First run =0");
}

TEST_F(CheckpointInit, RunAfterOneThatLeftNoRecordsIsAFirstRun) {
  SaveRed(CHKPT);
  DeleteVrf("red");
  Run();
  mpls_vpn_mib_chkpt_end();
  ClearPrints();
  ASSERT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusOk);
  EXPECT_EQ(mpls_vpn_mib_chkpt_first_run(), 1U);
  EXPECT_THAT(Prints(), ElementsAre("First run =1"));
}

TEST_F(CheckpointInit, RegistersItsTableWithTheValuesOfTheStore) {
  EXPECT_EQ(registered_descriptor.key_kind, 1U);
  EXPECT_EQ(registered_descriptor.versioned, 1U);
  EXPECT_EQ(registered_descriptor.record_size, kTimesSize);
  EXPECT_EQ(registered_descriptor.persistent, 1U);
  EXPECT_EQ(registered_descriptor.reserved, 0U);
  EXPECT_EQ(registered_table, 100U);
}

TEST_F(CheckpointInit, IsPrintedAtStart) {
  mpls_vpn_mib_chkpt_end();
  OnlyArea(START);
  ASSERT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Chkpt init"));
}

TEST_F(CheckpointInit, FailedStepIsReportedAndReturned) {
  for (const char* step : {"chkpt_init", "chkpt_register"}) {
    mpls_vpn_mib_chkpt_end();
    OnlyArea(ERR);
    const ScopedFault fault(step, kStatusIo);
    EXPECT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusIo);
    EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_chkpt_init", step, kStatusIo)));
    ExpectErrorTraced(std::string("mpls_vpn_mib_chkpt_init: ") + step, kStatusIo);
  }
}

// --- Save

TEST_F(CheckpointSave, CreatedVrfHasARecordFromItsCreationOn) {
  const std::uint32_t id = AddVrf("red");
  Connect();
  EXPECT_NE(AttributesOf("red")->chkpt_objid, 0U);
  EXPECT_THAT(Prints(), ElementsAre("Checkpoint save VRF red, vrf_id = " + Hex(id) +
                                        ", creation_time = 1700000000, conf_last_changed_time = 0",
                                    "Created new chkpt ObjId = " +
                                        Hex(static_cast<std::uint32_t>(AttributesOf("red")->chkpt_objid))));
  EXPECT_THAT(Traced("mpls_vpn/chkpt"), Contains(Prints().front()));
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, none"));
}

TEST_F(CheckpointSave, SavingAVrfTwiceUsesOneRecord) {
  const std::uint32_t id = AddVrf("red");
  Connect();
  const std::uint64_t object_id = AttributesOf("red")->chkpt_objid;
  AttributesOf("red")->conf_last_changed_time = kStartSeconds + 9;
  AttributesOf("red")->chkpt_objid = 0;  // the key finds it
  ClearPrints();
  EXPECT_EQ(Save("red"), kStatusOk);
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, object_id);
  EXPECT_THAT(Prints(), ElementsAre("Checkpoint save VRF red, vrf_id = " + Hex(id) +
                                    ", creation_time = 1700000000, conf_last_changed_time = 1700000009"));
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, +9"));
}

TEST_F(CheckpointSave, EveryChangeOfTheLastChangedTimeIsSaved) {
  const std::uint32_t id = SaveRed(CHKPT);
  PassSeconds(5);
  AddInterface("ge0", "red");
  Run();
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, +5"));
  PassSeconds(5);
  Leave("ge0");
  Run();
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, +10"));
}

TEST_F(CheckpointSave, VrfThatTakesOverAnIdInTheSameMomentHasTheOnlyRecord) {
  const std::uint32_t id = SaveRed(CHKPT);
  PassSeconds(7);
  router::Vrf renamed = *router_.find_vrf("red");
  renamed.name = "blue";
  DeleteVrf("red");
  ASSERT_EQ(router_.create_vrf(renamed), kStatusOk);
  Run();
  EXPECT_NE(AttributesOf("blue")->chkpt_objid, 0U);
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +7, none"));
  OnlyArea(ERR);
  DeleteVrf("blue");
  Run();
  EXPECT_THAT(Prints(), IsEmpty()) << "its block knows the record";
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(CheckpointSave, NamedVrfThatIsCreatedAgainInTheSameMomentHasTheOnlyRecord) {
  NameVrf("red");
  SaveRed(CHKPT);
  PassSeconds(7);
  const router::Vrf red = *router_.find_vrf("red");
  DeleteVrf("red");
  ASSERT_EQ(router_.create_vrf(red), kStatusOk);
  Run();
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(red.id) + ": +7, none"));
}

TEST_F(CheckpointSave, TimesAfterTheYear2038AreShownAsSignedNumbers) {
  SaveRed(CHKPT);
  AttributesOf("red")->creation_time = 0xffffffff;
  ClearPrints();
  EXPECT_EQ(Save("red"), kStatusOk);
  EXPECT_THAT(Prints().front(), testing::HasSubstr("creation_time = -1,"));
}

TEST_F(CheckpointSave, ForwardReferenceIsStampedAndNotSaved) {
  NameVrf("green");
  Connect();
  ClearPrints();
  update_vrf_last_changed("green");
  EXPECT_EQ(AttributesOf("green")->conf_last_changed_time, Now());
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(CheckpointSave, TimeOfAForwardReferenceIsSavedWithTheVrfsId) {
  NameVrf("red");
  Connect();
  PassSeconds(5);
  update_vrf_last_changed("red");
  EXPECT_THAT(Stored(), IsEmpty());
  PassSeconds(2);
  const std::uint32_t id = AddVrf("red");
  Run();
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +7, +5"));
}

TEST_F(CheckpointSave, RecordSurvivesAChangeOfTheVrfsTables) {
  const std::uint32_t id = SaveRed(CHKPT);
  mpls_vpn_debug_flags[VTAB].enabled.store(1);
  const std::uint64_t object_id = AttributesOf("red")->chkpt_objid;
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.ipv4_table = 777;
  ASSERT_EQ(router_.change_vrf(vrf), kStatusOk);
  ClearPrints();
  Run();
  EXPECT_THAT(Prints(), ElementsAre("VTAB: VRF Callback event update"));
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, object_id);
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, none"));
}

TEST_F(CheckpointSave, FailedMappingSavesNothing) {
  AddVrf("red");
  Connect();
  for (const Status status : {kStatusChkptMapping, kStatusIo}) {
    OnlyArea(ERR);
    fault_arm("chkpt_save", kStatusIo, 100);
    fault_arm("chkpt_create", kStatusIo, 100);
    fault_arm("chkpt_mapkey", status);
    EXPECT_EQ(Save("red"), status);
    EXPECT_THAT(Prints(), ElementsAre(Failure(kAdd, "chkpt_mapkey", status)));
    EXPECT_EQ(fault_reached("chkpt_save"), 0U);
    EXPECT_EQ(fault_reached("chkpt_create"), 0U);
    fault_disarm_all();
  }
}

TEST_F(CheckpointSave, FailedCreationIsReportedAndTheVrfHasNoRecord) {
  AddVrf("red");
  OnlyArea(ERR);
  fault_arm("chkpt_create", kStatusIo);
  Connect();
  EXPECT_THAT(Prints(),
              ElementsAre(Failure(kAdd, "chkpt_create", kStatusIo), "Could not checkpoint VRF red "));
  ExpectErrorTraced("Could not checkpoint VRF red ", kStatusIo);
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, 0U);
  EXPECT_NE(mpls_vpn_mib_get_vrf_node(true, "red"), nullptr);
}

TEST_F(CheckpointSave, FailedSaveOfAStampKeepsTheNewTimeInMemory) {
  SaveRed();
  PassSeconds(7);
  WithFault("chkpt_save", kStatusIo, [&] { update_vrf_last_changed("red"); });
  EXPECT_THAT(Prints(), ElementsAre(Failure(kAdd, "chkpt_save", kStatusIo),
                                    "Could not update timestamp in checkpointed data for VRF red"));
  Status code = kStatusOk;
  Traced("mpls_vpn/error", &code);
  EXPECT_EQ(code, kStatusIo);
  EXPECT_EQ(TimesOf("red"), "+0, +7");
}

// --- Delete

TEST_F(CheckpointDelete, DeletedVrfLosesItsRecord) {
  AddVrf("red");
  const std::uint32_t blue = AddVrf("blue");
  Connect();
  const auto object_id = static_cast<std::uint32_t>(AttributesOf("red")->chkpt_objid);
  ClearPrints();
  DeleteVrf("red");
  Run();
  EXPECT_THAT(Prints(), ElementsAre("Checkpoint delete VRF objid = " + Hex(object_id) +
                                    ", creation_time = 1700000000, conf_last_changed_time = 0"));
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(blue) + ": +0, none"));
}

TEST_F(CheckpointDelete, VrfThatWasNeverSavedIsReportedWithoutFailure) {
  AddVrf("red");
  OnlyArea(ERR);
  EXPECT_EQ(Delete("red"), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Attempt to delete from checkpoint with NULL objid"));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("Attempt to delete from checkpoint with NULL objid"));
}

TEST_F(CheckpointDelete, FailureIsReportedAndReturnedAndTheRecordRetained) {
  SaveRed();
  const std::uint64_t object_id = AttributesOf("red")->chkpt_objid;
  WithFault("chkpt_delete", kStatusIo, [&] { EXPECT_EQ(Delete("red"), kStatusIo); });
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_chkpt_gen_delete", "chkpt_delete", kStatusIo)));
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, object_id);
  EXPECT_EQ(Delete("red"), kStatusOk);
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, 0U);
}

TEST_F(CheckpointDelete, DeletionEventFreesTheTextsEvenWhenTheCheckpointDeleteFails) {
  AddVrf("red");
  Connect();
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  char** texts[] = {&attributes->rd,
                    &attributes->description,
                    &attributes->import_route_policy[0],
                    &attributes->import_route_policy[1],
                    &attributes->export_route_policy[0],
                    &attributes->export_route_policy[1]};
  for (char** text : texts) text_replace(text, "customer");
  OnlyArea(ERR);
  fault_arm("chkpt_delete", kStatusIo);
  fault_arm("vtab_unlock_end_access_vrf_record", kStatusIo);
  DeleteVrf("red");
  EXPECT_EQ(vrf_cb("red"), kStatusIo);
  for (char* const* text : texts) EXPECT_EQ(*text, nullptr);
  ASSERT_GE(Prints().size(), 2U);
  EXPECT_EQ(Prints()[0], Failure("mpls_vpn_mib_chkpt_gen_delete", "chkpt_delete", kStatusIo));
  EXPECT_EQ(Prints()[1], "Could not delete VRF from checkpoint VRF");
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains("Could not delete VRF from checkpoint VRF"));
}

// --- Restore
