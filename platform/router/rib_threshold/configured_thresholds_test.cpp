// Thresholds that are configured, changed and removed, and the evaluation at the start.
#include "platform/router/rib_threshold/test_support.h"

namespace rib_threshold {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "red" with the table 10 and 5 IPv4 routes.
class ConfiguredThresholds : public RibThresholdTest {
 protected:
  void SetUp() override {
    Start();
    AddVrf("red", 10);
    SetRoutes(10, 5);
  }
  std::string LimitPath(std::uint32_t afi, std::uint32_t safi, const std::string& table = "default",
                        const std::string& vrf = "red") {
    return "/cfg/gl/vmap/vrf/" + vrf + "/ord_z/afi_safi/" + std::to_string(afi) + "/" + std::to_string(safi) +
           "/" + table + "/ord_e/rib/table-prefix-limit";
  }
  void SetPair(const std::string& path, std::int64_t maximum, std::int64_t mid) {
    KvValue value;
    value.type = KvValueType::kTuple;
    value.tuple = {maximum, mid};
    ASSERT_EQ(kvtree_set(path, value), kStatusOk);
    Run();
  }
};

TEST_F(ConfiguredThresholds, ThresholdBelowTheNumberIsExceededAtOnce) {
  Configure("red", 4, 3);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/3",
                                      "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(ConfiguredThresholds, RaisedMaximumIsClearedAtOnce) {
  ConfigureQuietly("red", 4, 3);
  Configure("red", 8, 6);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 5/8"));
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast clears maximum 10: 5/8"));
}

TEST_F(ConfiguredThresholds, ChangedThresholdThatIsStillExceededIsNotReported) {
  ConfigureQuietly("red", 4, 3);
  Configure("red", 5, 2);
  Configure("red", 1, 1);
  Configure("red", 1, 1);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ConfiguredThresholds, RaisedMidIsArmedAgain) {
  ConfigureQuietly("red", 0, 3);
  Configure("red", 0, 7);
  EXPECT_THAT(Published(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 8), ElementsAre("red.ipv4.unicast exceeds mid 10: 8/7"));
}

TEST_F(ConfiguredThresholds, ThresholdTakenAwayWhileExceededIsCleared) {
  ConfigureQuietly("red", 4, 3);
  Unconfigure("red");
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 5/0"));
  EXPECT_THAT(Published(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 20), IsEmpty());
}

TEST_F(ConfiguredThresholds, MaximumOfZeroWhileExceededIsCleared) {
  ConfigureQuietly("red", 4, 3);
  Configure("red", 0, 3);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 5/0"));
}

TEST_F(ConfiguredThresholds, ThresholdAppliesToAVrfThatIsCreatedLater) {
  Configure("blue", 2, 1);
  EXPECT_THAT(Reported(), IsEmpty());
  AddVrf("blue", 20);
  EXPECT_THAT(ReportedWith(20, 2), ElementsAre("blue.ipv4.unicast exceeds mid 20: 2/1",
                                               "blue.ipv4.unicast exceeds maximum 20: 2/2"));
}

TEST_F(ConfiguredThresholds, UnicastTablesOfTheTwoFamiliesOnly) {
  SetPair(LimitPath(1, 2), 1, 1);
  SetPair(LimitPath(3, 1), 1, 1);
  SetPair(LimitPath(0, 1), 1, 1);
  SetPair(LimitPath(1, 1, "other"), 1, 1);
  EXPECT_THAT(ReportedWith(10, 6), IsEmpty());
}

TEST_F(ConfiguredThresholds, DefaultIsNotWatched) {
  ChangeTables("default", 254, 254);
  SetPair(LimitPath(1, 1, "default", "default"), 1, 1);
  EXPECT_THAT(ReportedWith(254, 3), IsEmpty());
}

TEST_F(ConfiguredThresholds, LargeThresholdsAreUnsigned) {
  Configure("red", 4294967295, 3000000000);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ConfiguredThresholds, LimitThatIsNotAPairIsLoggedAndIgnored) {
  ConfigureQuietly("red", 4, 3);
  KvValue text;
  text.type = KvValueType::kText;
  text.text = "a hundred";
  testing::internal::CaptureStderr();
  ASSERT_EQ(kvtree_set(LimitPath(1, 1), text), kStatusOk);
  Run();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("route thresholds: a limit that is not a pair of numbers: "));
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 5/0"));
}

// --- Starting

TEST_F(ConfiguredThresholds, StartPublishesExceededThresholdsForLaterSubscribers) {
  Configure("red", 4, 3);
  rib_threshold_detach();
  EXPECT_THAT(Published(), IsEmpty());
  Attach();
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/3",
                                       "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(ConfiguredThresholds, StartBelowTheThresholdsReportsNothing) {
  Configure("red", 9, 6);
  rib_threshold_detach();
  Attach();
  EXPECT_THAT(Published(), IsEmpty());
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ConfiguredThresholds, DetachedServiceIgnoresChanges) {
  ConfigureQuietly("red", 4, 3);
  rib_threshold_detach();
  SetRoutes(10, 1);
  Configure("red", 1, 1);
  AddVrf("blue", 20);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(ConfiguredThresholds, AttachingTwiceAndToNothingIsRefused) {
  EXPECT_EQ(rib_threshold_attach(&router_, manager_), kStatusExists);
  rib_threshold_detach();
  EXPECT_EQ(rib_threshold_attach(nullptr, manager_), kStatusInvalid);
  EXPECT_EQ(rib_threshold_attach(&router_, nullptr), kStatusInvalid);
  rib_threshold_detach();  // not attached
}

TEST_F(ConfiguredThresholds, FailedAttachingLeavesNothingAttached) {
  ConfigureQuietly("red", 4, 3);
  rib_threshold_detach();
  for (const char* point : {"rib_threshold_attach", "kvtree_bind", "kvtree_register_notification"}) {
    const ScopedFault fault(point, kStatusIo);
    EXPECT_EQ(rib_threshold_attach(&router_, manager_), kStatusIo) << point;
  }
  EXPECT_THAT(ReportedWith(10, 8), IsEmpty());
  Attach();
}

}  // namespace
}  // namespace rib_threshold
