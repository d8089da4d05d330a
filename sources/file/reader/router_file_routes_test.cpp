// Routes in a router file: entries become groups, and every error is reported with its position.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "platform/router/model/route_test_support.h"
#include "sources/file/reader/reader_test_support.h"
#include "sources/file/reader/route_reader.h"

namespace router_file {
namespace {

using router::Family;
using router::RouteProtocol;
using router::RouteType;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The routes of VRF red (tables 10) with interface ge1 (index 11); `routes` starts at line 2, column 11.
std::string RedWith(const std::string& routes) {
  return "vrfs: [{name: red, table: 10, routes:\n          " + routes +
         "}]\ninterfaces: [{name: ge1, index: 11}]\n";
}
std::vector<RouteGroup> Routes(const std::string& routes) {
  return Read(RedWith(routes)).routes;
}
router::Route OneRoute(const std::string& route) {
  const std::vector<RouteGroup> groups = Routes("[{" + route + "}]");
  EXPECT_EQ(groups.size(), 1U) << route;
  return groups.empty() ? router::Route{} : groups[0].first;
}

std::string ErrorInRoutes(const std::string& routes) {
  return ErrorIn(RedWith(routes));
}
std::string ErrorInRoute(const std::string& route) {
  return ErrorInRoutes("[{" + route + "}]");
}

std::vector<std::string> Texts(const std::vector<RouteGroup>& groups) {
  std::vector<std::string> texts;
  for (const RouteGroup& group : groups) {
    texts.push_back(router::Text(group.table.family, group.first.key) +
                    (group.count == 1 ? "" : " x " + std::to_string(group.count)));
  }
  return texts;
}

TEST(RoutesInAFile, HaveEveryWrittenAttribute) {
  const std::vector<RouteGroup> groups = Routes(
      "[{prefix: 10.1.0.0/16, next_hop: 192.0.2.1, interface: ge1, type: other, protocol: ospf, "
      "metrics: [1, 2, -1, 4], next_hop_as: 65001, labels: [16, 1048575]}]");
  ASSERT_EQ(groups.size(), 1U);
  EXPECT_EQ(groups[0].table, (router::RouteTableId{Family::kIpv4, 10}));
  EXPECT_EQ(groups[0].count, 1U);
  const router::Route& route = groups[0].first;
  EXPECT_EQ(router::Text(Family::kIpv4, route.key), "10.1.0.0/16 via 192.0.2.1");
  EXPECT_EQ(route.interface_index, 11U);
  EXPECT_EQ(route.type, RouteType::kOther);
  EXPECT_EQ(route.protocol, RouteProtocol::kOspf);
  EXPECT_THAT(route.metrics, ElementsAre(1, 2, -1, 4, -1));
  EXPECT_EQ(route.next_hop_as, 65001U);
  EXPECT_THAT(route.labels, ElementsAre(16, 1048575));
}

TEST(RoutesInAFile, TypeAndProtocolFollowFromNextHopAndInterface) {
  const router::Route through = OneRoute("prefix: 10.1.0.0/16, next_hop: 192.0.2.1");
  EXPECT_EQ(through.type, RouteType::kRemote);
  EXPECT_EQ(through.protocol, RouteProtocol::kNetmgmt);
  EXPECT_EQ(through.interface_index, 0U);
  EXPECT_THAT(through.metrics, ElementsAre(-1, -1, -1, -1, -1));
  const router::Route connected = OneRoute("prefix: 10.1.0.0/16, interface: ge1");
  EXPECT_EQ(connected.type, RouteType::kLocal);
  EXPECT_EQ(connected.protocol, RouteProtocol::kLocal);
  const router::Route dropped = OneRoute("prefix: 0.0.0.0/0, type: blackhole");
  EXPECT_EQ(dropped.type, RouteType::kBlackhole);
  EXPECT_EQ(dropped.protocol, RouteProtocol::kNetmgmt);
}

TEST(RoutesInAFile, EveryTypeAndProtocolHasItsNumber) {
  const char* const types[] = {"other", "reject", "local", "remote", "blackhole"};
  for (int number = 1; number <= 5; ++number) {
    const std::string next_hop = number == 4 ? ", next_hop: 192.0.2.1" : "";
    const router::Route route =
        OneRoute("prefix: 0.0.0.0/0, type: " + std::string(types[number - 1]) + next_hop);
    EXPECT_EQ(static_cast<int>(route.type), number);
  }
  const std::string protocols =
      "other 1 local 2 netmgmt 3 static 3 icmp 4 rip 8 isis 9 ospf 13 bgp 14 eigrp 16 dvmrp 17";
  std::istringstream in(protocols);
  int number = 0;
  for (std::string word; in >> word >> number;) {
    const router::Route route = OneRoute("prefix: 0.0.0.0/0, type: reject, protocol: " + word);
    EXPECT_EQ(static_cast<int>(route.protocol), number) << word;
  }
}

TEST(RoutesInAFile, SingleMetricIsTheFirst) {
  EXPECT_THAT(OneRoute("prefix: 10.0.0.0/8, next_hop: 192.0.2.1, metric: 2147483647").metrics,
              ElementsAre(2147483647, -1, -1, -1, -1));
}

TEST(RoutesInAFile, SeveralNextHopsAreSeveralPaths) {
  EXPECT_THAT(Texts(Routes("[{prefix: 10.0.0.0/8, next_hops: [192.0.2.1, 192.0.2.2]}]")),
              ElementsAre("10.0.0.0/8 via 192.0.2.1", "10.0.0.0/8 via 192.0.2.2"));
  EXPECT_THAT(Texts(Routes("[{prefix: 10.0.0.0/8, next_hop: 192.0.2.1}, "
                           "{prefix: 10.0.0.0/8, next_hop: 192.0.2.2, metric: 5}]")),
              ElementsAre("10.0.0.0/8 via 192.0.2.1", "10.0.0.0/8 via 192.0.2.2"));
}

TEST(RoutesInAFile, FamilyIsThePrefixesAndItsTableTheVrfs) {
  const std::vector<RouteGroup> groups =
      Read(
          "vrfs: [{name: red, id: 9, tables: {ipv4: 10, ipv6: 11}, routes: "
          "[{prefix: \"2001:db8::/32\", next_hop: \"fe80::1\"}, {prefix: 10.0.0.0/8, type: reject}]}]")
          .routes;
  ASSERT_EQ(groups.size(), 2U);
  EXPECT_EQ(groups[0].table, (router::RouteTableId{Family::kIpv6, 11}));
  EXPECT_EQ(router::Text(Family::kIpv6, groups[0].first.key), "2001:db8::/32 via fe80::1");
  EXPECT_EQ(groups[1].table, (router::RouteTableId{Family::kIpv4, 10}));
}

TEST(RoutesInAFile, EmptyListHasNoRoutes) {
  EXPECT_THAT(Routes("[]"), IsEmpty());
  EXPECT_THAT(Routes("{generate: 0}"), IsEmpty());
}

TEST(RoutesInAFile, GeneratorNeedsOnlyItsNumber) {
  const std::vector<RouteGroup> groups = Routes("{generate: 100000}");
  EXPECT_THAT(Texts(groups), ElementsAre("1.0.0.0/24 via 192.0.2.1 x 100000"));
  EXPECT_EQ(groups[0].first.protocol, RouteProtocol::kBgp);
  EXPECT_EQ(groups[0].first.type, RouteType::kRemote);
}

TEST(RoutesInAFile, GeneratorStartsAtTheGivenPrefix) {
  EXPECT_THAT(Texts(Routes("[{generate: 5, prefix: \"2001:db8::/48\"}, "
                           "{generate: 7, prefix: 10.0.0.0/32, interface: ge1}, "
                           "{generate: 9, prefix: 20.0.0.0/8, next_hops: [192.0.2.1, 192.0.2.2]}]")),
              ElementsAre("10.0.0.0/32 x 7", "20.0.0.0/8 via 192.0.2.1 x 9", "20.0.0.0/8 via 192.0.2.2 x 9",
                          "2001:db8::/48 via 2001:db8::1 x 5"));
}

TEST(RoutesInAFile, WrittenOnesPrecedeGeneratedOnes) {
  EXPECT_THAT(Texts(Routes("[{generate: 5}, {prefix: 10.0.0.0/8, type: reject}]")),
              ElementsAre("10.0.0.0/8", "1.0.0.0/24 via 192.0.2.1 x 5"));
}

TEST(RoutesInAFile, GeneratedVrfsGetTheirShare) {
  const RouterFile file = Read(
      "vrfs: [{name: red, id: 2}]\n"
      "generate: {vrfs: 2, interfaces_per_vrf: 0, first_id: 50, routes_per_vrf: 30}\n");
  EXPECT_THAT(Texts(file.routes),
              ElementsAre("1.0.0.0/24 via 192.0.2.1 x 30", "1.0.0.0/24 via 192.0.2.1 x 30"));
  EXPECT_EQ(file.routes[0].table.table, 50U);
  EXPECT_EQ(file.routes[1].table.table, 51U);
}

TEST(RoutesInAFile, InterfaceMayBeAGeneratedOne) {
  const RouterFile file = Read(
      "vrfs: [{name: red, id: 2, routes: [{prefix: 10.0.0.0/8, interface: cust00001.1}]}]\n"
      "generate: {vrfs: 1, interfaces_per_vrf: 1, first_index: 70}\n");
  ASSERT_EQ(file.routes.size(), 1U);
  EXPECT_EQ(file.routes[0].first.interface_index, 70U);
}

TEST(ConsecutivePrefixes, CountUpAtTheEndOfThePrefix) {
  const auto nth = [](const std::string& first, std::uint32_t n) {
    router::Address address = router::MakeAddress(first);
    return nth_prefix(address.octets, address.prefix_length, n, &address.octets)
               ? router::format_address(address)
               : std::string();
  };
  EXPECT_EQ(nth("10.0.0.0/24", 0), "10.0.0.0/24");
  EXPECT_EQ(nth("10.0.0.0/24", 255), "10.0.255.0/24");
  EXPECT_EQ(nth("10.0.0.0/24", 256), "10.1.0.0/24");
  EXPECT_EQ(nth("10.0.0.0/30", 3), "10.0.0.12/30");
  EXPECT_EQ(nth("10.0.0.0/30", 64), "10.0.1.0/30");
  EXPECT_EQ(nth("10.0.0.0/23", 128), "10.1.0.0/23");
  EXPECT_EQ(nth("10.0.0.0/32", 1000000), "10.15.66.64/32");
  EXPECT_EQ(nth("0.0.0.0/1", 1), "128.0.0.0/1");
  EXPECT_EQ(nth("0.0.0.0/0", 0), "0.0.0.0/0");
  EXPECT_EQ(nth("2001:db8::/33", 3), "2001:db9:8000::/33");
  EXPECT_EQ(nth("2001::/128", 4294967295), "2001::ffff:ffff/128");
}

TEST(ConsecutivePrefixes, EndWithTheAddressSpace) {
  router::RouteAddress prefix;
  const auto ends = [&](const std::string& first, std::uint32_t n) {
    const router::Address address = router::MakeAddress(first);
    return !nth_prefix(address.octets, address.prefix_length, n, &prefix);
  };
  EXPECT_FALSE(ends("255.255.254.0/24", 1));
  EXPECT_TRUE(ends("255.255.254.0/24", 2));
  EXPECT_TRUE(ends("0.0.0.0/0", 1));
  EXPECT_TRUE(ends("128.0.0.0/1", 1));
  EXPECT_TRUE(ends("ffff::/16", 1));
}

// --- Errors

TEST(RoutesError, UnknownKeysAndWordsAreRefused) {
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, via: 192.0.2.1"),
            "2:33: a route has no key \"via\"; the keys are prefix, next_hop, next_hops, interface, type, "
            "protocol, "
            "metric, metrics, next_hop_as, labels, generate");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: throw"),
            "2:39: a route's type is one of other, reject, local, remote, blackhole, not \"throw\"");
  EXPECT_THAT(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, protocol: babel"),
              ::testing::StartsWith("2:57: a route's protocol is one of other, local, netmgmt, "));
}

