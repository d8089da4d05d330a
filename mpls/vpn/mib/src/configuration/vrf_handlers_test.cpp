// Route targets, route distinguishers and descriptions from configuration.
#include <utility>

#include "mpls/vpn/mib/src/configuration/vrf_handlers_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// --- Route targets

class RouteTargets : public VrfConfiguration {};

TEST_F(RouteTargets, ImportAndExportAreStoredByTypeAndStampTheChange) {
  OnlyArea(VTAB);
  SetText(import_path("red"), "");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), ElementsAre("notify for RT change on VRF red, event 3"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("notify for RT change on VRF red, event 3"));
  PassSeconds(3);
  SetText(export_path("red"), "");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1", "export 10.0.0.1:5 1/1"));
}

TEST_F(RouteTargets, DeletionTakesTheEqualOneAndStampsTheChange) {
  SetText(import_path("red"), "");
  SetText(import_path("red", 2), "");
  PassSeconds(3);
  OnlyArea(VTAB);
  Delete(import_path("red"));
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 2/1"));
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), ElementsAre("notify for RT change on VRF red, event 4"));
}

TEST_F(RouteTargets, SetForAnUnknownVrfInsertsItAndStampsAForwardReferenceWithoutACheckpoint) {
  SetText(import_path("blue"), "");
  EXPECT_THAT(TargetsOf("blue"), ElementsAre("import 65000:100 1/1"));
  ExpectForwardReferenceStampedButNotCheckpointed("blue");
}

