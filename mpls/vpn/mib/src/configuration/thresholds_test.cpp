// Route thresholds from configuration.
#include <utility>

#include "mpls/vpn/mib/src/configuration/vrf_handlers_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHandler[] = "mpls_vpn_mib_thresh_notify";

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
  SetPair(limit_path("red"), 100, 80);
  EXPECT_EQ(ThresholdsOf("red"), "100/80");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(),
              ElementsAre("Entering mpls_vpn_mib_thresh_notify",
                          "notify for threshold change on VRF red, high_tresh = 100, mid_thresh = 80 "));
  EXPECT_THAT(Traced("mpls_vpn/vtab"),
              Contains("notify for threshold change on VRF red, high_tresh = 100, mid_thresh = 80 "));
}

TEST_F(RouteThresholds, FamilyThatChangedLastSetsBothValues) {
  SetPair(limit_path("red"), 100, 80);
  SetPair(limit_path("red", 2, 1), 50, 40);
  EXPECT_EQ(ThresholdsOf("red"), "50/40");
}

TEST_F(RouteThresholds, LargeThresholdsAreUnsigned) {
  SetPair(limit_path("red"), 4294967295, 3000000000);
  EXPECT_EQ(ThresholdsOf("red"), "4294967295/3000000000");
  EXPECT_TRUE(
      Printed("notify for threshold change on VRF red, high_tresh = 4294967295, mid_thresh = 3000000000 "));
}

TEST_F(RouteThresholds, AnyTableNameIsAccepted) {
  SetPair(limit_path("red", 1, 1, "other"), 100, 80);
  EXPECT_EQ(ThresholdsOf("red"), "100/80");
}

TEST_F(RouteThresholds, OtherFamiliesAndSubsequentFamiliesAreIgnored) {
  SetPair(limit_path("red"), 100, 80);
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
  SetPair(limit_path("red"), 100, 80);
  PassSeconds(5);
  OnlyArea(VTAB);
  Delete(limit_path("red"));
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
  EXPECT_EQ(ChangedAt("red"), Now());
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_thresh_notify"));
}

TEST_F(RouteThresholds, SetOutweighsDeletionAndNeitherChangesNothing) {
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = {7, 5};
  const Arguments block = FamilyArguments("red");
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
  SetPair(limit_path("red"), 100, 80);
  OnlyArea(ERR);
  SetText(limit_path("red"), "a hundred");
  EXPECT_THAT(Prints(), ElementsAre("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple"));
  ExpectErrorTraced("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple", kStatusInvalid);
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
}

TEST_F(RouteThresholds, FailedUnpackingStillStampsTheChange) {
  const ScopedFault fault("tuple_unpack", kStatusIo);
  SetPair(limit_path("red"), 100, 80);
  EXPECT_TRUE(Printed("Error in mpls_vpn_mib_thresh_notify:Could not unpack tuple"));
  EXPECT_TRUE(Printed("notify for threshold change on VRF red, high_tresh = 0, mid_thresh = 0 "));
  EXPECT_EQ(ChangedAt("red"), Now());
}

TEST_F(RouteThresholds, EachMissingArgumentIsReported) {
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = {7, 5};
  const KvNotifyInfo set{"table-prefix-limit", kKvEventSet, &value};
  OnlyArea(ERR);
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Number(1, 1).Number(2, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, "red").Number(2, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, "red").Number(1, 1).Block());
  mpls_vpn_mib_thresh_notify(&set, Arguments(0, 4).Text(0, nullptr).Number(1, 1).Number(2, 1).Block());
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(0, kHandler), MissingArgument(1, kHandler),
                                    MissingArgument(2, kHandler), NullArgument(0, "vrf_name", kHandler)));
  EXPECT_EQ(ThresholdsOf("red"), "0/0");
}

TEST_F(RouteThresholds, AbsentKeyInThePathIsAMissingArgument) {
  OnlyArea(ERR);
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = {7, 5};
  Set("/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/-/default/ord_e/rib/table-prefix-limit", value);
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(2, kHandler)));
}

}  // namespace