TEST(RoutesError, BadPrefixesAreRefused) {
  for (const char* prefix :
       {"10.0.0.0", "10.0.0.0/33", "10.0.0/8", "ten", "10.0.0.0/8/8", "2001:db8::g/32"}) {
    EXPECT_EQ(ErrorInRoute("type: reject, prefix: \"" + std::string(prefix) + "\""),
              "2:35: \"" + std::string(prefix) + "\" is not a prefix such as 10.1.0.0/16 or 2001:db8::/32");
  }
}

TEST(RoutesError, HostBitsAreRefusedWithTheIntendedPrefix) {
  EXPECT_EQ(ErrorInRoute("prefix: 10.1.0.1/16, type: reject"),
            "2:21: 10.1.0.1/16 has host bits set; did you mean 10.1.0.0/16?");
  EXPECT_EQ(ErrorInRoute("prefix: 10.1.0.0/15, type: reject"),
            "2:21: 10.1.0.0/15 has host bits set; did you mean 10.0.0.0/15?");
  EXPECT_EQ(ErrorInRoute("prefix: \"::1/127\", type: reject"),
            "2:21: ::1/127 has host bits set; did you mean ::/127?");
  EXPECT_EQ(ErrorInRoute("prefix: 128.0.0.0/0, type: reject"),
            "2:21: 128.0.0.0/0 has host bits set; did you mean 0.0.0.0/0?");
}