TEST_F(RouteTargets, DuplicateIsReportedAndStillStampsTheChange) {
  SetText(import_path("red"), "");
  PassSeconds(3);
  OnlyArea(VTAB);
  SetText(import_path("red"), "");
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1"));
  EXPECT_THAT(Prints(), ElementsAre("notify for RT change on VRF red, event 2",
                                    "Could not insert RT in the WAVL tree"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("Could not insert RT in the WAVL tree"));
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(RouteTargets, NodeThatCannotBeMadeIsReportedAndTheRecordIsStamped) {
  const ScopedFault fault("calloc_tagged:RT node", kStatusNoMemory);
  SetText(import_path("blue"), "");
  EXPECT_TRUE(Printed("Could not insert RT in the WAVL tree"));
  EXPECT_THAT(TargetsOf("blue"), IsEmpty());
  ExpectForwardReferenceStampedButNotCheckpointed("blue");
}

TEST_F(RouteTargets, DeletionOfAnAbsentEntryIsReportedAndStampsTheChange) {
  SetText(import_path("red"), "");
  ASSERT_EQ(mpls_vpn_mib_delete_rt_wavl_node("red", kRtImport, "65000:100", 1, 1), 1);
  PassSeconds(3);
  OnlyArea(VTAB);
  Delete(import_path("red"));
  EXPECT_THAT(Prints(), ElementsAre("notify for RT change on VRF red, event 4",
                                    "Could not delete RT from the WAVL tree"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("Could not delete RT from the WAVL tree"));
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(RouteTargets, InvalidTargetIsReportedAndChangesNothing) {
  OnlyArea(ERR);
  SetText(bgp_path("red") + "/ord_c/import-rt/7/0/65000/100/0.0.0.0/0/0", "");
  EXPECT_THAT(Prints(), ElementsAre(Failure("rt_notify", "Cannot extract RT", kStatusInvalid)));
  ExpectErrorTraced("rt_notify: Cannot extract RT", kStatusInvalid);
  EXPECT_THAT(TargetsOf("red"), IsEmpty());
  EXPECT_EQ(ChangedAt("red"), 0U);
}

TEST_F(RouteTargets, FailedExtractionIsReportedAndMakesNoRecord) {
  OnlyArea(ERR);
  const ScopedFault fault("bgp_vpn_extract_rt", kStatusIo);
  SetText(import_path("blue"), "");
  EXPECT_THAT(Prints(), ElementsAre(Failure("rt_notify", "Cannot extract RT", kStatusIo)));
  EXPECT_FALSE(IsKnown("blue"));
}

TEST_F(RouteTargets, RecordThatCannotBeMadeLeavesTheTargetInserted) {
  const ScopedFault fault("vtab_lock_dbase", kStatusIo);
  SetText(import_path("blue"), "");
  EXPECT_THAT(TargetsOf("blue"), ElementsAre("import 65000:100 1/1"));
  EXPECT_FALSE(IsKnown("blue"));
}

TEST_F(RouteTargets, NeitherSetNorDeletedChangesNothing) {
  const Arguments args = TargetArguments("red");
  mpls_vpn_mib_export_rt_notify(&kNeither, args.Block());
  EXPECT_THAT(TargetsOf("red"), IsEmpty());
  EXPECT_EQ(ChangedAt("red"), 0U);
}

TEST_F(RouteTargets, SetCountsBeforeDeletion) {
  const Arguments args = TargetArguments("red");
  mpls_vpn_mib_import_rt_notify(&kBoth, args.Block());
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1"));
}

TEST_F(RouteTargets, MissingVrfNameIsReported) {
  OnlyArea(ERR);
  rt_notify(&kSet, Arguments(0, 10).Block(), kRtImport);
  rt_notify(&kSet, Arguments(0, 10).Text(0, nullptr).Block(), kRtExport);
  EXPECT_THAT(Prints(),
              ElementsAre(MissingArgument(0, "rt_notify"), NullArgument(0, "vrf_name", "rt_notify")));
}

TEST_F(RouteTargets, OnlyTheTableDefaultHasThem) {
  ClearPrints();
  SetText(vrf_path("red") + "/ord_z/afi_safi/1/1/other/ord_b/bgp/ord_c/import-rt/0/0/65000/100/0.0.0.0/0/0",
          "");
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_THAT(TargetsOf("red"), IsEmpty());
}

TEST_F(RouteTargets, TheyOutliveTheirVrf) {
  SetText(import_path("red"), "");
  DeleteVrf("red");
  Run();
  EXPECT_THAT(TargetsOf("red"), ElementsAre("import 65000:100 1/1"));
}

// --- Route distinguisher

class RouteDistinguishers : public VrfConfiguration {};

TEST_F(RouteDistinguishers, SetInTheRouterIsStoredAndStamped) {
  OnlyArea(VTAB);
  ChangeRd("red", "65000:1");
  EXPECT_EQ(RdOf("red"), "65000:1");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), Contains("notify for RD set on vrf red, RD = 65000:1"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Not(Contains("notify for RD set on vrf red, RD = 65000:1")));
}

TEST_F(RouteDistinguishers, DeletionInTheRouterClearsIt) {
  ChangeRd("red", "65000:1");
  PassSeconds(3);
  OnlyArea(VTAB);
  ChangeRd("red", "");
  EXPECT_EQ(RdOf("red"), "(null)");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), Contains("notify for RD deletion on vrf red, RD = (null)"));
}

TEST_F(RouteDistinguishers, DeletionThatPassesTheTextLeavesThatRdStored) {
  mpls_vpn_mib_rd_notify(1, "red", "65000:1");
  PassSeconds(3);
  mpls_vpn_mib_rd_notify(0, "red", "65000:1");
  EXPECT_EQ(RdOf("red"), "65000:1");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_TRUE(Printed("notify for RD deletion on vrf red, RD = 65000:1"));
}

TEST_F(RouteDistinguishers, SetForAnUnknownVrfIsPrintedAndMakesNoRecord) {
  mpls_vpn_mib_rd_notify(1, "blue", "65000:1");
  EXPECT_THAT(Prints(), ElementsAre("notify for RD set on vrf blue, RD = 65000:1"));
  EXPECT_FALSE(IsKnown("blue"));
}

TEST_F(RouteDistinguishers, ForwardReferenceKeepsItAndIsStampedWithoutACheckpoint) {
  SetText(import_policy_path("blue"), "customers");
  mpls_vpn_mib_rd_notify(1, "blue", "65000:1");
  EXPECT_EQ(RdOf("blue"), "65000:1");
  ExpectForwardReferenceStampedButNotCheckpointed("blue");
}

TEST_F(RouteDistinguishers, TextThatCannotBeCopiedIsReportedAndTheFormerOneIsRemoved) {
  mpls_vpn_mib_rd_notify(1, "red", "65000:1");
  PassSeconds(3);
  OnlyArea(ERR);
  const ScopedFault fault("text_copy", kStatusNoMemory);
  mpls_vpn_mib_rd_notify(1, "red", "65000:2");
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_rd_notify", "text_copy failed", kStatusNoMemory)));
  EXPECT_EQ(RdOf("red"), "(null)");
  EXPECT_EQ(ChangedAt("red"), Now());
}

class RdRegistration : public Configured<DaemonTest> {
 protected:
  RdRegistration() { registers_at_once_ = false; }
};

TEST_F(RdRegistration, ExistingDistinguishersAreKnownAtOnceAndARestartChangesNothing) {
  AddVrf("red", 0, "65000:100");
  Register();
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:100");
  EXPECT_EQ(ChangedAt("red"), kStartSeconds) << "on a first run";
  PassSeconds(5);
  RestartDaemon();
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:100");
  EXPECT_EQ(ChangedAt("red"), kStartSeconds);
  PassSeconds(5);
  AddVrf("blue", 0, "65000:200");
  Run();
  EXPECT_STREQ(AttributesOf("blue")->rd, "65000:200") << "and of a VRF that is created later";
}

TEST_F(RdRegistration, FailureIsReportedAndStartUpContinues) {
  OnlyArea(ERR);
  const ScopedFault fault("bgp_vpn_rd_register_cb", kStatusIo);
  Register();
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_mib_prov_init", "Failed to register RD callback fn", kStatusIo)));
  EXPECT_THAT(Traced("mpls_vpn/error"),
              Contains("mpls_vpn_mib_prov_init: Failed to register RD callback fn"));
  EXPECT_EQ(backend_scan_in_progress, 0U);
  EXPECT_NE(parcel_find("mpls_vpn_vrf"), nullptr) << "registered after it";
}

// --- Description

class Descriptions : public VrfConfiguration {};

TEST_F(Descriptions, SetIsStoredAndStamped) {
  OnlyArea(VTAB);
  SetText(description_path("red"), "the red customer");
  EXPECT_EQ(DescriptionOf("red"), "the red customer");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), ElementsAre("notify for description change on VRF red"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("notify for description change on VRF red"));
}

