// All services of a router model, attached and started as the daemon does.
#include "platform/router/services/services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/ifindex/ifindex.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/tree/kvtree.h"

namespace {

class RouterServices : public router::RouterTest {
 protected:
  RouterServices() : manager_(event_manager_create("/dev/mpls/vpn/main", 0), event_manager_destroy) {
    router_services_attach(&router_);
  }
  ~RouterServices() override {
    fault_disarm_all();
    router_services_stop(&router_);
    router_services_attach(nullptr);
    kvtree_reset();
  }
  void AddVrf(const std::string& name, std::uint32_t id) {
    router::Vrf vrf = MakeVrf(name, id);
    vrf.ipv4_table = id;
    vrf.rd = "65000:1";
    RouterTest::AddVrf(vrf);
  }
  void Run() {
    while (event_run_pending(manager_.get())) {
    }
  }

  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
  std::string error_;
};

TEST_F(RouterServices, AnswerFromTheAttachedModel) {
  AddVrf("red", 10);
  AddInterface("ge0", 7);
  std::uint32_t index = 0;
  char rd[64];
  EXPECT_NE(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  EXPECT_EQ(ifname_to_index("ge0", &index), kStatusOk);
  EXPECT_EQ(index, 7U);
  EXPECT_EQ(bgp_vpn_rd_get("red", rd, sizeof rd), kStatusOk);
  router_services_attach(nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  EXPECT_EQ(bgp_vpn_rd_get("red", rd, sizeof rd), kStatusUnavailable);
}

TEST_F(RouterServices, FollowTheConfigurationWhenStarted) {
  ASSERT_EQ(router_services_start(&router_, manager_.get(), &error_), kStatusOk) << error_;
  const KvConfigNode node = vrf_config::description("red", "Red Rail");
  ASSERT_EQ(kvtree_set(node.path, node.value), kStatusOk);
  Run();
  EXPECT_TRUE(router_.is_referenced("red"));
  router_services_stop(&router_);
  EXPECT_FALSE(router_.is_referenced("red"));
}

TEST_F(RouterServices, FailedStartNamesTheServiceAndCanBeRepeated) {
  const std::pair<const char*, const char*> failures[] = {
      {"config_references_start", "cannot follow the configuration: Input/output error"},
      {"rib_threshold_attach", "cannot watch the route thresholds: Input/output error"},
      {"vpn_events_attach", "cannot report changes of route distinguishers: Input/output error"}};
  for (const auto& [point, error] : failures) {
    fault_arm(point, kStatusIo);
    EXPECT_EQ(router_services_start(&router_, manager_.get(), &error_), kStatusIo);
    EXPECT_EQ(error_, error);
    router_services_stop(&router_);
  }
  EXPECT_EQ(router_services_start(&router_, manager_.get(), &error_), kStatusOk);
}

TEST_F(RouterServices, RoutesOfADeletedVrfAreFreedOnTheLoop) {
  ASSERT_EQ(router_services_start(&router_, manager_.get(), &error_), kStatusOk) << error_;
  AddVrf("red", 10);
  for (unsigned n = 0; n < 5000; ++n) {
    const std::string prefix = "10." + std::to_string(n / 250) + "." + std::to_string(n % 250) + ".0/24";
    ASSERT_EQ(router_.routes().put({router::Family::kIpv4, 10}, router::MakeRoute(prefix)), kStatusOk);
  }
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  EXPECT_TRUE(router_.routes().release_some(1)) << "not freed at once";
  Run();
  EXPECT_FALSE(router_.routes().release_some(1));
}

}  // namespace
