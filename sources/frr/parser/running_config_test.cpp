#include "sources/frr/parser/running_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frr::BgpInstance;
using frr::LineError;
using frr::parse_running_config;
using frr::RunningConfig;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vrf_config::Family;
using vrf_config::Target;

std::string family_of(const std::string& family, const std::string& lines) {
  return "router bgp 65000 vrf red\n !\n address-family " + family + "\n" + lines +
         " exit-address-family\nexit\n!\n";
}

BgpInstance only_instance(const std::string& text) {
  const RunningConfig config = parse_running_config(text);
  EXPECT_THAT(config.errors, IsEmpty());
  EXPECT_THAT(config.bgp, SizeIs(1));
  return config.bgp.empty() ? BgpInstance{} : config.bgp[0];
}

std::vector<std::string> texts(const std::vector<Target>& targets) {
  std::vector<std::string> list;
  for (const Target& target : targets) list.push_back(vrf_config::target_text(target));
  return list;
}

LineError only_error(const std::string& text) {
  const RunningConfig config = parse_running_config(text);
  EXPECT_THAT(config.errors, SizeIs(1));
  return config.errors.empty() ? LineError{} : config.errors[0];
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

// --- OSPF, RIP, EIGRP ---

TEST(InteriorProtocols, OspfHasNetworksWithAreas) {
  const RunningConfig config = parse_running_config(
      "router ospf vrf blue\n ospf router-id 10.2.0.1\n network 10.2.0.0/30 area 0\n"
      " network 10.0.0.0/8 area 0.0.1.2\nexit\nrouter ospf 7 vrf red\n");
  EXPECT_THAT(config.errors, IsEmpty());
  ASSERT_THAT(config.ospf, SizeIs(2));
  EXPECT_EQ(config.ospf[0].vrf, "blue");
  EXPECT_EQ(config.ospf[0].process, "1");
  ASSERT_THAT(config.ospf[0].networks, SizeIs(2));
  EXPECT_EQ(router::format_address(config.ospf[0].networks[0].prefix), "10.2.0.0/30");
  EXPECT_EQ(config.ospf[0].networks[0].area, 0U);
  EXPECT_EQ(config.ospf[0].networks[1].area, 0x0102U);
  EXPECT_EQ(config.ospf[1].process, "7");
  EXPECT_EQ(config.ospf[1].vrf, "red");
}

TEST(InteriorProtocols, InterfacesNameTheirOspfAreas) {
  const RunningConfig config = parse_running_config(
      "interface blue1 vrf blue\n ip ospf dead-interval 4\n ip ospf area 0.0.0.5\n ip ospf 7 area 6\nexit\n");
  EXPECT_THAT(config.errors, IsEmpty());
  const auto& areas = config.interfaces.at("blue1").ospf;
  ASSERT_THAT(areas, SizeIs(2));
  EXPECT_EQ(areas[0].process, "1");
  EXPECT_EQ(areas[0].area, 5U);
  EXPECT_EQ(areas[1].process, "7");
  EXPECT_EQ(areas[1].area, 6U);
}

TEST(InteriorProtocols, RipHasNetworksAndInterfaces) {
  const RunningConfig config =
      parse_running_config("router rip vrf green\n network 10.3.0.0/30\n network grn1\n version 2\nexit\n");
  ASSERT_THAT(config.rip, SizeIs(1));
  EXPECT_EQ(config.rip[0].vrf, "green");
  EXPECT_THAT(config.rip[0].interfaces, ElementsAre("grn1"));
  ASSERT_THAT(config.rip[0].networks, SizeIs(1));
}

TEST(InteriorProtocols, RipngHasNetworksAndInterfaces) {
  const RunningConfig config =
      parse_running_config("router ripng vrf red\n network 2001:db8:1::/48\n network red2\nexit\n");
  ASSERT_THAT(config.ripng, SizeIs(1));
  EXPECT_EQ(config.ripng[0].vrf, "red");
  EXPECT_THAT(config.ripng[0].interfaces, ElementsAre("red2"));
  ASSERT_THAT(config.ripng[0].networks, SizeIs(1));
  EXPECT_EQ(router::format_address(config.ripng[0].networks[0].prefix), "2001:db8:1::/48");
}

TEST(InteriorProtocols, Ospf6HasItsAreasOnInterfaces) {
  const RunningConfig config = parse_running_config(
      "interface red1\n ipv6 ospf6 area 0.0.1.2\n ipv6 ospf6 passive\nexit\nrouter ospf6 vrf red\n"
      " ospf6 router-id 10.1.0.1\nexit\n");
  EXPECT_THAT(config.errors, IsEmpty());
  EXPECT_EQ(config.interfaces.at("red1").ospf6_area, std::optional<std::uint32_t>(0x0102));
  EXPECT_THAT(config.interfaces.at("red1").ospf, IsEmpty());
  ASSERT_THAT(config.ospf6, SizeIs(1));
  EXPECT_EQ(config.ospf6[0].vrf, "red");
  EXPECT_THAT(config.ospf, IsEmpty());
}

TEST(InteriorProtocols, EigrpHasItsAsNumber) {
  const RunningConfig config = parse_running_config("router eigrp 100 vrf red\n network 10.4.0.0/30\nexit\n");
  ASSERT_THAT(config.eigrp, SizeIs(1));
  EXPECT_EQ(config.eigrp[0].process, "100");
  EXPECT_THAT(config.eigrp[0].networks, SizeIs(1));
}

TEST(InteriorProtocols, DefaultVrfIsLeftOut) {
  const RunningConfig config = parse_running_config(
      "router ospf\n network 10.0.0.0/8 area 0\nrouter ospf vrf default\nrouter rip\n network 10.0.0.0/8\n"
      "router rip vrf default\nrouter ripng\n network 2001:db8::/32\nrouter ripng vrf default\n"
      "router ospf6\nrouter ospf6 vrf default\nvni 100\nrouter eigrp 1\n network 10.0.0.0/8\nrouter eigrp 1 "
      "vrf default\n");
  EXPECT_THAT(config.ospf, IsEmpty());
  EXPECT_THAT(config.rip, IsEmpty());
  EXPECT_THAT(config.eigrp, IsEmpty());
  EXPECT_THAT(config.ripng, IsEmpty());
  EXPECT_THAT(config.ospf6, IsEmpty());
  EXPECT_THAT(config.vnis, IsEmpty());
  EXPECT_THAT(config.errors, IsEmpty());
}

TEST(InteriorProtocols, InvalidNetworksAndAreasAreErrors) {
  EXPECT_EQ(only_error("router ospf vrf a\n network 10.0.0.0 area 0\n").line, 2U);
  EXPECT_EQ(only_error("router ospf vrf a\n network 10.0.0.0/8 area x\n").line, 2U);
  EXPECT_EQ(only_error("router rip vrf a\n network 10.0.0.0/33\n"),
            (LineError{2, "'10.0.0.0/33' is not an IPv4 network"}));
  EXPECT_EQ(only_error("router ripng vrf a\n network 10.0.0.0/8\n"),
            (LineError{2, "'10.0.0.0/8' is not an IPv6 network"}));
  EXPECT_EQ(only_error("interface a\n ipv6 ospf6 area x\n"), (LineError{2, "'x' is not an area"}));
  EXPECT_EQ(only_error("vrf a\n vni 16777216\n"), (LineError{2, "'16777216' is not a VNI"}));
  EXPECT_EQ(only_error("router eigrp 1 vrf a\n network 2001:db8::/32\n").line, 2U);
  EXPECT_EQ(only_error("router eigrp 65536 vrf a\n"), (LineError{1, "'65536' is not an AS number"}));
  EXPECT_EQ(only_error("interface a\n ip ospf area 1.2.3\n"), (LineError{2, "'1.2.3' is not an area"}));
}

TEST(InteriorProtocols, InstancesOfOspfAreNumbers) {
  EXPECT_EQ(only_error("router ospf x vrf a\n network 10.0.0.0/8 area 0\n"),
            (LineError{1, "'x' is not an instance of OSPF"}));
  EXPECT_EQ(only_error("router ospf 65536 vrf a\n").line, 1U);
  EXPECT_EQ(only_error("interface a\n ip ospf x area 0\n"), (LineError{2, "'x' is not an instance of OSPF"}));
}

// --- Interfaces, static routes ---

TEST(Descriptions, AreStoredVerbatim) {
  const RunningConfig config =
      parse_running_config("interface red\n description VRF  red, of customer 7\nexit\n");
  EXPECT_EQ(config.interfaces.at("red").description, "VRF  red, of customer 7");
}

vrf_config::StaticRoute only_route(const std::string& line) {
  const RunningConfig config = parse_running_config("vrf red\n " + line + "\nexit-vrf\n");
  EXPECT_THAT(config.errors, IsEmpty()) << line;
  EXPECT_THAT(config.statics, SizeIs(1)) << line;
  if (config.statics.empty()) return {};
  EXPECT_EQ(config.statics[0].vrf, "red");
  return config.statics[0].route;
}

TEST(StaticRoutes, MayHaveANextHopAnInterfaceOrBoth) {
  const auto next_hop = only_route("ip route 192.168.50.0/24 10.1.0.2");
  EXPECT_EQ(next_hop.family, Family::kIpv4);
  EXPECT_EQ(next_hop.prefix, "192.168.50.0/24");
  EXPECT_EQ(next_hop.next_hop, "10.1.0.2");
  EXPECT_EQ(next_hop.interface, "");
  EXPECT_EQ(only_route("ip route 192.168.50.0/24 red1").interface, "red1");
  EXPECT_EQ(only_route("ip route 192.168.50.0/24 red1").next_hop, "");
  const auto both = only_route("ipv6 route 2001:db8:50::/48 fe80::1 red1 200");
  EXPECT_EQ(both.family, Family::kIpv6);
  EXPECT_EQ(both.next_hop, "fe80::1");
  EXPECT_EQ(both.interface, "red1");
}

TEST(StaticRoutes, ItemsAfterTheNextHopAreNotAnInterface) {
  for (const char* item : {"200", "tag 77 200", "label 16", "onlink", "color 3", "table 7", "bfd"}) {
    EXPECT_EQ(only_route(std::string("ip route 192.168.50.0/24 10.1.0.2 ") + item).interface, "") << item;
  }
}

TEST(StaticRoutes, DroppedOnesHaveNeitherNextHopNorInterface) {
  for (const char* way : {"blackhole", "reject", "Null0", "blackhole 200", "Null0 tag 7"}) {
    const auto route = only_route(std::string("ip route 192.168.50.0/24 ") + way);
    EXPECT_EQ(route.interface, "") << way;
    EXPECT_EQ(route.next_hop, "") << way;
  }
}

TEST(StaticRoutes, InterfaceOfAnotherVrfIsLeftOut) {
  EXPECT_EQ(only_route("ip route 192.168.50.0/24 10.1.0.2 blue1 nexthop-vrf blue").interface, "");
  EXPECT_EQ(only_route("ip route 192.168.50.0/24 blue1 nexthop-vrf blue").interface, "");
}

TEST(StaticRoutes, Ipv6SourceIsNotANextHop) {
  EXPECT_EQ(only_route("ipv6 route 2001:db8:50::/48 from 2001:db8:1::/48 fe80::1 red1").next_hop, "fe80::1");
}

TEST(StaticRoutes, DefaultVrfIsLeftOut) {
  EXPECT_THAT(
      parse_running_config("ip route 10.0.0.0/8 Null0\nvrf default\n ip route 10.0.0.0/8 Null0\n").statics,
      IsEmpty());
}

TEST(StaticRoutes, InvalidOnesAreErrors) {
  for (const char* line : {"ip route 10.0.0.0 10.1.0.2", "ip route 2001:db8::/32 fe80::1",
                           "ip route 10.0.0.0/8", "ipv6 route 10.0.0.0/8 Null0", "ip route"}) {
    EXPECT_THAT(only_error(std::string("vrf red\n ") + line + "\n").what, HasSubstr(line)) << line;
  }
}

// --- Names ---

TEST(RunningConfigNames, NamesThatAreTooLongAreErrors) {
  const std::string vrf(32, 'v');
  const std::string interface(64, 'i');
  for (const std::string& text : {"router bgp 1 vrf " + vrf, "router ospf vrf " + vrf,
                                  "router rip vrf " + vrf, "router eigrp 1 vrf " + vrf, "vrf " + vrf}) {
    EXPECT_EQ(only_error(text), (LineError{1, "invalid VRF name"})) << text;
  }
  EXPECT_EQ(only_error("interface " + interface).what, "invalid interface name");
  EXPECT_EQ(only_error("vrf red\n ip route 10.0.0.0/8 " + interface).what, "invalid interface name");
  EXPECT_EQ(only_error("router rip vrf red\n network " + interface).line, 2U);
  EXPECT_EQ(only_error("router bgp 1 vrf red\n neighbor " + interface + " remote-as 1").what,
            "invalid neighbor name");
  EXPECT_EQ(only_error(family_of("ipv4 unicast", "  neighbor " + interface + " activate\n")).line, 4U);
}

TEST(RunningConfigNames, TextsThatAreTooLongAreErrors) {
  const std::string text(256, 't');
  EXPECT_EQ(only_error("interface red\n description " + text).what, "the description is too long");
  EXPECT_EQ(only_error(family_of("ipv4 unicast", "  route-map vpn import " + text + "\n")).what,
            "the route map's name is too long");
  EXPECT_EQ(
      parse_running_config("interface red\n description " + text.substr(1)).interfaces.at("red").description,
      text.substr(1));
}

TEST(RunningConfigNames, LongestNamesAreAccepted) {
  EXPECT_EQ(only_instance("router bgp 1 vrf " + std::string(31, 'v')).vrf.size(), 31U);
  EXPECT_EQ(only_route("ip route 10.0.0.0/8 " + std::string(63, 'i')).interface.size(), 63U);
}

// --- The text as a whole ---

TEST(RunningConfigText, OtherLinesAreSkipped) {
  const RunningConfig config = parse_running_config(
      "!\nfrr version 8.4.4\nhostname vm\nroute-map RM permit 10\n set extcommunity rt 1:1\nexit\nend\n\n "
      "\n");
  EXPECT_THAT(config.errors, IsEmpty());
  EXPECT_THAT(config.bgp, IsEmpty());
}

TEST(RunningConfigText, LinesMayEndWithCarriageReturnsAndTheLastWithNothing) {
  EXPECT_EQ(only_instance("router bgp 65000 vrf red\r\n address-family ipv4 unicast\r\n  rd vpn export 1:1")
                .families[0]
                .rd.has_value(),
            true);
}

TEST(RunningConfigText, IndentedLinesBeforeAnyStanzaAreSkipped) {
  EXPECT_THAT(parse_running_config("  rd vpn export x\n network x area y\n").errors, IsEmpty());
}

}  // namespace
