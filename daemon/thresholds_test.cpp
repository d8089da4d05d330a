// Route thresholds through the whole process: the router's tables, the service that watches them, and the
// daemon, to the notification that a watching client receives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "mpls/vpn/mib/src/configuration/config_test_support.h"
#include "mpls/vpn/mib/src/traps/trap_test_support.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/rib_threshold/records.h"
#include "platform/router/rib_threshold/rib_threshold.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kSwitches[] = "/cfg/gl/snmp/enable/traps/l3vpnmib/";

// VRF "red" with the maximum 4 and the mid threshold 2 for IPv4, and every notification switched on.
class Thresholds : public Configured<TrapTest> {
 protected:
  Thresholds() { registers_at_once_ = false; }
  void SetUp() override {
    Configured::SetUp();
    ASSERT_EQ(rib_threshold_attach(&router_, manager_), kStatusOk);
    Register();
    table_ = AddVrf("red");
    SetNumber("all", 1);
    SetPair(LimitOf(1), 4, 2);
    ClearPrints();
  }
  void TearDown() override {
    rib_threshold_detach();
    Configured::TearDown();
  }

  static std::string LimitOf(unsigned afi) {
    return "/cfg/gl/vmap/vrf/red/ord_z/afi_safi/" + std::to_string(afi) +
           "/1/default/ord_e/rib/table-prefix-limit";
  }
  void SetNumber(const std::string& item, std::int64_t number) {
    KvValue value;
    value.type = KvValueType::kNumber;
    value.number = number;
    Set(kSwitches + item, value);
  }
  // Nothing is delivered to the daemon yet.
  void PutRoutes(std::size_t count, router::Family family = router::Family::kIpv4) {
    const router::RouteTableId id{family, table_};
    router::RouteStore& routes = router_.routes();
    const auto route = [&](std::size_t n) {
      return router::MakeRoute(family == router::Family::kIpv4 ? "10." + std::to_string(n) + ".0.0/16"
                                                               : "2001:db8:" + std::to_string(n) + "::/48");
    };
    while (routes.count(id) < count) ASSERT_EQ(routes.put(id, route(routes.count(id) + 1)), kStatusOk);
    while (routes.count(id) > count) ASSERT_EQ(routes.erase(id, route(routes.count(id)).key), kStatusOk);
    router_.flush_route_changes();
  }
  void SetRoutes(std::size_t count, router::Family family = router::Family::kIpv4) {
    PutRoutes(count, family);
    Run();
  }
  void AddSharing(const std::string& name);
  // The re-issue timer finds no VRF above its maximum.
  void ExpectSilence();
  void PassOneSecond() {
    PassSeconds(1);
    Run();
  }
  // Another process: what this one derived is lost.
  void RestartProcess() {
    rib_threshold_detach();
    ASSERT_EQ(rib_threshold_attach(&router_, manager_), kStatusOk);
    RestartDaemon();
  }
  static std::string Exceeded(const std::string& numbers) {
    return "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red " + numbers;
  }
  static std::string Cleared(const std::string& numbers) {
    return "mplsL3VpnNumVrfRouteMaxThreshCleared red " + numbers;
  }
  static std::string Mid(const std::string& numbers) {
    return "mplsL3VpnVrfRouteMidThreshExceeded red " + numbers;
  }
  std::uint32_t table_ = 0;
};

TEST_F(Thresholds, RoutesPastMidAndMaximumRaiseOneNotificationEachAndOneBelow) {
  SetRoutes(2);
  EXPECT_THAT(Traps(), IsEmpty());
  SetRoutes(3);
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=3")));
  SetRoutes(4);
  EXPECT_THAT(Traps(), ElementsAre(Exceeded("high=4 routes=4")));
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 1U);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 4U);
  SetRoutes(6);
  EXPECT_THAT(Traps(), IsEmpty());
  SetRoutes(3);
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4 routes=3")));
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
}