TEST(RoutesError, NextHopsAreValidAndBounded) {
  for (const char* next_hop : {"192.0.2", "192.0.2.1/32", "0.0.0.0", "::"}) {
    EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hop: \"" + std::string(next_hop) + "\""),
              "2:43: \"" + std::string(next_hop) + "\" is not a next hop such as 192.0.2.1 or 2001:db8::1");
  }
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hops: [192.0.2.1, 192.0.2.1]"),
            "2:56: the next hop \"192.0.2.1\" is written twice");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hops: [192.0.2.1, \"fe80::1\"]"),
            "2:56: the next hop is not of the family of 10.0.0.0/8");
  std::string next_hops = "10.0.0.1";
  for (int number = 2; number <= 129; ++number) next_hops += ", 10.0.0." + std::to_string(number);
  EXPECT_THAT(ErrorInRoute("prefix: 10.0.0.0/8, next_hops: [" + next_hops + "]"),
              ::testing::EndsWith(": a route has at most 128 next hops"));
}

TEST(RoutesError, FamilyWithoutATableIsRefused) {
  EXPECT_EQ(ErrorIn("vrfs:\n  - name: red\n    tables: {ipv4: 10}\n    routes:\n"
                    "      - {prefix: \"2001:db8::/32\", type: reject}\n"),
            "5:18: the VRF \"red\" has no IPv6 table");
  EXPECT_EQ(ErrorIn("vrfs:\n  - name: red\n    tables: {ipv6: 10}\n    routes: {generate: 1}\n"),
            "4:13: the VRF \"red\" has no IPv4 table");
}

