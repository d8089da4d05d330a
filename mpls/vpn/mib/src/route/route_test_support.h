// For tests: the daemon with routing tables and the modules that read them, and walks through the data store.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/provider/path_table.h"
#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "mpls/vpn/mib/src/walk/columns.h"
#include "mpls/vpn/mib/src/walk/walk.h"
#include "platform/router/lfx/lfx.h"
#include "platform/router/model/route_test_support.h"

class RouteTablesTest : public DaemonTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", MPLS_BUILD_LIB_DIR, 1), 0);
    DaemonTest::SetUp();
  }
  void TearDown() override {
    mpls_vpn_mib_route_modules_end();
    kvtree_reset();
    DaemonTest::TearDown();
    unsetenv("MPLS_VPN_MIB_LIB_DIR");
  }

  // A VRF with the next free id and the given tables, whose numbers derive from the id.
  void AddVrfWithTables(const std::string& name, bool ipv4, bool ipv6, bool ipv4_multicast = false,
                        bool ipv6_multicast = false) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = ++last_id_;
    vrf.ipv4_table = ipv4 ? 10 * vrf.id + 1 : 0;
    vrf.ipv6_table = ipv6 ? 10 * vrf.id + 2 : 0;
    vrf.ipv4_multicast_table = ipv4_multicast ? 10 * vrf.id + 3 : 0;
    vrf.ipv6_multicast_table = ipv6_multicast ? 10 * vrf.id + 4 : 0;
    ASSERT_EQ(router_.create_vrf(vrf), kStatusOk) << name;
  }
  // The VRF is in the VRF database.
  void ServeVrf(const std::string& name, std::uint32_t flags = 0, const std::string& rd = "") {
    AddVrf(name, flags, rd);
    Connect();
  }
  void AddActiveInterface(const std::string& name, const std::string& vrf) {
    AddInterface(name, vrf);
    AddAddress(name, "192.0.2.1/24");
    LinkUp(name);
  }
  static void AddRouteTarget(const char* vrf, std::int32_t type, const char* value, std::uint32_t afi = 1,
                             std::uint32_t safi = 1) {
    ASSERT_NE(mpls_vpn_mib_create_rt_wavl_node(vrf, type, value, afi, safi), nullptr);
  }
  // Adds the VRF to the VRF database, without the membership service.
  static void HoldInDatabase(const char* vrf, VtabVrfRecord* record) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL() << vrf;
    const VrfNode* node = mpls_vpn_mib_create_vrf_wavl_node(vrf, record);
    ASSERT_NE(node, nullptr) << vrf;
  }

  // "10.1.0.0/16" and "192.0.2.1" in the VRF's unicast table of that family; without next hop a local route.
  void AddRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop = "") {
    AddRoute(vrf, router::MakeRoute(prefix, next_hop), FamilyOf(prefix));
  }
  void AddRoute(const std::string& vrf, const router::Route& route,
                router::Family family = router::Family::kIpv4) {
    ASSERT_EQ(router_.routes().put(TableOf(vrf, family), route), kStatusOk);
  }
  // In the VRF's multicast table of that family, which the model itself keeps no routes of.
  void AddMulticastRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop) {
    const router::Vrf* found = router_.find_vrf(vrf);
    ASSERT_NE(found, nullptr) << vrf;
    const router::Family family = FamilyOf(prefix);
    const router::RouteTableId table = {
        family, family == router::Family::kIpv4 ? found->ipv4_multicast_table : found->ipv6_multicast_table};
    if (!router_.routes().is_open(table)) router_.routes().open(table);
    ASSERT_EQ(router_.routes().put(table, router::MakeRoute(prefix, next_hop)), kStatusOk);
  }
  void RemoveRoute(const std::string& vrf, const std::string& prefix, const std::string& next_hop = "") {
    ASSERT_EQ(router_.routes().erase(TableOf(vrf, FamilyOf(prefix)), router::MakeKey(prefix, next_hop)),
              kStatusOk);
  }
  static router::Family FamilyOf(const std::string& address) {
    return address.find(':') == std::string::npos ? router::Family::kIpv4 : router::Family::kIpv6;
  }
  router::RouteTableId TableOf(const std::string& vrf, router::Family family) const {
    const router::Vrf* found = router_.find_vrf(vrf);
    EXPECT_NE(found, nullptr) << vrf;
    if (found == nullptr) return {family, 0};
    return {family, family == router::Family::kIpv4 ? found->ipv4_table : found->ipv6_table};
  }
  // "red 10.1.0.0/16 via 192.0.2.1", without " via" for a row without next hop.
  static std::string RouteText(const mpls_vpn_mib_route& row) {
    router::RouteKey key;
    for (std::uint64_t i = 0; i < row.dest.length; ++i) key.destination[i] = row.dest.octets[i];
    for (std::uint64_t i = 0; i < row.nextHop.length; ++i) key.next_hop[i] = row.nextHop.octets[i];
    key.prefix_length = static_cast<std::uint8_t>(row.mask);
    const router::Family family = row.destType == 1 ? router::Family::kIpv4 : router::Family::kIpv6;
    return std::string(row.vrfName) + " " + router::Text(family, key);
  }

  // Serves the provider's paths from the data store.
  void Provide() {
    KvConnection* connection = nullptr;
    ASSERT_EQ(kvtree_bind(&connection, "/oper/mpls_vpn/gl/", kKvBindProvider), kStatusOk);
    KvProviderFunctions functions;
    ASSERT_EQ(kvtree_init_prov_functions(&functions), kStatusOk);
    functions.get = [](const KvRequest* request, KvReply* reply) {
      return kvtree_match_get(request, &mpls_vpn_mib_prov_paths, reply);
    };
    functions.list = [](const KvRequest* request, KvListReply* reply) {
      return kvtree_match_list(request, &mpls_vpn_mib_prov_paths, reply);
    };
    functions.datalist = [](const KvRequest* request, KvListReply* reply) {
      return kvtree_match_datalist(request, &mpls_vpn_mib_prov_paths, reply);
    };
    functions.walk_rules = mpls_vpn_mib_walk_rules;
    functions.walk_rule_count = mpls_vpn_mib_walk_rule_count;
    functions.column_rules = mpls_vpn_mib_column_rules;
    functions.column_rule_count = mpls_vpn_mib_column_rule_count;
    ASSERT_EQ(kvtree_register_prov2(connection, "", manager_, &functions, 0, 1), kStatusOk);
  }
  // One walk from `path` on, encoded rows.
  static std::vector<std::vector<std::uint8_t>> WalkOnce(const std::string& path, std::uint32_t max_rows,
                                                         bool* end) {
    std::vector<std::vector<std::uint8_t>> rows;
    const Status rc = kvtree_walk("/oper/mpls_vpn/gl/" + path, false, max_rows, &rows, end);
    if (rc == kStatusNoSuchRow) *end = true;
    EXPECT_TRUE(rc == kStatusOk || rc == kStatusNoSuchRow) << path << ": " << err_text(rc);
    return rows;
  }

 private:
  std::uint32_t last_id_ = 500;
};
