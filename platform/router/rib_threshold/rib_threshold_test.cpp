// Numbers of routes that cross configured thresholds.
#include "platform/router/rib_threshold/test_support.h"

namespace rib_threshold {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// VRF "red" with the table 10 for both families.
class RouteNumbers : public RibThresholdTest {
 protected:
  void SetUp() override {
    Start();
    AddVrf("red", 10);
  }
  void SetRoutesWithFault(std::size_t routes, const char* point, Status status, std::uint32_t first = 1,
                          std::uint32_t count = 1) {
    const ScopedFault fault(point, status, first, count);
    SetRoutes(10, routes);
  }
};

TEST_F(RouteNumbers, MidIsExceededAboveItOnly) {
  Configure("red", 0, 3);
  EXPECT_THAT(ReportedWith(10, 3), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 4), ElementsAre("red.ipv4.unicast exceeds mid 10: 4/3"));
}

TEST_F(RouteNumbers, MidIsReportedOnceUntilTheNumberFallsBelowIt) {
  Configure("red", 0, 3);
  ReportedWith(10, 4);
  SetRoutes(10, 5);
  SetRoutes(10, 3);  // at the threshold: not below
  EXPECT_THAT(ReportedWith(10, 4), IsEmpty());
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast exceeds mid 10: 4/3"));
  EXPECT_THAT(ReportedWith(10, 2), IsEmpty()) << "falling below mid is not an event";
  EXPECT_THAT(Published(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 4), ElementsAre("red.ipv4.unicast exceeds mid 10: 4/3"));
}

TEST_F(RouteNumbers, MaximumIsExceededWhenItIsReached) {
  Configure("red", 3, 0);
  EXPECT_THAT(ReportedWith(10, 2), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 3), ElementsAre("red.ipv4.unicast exceeds maximum 10: 3/3"));
}

TEST_F(RouteNumbers, MaximumIsClearedBelowItOnce) {
  Configure("red", 3, 0);
  ReportedWith(10, 5);
  EXPECT_THAT(ReportedWith(10, 3), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 2), ElementsAre("red.ipv4.unicast clears maximum 10: 2/3"));
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast clears maximum 10: 2/3"));
  EXPECT_THAT(ReportedWith(10, 0), IsEmpty());
}

TEST_F(RouteNumbers, NothingIsRepeatedWhileNothingCrosses) {
  Configure("red", 4, 2);
  EXPECT_THAT(ReportedWith(10, 5), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                               "red.ipv4.unicast exceeds maximum 10: 5/4"));
  for (const std::size_t routes : {6U, 7U, 5U, 4U, 9U}) SetRoutes(10, routes);
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 1), ElementsAre("red.ipv4.unicast clears maximum 10: 1/4"));
  SetRoutes(10, 0);
  EXPECT_THAT(ReportedWith(10, 2), IsEmpty());
}

TEST_F(RouteNumbers, EveryCrossingIsReported) {
  Configure("red", 2, 0);
  for (int times = 0; times < 3; ++times) {
    SetRoutes(10, 2);
    EXPECT_THAT(ReportedWith(10, 1), ElementsAre("red.ipv4.unicast exceeds maximum 10: 2/2",
                                                 "red.ipv4.unicast clears maximum 10: 1/2"));
  }
}

