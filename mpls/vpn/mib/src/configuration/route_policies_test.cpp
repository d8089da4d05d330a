// Route policies from configuration.
#include <algorithm>

#include "mpls/vpn/mib/src/configuration/vrf_handlers_test_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RoutePolicies : public VrfConfiguration {};

TEST_F(RoutePolicies, EachFamilyAndDirectionHasItsOwn) {
  SetText(import_policy_path("red", 1), "in4");
  SetText(import_policy_path("red", 2), "in6");
  SetText(export_policy_path("red", 1), "out4");
  SetText(export_policy_path("red", 2), "out6");
  EXPECT_THAT(PoliciesOf("red"), ElementsAre("in4", "in6", "out4", "out6"));
}

TEST_F(RoutePolicies, SetAndRemovalArePrinted) {
  OnlyArea(VTAB);
  SetText(import_policy_path("red", 1, 1), "customers");
  SetText(export_policy_path("red", 2, 1), "transit");
  Delete(import_policy_path("red", 1, 1));
  Delete(export_policy_path("red", 2, 1));
  EXPECT_THAT(Prints(), ElementsAre("Import route policy customers configured for VRF red, AFI = 1, SAFI = 1",
                                    "Export route policy transit configured for VRF red, AFI = 2, SAFI = 1",
                                    "Import route policy customers removed from VRF red, AFI = 1, SAFI = 1",
                                    "Export route policy transit removed from VRF red, AFI = 2, SAFI = 1"));
  EXPECT_THAT(PoliciesOf("red"), ElementsAre("(null)", "(null)", "(null)", "(null)"));
}

TEST_F(RoutePolicies, SetAndRemovalAreTracedButNoSetWithoutAValue) {
  const auto traced = [this] {
    const std::vector<std::string> lines = Traced("mpls_vpn/vtab");
    return std::vector<std::ptrdiff_t>{
        std::count(lines.begin(), lines.end(), "Import route policy of VRF red, AFI 1, SAFI 2"),
        std::count(lines.begin(), lines.end(), "Export route policy of VRF red, AFI 2, SAFI 1")};
  };
  SetText(import_policy_path("red", 1, 2), "customers");
  SetText(export_policy_path("red", 2, 1), "transit");
  EXPECT_THAT(traced(), ElementsAre(1, 1));
  Delete(import_policy_path("red", 1, 2));
  Delete(export_policy_path("red", 2, 1));
  EXPECT_THAT(traced(), ElementsAre(2, 2));
  SetWithoutValue(import_policy_path("red", 1, 2));
  EXPECT_THAT(traced(), ElementsAre(2, 2));
}

TEST_F(RoutePolicies, ChangesAreNotStamped) {
  SetText(import_policy_path("red"), "customers");
  Delete(import_policy_path("red"));
  SetText(export_policy_path("blue"), "customers");
  EXPECT_EQ(ChangedAt("red"), 0U);
  EXPECT_EQ(ChangedAt("blue"), 0U);
}

TEST_F(RoutePolicies, FamilyThreeChangesNothing) {
  SetText(import_policy_path("red", 3), "customers");
  SetText(export_policy_path("red", 0), "customers");
  EXPECT_THAT(PoliciesOf("red"), ElementsAre("(null)", "(null)", "(null)", "(null)"));
  EXPECT_THAT(Prints(), IsEmpty());
  Delete(import_policy_path("red", 3));
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(RoutePolicies, FamilyThreeOfAnUnknownVrfIsAForwardReferenceWithoutAPolicy) {
  SetText(import_policy_path("blue", 3), "customers");
  ASSERT_TRUE(IsKnown("blue"));
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("blue")->vrf_id, 0U);
  EXPECT_THAT(PoliciesOf("blue"), ElementsAre("(null)", "(null)", "(null)", "(null)"));
}

