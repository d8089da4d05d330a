// Threshold events of the routing table, from the node in the data store to the notification that a watching
// client receives.
#include "mpls/vpn/mib/src/configuration/threshold_events.h"

#include <utility>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/traps/trap_test_support.h"
#include "platform/router/rib_threshold/records.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kMid[] = "/oper/rib_threshold/red/mid-thresh-exc";
constexpr char kMax[] = "/oper/rib_threshold/red/max-thresh-exc";
const std::string kMidHandler = "mpls_vpn_mib_mid_thresh_exceeded_notify";
const std::string kMaxHandler = "mpls_vpn_mib_high_thresh_exceeded_notify";
constexpr std::uint32_t kExceeded = 0;
constexpr std::uint32_t kCleared = 1;

// VRF "red", with every notification switched on.
class ThresholdEvents : public Configured<TrapTest> {
 protected:
  void SetUp() override {
    Configured::SetUp();
    table_ = AddVrf("red");
    Run();
    Enable(kTrapAll);
    ClearPrints();
  }
  void MidExceeded(std::uint32_t table, std::uint32_t routes, std::uint32_t threshold) {
    SetRecord(kMid, rib_threshold::kMidThresholdParcel,
              rib_threshold::MidThreshold{table, routes, threshold});
  }
  void Maximum(std::uint32_t cleared, std::uint32_t table, std::uint32_t routes, std::uint32_t threshold) {
    SetRecord(kMax, rib_threshold::kMaximumThresholdParcel,
              rib_threshold::MaximumThreshold{cleared, table, routes, threshold});
  }
  std::uint32_t table_ = 0;
};

TEST_F(ThresholdEvents, MidThresholdCrossedIsStoredAndRaisesANotification) {
  MidExceeded(table_, 81, 80);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 81U);
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfRouteMidThreshExceeded red mid=80 routes=81"));
}

TEST_F(ThresholdEvents, MaximumThresholdCrossedIsStoredAndFlaggedAndRaisesANotification) {
  Maximum(kExceeded, table_, 101, 100);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 101U);
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 1U);
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red high=100 routes=101"));
}

TEST_F(ThresholdEvents, MaximumThresholdClearedClearsTheFlag) {
  for (const std::uint32_t cleared : {kCleared, 7U}) {
    Maximum(kExceeded, table_, 101, 100);
    Traps();
    Maximum(cleared, table_, 99, 100);
    EXPECT_EQ(AttributesOf("red")->curr_num_routes, 99U);
    EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
    EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnNumVrfRouteMaxThreshCleared red high=100 routes=99"));
  }
}

TEST_F(ThresholdEvents, ClearWithoutTheFlagStillRaisesANotification) {
  Maximum(kCleared, table_, 99, 100);
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnNumVrfRouteMaxThreshCleared red high=100 routes=99"));
}

TEST_F(ThresholdEvents, EventOfATableWithoutAVrfChangesNothing) {
  MidExceeded(table_ + 1, 81, 80);
  Maximum(kExceeded, table_ + 1, 101, 100);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 0U);
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ThresholdEvents, EventsChangeNoConfiguration) {
  AttributesOf("red")->high_thresh = 1000;
  AttributesOf("red")->mid_thresh = 800;
  ForgetChange("red");
  Maximum(kExceeded, table_, 101, 100);
  MidExceeded(table_, 81, 80);
  EXPECT_EQ(AttributesOf("red")->high_thresh, 1000U);
  EXPECT_EQ(AttributesOf("red")->mid_thresh, 800U);
  EXPECT_EQ(ChangedAt("red"), 0U);
}

