// Protocols within a site, interfaces, static routes and names in a running configuration, and the text as a
// whole.
#include "sources/frr/parser/running_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "sources/frr/parser/running_config_test_support.h"

namespace {

using frr::LineError;
using frr::parse_running_config;
using frr::RunningConfig;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vrf_config::Family;

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