TEST_F(Descriptions, DeletionClearsAndStamps) {
  SetText(description_path("red"), "the red customer");
  PassSeconds(3);
  Delete(description_path("red"));
  EXPECT_EQ(DescriptionOf("red"), "(null)");
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(Descriptions, SetWithoutAValueClears) {
  SetText(description_path("red"), "the red customer");
  SetWithoutValue(description_path("red"));
  EXPECT_EQ(DescriptionOf("red"), "(null)");
}

TEST_F(Descriptions, NeitherSetNorDeletedChangesNothing) {
  SetText(description_path("red"), "the red customer");
  ForgetChange("red");
  mpls_vpn_mib_vrf_descr_notify(&kNeither, Arguments(0, 1).Text(0, "red").Block());
  EXPECT_EQ(DescriptionOf("red"), "the red customer");
  EXPECT_EQ(ChangedAt("red"), 0U);
}

TEST_F(Descriptions, SetCountsBeforeDeletion) {
  mpls_vpn_mib_vrf_descr_notify(&kBoth, Arguments(0, 1).Text(0, "blue").Block());
  EXPECT_TRUE(IsKnown("blue")) << "a deletion makes no record";
}

TEST_F(Descriptions, TextThatCannotBeCopiedIsReportedAndTheFormerOneIsRemoved) {
  SetText(description_path("red"), "the red customer");
  PassSeconds(3);
  OnlyArea(ERR);
  const ScopedFault fault("text_copy", kStatusNoMemory);
  SetText(description_path("red"), "another");
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_mib_vrf_descr_notify", "text_copy failed", kStatusNoMemory)));
  EXPECT_EQ(DescriptionOf("red"), "(null)");
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(Descriptions, NameOfTheVrfIsDecoded) {
  AddVrf("a b/c");
  Run();
  SetText(description_path("a%20b%2Fc"), "odd");
  EXPECT_EQ(DescriptionOf("a b/c"), "odd");
}

TEST_F(Descriptions, NameThatNoVrfCanHaveIsReportedAndMakesNoRecord) {
  OnlyArea(ERR);
  const std::string too_long(router::kVrfNameMax + 1, 'v');
  SetText(description_path(""), "unused");
  SetText(description_path(too_long), "unused");
  const std::string line = "vtab_create_vrf_record() returned NULL record";
  EXPECT_THAT(Prints(), ElementsAre(line, line));
  EXPECT_FALSE(IsKnown(""));
  EXPECT_FALSE(IsKnown(too_long.c_str()));
}

TEST_F(Descriptions, MissingVrfNameIsReported) {
  OnlyArea(ERR);
  SetText(description_path("-"), "unused");
  mpls_vpn_mib_vrf_descr_notify(&kSet, Arguments(0, 1).Text(0, nullptr).Block());
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(0, "mpls_vpn_mib_vrf_descr_notify"),
                                    NullArgument(0, "vrf_name", "mpls_vpn_mib_vrf_descr_notify")));
}

// --- All of them

TEST_F(VrfConfiguration, DeletionForAnUnknownVrfMakesNoRecord) {
  const Arguments args = FamilyArguments("blue");
  for (const KvNotifyHandler handler : {mpls_vpn_mib_vrf_descr_notify, mpls_vpn_mib_import_policy_notify,
                                        mpls_vpn_mib_export_policy_notify, mpls_vpn_mib_thresh_notify}) {
    handler(&kDeleted, args.Block());
  }
  ASSERT_NE(mpls_vpn_mib_create_rt_wavl_node("blue", kRtImport, "65000:100", 1, 1), nullptr);
  mpls_vpn_mib_import_rt_notify(&kDeleted, TargetArguments("blue").Block());
  EXPECT_THAT(TargetsOf("blue"), IsEmpty());
  EXPECT_FALSE(IsKnown("blue"));
}

TEST_F(VrfConfiguration, RecordThatCannotBeMadeDropsTheChange) {
  OnlyArea(ERR);
  fault_arm("vtab_lock_dbase", kStatusIo, 1, 3);
  SetText(description_path("blue"), "the blue customer");
  SetText(import_policy_path("blue"), "customers");
  SetPair(limit_path("blue"), 100, 80);
  EXPECT_FALSE(IsKnown("blue"));
  const std::string line = Failure("get_vrf_record", "Unable to lock VTAB database", kStatusIo);
  EXPECT_THAT(Prints(), ElementsAre(line, line, line));
}

}  // namespace