TEST_F(RoutePolicies, TextThatCannotBeCopiedIsReportedAndTheFormerOneIsRemoved) {
  SetText(export_policy_path("red"), "customers");
  ClearPrints();
  const ScopedFault fault("text_copy", kStatusNoMemory);
  SetText(export_policy_path("red"), "transit");
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_mib_route_policy_notify", "text_copy failed", kStatusNoMemory)));
  EXPECT_THAT(PoliciesOf("red"), ElementsAre("(null)", "(null)", "(null)", "(null)"));
}

TEST_F(RoutePolicies, SubsequentFamilyTwoOverwritesTheUnicastPolicy) {
  SetText(import_policy_path("red", 1, 1), "unicast");
  SetText(import_policy_path("red", 1, 2), "multicast");
  EXPECT_EQ(PoliciesOf("red")[0], "multicast");
  Delete(import_policy_path("red", 1, 1));
  EXPECT_EQ(PoliciesOf("red")[0], "(null)");
}

TEST_F(RoutePolicies, SetWithoutAValueClearsTheSlotAndPrintsNothing) {
  SetText(import_policy_path("red"), "customers");
  ClearPrints();
  SetWithoutValue(import_policy_path("red"));
  EXPECT_EQ(PoliciesOf("red")[0], "(null)");
  EXPECT_THAT(Prints(), IsEmpty());
  SetText(import_policy_path("red"), "customers");
  ClearPrints();
  const Arguments args = FamilyArguments("red");
  mpls_vpn_mib_import_policy_notify(&kSet, args.Block());
  EXPECT_EQ(PoliciesOf("red")[0], "(null)");
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(RoutePolicies, RemovalOfAnAbsentPolicyIsPrintedToo) {
  const Arguments args = FamilyArguments("red");
  mpls_vpn_mib_export_policy_notify(&kDeleted, args.Block());
  EXPECT_THAT(Prints(), ElementsAre("Export route policy (null) removed from VRF red, AFI = 1, SAFI = 1"));
}

TEST_F(RoutePolicies, OtherDirectionsAndOtherEventsChangeNothing) {
  const Arguments args = FamilyArguments("red");
  KvValue value;
  value.type = KvValueType::kText;
  value.text = "customers";
  const KvNotifyInfo set{"import-policy", kKvEventSet, &value};
  mpls_vpn_mib_route_policy_notify(&set, args.Block(), 2);
  const KvNotifyInfo neither{"import-policy", 0, &value};
  mpls_vpn_mib_route_policy_notify(&neither, args.Block(), 0);
  EXPECT_THAT(PoliciesOf("red"), ElementsAre("(null)", "(null)", "(null)", "(null)"));
}

TEST_F(RoutePolicies, SetCountsBeforeDeletion) {
  const Arguments args = FamilyArguments("red");
  KvValue value;
  value.type = KvValueType::kText;
  value.text = "customers";
  const KvNotifyInfo both{"import-policy", kKvEventSet | kKvEventDeleted, &value};
  mpls_vpn_mib_import_policy_notify(&both, args.Block());
  EXPECT_EQ(PoliciesOf("red")[0], "customers");
}

TEST_F(RoutePolicies, EachMissingArgumentIsReported) {
  OnlyArea(ERR);
  const char* const handler = "mpls_vpn_mib_route_policy_notify";
  mpls_vpn_mib_import_policy_notify(&kSet, Arguments(0, 3).Number(1, 1).Number(2, 1).Block());
  mpls_vpn_mib_export_policy_notify(&kSet, Arguments(0, 3).Text(0, "red").Number(2, 1).Block());
  mpls_vpn_mib_export_policy_notify(&kSet, Arguments(0, 3).Text(0, "red").Number(1, 1).Block());
  mpls_vpn_mib_export_policy_notify(&kSet,
                                    Arguments(0, 3).Text(0, nullptr).Number(1, 1).Number(2, 1).Block());
  EXPECT_THAT(Prints(), ElementsAre(MissingArgument(0, handler), MissingArgument(1, handler),
                                    MissingArgument(2, handler), NullArgument(0, "vrf_name", handler)));
}

}  // namespace
