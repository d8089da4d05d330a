// VRFs and tables that come and go while thresholds are watched.
#include "platform/rib_threshold/test_support.h"

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
    Told();
  }
};

TEST_F(WatchedTables, DeletedVrfTakesItsNodesAway) {
  Exceed();
  DeleteVrf("red");
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_THAT(Standing(), IsEmpty());
}

TEST_F(WatchedTables, VrfThatComesBackIsClearedFirstAndWatchedAgain) {
  Exceed();
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
  SetRoutes(10, 5);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                  "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(WatchedTables, VrfThatWasBelowComesBackSilently) {
  SetRoutes(10, 3);
  Told();
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(WatchedTables, DeletedVrfWithoutThresholdsIsForgotten) {
  Exceed();
  DeleteVrf("red");
  Unconfigure("red");
  AddVrf("red", 10);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(WatchedTables, VrfThatConfigurationStillNamesIsClearedWhenItComesBack) {
  ASSERT_EQ(router_.reference_vrf("red"), kStatusOk);
  Exceed();
  DeleteVrf("red");
  Unconfigure("red");
  AddVrf("red", 10);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/0"));
}

TEST_F(WatchedTables, LastReferenceThatEndsForgetsTheVrf) {
  ASSERT_EQ(router_.reference_vrf("red"), kStatusOk);
  Exceed();
  DeleteVrf("red");
  Unconfigure("red");
  ASSERT_EQ(router_.unreference_vrf("red"), kStatusOk);
  AddVrf("red", 10);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(WatchedTables, OtherTableIsJudgedForItself) {
  Exceed();
  ChangeTables("red", 11, 11);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast clears maximum 11: 0/4"));
  EXPECT_THAT(Standing(), ElementsAre("red.ipv4.unicast clears maximum 11: 0/4"));
  SetRoutes(11, 3);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast exceeds mid 11: 3/2"));
}

TEST_F(WatchedTables, FamilyThatLosesItsTableIsClearedByTheOther) {
  Exceed();
  ChangeTables("red", 0, 10);
  EXPECT_THAT(Told(), ElementsAre("red.ipv6.unicast clears maximum 10: 0/0"));
}

TEST_F(WatchedTables, VrfThatLosesBothTablesIsClearedWhenItHasOneAgain) {
  Exceed();
  ChangeTables("red", 0, 0);
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_THAT(Standing(), IsEmpty());
  ChangeTables("red", 12, 0);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast clears maximum 12: 0/4"));
}

TEST_F(WatchedTables, SharedTableIsWatchedForTheFirstVrfInNameOrder) {
  AddVrf("blue", 10);
  Configure("blue", 1, 0);
  SetRoutes(10, 3);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast exceeds mid 10: 3/2")) << "shorter names are first";
  Configure("blue", 2, 1);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(WatchedTables, SharedTableGoesToTheNextVrfWhenTheFirstIsDeleted) {
  AddVrf("blue", 10);
  Configure("blue", 1, 0);
  Exceed();
  DeleteVrf("red");
  EXPECT_THAT(Told(), ElementsAre("blue.ipv4.unicast exceeds maximum 10: 5/1"));
  AddVrf("red", 10);
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                  "red.ipv4.unicast exceeds maximum 10: 5/4"));
  EXPECT_THAT(Standing(), ElementsAre("red.ipv4.unicast exceeds mid 10: 5/2",
                                      "red.ipv4.unicast exceeds maximum 10: 5/4"));
}

TEST_F(WatchedTables, ClearedStoreIsBelow) {
  Exceed();
  router_.routes().clear({router::Family::kIpv4, 10});
  router_.flush_route_changes();
  EXPECT_THAT(Told(), ElementsAre("red.ipv4.unicast clears maximum 10: 0/4"));
}

TEST_F(WatchedTables, NamesOfAnyOctetsAreKeys) {
  AddVrf("a/b %", 30);
  Configure("a/b %", 1, 0);
  SetRoutes(30, 1);
  EXPECT_THAT(Told(), ElementsAre("a/b %.ipv4.unicast exceeds maximum 30: 1/1"));
}

}  // namespace
}  // namespace rib_threshold