TEST_F(ThresholdEvents, ReissueTimerRepeatsTheMaximumWithTheConfiguredThresholdUntilItIsCleared) {
  const std::string limit = "/cfg/gl/vmap/vrf/red/ord_z/afi_safi/1/1/default/ord_e/rib/table-prefix-limit";
  SetPair(limit, 100, 80);
  KvValue seconds;
  seconds.type = KvValueType::kNumber;
  seconds.number = 30;
  Set("/cfg/gl/snmp/enable/traps/l3vpnmib/notif-reissue-time", seconds);
  Maximum(kExceeded, table_, 120, 110);
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red high=110 routes=120"));
  PassSeconds(30);
  Run();
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red high=100 routes=120"));
  Maximum(kCleared, table_, 90, 110);
  Traps();
  PassSeconds(30);
  Run();
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ThresholdEvents, DeletedEventRaisesNoNotification) {
  Maximum(kExceeded, table_, 101, 100);
  Traps();
  ClearPrints();
  Delete(kMax);
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 1U);
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(ThresholdEvents, BothFamiliesOfAVrfAreFoundByTheirTables) {
  router::Vrf vrf;
  vrf.name = "blue";
  vrf.id = 700;
  vrf.ipv4_table = 701;
  vrf.ipv6_table = 702;
  ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
  Run();
  MidExceeded(701, 5, 4);
  EXPECT_EQ(AttributesOf("blue")->curr_num_routes, 5U);
  MidExceeded(702, 6, 4);
  EXPECT_EQ(AttributesOf("blue")->curr_num_routes, 6U);
}

// --- What is not an event

TEST_F(ThresholdEvents, ItemThatIsNotARecordAndMissingItemAreReported) {
  const RequestArgs args{};
  const KvNotifyInfo empty{"mid-thresh-exc", kKvEventSet, nullptr};
  const std::string end = ", the item received is NULL or  not a parcel";
  OnlyArea(ERR);
  SetText(kMid, "81");
  SetText(kMax, "101");
  mpls_vpn_mib_mid_thresh_exceeded_notify(&empty, &args);
  mpls_vpn_mib_high_thresh_exceeded_notify(nullptr, &args);
  EXPECT_THAT(Prints(), ElementsAre("In function " + kMidHandler + end, "In function " + kMaxHandler + end,
                                    "In function " + kMidHandler + end, "In function " + kMaxHandler + end));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ThresholdEvents, RecordOfAnotherTypeDoesNotDecode) {
  OnlyArea(ERR);
  SetRecord(kMid, rib_threshold::kMaximumThresholdParcel,
            rib_threshold::MaximumThreshold{kExceeded, table_, 101, 100});
  SetRecord(kMax, rib_threshold::kMidThresholdParcel, rib_threshold::MidThreshold{table_, 81, 80});
  EXPECT_THAT(Prints(), ElementsAre(Failure(kMidHandler, "parcel_decode failed", kStatusBadEncoding),
                                    Failure(kMaxHandler, "parcel_decode failed", kStatusBadEncoding)));
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 0U);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ThresholdEvents, FailedDecodingIsReportedAndChangesNothing) {
  OnlyArea(ERR);
  {
    const ScopedFault fault("parcel_decode", kStatusIo, 1, 2);
    MidExceeded(table_, 81, 80);
    Maximum(kExceeded, table_, 101, 100);
  }
  EXPECT_THAT(Prints(), ElementsAre(Failure(kMidHandler, "parcel_decode failed", kStatusIo),
                                    Failure(kMaxHandler, "parcel_decode failed", kStatusIo)));
  ExpectErrorTraced(kMaxHandler + ": parcel_decode failed", kStatusIo);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 0U);
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
}

TEST_F(ThresholdEvents, FailedReleaseIsReportedAfterTheEventWasApplied) {
  OnlyArea(ERR);
  Disable(kTrapAll);  // notifications release records of their own
  {
    const ScopedFault fault("parcel_free_indirections", kStatusIo, 1, 2);
    MidExceeded(table_, 81, 80);
    Maximum(kExceeded, table_, 101, 100);
  }
  EXPECT_THAT(Prints(), ElementsAre(Failure(kMidHandler, "parcel_free_indirections", kStatusIo),
                                    Failure(kMaxHandler, "parcel_free_indirections", kStatusIo)));
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 101U);
}

TEST_F(ThresholdEvents, RecordIsNotReleasedWhereNoVrfWasFound) {
  fault_arm("parcel_free_indirections", kStatusIo);
  MidExceeded(table_ + 1, 81, 80);
  Maximum(kExceeded, table_ + 1, 101, 100);
  EXPECT_EQ(fault_reached("parcel_free_indirections"), 0U);
}

TEST_F(ThresholdEvents, OnlyTheMidEventPrintsItsEntry) {
  OnlyArea(PROV);
  MidExceeded(table_ + 1, 81, 80);
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_mid_thresh_exceeded_notify"));
  ClearPrints();
  Maximum(kExceeded, table_ + 1, 101, 100);
  EXPECT_THAT(Prints(), IsEmpty());
}

}  // namespace
