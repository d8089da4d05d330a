// The routing tables of the model's VRFs, and the notifications of route changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/router/model/route_test_support.h"
#include "platform/router/model/test_support.h"

namespace router {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr RouteTableId kTen{Family::kIpv4, 10};
constexpr RouteTableId kTen6{Family::kIpv6, 10};
constexpr RouteTableId kTwenty{Family::kIpv4, 20};

class TableListener : public Observer {
 public:
  explicit TableListener(Router* router) : router_(router) { router->observe(ObserverRank::kOther, this); }
  ~TableListener() override { router_->stop_observing(this); }
  TableListener(const TableListener&) = delete;
  TableListener& operator=(const TableListener&) = delete;

  void routes_changed(RouteTableId table) override {
    notified_.push_back(table);
    refusal_ = router_->delete_vrf("red");
  }
  void vrf_created(const Vrf& vrf) override { open_when_notified_ = IsOpen(vrf); }
  void vrf_deleted(const Vrf& vrf) override { open_when_notified_ = IsOpen(vrf); }

  std::vector<RouteTableId> notified_;
  Status refusal_ = kStatusOk;
  bool open_when_notified_ = false;

 private:
  bool IsOpen(const Vrf& vrf) const { return router_->routes().is_open({Family::kIpv4, vrf.ipv4_table}); }
  Router* router_;
};

class RoutingTables : public RouterModel {
 protected:
  static Vrf WithTables(const std::string& name, std::uint32_t id, std::uint32_t ipv4, std::uint32_t ipv6) {
    Vrf vrf = MakeVrf(name, id);
    vrf.ipv4_table = ipv4;
    vrf.ipv6_table = ipv6;
    return vrf;
  }
  void AddVrf(const std::string& name, std::uint32_t id, std::uint32_t ipv4, std::uint32_t ipv6) {
    RouterTest::AddVrf(WithTables(name, id, ipv4, ipv6));
  }
  void AddRoute(RouteTableId table, const std::string& prefix) {
    ASSERT_EQ(router_.routes().put(table, MakeRoute(prefix)), kStatusOk);
  }
};

TEST_F(RoutingTables, OpenWithTheirVrf) {
  EXPECT_FALSE(router_.routes().is_open(kTen));
  TableListener listener(&router_);
  AddVrf("red", 10, 10, 10);
  EXPECT_TRUE(router_.routes().is_open(kTen));
  EXPECT_TRUE(router_.routes().is_open(kTen6));
  EXPECT_TRUE(listener.open_when_notified_);
}

TEST_F(RoutingTables, FamilyWithoutATableHasNone) {
  AddVrf("red", 10, 10, 0);
  EXPECT_TRUE(router_.routes().is_open(kTen));
  EXPECT_FALSE(router_.routes().is_open(kTen6));
}

TEST_F(RoutingTables, AreClosedBeforeTheDeletionOfTheirVrfIsNotified) {
  TableListener listener(&router_);
  AddVrf("red", 10, 10, 10);
  AddRoute(kTen, "10.0.0.0/8");
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_FALSE(router_.routes().is_open(kTen));
  EXPECT_FALSE(listener.open_when_notified_);
  EXPECT_EQ(router_.routes().total(), 0U);
}

TEST_F(RoutingTables, SharedTableStaysWhileOneVrfHasIt) {
  AddVrf("red", 10, 10, 0);
  AddVrf("blue", 11, 10, 0);
  AddRoute(kTen, "10.0.0.0/8");
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_EQ(router_.routes().count(kTen), 1U);
  ASSERT_EQ(router_.delete_vrf("blue"), kStatusOk);
  EXPECT_FALSE(router_.routes().is_open(kTen));
}

TEST_F(RoutingTables, UnchangedTableOfAChangedVrfRetainsItsRoutes) {
  AddVrf("red", 10, 10, 10);
  AddRoute(kTen, "10.0.0.0/8");
  AddRoute(kTen6, "2001:db8::/32");
  ASSERT_EQ(router_.change_vrf(WithTables("red", 10, 10, 0)), kStatusOk);
  EXPECT_EQ(router_.routes().count(kTen), 1U);
  EXPECT_FALSE(router_.routes().is_open(kTen6));
  ASSERT_EQ(router_.change_vrf(WithTables("red", 10, 20, 0)), kStatusOk);
  EXPECT_FALSE(router_.routes().is_open(kTen));
  EXPECT_TRUE(router_.routes().is_open(kTwenty));
}

TEST_F(RoutingTables, RefusedVrfOpensNothing) {
  AddVrf("red", 10, 10, 10);
  EXPECT_EQ(router_.create_vrf(WithTables("red", 11, 20, 20)), kStatusExists);
  EXPECT_FALSE(router_.routes().is_open(kTwenty));
}

TEST_F(RoutingTables, ChangesAreNotifiedOncePerTableAndBatch) {
  TableListener listener(&router_);
  AddVrf("red", 10, 10, 10);
  AddVrf("blue", 20, 20, 0);
  AddRoute(kTen, "10.0.0.0/8");
  AddRoute(kTen, "11.0.0.0/8");
  AddRoute(kTwenty, "11.0.0.0/8");
  EXPECT_THAT(listener.notified_, IsEmpty());
  router_.flush_route_changes();
  EXPECT_THAT(listener.notified_, ElementsAre(kTen, kTwenty));
  router_.flush_route_changes();
  EXPECT_EQ(listener.notified_.size(), 2U);
}

TEST_F(RoutingTables, ObserversOfRoutesMayNotChangeTheModel) {
  TableListener listener(&router_);
  AddVrf("red", 10, 10, 10);
  AddRoute(kTen, "10.0.0.0/8");
  router_.flush_route_changes();
  EXPECT_EQ(listener.refusal_, kStatusDeadlock);
  EXPECT_NE(router_.find_vrf("red"), nullptr);
}

}  // namespace
}  // namespace router
