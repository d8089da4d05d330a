// BGP in a running configuration: VPN items and neighbors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "sources/frr/parser/running_config_test_support.h"

namespace {

using frr::BgpInstance;
using frr::LineError;
using frr::parse_running_config;
using frr::RunningConfig;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vrf_config::Target;

std::vector<std::string> texts(const std::vector<Target>& targets) {
  std::vector<std::string> list;
  for (const Target& target : targets) list.push_back(vrf_config::target_text(target));
  return list;
}

// --- BGP: VPN items ---

TEST(BgpOfAVrf, InstanceHasItsVrfAndAsNumber) {
  const BgpInstance instance = only_instance("router bgp 65000 vrf red\nexit\n");
  EXPECT_EQ(instance.vrf, "red");
  EXPECT_EQ(instance.as_number, 65000U);
}

TEST(BgpOfAVrf, AsNumberMayBeOfFourOctetsAndInTwoNotations) {
  EXPECT_EQ(only_instance("router bgp 4200000000 vrf red\n").as_number, 4200000000U);
  EXPECT_EQ(only_instance("router bgp 1.10 vrf red as-notation dot\n").as_number, 65546U);
}

TEST(BgpOfAVrf, InstancesOfTheDefaultVrfAndOfViewsAreNotVpns) {
  const RunningConfig config = parse_running_config(
      "router bgp 65000\n neighbor 10.0.0.1 remote-as 1\n address-family ipv4 unicast\n  rd vpn export 1:1\n"
      "router bgp 65000 vrf default\nrouter bgp 65000 view red\n");
  EXPECT_THAT(config.bgp, IsEmpty());
  EXPECT_THAT(config.errors, IsEmpty());
}

TEST(BgpOfAVrf, RouteDistinguisherIsOfAnAddressFamily) {
  const BgpInstance instance = only_instance(
      "router bgp 65000 vrf red\n !\n address-family ipv4 unicast\n  rd vpn export 65000:10\n "
      "exit-address-family\n"
      " !\n address-family ipv6 unicast\n  rd vpn export 10.0.0.1:6\n exit-address-family\nexit\n");
  ASSERT_TRUE(instance.families[0].rd && instance.families[1].rd);
  EXPECT_EQ(vrf_config::target_text(*instance.families[0].rd), "65000:10");
  EXPECT_EQ(vrf_config::target_text(*instance.families[1].rd), "10.0.0.1:6");
}

TEST(BgpOfAVrf, LineMayHaveSeveralRouteTargets) {
  const BgpInstance instance =
      only_instance(family_of("ipv4 unicast", "  rt vpn import 65000:10 10.0.0.1:99 4200000000:30\n"));
  EXPECT_THAT(texts(instance.families[0].imports), ElementsAre("65000:10", "10.0.0.1:99", "4200000000:30"));
  EXPECT_THAT(instance.families[0].exports, IsEmpty());
}

TEST(BgpOfAVrf, BothInOneLineImportsAndExports) {
  const BgpInstance instance = only_instance(family_of("ipv6 unicast", "  rt vpn both 65000:10 65000:11\n"));
  EXPECT_THAT(texts(instance.families[1].imports), ElementsAre("65000:10", "65000:11"));
  EXPECT_THAT(texts(instance.families[1].exports), ElementsAre("65000:10", "65000:11"));
  EXPECT_THAT(instance.families[0].imports, IsEmpty());
}

TEST(BgpOfAVrf, SecondListReplacesTheFirst) {
  const BgpInstance instance = only_instance(family_of(
      "ipv4 unicast", "  rt vpn both 65000:1\n  rt vpn import 65000:2\n  route-target vpn export 65000:3\n"));
  EXPECT_THAT(texts(instance.families[0].imports), ElementsAre("65000:2"));
  EXPECT_THAT(texts(instance.families[0].exports), ElementsAre("65000:3"));
}

TEST(BgpOfAVrf, RouteMapsAreItsPolicies) {
  const BgpInstance instance = only_instance(
      family_of("ipv4 unicast", "  route-map vpn import RM-IN\n  route-map vpn export RM-OUT\n"));
  EXPECT_EQ(instance.families[0].import_policy, "RM-IN");
  EXPECT_EQ(instance.families[0].export_policy, "RM-OUT");
}

TEST(BgpOfAVrf, VpnItemsCountInUnicastOnly) {
  for (const char* family : {"ipv4 multicast", "ipv4 labeled-unicast", "l2vpn evpn"}) {
    const BgpInstance instance = only_instance(family_of(family, "  rd vpn export 65000:10\n"));
    EXPECT_FALSE(instance.families[0].rd) << family;
  }
}

TEST(BgpOfAVrf, LinesAfterItsFamilyAreOfTheInstance) {
  const BgpInstance instance =
      only_instance(family_of("ipv4 unicast", "") + "route-map RM permit 10\n  rd vpn export 65000:10\n");
  EXPECT_FALSE(instance.families[0].rd);
}

TEST(BgpOfAVrf, NextStanzaEndsAFamilyThatWasNotClosed) {
  const RunningConfig config = parse_running_config(
      "router bgp 1 vrf red\n address-family ipv6 unicast\n  rd vpn export 1:1\n"
      "router bgp 1 vrf blue\n neighbor 10.0.0.1 remote-as 2\n");
  ASSERT_THAT(config.bgp, SizeIs(2));
  EXPECT_THAT(config.bgp[1].neighbors, SizeIs(1));
}

TEST(BgpOfAVrf, InvalidItemIsAnErrorWithItsLine) {
  EXPECT_EQ(only_error(family_of("ipv4 unicast", "  rd vpn export red\n")),
            (LineError{4, "'red' is not a route distinguisher"}));
  EXPECT_EQ(only_error(family_of("ipv4 unicast", "  rt vpn both 65000:1 65000\n")),
            (LineError{4, "'65000' is not a route target"}));
  EXPECT_EQ(only_error(family_of("l2vpn evpn", "  rd x\n")),
            (LineError{4, "'x' is not a route distinguisher"}));
  EXPECT_EQ(only_error(family_of("l2vpn evpn", "  route-target both 1\n")),
            (LineError{4, "'1' is not a route target"}));
  EXPECT_EQ(only_error("!\nrouter bgp 4294967296 vrf red\n"),
            (LineError{2, "'4294967296' is not an AS number"}));
}

TEST(BgpOfAVrf, ListWithAnInvalidItemIsLeftOut) {
  const RunningConfig config = parse_running_config(
      family_of("ipv4 unicast", "  rt vpn both 65000:1 65000\n  rd vpn export 65000:2\n"));
  EXPECT_THAT(config.bgp[0].families[0].imports, IsEmpty());
  EXPECT_TRUE(config.bgp[0].families[0].rd);
}

// Each route target has a line of its own, as both versions of the suite print them.
TEST(BgpOfAVrf, EvpnHasAnRdAndListsOfTargets) {
  const BgpInstance instance = only_instance(family_of(
      "l2vpn evpn",
      "  advertise ipv4 unicast\n  rd 10.1.1.1:5\n  route-target import *:600\n"
      "  route-target import 65000:500\n  route-target import auto\n  route-target both 4200000000:7\n"
      "  route-target export 65000:700\n"));
  EXPECT_EQ(vrf_config::target_text(instance.families[2].rd.value()), "10.1.1.1:5");
  EXPECT_THAT(texts(instance.families[2].imports), ElementsAre("0:600", "65000:500", "4200000000:7"));
  EXPECT_THAT(texts(instance.families[2].exports), ElementsAre("4200000000:7", "65000:700"));
  EXPECT_FALSE(instance.families[0].rd);
}

TEST(BgpOfAVrf, EvpnOfTheDefaultVrfIsNotAVpn) {
  const RunningConfig config = parse_running_config(
      "router bgp 65000\n address-family l2vpn evpn\n  advertise-all-vni\n  vni 100\n   rd 1:1\n"
      "   route-target import 1:1\n  exit-vni\n exit-address-family\nexit\n");
  EXPECT_THAT(config.bgp, IsEmpty());
  EXPECT_TRUE(config.has_evpn);
  EXPECT_FALSE(config.imports_by_name);
}

TEST(BgpOfAVrf, ImportByNameIsSeenInEveryInstance) {
  const std::string lines = " address-family ipv6 unicast\n  import vrf blue\n exit-address-family\nexit\n";
  EXPECT_TRUE(parse_running_config("router bgp 65000 vrf red\n" + lines).imports_by_name);
  EXPECT_TRUE(parse_running_config("router bgp 65000\n" + lines).imports_by_name);
  EXPECT_FALSE(parse_running_config(family_of("ipv4 unicast", "  import vpn\n")).imports_by_name);
}

TEST(BgpOfAVrf, RouteMapOfImportsByNameIsTheImportPolicy) {
  const BgpInstance instance =
      only_instance(family_of("ipv4 unicast", "  import vrf route-map RM\n  import vrf blue\n"));
  EXPECT_EQ(instance.families[0].import_policy, "RM");
}

// What 10.3 prints with "as-notation dot+": RDs as they were typed, route targets in asplain.
TEST(BgpOfAVrf, NumbersOfTwoOctetsMayBeInAsdot) {
  const BgpInstance instance = only_instance(
      "router bgp 65547 vrf blue as-notation dot+\n address-family ipv4 unicast\n"
      "  rd vpn export 0.65000:100000\n  rt vpn both 65547:6 0.65000:7 10.0.0.1:8\n exit-address-family\n"
      " address-family l2vpn evpn\n  rd 1.10:9\n");
  const Target rd = instance.families[0].rd.value();
  EXPECT_EQ(rd, (Target{Target::Type::kTwoOctetAs, 65000, 100000}));
  EXPECT_THAT(texts(instance.families[0].imports), ElementsAre("65547:6", "65000:7", "10.0.0.1:8"));
  EXPECT_EQ(vrf_config::target_text(instance.families[2].rd.value()), "65546:9");
}

// --- BGP: neighbors ---

TEST(BgpNeighbors, AreKnownByAddressInterfaceOrGroup) {
  const BgpInstance instance = only_instance(
      "router bgp 65000 vrf red\n neighbor CE peer-group\n neighbor CE remote-as 65101\n"
      " neighbor 10.0.0.1 peer-group CE\n neighbor 2001:db8::1 remote-as 65101\n"
      " neighbor eth0 interface remote-as external\n neighbor eth1 interface v6only peer-group CE\nexit\n");
  ASSERT_THAT(instance.neighbors, SizeIs(5));
  EXPECT_TRUE(instance.neighbors.at("CE").is_group);
  EXPECT_EQ(instance.neighbors.at("10.0.0.1").group, "CE");
  EXPECT_EQ(instance.neighbors.at("eth1").group, "CE");
  EXPECT_EQ(instance.neighbors.at("eth0").group, "");
  EXPECT_FALSE(instance.neighbors.at("2001:db8::1").is_group);
}

TEST(BgpNeighbors, OtherLinesMakeNoNeighbor) {
  EXPECT_THAT(
      only_instance("router bgp 1 vrf red\n neighbor 10.0.0.1 shutdown\n bgp router-id 10.0.0.9\n").neighbors,
      IsEmpty());
}

TEST(BgpNeighbors, ActivationIsPerFamily) {
  const BgpInstance instance = only_instance(
      "router bgp 1 vrf red\n neighbor 10.0.0.1 remote-as 2\n"
      " address-family ipv4 unicast\n  no neighbor 10.0.0.1 activate\n exit-address-family\n"
      " address-family ipv6 unicast\n  neighbor 10.0.0.1 activate\n exit-address-family\n"
      " address-family l2vpn evpn\n  no neighbor 10.0.0.1 activate\n exit-address-family\n");
  EXPECT_EQ(instance.neighbors.at("10.0.0.1").active[0], std::optional(false));
  EXPECT_EQ(instance.neighbors.at("10.0.0.1").active[1], std::optional(true));
}

TEST(BgpNeighbors, DefaultIsIpv4UnlessConfigured) {
  EXPECT_THAT(only_instance("router bgp 1 vrf red\n").default_active, ElementsAre(true, false));
  EXPECT_THAT(only_instance("router bgp 1 vrf red\n no bgp default ipv4-unicast\n bgp default ipv6-unicast\n")
                  .default_active,
              ElementsAre(false, true));
}

}  // namespace
