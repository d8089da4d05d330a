// The tables of paths, row by row.
#include "mpls/vpn/mib/src/provider/path_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mpls/vpn/mib/src/configuration/threshold_events.h"
#include "mpls/vpn/mib/src/interface/entry.h"
#include "mpls/vpn/mib/src/provider/scalars.h"
#include "mpls/vpn/mib/src/route/entry.h"
#include "mpls/vpn/mib/src/route_target/entry.h"
#include "mpls/vpn/mib/src/vrf/entry.h"
#include "mpls/vpn/mib/src/vrf/lists.h"
#include "mpls/vpn/mib/src/vrf/show.h"

namespace {

using testing::ElementsAre;

// "pattern mode", a row each; mode in hexadecimal.
std::vector<std::string> rows_of(const KvPathTable& table) {
  std::vector<std::string> rows;
  for (std::size_t i = 0; i < table.count; ++i) {
    char mode[16];
    std::snprintf(mode, sizeof mode, " %x", table.rows[i].handlers.mode);
    rows.push_back(table.rows[i].pattern + std::string(mode));
  }
  return rows;
}

void expect_handlers(const KvPathTable& table, const std::vector<KvHandlerEntry>& handlers) {
  ASSERT_EQ(table.count, handlers.size());
  for (std::size_t i = 0; i < handlers.size(); ++i) {
    const KvHandlerEntry& entry = table.rows[i].handlers;
    EXPECT_EQ(entry.notify, handlers[i].notify) << table.rows[i].pattern;
    EXPECT_EQ(entry.get, handlers[i].get) << table.rows[i].pattern;
    EXPECT_EQ(entry.list, handlers[i].list) << table.rows[i].pattern;
    EXPECT_EQ(entry.datalist, handlers[i].datalist) << table.rows[i].pattern;
  }
}

const KvHandlerEntry kMidEvent = {.notify = mpls_vpn_mib_mid_thresh_exceeded_notify};
const KvHandlerEntry kMaxEvent = {.notify = mpls_vpn_mib_high_thresh_exceeded_notify};

TEST(PathTables, ProviderPathsInMatchOrder) {
  EXPECT_THAT(rows_of(mpls_vpn_mib_prov_paths),
              ElementsAre("scalars 0", "interface/<s>/<n> 0", "interface-next/<s>/<n> 100", "vrf/<s> 0",
                          "vrf-next/<s> 100", "vrf-detail/<s> 0", "vrf-detail-filter/<s>/<n>/<n>/<s> 100",
                          "vrf-invalid-detail/<s> 0", "rt/<s>/<n>/<n> 0", "rt-next/<s>/<n>/<n> 100",
                          "route/<s>/<n>/<n>/<n>/<s>/<s> 0", "route-next/<s>/<n>/<n>/<n>/<s>/<s> 100",
                          "<s>/mid-thresh-exc 0", "<s>/max-thresh-exc 0"));
  const auto get = [](KvGetHandler handler) { return KvHandlerEntry{.get = handler}; };
  const auto lists = [](KvGetHandler handler) {
    return KvHandlerEntry{0, nullptr, handler, mpls_vpn_prov_list_vrf, mpls_vpn_prov_datalist_vrf};
  };
  expect_handlers(mpls_vpn_mib_prov_paths,
                  {get(mpls_vpn_mib_prov_get_scalars),
                   get(mpls_vpn_mib_prov_get_interface),
                   get(mpls_vpn_mib_prov_get_interface),
                   get(mpls_vpn_mib_prov_get_vrf),
                   get(mpls_vpn_mib_prov_get_vrf),
                   lists(mpls_vpn_mib_prov_get_vrf_show),
                   lists(nullptr),
                   {0, nullptr, mpls_vpn_mib_prov_get_vrf_invalid, mpls_vpn_prov_list_vrf_invalid,
                    mpls_vpn_prov_datalist_vrf_invalid},
                   get(mpls_vpn_mib_prov_get_rt),
                   get(mpls_vpn_mib_prov_get_rt),
                   get(mpls_vpn_mib_prov_get_route),
                   get(mpls_vpn_mib_prov_get_route),
                   kMidEvent,
                   kMaxEvent});
}

TEST(PathTables, VrfConfiguration) {
  EXPECT_THAT(rows_of(mpls_vpn_mib_vrf_paths),
              ElementsAre("vrf/<s>/ord_a/vmap/ord_k/vmap/descr 3",
                          "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_c/import-rt/"
                          "<n>/<n>/<n>/<n>/<ip4>/<n>/<n> 1",
                          "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_e/export-rt/"
                          "<n>/<n>/<n>/<n>/<ip4>/<n>/<n> 1",
                          "vrf/<s>/ord_z/afi_safi/<n>/<n>/<s>/ord_e/rib/table-prefix-limit 5",
                          "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_b/import-policy 3",
                          "vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_d/export-policy 3"));
}

TEST(PathTables, RoutingProtocols) {
  EXPECT_THAT(rows_of(mpls_vpn_mib_bgp_paths),
              ElementsAre("<s>/<x>/<x>/<s>/<s>/nbr/<n>/prov/<s>/<n>/<ad>/<s> 1"));
  EXPECT_THAT(rows_of(mpls_vpn_mib_rip_paths), ElementsAre("<s>/ord_t/if/<i>/ord_d/enabled 1"));
  EXPECT_THAT(rows_of(mpls_vpn_mib_ospf_paths),
              ElementsAre("<s>/<s>/<s>/ord_v/area/<ip4>/<x>/ord_i/name_scope/<i>/ord_A/running 1"));
  EXPECT_THAT(rows_of(mpls_vpn_mib_eigrp_paths),
              ElementsAre("<s>/<s>/<s>/ord_m/af/<*>/ord_t/if/<i>/ord_a/enabled 1"));
  EXPECT_THAT(rows_of(mpls_vpn_mib_static_paths),
              ElementsAre("<s>/address/<s>/<s>/ord_c/<*>/route/<ad>/<x>/<s>/<s>/nexthop/<i>/<ad> 5"));
}

TEST(PathTables, Thresholds) {
  EXPECT_THAT(rows_of(mpls_vpn_mib_threshold_paths),
              ElementsAre("<s>/mid-thresh-exc 0", "<s>/max-thresh-exc 0"));
  expect_handlers(mpls_vpn_mib_threshold_paths, {kMidEvent, kMaxEvent});
}

}  // namespace
