// Route thresholds from configuration.
#include <utility>

#include "mpls/vpn/mib/src/configuration/vrf_handlers_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

std::string limit_path(const std::string& vrf, unsigned afi, unsigned safi,
                       const std::string& table = "default") {
  return vrf_path(vrf) + "/ord_z/afi_safi/" + std::to_string(afi) + "/" + std::to_string(safi) + "/" + table +
         "/ord_e/rib/table-prefix-limit";
}

class RouteThresholds : public VrfConfiguration {
 protected:
  // "maximum/mid".
  std::string ThresholdsOf(const char* vrf) {
    const mpls_vpn_vrf_attr* attributes = AttributesOf(vrf);
    return std::to_string(attributes->high_thresh) + "/" + std::to_string(attributes->mid_thresh);
  }
};

TEST_F(RouteThresholds, SetStoresMaximumAndMidAndStampsTheChange) {
  OnlyArea(VTAB);
  SetPair(limit_path("red", 1, 1), 100, 80);
  EXPECT_EQ(ThresholdsOf("red"), "100/80");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_thresh_notify",
                          "notify for threshold change on VRF red, high_tresh = 100, mid_thresh = 80 "));
  EXPECT_THAT(Traced("mpls_vpn/vtab"),
              Contains("notify for threshold change on VRF red, high_tresh = 100, mid_thresh = 80 "));
}

TEST_F(RouteThresholds, FamilyThatChangedLastSetsBothValues) {
  SetPair(limit_path("red", 1, 1), 100, 80);
  SetPair(limit_path("red", 2, 1), 50, 40);
  EXPECT_EQ(ThresholdsOf("red"), "50/40");
}

TEST_F(RouteThresholds, LargeThresholdsAreUnsigned) {
  SetPair(limit_path("red", 1, 1), 4294967295, 3000000000);
  EXPECT_EQ(ThresholdsOf("red"), "4294967295/3000000000");
  EXPECT_TRUE(
      Printed("notify for threshold change on VRF red, high_tresh = 4294967295, mid_thresh = 3000000000 "));
}

TEST_F(RouteThresholds, AnyTableNameIsAccepted) {
  SetPair(limit_path("red", 1, 1, "other"), 100, 80);
  EXPECT_EQ(ThresholdsOf("red"), "100/80");
}

TEST_F(RouteThresholds, OtherFamiliesAndSubsequentFamiliesAreIgnored) {
  SetPair(limit_path("red", 1, 1), 100, 80);
  ForgetChange("red");
  OnlyArea(ERR);
  SetPair(limit_path("red", 1, 0), 1, 1);
  SetPair(limit_path("red", 1, 2), 1, 1);
  SetPair(limit_path("red", 2, 128), 1, 1);
  SetPair(limit_path("red", 3, 1), 1, 1);
  SetPair(limit_path("red", 0, 1), 1, 1);
  Delete(limit_path("red", 1, 2));
  EXPECT_EQ(ThresholdsOf("red"), "100/80");
  EXPECT_EQ(ChangedAt("red"), 0U);
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(RouteThresholds, DeletionStoresNoThresholds) {
  SetPair(limit_path("red", 1, 1), 100, 80);
  PassSeconds(5);
  OnlyArea(VTAB);
  Delete(limit_path("red", 1, 1));
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_thresh_notify"));
}

TEST_F(RouteThresholds, SetOnAVrfThatDoesNotExistIsStoredForIt) {
  SetPair(limit_path("blue", 1, 1), 100, 80);
  ASSERT_NE(vtab_get_vrf_record_by_vrf_name("blue"), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("blue")->vrf_id, 0U);
  EXPECT_EQ(AttributesOf("blue")->chkpt_objid, 0U);
  AddVrf("blue");
  Run();
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("blue")->vrf_id, 0U);
  EXPECT_EQ(ThresholdsOf("blue"), "100/80");
}

TEST_F(RouteThresholds, DeletionMakesNoRecord) {
  const Arguments block = Arguments(0, 4).Text(0, "blue").Number(1, 1).Number(2, 1).Text(3, "default");
  const KvNotifyInfo deleted{"table-prefix-limit", kKvEventDeleted, nullptr};
  mpls_vpn_mib_thresh_notify(&deleted, block.Block());
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("blue"), nullptr);
}

