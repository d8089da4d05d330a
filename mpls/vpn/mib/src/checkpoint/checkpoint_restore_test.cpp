// The times after a restart of the daemon.
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint_test_support.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"
#include "platform/core/chkpt/chkpt.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using CheckpointRestore = VrfCheckpoint;

TEST_F(CheckpointRestore, TimesSurviveARestart) {
  const std::uint32_t id = SaveRed(CHKPT);
  PassSeconds(5);
  AddInterface("ge0", "red");
  Run();
  const std::uint64_t object_id = AttributesOf("red")->chkpt_objid;
  RestartDaemon([this] { PassSeconds(100); });
  EXPECT_EQ(TimesOf("red"), "+0, +5");
  EXPECT_EQ(AttributesOf("red")->chkpt_objid, object_id);
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +0, +5"));
}

TEST_F(CheckpointRestore, IsPrinted) {
  const std::uint32_t id = SaveRed(CHKPT);
  RestartDaemon();
  EXPECT_THAT(Prints(),
              ElementsAre("First run =0", "Restoring VRF data from chkpt",
                          "Read rec, key/vrf_id=" + Hex(id) +
                              ", creation_time = 1700000000, conf_last_changed_time = 0",
                          "Entering restore_vrf_data", "Done VRF, rec_cnt=1",
                          "Checkpoint found a total of 1 records. Good records = 1, stale record = 0."));
  OnlyArea(START);
  EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Restoring data from chkpt...", "...Restored data from chkpt"));
}

TEST_F(CheckpointRestore, RecordOfADeletedVrfIsDeletedAndCountedAsStale) {
  const std::uint32_t red = AddVrf("red");
  const std::uint32_t blue = AddVrf("blue");
  Connect();
  ClearPrints();
  RestartDaemon([this] { DeleteVrf("red"); });
  EXPECT_TRUE(Printed("Stale chkpt record for VRF with vrf_id=" + Hex(red) + "."));
  EXPECT_TRUE(Printed("Done VRF, rec_cnt=1"));
  EXPECT_TRUE(Printed("Checkpoint found a total of 2 records. Good records = 1, stale record = 1."));
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(blue) + ": +0, none"));
}

TEST_F(CheckpointRestore, RecordOfAnotherSizeIsDeletedAndCountedAsStale) {
  const std::uint32_t red = AddVrf("red");
  Connect();
  OnlyArea(ERR);
  RestartDaemon([this] {
    Write(900, "short");
    Write(901, "longer than it is");
    ClearPrints();
  });
  EXPECT_THAT(Prints(), ElementsAre("'VRF' rec_size mismatch, 5/8", "'VRF' rec_size mismatch, 17/8"));
  EXPECT_THAT(Traced("mpls_vpn/chkpt"),
              Contains("Checkpoint found a total of 3 records. Good records = 1, stale record = 2."));
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(red) + ": +0, none"));
}

TEST_F(CheckpointRestore, RecordOfAnotherSizeThatCannotBeDeletedIsReported) {
  OnlyArea(ERR);
  fault_arm("chkpt_delete", kStatusIo);
  RestartDaemon([this] { Write(900, "short"); });
  EXPECT_THAT(Prints(),
              ElementsAre("'VRF' rec_size mismatch, 5/8", Failure(kRestoreVrf, "chkpt_delete", kStatusIo)));
}

TEST_F(CheckpointRestore, FailedStartOfTheIterationIsReportedTwiceAndReturned) {
  OnlyArea(ERR);
  const ScopedFault fault("chkpt_iterate_start", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusIo);
  EXPECT_THAT(Prints(), ElementsAre(Failure(kRestoreVrf, "chkpt_iterate_start", kStatusIo),
                                    Failure("mpls_vpn_mib_chkpt_restore", kRestoreVrf, kStatusIo)));
}

TEST_F(CheckpointRestore, FailedFetchEndsTheLoopAndNotTheStart) {
  AddVrf("red");
  AddVrf("blue");
  Connect();
  ClearPrints();
  mpls_vpn_debug_flags[ERR].enabled.store(1);
  const ScopedFault fault("chkpt_iterate_next", kStatusIo, 2);
  EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusOk);
  EXPECT_TRUE(Printed(Failure(kRestoreVrf, "chkpt_iterate_next", kStatusIo)));
  EXPECT_THAT(Prints(), Not(Contains(testing::StartsWith("Done VRF"))));
  EXPECT_EQ(Prints().back(), "Checkpoint found a total of 1 records. Good records = 1, stale record = 0.");
}