TEST_F(RouteNumbers, CrossingUndoneWithinABatchIsNotReported) {
  Configure("red", 3, 2);
  SetRoutesInBatch(10, 5);
  SetRoutesInBatch(10, 1);
  router_.flush_route_changes();
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(RouteNumbers, ZeroDisablesAThreshold) {
  Configure("red", 0, 0);
  EXPECT_THAT(ReportedWith(10, 5), IsEmpty());
}

TEST_F(RouteNumbers, FamiliesHaveThresholdsOfTheirOwn) {
  Configure("red", 0, 2, Family::kIpv4);
  Configure("red", 0, 4, Family::kIpv6);
  EXPECT_THAT(ReportedWith(10, 3, Family::kIpv6), IsEmpty());
  SetRoutes(10, 3, Family::kIpv4);
  EXPECT_THAT(ReportedWith(10, 5, Family::kIpv6),
              ElementsAre("red.ipv4.unicast exceeds mid 10: 3/2", "red.ipv6.unicast exceeds mid 10: 5/4"));
}

TEST_F(RouteNumbers, VrfIsClearedWhenTheLastOfItsTablesFalls) {
  Configure("red", 2, 0, Family::kIpv4);
  Configure("red", 4, 0, Family::kIpv6);
  SetRoutes(10, 2, Family::kIpv4);
  EXPECT_THAT(ReportedWith(10, 4, Family::kIpv6), ElementsAre("red.ipv4.unicast exceeds maximum 10: 2/2",
                                                              "red.ipv6.unicast exceeds maximum 10: 4/4"));
  EXPECT_THAT(ReportedWith(10, 1, Family::kIpv4), IsEmpty()) << "the VRF is still at a maximum";
  EXPECT_THAT(Published(), ElementsAre("red.ipv6.unicast exceeds maximum 10: 4/4"));
  EXPECT_THAT(ReportedWith(10, 3, Family::kIpv6), ElementsAre("red.ipv6.unicast clears maximum 10: 3/4"));
}

TEST_F(RouteNumbers, OtherVrfsAreNotConcerned) {
  AddVrf("blue", 20);
  Configure("red", 2, 0);
  EXPECT_THAT(ReportedWith(20, 5), IsEmpty());
}

TEST_F(RouteNumbers, EventThatCannotBePublishedIsRetriedAtTheNextChange) {
  Configure("red", 4, 2);
  testing::internal::CaptureStderr();
  SetRoutesWithFault(5, "kvtree_set", kStatusNoMemory, 1, 2);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("route thresholds: cannot publish mid-thresh-exc of red.ipv4.unicast: "),
            std::string::npos);
  EXPECT_NE(log.find("route thresholds: cannot publish max-thresh-exc of red.ipv4.unicast: "),
            std::string::npos);
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 6), ElementsAre("red.ipv4.unicast exceeds mid 10: 6/2",
                                               "red.ipv4.unicast exceeds maximum 10: 6/4"));
}

TEST_F(RouteNumbers, EventThatCannotBeEncodedIsRetriedAtTheNextChange) {
  Configure("red", 4, 0);
  SetRoutesWithFault(5, "parcel_encode", kStatusNoMemory);
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 6), ElementsAre("red.ipv4.unicast exceeds maximum 10: 6/4"));
}

TEST_F(RouteNumbers, ClearingThatCannotBePublishedIsRetriedAtTheNextChange) {
  Configure("red", 4, 0);
  ReportedWith(10, 5);
  SetRoutesWithFault(3, "kvtree_set", kStatusNoMemory);
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 2), ElementsAre("red.ipv4.unicast clears maximum 10: 2/4"));
}

TEST_F(RouteNumbers, FailedClearingIsDroppedWhenTheMaximumIsReachedAgain) {
  Configure("red", 4, 0);
  ReportedWith(10, 5);
  SetRoutesWithFault(3, "kvtree_set", kStatusNoMemory);
  EXPECT_THAT(ReportedWith(10, 4), ElementsAre("red.ipv4.unicast exceeds maximum 10: 4/4"));
}

TEST_F(RouteNumbers, MidNodeThatCannotBeWithdrawnIsLoggedAndPublishedAgainLater) {
  Configure("red", 0, 2);
  ReportedWith(10, 3);
  testing::internal::CaptureStderr();
  SetRoutesWithFault(1, "kvtree_delete", kStatusIo);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "route thresholds: cannot withdraw mid-thresh-exc of red.ipv4.unicast: "),
            std::string::npos);
  EXPECT_THAT(ReportedWith(10, 4), ElementsAre("red.ipv4.unicast exceeds mid 10: 4/2"));
}

}  // namespace
}  // namespace rib_threshold