TEST_F(Thresholds, MaximumIsRaisedAgainEverySecondUntilItIsCleared) {
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4);
  Traps();
  for (int second = 0; second < 3; ++second) {
    PassOneSecond();
    EXPECT_THAT(Traps(), ElementsAre(Exceeded("high=4 routes=4")));
  }
  SetRoutes(1);
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4 routes=1")));
  PassOneSecond();
  PassOneSecond();
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(Thresholds, MaximumIsRaisedAgainWhileOneFamilyIsStillThere) {
  SetPair(LimitOf(2), 3, 0);
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4, router::Family::kIpv4);
  SetRoutes(3, router::Family::kIpv6);
  Traps();
  SetRoutes(1, router::Family::kIpv4);
  EXPECT_THAT(Traps(), IsEmpty());
  PassOneSecond();
  EXPECT_THAT(Traps(), ElementsAre(Exceeded("high=3 routes=3")));
  SetRoutes(2, router::Family::kIpv6);
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=3 routes=2")));
  PassOneSecond();
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(Thresholds, ChangedThresholdsAreEvaluatedAtOnce) {
  SetRoutes(3);
  Traps();
  SetPair(LimitOf(1), 3, 2);
  EXPECT_THAT(Traps(), ElementsAre(Exceeded("high=3 routes=3")));
  Delete(LimitOf(1));
  EXPECT_THAT(Traps(), ElementsAre(Cleared("routes=3")));
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
}

TEST_F(Thresholds, ProcessThatStartsAboveTheMaximumReportsItOnce) {
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4);
  Traps();
  RestartProcess();
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=4"), Exceeded("high=4 routes=4")));
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 1U);
  EXPECT_EQ(AttributesOf("red")->curr_num_routes, 4U);
  PassOneSecond();
  EXPECT_THAT(Traps(), ElementsAre(Exceeded("high=4 routes=4")));
  SetRoutes(3);
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4 routes=3")));
}

TEST_F(Thresholds, ProcessThatStartsBelowReportsNothing) {
  SetRoutes(1);
  RestartProcess();
  EXPECT_THAT(Traps(), IsEmpty());
}

// --- VRFs that lose their tables while above: nothing may raise the maximum again.

// A second VRF with the table of "red".
void Thresholds::AddSharing(const std::string& name) {
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.name = name;
  vrf.id = 1000;
  ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
}

void Thresholds::ExpectSilence() {
  EXPECT_EQ(AttributesOf("red")->high_thresh_exceeded, 0U);
  PassOneSecond();
  PassOneSecond();
  EXPECT_THAT(Traps(), IsEmpty());
}

// Its record remains, because configuration names the VRF.
TEST_F(Thresholds, VrfThatIsDeletedAboveItsMaximumIsCleared) {
  NameVrf("red");
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4);
  Traps();
  const router::Vrf red = *router_.find_vrf("red");
  DeleteVrf("red");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4")));
  ExpectSilence();
  Delete(LimitOf(1));
  ExpectSilence();
  ASSERT_EQ(router_.create_vrf(red), kStatusOk);
  SetPair(LimitOf(1), 4, 2);
  ExpectSilence();
  SetRoutes(4);
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=4"), Exceeded("high=4 routes=4")));
}

TEST_F(Thresholds, VrfDeletedBeforeTheMaximumIsDeliveredIsClearedInOrder) {
  NameVrf("red");
  SetNumber("notif-reissue-time", 1);
  PutRoutes(4);
  DeleteVrf("red");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=4"), Exceeded("high=4 routes=4"), Cleared("high=4")));
  ExpectSilence();
}

TEST_F(Thresholds, TableTakenOverByAnotherVrfIsNotReportedForThatVrf) {
  NameVrf("red");
  SetNumber("notif-reissue-time", 1);
  PutRoutes(4);
  router::Vrf next = *router_.find_vrf("red");
  DeleteVrf("red");
  next.name = "a";
  ASSERT_EQ(router_.create_vrf(next), kStatusOk);
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=4"), Exceeded("high=4 routes=4"), Cleared("high=4")));
  EXPECT_EQ(AttributesOf("a")->curr_num_routes, 0U);
  ExpectSilence();
}

TEST_F(Thresholds, VrfWhoseTableIsWatchedForAnotherOneIsCleared) {
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4);
  Traps();
  AddSharing("a");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4")));
  ExpectSilence();
  DeleteVrf("a");
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Mid("mid=2 routes=4"), Exceeded("high=4 routes=4")));
}

TEST_F(Thresholds, VrfThatLosesBothTablesIsCleared) {
  SetNumber("notif-reissue-time", 1);
  SetRoutes(4);
  Traps();
  router::Vrf red = *router_.find_vrf("red");
  red.ipv4_table = red.ipv6_table = 0;
  ASSERT_EQ(router_.change_vrf(red), kStatusOk);
  Run();
  EXPECT_THAT(Traps(), ElementsAre(Cleared("high=4")));
  ExpectSilence();
}

}  // namespace
