// Configuration in a router file: which keys make which nodes, and what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/config/test_support.h"
#include "sources/file/reader/reader_test_support.h"

namespace router_file {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> ItemsIn(const std::string& text) {
  std::vector<std::string> items;
  for (const KvConfigNode& node : Read(text).configuration) items.push_back(vrf_config::words_or_path(node));
  return items;
}
std::vector<std::string> ItemsOfRed(const std::string& keys) {
  return ItemsIn("vrfs: [{name: red, id: 10, " + keys + "}]");
}

std::string ErrorInRed(const std::string& keys) {
  return ErrorIn("vrfs:\n  - {name: red, id: 10, " + keys + "}\n");
}

TEST(RouterFileConfiguration, DescriptionIsTheRoutersAndAnItem) {
  EXPECT_THAT(ItemsOfRed("description: Red Rail"), ElementsAre("vrf red description \"Red Rail\""));
  EXPECT_THAT(ItemsOfRed("description: ''"), IsEmpty());
}

TEST(RouterFileConfiguration, KeysMayPrecedeTheName) {
  EXPECT_THAT(ItemsIn("vrfs: [{description: d, rip: {interfaces: [ge0]}, id: 10, name: red}]"),
              ElementsAre("vrf red description d", "vrf red rip interface ge0"));
}

TEST(RouterFileConfiguration, RouteTargetIsOfTheNamedFamilyAndDirectionOrOfBoth) {
  EXPECT_THAT(ItemsOfRed("route_targets: {import: [65000:100]}"),
              ElementsAre("vrf red rt import 65000:100 ipv4", "vrf red rt import 65000:100 ipv6"));
  EXPECT_THAT(ItemsOfRed("route_targets: {ipv6: {export: [65000:100]}}"),
              ElementsAre("vrf red rt export 65000:100 ipv6"));
  EXPECT_THAT(ItemsOfRed("route_targets: {ipv4: {both: [65000:100]}}"),
              ElementsAre("vrf red rt import 65000:100 ipv4", "vrf red rt export 65000:100 ipv4"));
}

TEST(RouterFileConfiguration, RouteTargetWithoutFamilyIsForTheTablesOfTheVrf) {
  EXPECT_THAT(ItemsIn("vrfs: [{name: red, tables: {ipv6: 10}, route_targets: {import: [65000:100]}}]"),
              ElementsAre("vrf red rt import 65000:100 ipv6"));
}

TEST(RouterFileConfiguration, RouteTargetsHaveThreeForms) {
  EXPECT_THAT(ItemsOfRed("route_targets: {ipv4: {import: [192.0.2.1:7, 4200000000:30]}}"),
              ElementsAre("vrf red rt import 192.0.2.1:7 ipv4", "vrf red rt import 4200000000:30 ipv4"));
}

TEST(RouterFileConfiguration, PoliciesAreOfADirectionAndAFamily) {
  EXPECT_THAT(ItemsOfRed("policies: {import: {ipv4: IN4, ipv6: IN6}, export: {ipv6: OUT6}}"),
              ElementsAre("vrf red policy import ipv4 IN4", "vrf red policy import ipv6 IN6",
                          "vrf red policy export ipv6 OUT6"));
}

TEST(RouterFileConfiguration, ThresholdsAreAMaximumAndAMid) {
  EXPECT_THAT(ItemsOfRed("thresholds: {ipv4: {maximum: 1000, mid: 800}, ipv6: {maximum: 50}}"),
              ElementsAre("vrf red threshold ipv4 1000 800", "vrf red threshold ipv6 50 0"));
}

TEST(RouterFileConfiguration, NeighborIsOfItsOwnFamilyByDefault) {
  EXPECT_THAT(
      ItemsOfRed("bgp: {as: 65010, neighbors: [10.0.0.2, '2001:db8::2', ge0, "
                 "{neighbor: 10.0.0.3, families: [ipv4, ipv6]}]}"),
      ElementsAre("vrf red bgp 65010 neighbor 10.0.0.2 ipv4", "vrf red bgp 65010 neighbor 2001:db8::2 ipv6",
                  "vrf red bgp 65010 neighbor ge0 ipv4", "vrf red bgp 65010 neighbor 10.0.0.3 ipv4",
                  "vrf red bgp 65010 neighbor 10.0.0.3 ipv6"));
}

TEST(RouterFileConfiguration, ProtocolsRunOnInterfaces) {
  EXPECT_THAT(ItemsOfRed("ospf: [{process: 1, area: 0.0.1.0, interfaces: [ge0]}, "
                         "{process: 1, area: 7, interfaces: [ge1]}], rip: {interfaces: [ge0, ge1]}, "
                         "eigrp: [{as: 90, interfaces: [ge2.100]}]"),
              ElementsAre("vrf red ospf 1 area 0.0.1.0 interface ge0",
                          "vrf red ospf 1 area 0.0.0.7 interface ge1", "vrf red rip interface ge0",
                          "vrf red rip interface ge1", "vrf red eigrp 90 interface ge2.100"));
}

TEST(RouterFileConfiguration, StaticRoutesGoToAnInterfaceOrANextHop) {
  EXPECT_THAT(ItemsOfRed("static: [{prefix: 10.1.0.0/16, next_hop: 10.0.0.2, interface: ge0}, "
                         "{prefix: '2001:db8:1::/48', next_hop: '2001:db8::2'}]"),
              ElementsAre("vrf red static 10.1.0.0/16 interface ge0 via 10.0.0.2",
                          "vrf red static 2001:db8:1::/48 via 2001:db8::2"));
}

TEST(RouterFileConfiguration, VrfThatIsOnlyNamedMayHaveAllOfIt) {
  EXPECT_THAT(ItemsIn("vrfs: [{name: later, state: referenced, description: soon, rd: 4200000000:1, "
                      "route_targets: {export: [65000:100]}, bgp: {as: 1, neighbors: [10.0.0.2]}}]"),
              UnorderedElementsAre("vrf later description soon", "vrf later rd 4200000000:1 ipv4",
                                   "vrf later rt export 65000:100 ipv4", "vrf later rt export 65000:100 ipv6",
                                   "vrf later bgp 1 neighbor 10.0.0.2 ipv4"));
}

TEST(RouterFileConfiguration, RouteDistinguisherOfACreatedVrfIsTheRouters) {
  const RouterFile file = Read("vrfs: [{name: red, id: 10, rd: 65000:1}]");
  EXPECT_EQ(file.vrfs.at(0).rd, "65000:1");
  EXPECT_THAT(file.configuration, IsEmpty());
}

TEST(RouterFileConfiguration, TrapSwitchIsPresentWhenItIsOn) {
  EXPECT_THAT(ItemsIn("traps: {vrf-up: true, vrf-down: false, all: true, notif-reissue-time: 5}"),
              ElementsAre("traps vrf-up", "traps all", "traps notif-reissue-time 5"));
}

TEST(RouterFileConfiguration, FormatOfAsNumbersIsOneOfThree) {
  for (const std::string format : {"asplain", "asdot", "asdot+"}) {
    EXPECT_THAT(ItemsIn("as_format: " + format), ElementsAre("bgp as-format " + format));
  }
  EXPECT_EQ(ErrorIn("traps: {}\nas_format: dotted\n"),
            "2:12: a format of AS numbers is one of asplain, asdot, asdot+, not \"dotted\"");
  EXPECT_THAT(ErrorIn("as_format: {}\n"), testing::StartsWith("1:12: "));
}

TEST(RouterFileConfigurationError, KeysOfEveryMapAreKnown) {
  EXPECT_EQ(ErrorInRed("route_targets: {in: []}"),
            "2:41: route_targets has no key \"in\"; the keys are import, export, both, ipv4, ipv6");
  EXPECT_EQ(ErrorInRed("route_targets: {ipv4: {ipv6: []}}"),
            "2:48: ipv4 has no key \"ipv6\"; the keys are import, export, both");
  EXPECT_EQ(ErrorInRed("policies: {both: {}}"),
            "2:36: policies has no key \"both\"; the keys are import, export");
  EXPECT_EQ(ErrorInRed("policies: {import: {ip: X}}"),
            "2:45: import has no key \"ip\"; the keys are ipv4, ipv6");
  EXPECT_EQ(ErrorInRed("thresholds: {maximum: 1}"),
            "2:38: thresholds has no key \"maximum\"; the keys are ipv4, ipv6");
  EXPECT_EQ(ErrorIn("traps: {vrfup: true}\n"),
            "1:9: traps has no key \"vrfup\"; did you mean \"vrf-up\"? the keys are vrf-up, vrf-down, "
            "mid-thresh-exc, max-thresh-exc, "
            "ilg-lbl-exc, max-thresh-clr, all, notif-reissue-time");
}

TEST(RouterFileConfigurationError, NumbersAreInRange) {
  EXPECT_EQ(ErrorInRed("bgp: {as: 0}"), "2:35: an AS number is a number from 1 to 4294967295, not \"0\"");
  EXPECT_EQ(ErrorInRed("thresholds: {ipv4: {maximum: 4294967296}}"),
            "2:54: a maximum of routes is a number from 1 to 4294967295, not \"4294967296\"");
  EXPECT_EQ(ErrorIn("traps: {notif-reissue-time: 2147483648}\n"),
            "1:29: the reissue time is a number from 0 to 2147483647, not \"2147483648\"");
}

TEST(RouterFileConfigurationError, MalformedTextsAreRefused) {
  EXPECT_EQ(ErrorInRed("route_targets: {import: [65000]}"),
            "2:50: \"65000\" is not a route target such as 65000:100 or 192.0.2.1:100");
  EXPECT_EQ(
      ErrorInRed("route_targets: {import: ['65000:4294967296']}"),
      "2:50: \"65000:4294967296\": the number after \":\" must be 0-4294967295 (0-65535 after an address "
      "or a large AS)");
  EXPECT_EQ(ErrorInRed("bgp: {as: 1, neighbors: [10.0.0]}"),
            "2:50: \"10.0.0\" is neither an address nor the name of a neighbor");
  EXPECT_EQ(ErrorInRed("bgp: {as: 1, neighbors: [10.0.0.0/8]}"),
            "2:50: \"10.0.0.0/8\" is neither an address nor the name of a neighbor");
  EXPECT_EQ(ErrorInRed("ospf: [{process: 1, area: backbone}]"),
            "2:51: \"backbone\" is not an area such as 0 or 0.0.0.10");
  EXPECT_EQ(ErrorInRed("static: [{prefix: 10.0.0.1, interface: ge0}]"),
            "2:43: \"10.0.0.1\" is not a prefix such as 10.1.0.0/16 or 2001:db8::/32");
  EXPECT_EQ(ErrorInRed("static: [{prefix: 10.0.0.0/8, next_hop: ge0}]"), "2:65: \"ge0\" is not an address");
  EXPECT_EQ(ErrorInRed("policies: {import: {ipv4: ''}}"), "2:51: a route policy has a name");
}

TEST(RouterFileConfigurationError, MissingKeysAreNamed) {
  EXPECT_EQ(ErrorInRed("bgp: {neighbors: []}"), "2:30: bgp needs its AS number as as");
  EXPECT_EQ(ErrorInRed("bgp: {as: 1, neighbors: [{families: [ipv4]}]}"),
            "2:50: a neighbor needs its address or name as neighbor");
  EXPECT_EQ(ErrorInRed("bgp: {as: 1, neighbors: [{neighbor: ge0, families: []}]}"),
            "2:76: a neighbor has one family at least");
  EXPECT_EQ(ErrorInRed("ospf: [{process: 1, interfaces: [ge0]}]"),
            "2:32: an OSPF area needs a process and an area");
  EXPECT_EQ(ErrorInRed("eigrp: [{interfaces: [ge0]}]"), "2:33: an EIGRP instance needs its AS number as as");
  EXPECT_EQ(ErrorInRed("thresholds: {ipv4: {mid: 5}}"), "2:44: a threshold needs a maximum");
  EXPECT_EQ(ErrorInRed("static: [{interface: ge0}]"), "2:34: a static route needs a prefix");
  EXPECT_EQ(ErrorInRed("static: [{prefix: 10.0.0.0/8}]"),
            "2:34: a static route needs an interface or a next hop");
}

TEST(RouterFileConfigurationError, ValuesFitEachOther) {
  EXPECT_EQ(ErrorInRed("thresholds: {ipv4: {maximum: 5, mid: 6}}"),
            "2:44: the mid threshold is more than the maximum");
  EXPECT_EQ(ErrorInRed("static: [{prefix: 10.0.0.0/8, next_hop: '2001:db8::1'}]"),
            "2:65: the next hop is not of the family of 10.0.0.0/8");
}

TEST(RouterFileConfigurationError, ItemWrittenTwiceIsRefused) {
  EXPECT_EQ(ErrorInRed("route_targets: {ipv4: {import: [65000:1], both: [65000:1]}}"),
            "2:74: this is written already, in line 2");
  EXPECT_EQ(ErrorInRed("rip: {interfaces: [ge0, ge0]}"), "2:49: this is written already, in line 2");
}

}  // namespace
}  // namespace router_file