TEST_F(CheckpointRestore, FailedEndOfTheIterationIsReportedAndNotReturned) {
  OnlyArea(ERR);
  const ScopedFault fault("chkpt_iterate_end", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre(Failure(kRestoreVrf, "chkpt_iterate_end", kStatusIo)));
}

// --- The scan of a later run

TEST_F(CheckpointRestore, ScanOfALaterRunNeitherStampsNorSaves) {
  SaveRed(CHKPT);
  RestartDaemon();
  PassSeconds(50);
  ClearPrints();
  backend_scan_in_progress = 1;
  update_vrf_last_changed("red");
  backend_scan_in_progress = 0;
  EXPECT_EQ(TimesOf("red"), "+0, none");
  EXPECT_THAT(Prints(), IsEmpty());
  update_vrf_last_changed("red");
  EXPECT_EQ(TimesOf("red"), "+0, +50");
}

TEST_F(CheckpointRestore, VrfCreatedAfterTheScanOfALaterRunIsSaved) {
  const std::uint32_t red = SaveRed(CHKPT);
  RestartDaemon();
  PassSeconds(30);
  const std::uint32_t blue = AddVrf("blue");
  Run();
  EXPECT_THAT(Stored(),
              ElementsAre(std::to_string(red) + ": +0, none", std::to_string(blue) + ": +30, none"));
}

TEST_F(CheckpointRestore, VrfCreatedWhileTheDaemonWasDownKeepsItsFirstTimeFromThenOn) {
  const std::uint32_t red = AddVrf("red");
  Connect();
  std::uint32_t id = 0;
  RestartDaemon([&] {
    PassSeconds(20);
    id = AddVrf("late");
  });
  EXPECT_EQ(TimesOf("late"), "+20, none");
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(red) + ": +0, none", std::to_string(id) + ": +20, none"));
  RestartDaemon([this] { PassSeconds(100); });
  EXPECT_EQ(TimesOf("late"), "+20, none");
}

TEST_F(CheckpointRestore, VrfsCreatedAfterARunWithoutVrfsAreSavedWhenTheyAreAnnounced) {
  Connect();
  std::uint32_t id = 0;
  RestartDaemon([&] {
    PassSeconds(20);
    id = AddVrf("late");
    AddInterface("ge0", "late");
    ClearPrints();
  });
  EXPECT_TRUE(Printed("First run =1"));
  EXPECT_FALSE(Printed("Restoring VRF data from chkpt"));
  // One save by the announcement and one by the interface; none that the start makes afterwards.
  const std::string saved =
      "Checkpoint save VRF late, vrf_id = " + Hex(id) + ", creation_time = 1700000020, ";
  EXPECT_TRUE(Printed(saved + "conf_last_changed_time = 0"));
  EXPECT_EQ(TimesPrinted(saved + "conf_last_changed_time = 1700000020"), 1U);
  EXPECT_EQ(TimesOf("late"), "+20, +20");
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(id) + ": +20, +20"));
}

TEST_F(CheckpointRestore, RecordsThatAFailedFetchLeftUnreadKeepTheirTimes) {
  const std::uint32_t red = AddVrf("red");
  const std::uint32_t blue = AddVrf("blue");
  Connect();
  RestartDaemon([this] {
    PassSeconds(100);
    fault_arm("chkpt_iterate_next", kStatusIo, 2);
  });
  EXPECT_EQ(TimesOf("red"), "+0, none");
  EXPECT_EQ(TimesOf("blue"), "+100, none");
  fault_disarm_all();
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(red) + ": +0, none", std::to_string(blue) + ": +0, none"));
}

TEST_F(CheckpointRestore, MissingRecordThatCannotBeSavedIsReported) {
  SaveRed();
  RestartDaemon([this] {
    AddVrf("late");
    fault_arm("chkpt_create", kStatusIo);
  });
  EXPECT_THAT(Prints(),
              ElementsAre(Failure(kAdd, "chkpt_create", kStatusIo), "Could not checkpoint VRF late "));
}

TEST_F(CheckpointRestore, ForwardReferencesAndTheDefaultVrfGetNoRecord) {
  NameVrf("green");
  const std::uint32_t red = SaveRed(CHKPT);
  RestartDaemon();
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("default"), nullptr);
  EXPECT_THAT(Stored(), ElementsAre(std::to_string(red) + ": +0, none"));
}

}  // namespace