TEST(RoutesError, IncompleteRoutesAreRefused) {
  EXPECT_EQ(ErrorInRoute("type: reject"), "2:12: a route needs a prefix");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8"), "2:12: a route needs a next_hop, an interface or a type");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: remote"), "2:12: a remote route needs a next_hop");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: local, next_hop: 192.0.2.1"),
            "2:12: a local route has no next hop");
  EXPECT_EQ(ErrorInRoutes("{prefix: 10.0.0.0/8, type: reject}"),
            "2:11: routes are written as a list, or as one map with generate");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, interface: ge2"),
            "2:44: there is no interface \"ge2\" in this file");
}

TEST(RoutesError, LabelsAreBounded) {
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hop: 192.0.2.1, labels: [1048576]"),
            "2:63: a label is a number from 0 to 1048575, not \"1048576\"");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, interface: ge1, labels: [16]"), "2:12: labels need a next_hop");
  std::string labels = "16";
  for (int number = 2; number <= 17; ++number) labels += ",16";
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hop: 192.0.2.1, labels: [" + labels + "]"),
            "2:111: a route has at most 16 labels");
}

TEST(RoutesError, NumbersOutOfRangeAreRefused) {
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, metric: 2147483648"),
            "2:55: a metric is a number from 0 to 2147483647, not \"2147483648\"");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, metric: -2"),
            "2:55: a metric is a number from 0 to 2147483647, not \"-2\"");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, metrics: [1, 2, 3, 4, 5, 6]"),
            "2:72: a route has at most five metrics");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, next_hop_as: 4294967296"),
            "2:60: a next hop's AS is a number from 0 to 4294967295, not \"4294967296\"");
}

