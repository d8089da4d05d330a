// VRFs and tables that are added and removed while thresholds are watched.
#include "platform/router/rib_threshold/test_support.h"

namespace rib_threshold {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// "red" with the table 10, the mid threshold 2 and the maximum 4 for IPv4.
class WatchedTables : public RibThresholdTest {
 protected:
  void SetUp() override {
    Start();
    AddVrf("red", 10);
    Configure("red", 4, 2);
  }
  void Exceed() {
    SetRoutes(10, 5);
    Reported();
  }
  // The clearing is not published.
  void FailToDeleteVrf(const std::string& name) {
    testing::internal::CaptureStderr();
    const ScopedFault fault("kvtree_set", kStatusNoMemory);
    DeleteVrf(name);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("cannot publish max-thresh-exc"));
  }
};

TEST_F(WatchedTables, DeletedVrfIsClearedAndTakesItsNodesAway) {
  Exceed();
  DeleteVrf("red");
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
  EXPECT_THAT(Published(), IsEmpty());
}

TEST_F(WatchedTables, DeletedVrfIsClearedWhileTheModelStillHasItsTable) {
  SetRoutesInBatch(10, 5);
  router_.flush_route_changes();  // not published yet
  DeleteVrf("red");
  EXPECT_THAT(ReportedSoFar(),
              ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2", "red.ipv4.unicast exceeds maximum 10: 5/4",
                          "red.ipv4.unicast clears maximum 10: 0/4"));
  EXPECT_THAT(Reported(), IsEmpty()) << "once";
}

TEST_F(WatchedTables, VrfCreatedAgainIsWatchedAgain) {
  Exceed();
  DeleteVrf("red");
  Reported();
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), IsEmpty());
  EXPECT_THAT(ReportedWith(10, 5), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                               "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(WatchedTables, VrfDeletedBelowItsMaximumIsNotReportedWhenCreatedAgain) {
  ReportedWith(10, 3);
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), IsEmpty());
}

// The record of a deleted VRF remains while configuration names the VRF, and with it the reported state.
TEST_F(WatchedTables, FailedClearingOfADeletedVrfIsRetriedWhenItIsCreatedAgain) {
  ASSERT_EQ(router_.reference_vrf("red"), kStatusOk);
  Exceed();
  FailToDeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
}

TEST_F(WatchedTables, FailedClearingOfADeletedVrfIsDroppedWithItsRecord) {
  Exceed();
  FailToDeleteVrf("red");
  Unconfigure("red");
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(WatchedTables, LastReferenceThatEndsForgetsTheVrf) {
  ASSERT_EQ(router_.reference_vrf("red"), kStatusOk);
  Exceed();
  FailToDeleteVrf("red");
  Unconfigure("red");
  ASSERT_EQ(router_.unreference_vrf("red"), kStatusOk);
  AddVrf("red", 10);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(WatchedTables, OtherTableIsEvaluatedForItself) {
  Exceed();
  ChangeTables("red", 11, 11);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 11: 0/4"));
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast clears maximum 11: 0/4"));
  EXPECT_THAT(ReportedWith(11, 3), ElementsAre("red.ipv4.unicast exceeds mid 11: 3/2"));
}

TEST_F(WatchedTables, FamilyThatLosesItsTableIsClearedByTheOther) {
  Exceed();
  ChangeTables("red", 0, 10);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv6.unicast clears maximum 10: 0/0"));
}

TEST_F(WatchedTables, VrfThatLosesBothTablesIsCleared) {
  Exceed();
  ChangeTables("red", 0, 0);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
  EXPECT_THAT(Published(), IsEmpty());
  ChangeTables("red", 12, 0);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(WatchedTables, VrfThatLosesTheTableOfItsLastCrossingIsClearedByTheOther) {
  Configure("red", 3, 0, Family::kIpv6);
  SetRoutes(10, 3, Family::kIpv6);
  Exceed();
  ChangeTables("red", 0, 10);
  EXPECT_THAT(Reported(), IsEmpty()) << "IPv6 is still at its maximum";
  DeleteVrf("red");
  EXPECT_THAT(Reported(), ElementsAre("red.ipv6.unicast clears maximum 10: 0/3"));
}

TEST_F(WatchedTables, TableThatIsWatchedForAnotherVrfFromNowOnIsCleared) {
  Exceed();
  AddVrf("b", 10);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
  ChangeTables("b", 11, 11);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                      "red.ipv4.unicast exceeds maximum 10: 5/4"));
  ChangeTables("b", 11, 10);
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
}

TEST_F(WatchedTables, SharedTableIsWatchedForTheFirstVrfInNameOrder) {
  AddVrf("blue", 10);
  Configure("blue", 1, 0);
  EXPECT_THAT(ReportedWith(10, 3), ElementsAre("red.ipv4.unicast exceeds mid 10: 3/2"))
      << "shorter names are first";
  Configure("blue", 2, 1);
  EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(WatchedTables, SharedTableIsWatchedForTheNextVrfWhenTheFirstIsDeleted) {
  AddVrf("blue", 10);
  Configure("blue", 1, 0);
  Exceed();
  DeleteVrf("red");
  EXPECT_THAT(Reported(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4",
                                      "blue.ipv4.unicast exceeds maximum 10: 5/1"));
  AddVrf("red", 10);
  EXPECT_THAT(Reported(),
              ElementsAre("blue.ipv4.unicast clears maximum 10: 0/1", "red.ipv4.unicast exceeds mid 10: 5/2",
                          "red.ipv4.unicast exceeds maximum 10: 5/4"));
  EXPECT_THAT(Published(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                       "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(WatchedTables, NamesOfAnyOctetsAreKeys) {
  AddVrf("a/b %", 30);
  Configure("a/b %", 1, 0);
  EXPECT_THAT(ReportedWith(30, 1), ElementsAre("a/b %.ipv4.unicast exceeds maximum 30: 1/1"));
}

}  // namespace
}  // namespace rib_threshold