TEST_F(RouteThresholds, SetOutweighsDeletionAndNeitherChangesNothing) {
  KvValue value;
  ASSERT_EQ(tuple_pack(&value, "%d%d", {7, 5}), kStatusOk);
  const Arguments block = Arguments(0, 4).Text(0, "red").Number(1, 1).Number(2, 1).Text(3, "default");
  const KvNotifyInfo both{"table-prefix-limit", kKvEventSet | kKvEventDeleted, &value};
  mpls_vpn_mib_thresh_notify(&both, block.Block());
  EXPECT_EQ(ThresholdsOf("red"), "7/5");
  ForgetChange("red");
  const KvNotifyInfo neither{"table-prefix-limit", 0, &value};
  value.tuple = {9, 8};
  mpls_vpn_mib_thresh_notify(&neither, block.Block());
  EXPECT_EQ(ThresholdsOf("red"), "7/5");
  EXPECT_EQ(ChangedAt("red"), 0U);
}

TEST_F(RouteThresholds, TupleThatDoesNotUnpackIsReportedAndLeavesNoThresholds) {
  SetPair(limit_path("red", 1, 1), 100, 80);
  OnlyArea(ERR);
  SetText(limit_path("red", 1, 1), "a hundred");
  EXPECT_THAT(Prints(), ElementsAre("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple"));
  ExpectErrorTraced("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple", kStatusInvalid);
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
}

TEST_F(RouteThresholds, FailedUnpackingStillStampsTheChange) {
  const ScopedFault fault("tuple_unpack", kStatusIo);
  SetPair(limit_path("red", 1, 1), 100, 80);
  EXPECT_TRUE(Printed("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple"));
  EXPECT_TRUE(Printed("notify for threshold change on VRF red, high_tresh = 0, mid_thresh = 0 "));
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(RouteThresholds, RecordThatCannotBeMadeDropsTheChange) {
  const ScopedFault fault("vtab_lock_dbase", kStatusIo);
  SetPair(limit_path("blue", 1, 1), 100, 80);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("blue"), nullptr);
  EXPECT_TRUE(Printed("Error in get_vrf_record: Unable to lock VTAB database: Input/output error"));
}

TEST_F(RouteThresholds, EachMissingArgumentIsReported) {
  KvValue value;
  ASSERT_EQ(tuple_pack(&value, "%d%d", {7, 5}), kStatusOk);
  const KvNotifyInfo set{"table-prefix-limit", kKvEventSet, &value};
  OnlyArea(ERR);
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Number(1, 1).Number(2, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, "red").Number(2, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, "red").Number(1, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, nullptr).Number(1, 1).Number(2, 1).Block());
  EXPECT_THAT(
      Prints(),
      ElementsAre(MatchesRegex("BGEN arg 0 not present in mpls_vpn_mib_thresh_notify, line [0-9]+"),
                  MatchesRegex("BGEN arg 1 not present in mpls_vpn_mib_thresh_notify, line [0-9]+"),
                  MatchesRegex("BGEN arg 2 not present in mpls_vpn_mib_thresh_notify, line [0-9]+"),
                  MatchesRegex("BGEN arg 0 'vrf_name' is NULL in mpls_vpn_mib_thresh_notify, line [0-9]+")));
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
}

TEST_F(RouteThresholds, AbsentKeyInThePathIsAMissingArgument) {
  OnlyArea(ERR);
  KvValue value;
  ASSERT_EQ(tuple_pack(&value, "%d%d", {7, 5}), kStatusOk);
  Set("/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/-/default/ord_e/rib/table-prefix-limit", value);
  EXPECT_THAT(Prints(),
              ElementsAre(MatchesRegex("BGEN arg 2 not present in mpls_vpn_mib_thresh_notify, line [0-9]+")));
}

// --- Replay

class ThresholdReplay : public Configured<DaemonTest> {
 protected:
  ThresholdReplay() { registers_at_once_ = false; }
};

TEST_F(ThresholdReplay, ConfigurationIsAppliedWhenAFirstRunHasRegistered) {
  AddVrf("red");
  SetPair(limit_path("red", 1, 1), 100, 80);
  PassSeconds(5);
  Register();
  EXPECT_EQ(AttributesOf("red")->high_thresh, 100U);
  EXPECT_EQ(ChangedAt("red"), Now()) << "a first run has no earlier times";
}

TEST_F(ThresholdReplay, ScanOfALaterRunStampsNothingAndALaterChangeDoes) {
  AddVrf("red");
  SetPair(limit_path("red", 1, 1), 100, 80);
  Register();
  const std::uint32_t changed = ChangedAt("red");
  PassSeconds(60);
  RestartDaemon();
  EXPECT_EQ(AttributesOf("red")->high_thresh, 100U);
  EXPECT_EQ(ChangedAt("red"), changed);
  SetPair(limit_path("red", 1, 1), 200, 80);
  EXPECT_EQ(AttributesOf("red")->high_thresh, 200U);
  EXPECT_EQ(ChangedAt("red"), Now());
}

}  // namespace