TEST(RoutesError, KeysThatExcludeEachOtherAreRefused) {
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hop: 192.0.2.1, next_hops: [192.0.2.2]"),
            "2:65: a route has next_hop or next_hops, not both");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, next_hops: [192.0.2.1], next_hop: 192.0.2.2"),
            "2:67: a route has next_hop or next_hops, not both");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, metric: 1, metrics: [1]"),
            "2:67: a route has a metric or metrics, not both");
  EXPECT_EQ(ErrorInRoute("prefix: 10.0.0.0/8, type: reject, metrics: [1], metric: 1"),
            "2:69: a route has a metric or metrics, not both");
}

TEST(RoutesError, RouteOfATableWrittenTwiceNamesTheLineOfTheFirst) {
  EXPECT_EQ(ErrorInRoutes("[{prefix: 10.0.0.0/8, next_hop: 192.0.2.1},\n {prefix: 10.0.0.0/8, next_hops: "
                          "[192.0.2.2, 192.0.2.1]}]"),
            "3:11: the route 10.0.0.0/8 is written in line 2 already, with the same next hop");
  EXPECT_EQ(ErrorIn("vrfs:\n"
                    "  - {name: red, id: 2, table: 10, routes: [{prefix: 10.0.0.0/8, type: reject}]}\n"
                    "  - {name: blue, id: 3, table: 10, routes: [{prefix: 10.0.0.0/8, type: reject}]}\n"),
            "3:54: the route 10.0.0.0/8 is written in line 2 already, with the same next hop");
}

TEST(RoutesError, GeneratedRoutesClashWithWrittenOnes) {
  EXPECT_EQ(ErrorInRoutes("[{generate: 300},\n {prefix: 1.0.255.0/24, next_hop: 192.0.2.1}]"),
            "2:12: the generated route 1.0.255.0/24 is written in line 3");
  EXPECT_EQ(
      Routes("[{generate: 300}, {prefix: 1.1.44.0/24, next_hop: 192.0.2.1}, "
             "{prefix: 1.0.255.0/24, next_hop: 192.0.2.2}, {prefix: 1.0.255.0/25, next_hop: 192.0.2.1}]")
          .size(),
      4U);
}

TEST(RoutesError, GeneratedRoutesClashWithEachOther) {
  EXPECT_EQ(ErrorInRoutes("[{generate: 300}, {generate: 2, prefix: 1.1.43.0/24}]"),
            "2:51: the routes from 1.1.43.0/24 on are generated twice");
  EXPECT_EQ(Routes("[{generate: 300}, {generate: 2, prefix: 1.1.44.0/24}]").size(), 2U);
}

TEST(RoutesError, GeneratorIsBounded) {
  EXPECT_EQ(ErrorInRoutes("{generate: 2000001}"),
            "2:22: the number of generated routes is a number from 0 to 2000000, not \"2000001\"");
  EXPECT_EQ(ErrorInRoutes("[{generate: 1000001}, {generate: 1000000, prefix: 100.0.0.0/24}]"),
            "2:61: the file generates more than 2000000 routes");
  EXPECT_EQ(ErrorInRoutes("{generate: 257, prefix: 255.255.0.0/24}"),
            "2:35: there are not 257 prefixes from 255.255.0.0/24 on");
  EXPECT_EQ(ErrorIn("generate: {vrfs: 100, interfaces_per_vrf: 0, routes_per_vrf: 20001}\n"),
            "1:11: the file generates more than 2000000 routes");
  std::string groups;
  for (int octet = 1; octet <= 17; ++octet)
    groups += "{generate: 1, prefix: " + std::to_string(octet) + ".0.0.0/8},";
  EXPECT_THAT(ErrorInRoutes("[" + groups + "]"),
              ::testing::EndsWith(": a table has at most 16 generated groups"));
}

}  // namespace
}  // namespace router_file
