// The node of each builder. That the daemon subscribes to these paths is a test of the daemon
// (configuration_items_test.cpp).
#include <gmock/gmock.h>

#include "platform/config/test_support.h"

namespace vrf_config {
namespace {

using Type = Target::Type;

constexpr char kVrfs[] = "/cfg/gl/vmap/vrf/red/";
constexpr Target kTarget = {Type::kTwoOctetAs, 65000, 1};

std::string of_red(const std::string& below) {
  return kVrfs + below;
}

TEST(Builders, DescriptionAndVniAreOfTheVrf) {
  EXPECT_EQ(shown(description("red", "Customer Red")),
            of_red("ord_a/vmap/ord_k/vmap/descr = 'Customer Red'"));
  EXPECT_EQ(shown(vni("red", 100)), of_red("ord_a/vmap/ord_l/evpn/vni = 100"));
}

TEST(Builders, ItemsOfAFamilyHaveItsAddressFamilyNumbers) {
  const std::string ipv4 = "ord_z/afi_safi/1/1/default/";
  const std::string ipv6 = "ord_z/afi_safi/2/1/default/";
  const std::string evpn = "ord_z/afi_safi/25/70/default/";
  EXPECT_EQ(shown(route_distinguisher("red", Family::kIpv6, {Type::kIpv4Address, 0x0a000001, 5})),
            of_red(ipv6 + "ord_b/bgp/ord_a/rd = '10.0.0.1:5'"));
  EXPECT_EQ(shown(route_target("red", Family::kEvpn, Direction::kImport, kTarget)),
            of_red(evpn + "ord_b/bgp/ord_c/import-rt/0/0/65000/1/0.0.0.0/0/0 = 1"));
  EXPECT_EQ(shown(route_policy("red", Family::kIpv4, Direction::kImport, "in")),
            of_red(ipv4 + "ord_b/bgp/ord_b/import-policy = 'in'"));
  EXPECT_EQ(shown(route_policy("red", Family::kIpv6, Direction::kExport, "out")),
            of_red(ipv6 + "ord_b/bgp/ord_d/export-policy = 'out'"));
  EXPECT_EQ(shown(route_threshold("red", Family::kIpv4, 4294967295, 80)),
            of_red(ipv4 + "ord_e/rib/table-prefix-limit = (4294967295, 80)"));
}

TEST(Builders, RouteTargetHasTheKeysOfItsType) {
  const std::vector<std::pair<Target, std::string>> targets = {
      {{Type::kTwoOctetAs, 65000, 4294967295}, "0/0/65000/4294967295/0.0.0.0/0/0"},
      {{Type::kTwoOctetAs, 0, 0}, "0/0/0/0/0.0.0.0/0/0"},
      {{Type::kIpv4Address, 0xc0000201, 65535}, "1/0/0/0/192.0.2.1/65535/0"},
      {{Type::kFourOctetAs, 4200000000, 65535}, "2/64086/59904/65535/0.0.0.0/0/0"},
      {{Type::kFourOctetAs, 65000, 1}, "2/0/65000/1/0.0.0.0/0/0"},
  };
  for (const auto& [target, keys] : targets) {
    EXPECT_EQ(shown(route_target("red", Family::kIpv4, Direction::kExport, target)),
              of_red("ord_z/afi_safi/1/1/default/ord_b/bgp/ord_e/export-rt/" + keys + " = 1"));
  }
}

TEST(Builders, BgpNeighborIsAnAddressOrAName) {
  const std::string instance = "/cfg/gl/ip-bgp/default/0/65000/ord_a/red/nbr/4/prov/";
  EXPECT_EQ(shown(bgp_neighbor("red", 65000, "192.0.2.1", Family::kIpv4)),
            instance + "default/1/192.0.2.1/ipv4 = 1");
  EXPECT_EQ(shown(bgp_neighbor("red", 65000, "2001:db8::1", Family::kIpv6)),
            instance + "default/2/2001:db8::1/ipv6 = 1");
  EXPECT_EQ(shown(bgp_neighbor("red", 65000, "ge0:1", Family::kIpv4)), instance + "ge0:1/1/-/ipv4 = 1");
}

TEST(Builders, ProtocolsAreOfAnInterface) {
  EXPECT_EQ(shown(rip_interface("red", "ge0")), "/cfg/gl/rip/ord_B/red/ord_t/if/ge0/ord_d/enabled = 1");
  EXPECT_EQ(shown(ripng_interface("red", "ge0")),
            "/cfg/gl/rip/ord_B/red/ord_t/if/%67%65%30/ord_d/enabled = 1");
  EXPECT_EQ(
      shown(ospf_interface("red", "1", 0x0a000001, "ge0")),
      "/cfg/gl/ipv4-ospf/proc/1/ord_a/red/ord_v/area/10.0.0.1/int/ord_i/name_scope/ge0/ord_A/running = 1");
  EXPECT_EQ(shown(eigrp_interface("red", 100, "ge0")),
            "/cfg/gl/eigrp/proc/100/red/ord_a/ord_m/af/ipv4/ord_t/if/ge0/ord_a/enabled = 1");
}

TEST(Builders, StaticRouteHasAnInterfaceANextHopOrNeither) {
  const auto route = [](const std::string& family, const std::string& keys) {
    return "/cfg/gl/static/router/ord_v/red/address/" + family + "/unicast/ord_c/topology/route/" + keys +
           " = 1";
  };
  EXPECT_EQ(shown(static_route("red", {Family::kIpv4, "10.1.0.0/16", "ge0", "192.0.2.1"})),
            route("ipv4", "10.1.0.0/16/-/-/nexthop/ge0/192.0.2.1"));
  EXPECT_EQ(shown(static_route("red", {Family::kIpv6, "2001:db8::/32", "", "2001:db8::1"})),
            route("ipv6", "2001:db8::/32/-/-/nexthop/-/2001:db8::1"));
  EXPECT_EQ(shown(static_route("red", {Family::kIpv4, "0.0.0.0/0", "", ""})),
            route("ipv4", "0.0.0.0/0/-/-/nexthop/-/-"));
}

TEST(Builders, OddNamesAreReadAsTheyAre) {
  for (const char* name : {"-", "a/b", "a b", "caf\xc3\xa9", "100%", "<s>", "..", "%2D", "\x01\xff"}) {
    EXPECT_EQ(vrf_of(description(name, "x").path), name);
    for (const KvConfigNode& node : {rip_interface(name, name), ripng_interface(name, name)}) {
      EXPECT_EQ(vrf_of(node.path), name);
      EXPECT_EQ(interface_of(node.path), name);
    }
  }
}

TEST(Builders, OneAddressIsOneItemHoweverItIsSpelt) {
  EXPECT_EQ(bgp_neighbor("red", 1, "2001:DB8:0:0::1", Family::kIpv6).path,
            bgp_neighbor("red", 1, "2001:db8::1", Family::kIpv6).path);
  EXPECT_EQ(static_route("red", {Family::kIpv6, "2001:DB8:0::/32", "", "fe80:0::1"}).path,
            static_route("red", {Family::kIpv6, "2001:db8::/32", "", "fe80::1"}).path);
  EXPECT_EQ(static_route("red", {Family::kIpv4, "10.1.2.3/12", "", ""}).path,
            static_route("red", {Family::kIpv4, "10.0.0.0/12", "", ""}).path);
}

TEST(Builders, TrapSwitchesAreBelowTheirPath) {
  EXPECT_EQ(shown(trap_switch("vrf-up", 1)), "/cfg/gl/snmp/enable/traps/l3vpnmib/vrf-up = 1");
  EXPECT_EQ(shown(trap_switch(kTrapReissueTime, 60)),
            "/cfg/gl/snmp/enable/traps/l3vpnmib/notif-reissue-time = 60");
}

}  // namespace
}  // namespace vrf_config
