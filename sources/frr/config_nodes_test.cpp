#include "sources/frr/config_nodes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/config/test_support.h"

namespace {

using frr::Nodes;
using frr::Program;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const Program& program(std::string_view name) {
  return *std::find_if(frr::kPrograms.begin(), frr::kPrograms.end(),
                       [name](const Program& each) { return each.name == name; });
}

std::vector<std::string> paths(const Nodes& nodes) {
  std::vector<std::string> list;
  for (const KvConfigNode& node : nodes) list.push_back(node.path);
  return list;
}

class ConfigNodes : public ::testing::Test {
 protected:
  void AddInterface(const std::string& name, const std::string& vrf,
                    const std::vector<std::string>& addresses) {
    router::Interface added;
    added.name = name;
    added.vrf = vrf;
    added.index = ++last_index;
    for (const std::string& text : addresses) {
      router::Address address;
      ASSERT_TRUE(router::parse_address(text, &address));
      added.addresses.push_back(address);
    }
    ASSERT_EQ(router.add_interface(added), kStatusOk);
  }
  // An address of the last interface, as the kernel has it.
  void SetDetail(const std::string& address, const std::string& peer, bool secondary) {
    router::Interface interface = *router.find_interface_by_index(last_index);
    router::Ipv4Detail detail;
    ASSERT_TRUE(router::parse_address(address, &detail.address));
    ASSERT_TRUE(router::parse_address(peer, &detail.peer));
    detail.secondary = secondary;
    std::vector<router::Ipv4Detail> details(interface.ipv4_details.begin(), interface.ipv4_details.end());
    details.push_back(detail);
    interface.ipv4_details = details;
    ASSERT_EQ(router.change_interface(interface), kStatusOk);
  }
  // The programs whose protocol a `network` line of VRF blue enables on an interface.
  std::string EnabledBy(const std::string& network) {
    const std::string head = " vrf blue\n network " + network;
    std::string enabled;
    if (!Paths("ospfd", "router ospf" + head + " area 0\n").empty()) enabled += "ospfd ";
    if (!Paths("ripd", "router rip" + head + "\n").empty()) enabled += "ripd ";
    if (!Paths("eigrpd", "router eigrp 1" + head + "\n").empty()) enabled += "eigrpd ";
    return enabled;
  }
  void AddVrf(const std::string& name) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = ++last_index + 100;
    ASSERT_EQ(router.create_vrf(vrf), kStatusOk);
  }
  Nodes Say(std::string_view name, const std::string& text) {
    Nodes nodes = program(name).nodes(frr::parse_running_config(text), router);
    EXPECT_TRUE(std::is_sorted(
        nodes.begin(), nodes.end(),
        [](const KvConfigNode& left, const KvConfigNode& right) { return left.path <= right.path; }))
        << "in path order, each path once";
    for (const KvConfigNode& node : nodes) EXPECT_TRUE(frr::owns(program(name), node.path)) << node.path;
    return nodes;
  }
  std::vector<std::string> Paths(std::string_view name, const std::string& text) {
    return paths(Say(name, text));
  }
  // In words.
  std::vector<std::string> Items(std::string_view name, const std::string& text) {
    std::vector<std::string> items;
    for (const KvConfigNode& node : Say(name, text)) items.push_back(vrf_config::words_or_path(node));
    return items;
  }

  router::Router router;
  std::uint32_t last_index = 0;
};

constexpr char kRed[] =
    "router bgp 65000 vrf red\n address-family ipv4 unicast\n  route-map vpn import RM-IN\n"
    "  route-map vpn export RM-OUT\n  rd vpn export 65000:10\n  rt vpn import 65000:10 65000:99\n"
    "  rt vpn export 10.0.0.1:5\n exit-address-family\n";

TEST_F(ConfigNodes, VrfHasItsRdTargetsAndPolicies) {
  EXPECT_THAT(Items("bgpd", kRed),
              UnorderedElementsAre("vrf red rd 65000:10 ipv4", "vrf red rt import 65000:10 ipv4",
                                   "vrf red rt import 65000:99 ipv4", "vrf red rt export 10.0.0.1:5 ipv4",
                                   "vrf red policy import ipv4 RM-IN", "vrf red policy export ipv4 RM-OUT"));
}

TEST_F(ConfigNodes, RdIsOfEachFamilyThatHasOne) {
  EXPECT_THAT(
      Items("bgpd",
            "router bgp 1 vrf red\n address-family ipv4 unicast\n  rd vpn export 1:4\n exit-address-family\n"
            " address-family ipv6 unicast\n  rd vpn export 1:6\n"),
      ElementsAre("vrf red rd 1:4 ipv4", "vrf red rd 1:6 ipv6"));
}

TEST_F(ConfigNodes, TargetThatIsNamedTwiceIsOneNode) {
  EXPECT_THAT(Items("bgpd", "router bgp 1 vrf red\n address-family ipv4 unicast\n  rt vpn import 1:1 1:1\n"),
              ElementsAre("vrf red rt import 1:1 ipv4"));
}

TEST_F(ConfigNodes, NeighborIsActiveByItsOwnLine) {
  EXPECT_THAT(Items("bgpd",
                    "router bgp 1 vrf red\n neighbor 10.0.0.1 remote-as 2\n address-family ipv4 unicast\n"
                    "  no neighbor 10.0.0.1 activate\n exit-address-family\n address-family ipv6 unicast\n"
                    "  neighbor 10.0.0.1 activate\n"),
              ElementsAre("vrf red bgp 1 neighbor 10.0.0.1 ipv6"));
}

TEST_F(ConfigNodes, NeighborIsActiveByDefaultInIpv4) {
  EXPECT_THAT(
      Items("bgpd", "router bgp 1 vrf red\n neighbor 10.0.0.1 remote-as 2\n neighbor 10.0.0.1 shutdown\n"),
      ElementsAre("vrf red bgp 1 neighbor 10.0.0.1 ipv4"));
  EXPECT_THAT(
      Items("bgpd", "router bgp 1 vrf red\n no bgp default ipv4-unicast\n neighbor 10.0.0.1 remote-as 2\n"),
      IsEmpty());
}

TEST_F(ConfigNodes, NeighborFollowsItsGroupWhichIsNotANeighbor) {
  EXPECT_THAT(
      Items(
          "bgpd",
          "router bgp 1 vrf red\n no bgp default ipv4-unicast\n neighbor CE peer-group\n"
          " neighbor 10.0.0.1 peer-group CE\n neighbor 10.0.0.2 peer-group CE\n address-family ipv4 unicast\n"
          "  neighbor CE activate\n  no neighbor 10.0.0.2 activate\n"),
      ElementsAre("vrf red bgp 1 neighbor 10.0.0.1 ipv4"));
}

TEST_F(ConfigNodes, GroupThatListensCountsAsANeighbor) {
  EXPECT_THAT(Items("bgpd",
                    "router bgp 1 vrf red\n neighbor CE peer-group\n neighbor IDLE peer-group\n"
                    " bgp listen range 10.1.0.0/24 peer-group CE\n"
                    " bgp listen range 2001:db8:1::/64 peer-group CE\n"
                    " address-family ipv6 unicast\n  neighbor CE activate\n"),
              UnorderedElementsAre("vrf red bgp 1 neighbor CE ipv4", "vrf red bgp 1 neighbor CE ipv6"));
}

TEST_F(ConfigNodes, UnnumberedNeighborIsKnownByItsInterface) {
  EXPECT_THAT(Items("bgpd",
                    "router bgp 1 vrf red\n neighbor red1 interface remote-as external\n"
                    " neighbor red2 interface v6only remote-as internal\n address-family ipv6 unicast\n"
                    "  neighbor red1 activate\n"),
              UnorderedElementsAre("vrf red bgp 1 neighbor red1 ipv4", "vrf red bgp 1 neighbor red1 ipv6",
                                   "vrf red bgp 1 neighbor red2 ipv4"));
}

TEST_F(ConfigNodes, EvpnHasItsRdAndTargets) {
  EXPECT_THAT(Items("bgpd",
                    "router bgp 1 vrf red\n address-family l2vpn evpn\n  rd 65000:100\n"
                    "  route-target import 65000:101\n  route-target export 65000:102\n"),
              UnorderedElementsAre("vrf red rd 65000:100 evpn", "vrf red rt import 65000:101 evpn",
                                   "vrf red rt export 65000:102 evpn"));
}

TEST_F(ConfigNodes, NotationOfTheDefaultInstanceIsTheFormatOfAsNumbers) {
  EXPECT_THAT(Items("bgpd", "router bgp 1.10 as-notation dot\n"), ElementsAre("bgp as-format asdot"));
  EXPECT_THAT(Items("bgpd", "router bgp 1.10 as-notation dot+\n"), ElementsAre("bgp as-format asdot+"));
  EXPECT_THAT(Items("bgpd", "router bgp 1 as-notation plain\n"), ElementsAre("bgp as-format asplain"));
  EXPECT_THAT(Items("bgpd", "router bgp 1\nexit\nrouter bgp 1.10 vrf red as-notation dot\n"), IsEmpty());
}

TEST_F(ConfigNodes, VniIsOfItsVrf) {
  EXPECT_THAT(
      Items("zebra", "vrf red\n vni 100\nexit-vrf\nvrf blue\n vni 200 prefix-routes-only\nexit-vrf\n"),
      UnorderedElementsAre("vrf red vni 100", "vrf blue vni 200"));
}

TEST_F(ConfigNodes, DescriptionOfAVrfDeviceIsThatOfTheVrf) {
  AddVrf("red");
  EXPECT_THAT(
      Items("zebra",
            "interface red\n description customer red\nexit\ninterface red1\n description to a CE\nexit\n"
            "interface default\n description x\n"),
      ElementsAre("vrf red description \"customer red\""));
}

TEST_F(ConfigNodes, OspfIsEnabledByNetworks) {
  AddInterface("blue1", "blue", {"10.2.0.1/30"});
  AddInterface("blue2", "blue", {"10.9.0.1/24", "2001:db8::1/64"});
  AddInterface("red1", "red", {"10.2.0.1/30"});
  EXPECT_THAT(Items("ospfd", "router ospf vrf blue\n network 10.2.0.0/30 area 3\n"),
              ElementsAre("vrf blue ospf 1 area 0.0.0.3 interface blue1"));
}

// Seen in both versions of the suite: an interface with 10.2.0.1/24 runs OSPF under "network 10.2.0.1/32".
TEST_F(ConfigNodes, NetworkContainsTheAddressesUnderItsOwnMask) {
  AddInterface("blue1", "blue", {"10.2.0.1/24", "2001:db8:2::1/64"});
  for (const char* network : {"10.2.0.1/32", "10.2.0.0/30", "10.2.0.0/16", "0.0.0.0/0"}) {
    const std::string line = std::string(" network ") + network;
    EXPECT_EQ(Paths("ospfd", "router ospf vrf blue\n" + line + " area 0\n").size(), 1U) << network;
    EXPECT_EQ(Paths("ripd", "router rip vrf blue\n" + line + "\n").size(), 1U) << network;
    EXPECT_EQ(Paths("eigrpd", "router eigrp 1 vrf blue\n" + line + "\n").size(), 1U) << network;
  }
  for (const char* network : {"10.2.0.0/32", "10.2.0.2/31", "10.2.0.128/25", "10.3.0.0/24"}) {
    EXPECT_THAT(Paths("ospfd", std::string("router ospf vrf blue\n network ") + network + " area 0\n"),
                IsEmpty());
  }
  EXPECT_EQ(Paths("ripngd", "router ripng vrf blue\n network 2001:db8:2::/127\n").size(), 1U);
  EXPECT_THAT(Paths("ripngd", "router ripng vrf blue\n network 2001:db8:2::/128\n"), IsEmpty());
}

// The suite's own answers for such pairs: tests/kernel/system_networks.py.
TEST_F(ConfigNodes, NetworkContainsTheAddressOrThePeerDependingOnTheProtocol) {
  AddInterface("blue1", "blue", {"10.4.0.1/32"});
  SetDetail("10.4.0.1/32", "10.5.0.1/32", false);
  EXPECT_EQ(EnabledBy("10.4.0.1/32"), "ripd eigrpd ");
  EXPECT_EQ(EnabledBy("10.5.0.0/16"), "ospfd ");
}

TEST_F(ConfigNodes, NetworkContainsSecondaryAddressesForRipOnly) {
  AddInterface("blue1", "blue", {"10.8.0.1/24", "10.8.0.2/24"});
  SetDetail("10.8.0.1/24", "10.8.0.1/24", false);
  SetDetail("10.8.0.2/24", "10.8.0.2/24", true);
  EXPECT_EQ(EnabledBy("10.8.0.1/32"), "ospfd ripd eigrpd ");
  EXPECT_EQ(EnabledBy("10.8.0.2/32"), "ripd ");
}

TEST_F(ConfigNodes, MostSpecificNetworkSetsTheArea) {
  AddInterface("blue1", "blue", {"10.2.0.1/30"});
  EXPECT_THAT(Items("ospfd",
                    "router ospf vrf blue\n network 10.0.0.0/8 area 1\n network 10.2.0.0/24 area 2\n"
                    " network 10.0.0.0/16 area 3\n"),
              ElementsAre("vrf blue ospf 1 area 0.0.0.2 interface blue1"));
}

TEST_F(ConfigNodes, OspfAreaOfAnInterfaceNeedsTheProcessOfItsVrf) {
  AddInterface("blue1", "blue", {});
  const std::string interface = "interface blue1\n ip ospf area 9\nexit\n";
  EXPECT_THAT(Paths("ospfd", interface), IsEmpty());
  EXPECT_THAT(Paths("ospfd", interface + "router ospf vrf red\n"), IsEmpty());
  EXPECT_THAT(Paths("ospfd", interface + "router ospf 7 vrf blue\n"), IsEmpty());
  EXPECT_THAT(Items("ospfd", interface + "router ospf vrf blue\n"),
              ElementsAre("vrf blue ospf 1 area 0.0.0.9 interface blue1"));
}

TEST_F(ConfigNodes, AreaOfAnInterfaceOverridesNetworks) {
  AddInterface("blue1", "blue", {"10.2.0.1/30"});
  EXPECT_THAT(
      Items("ospfd",
            "interface blue1\n ip ospf area 9\nexit\nrouter ospf vrf blue\n network 10.0.0.0/8 area 1\n"),
      ElementsAre("vrf blue ospf 1 area 0.0.0.9 interface blue1"));
}

TEST_F(ConfigNodes, RipIsEnabledByNetworksAndNames) {
  AddInterface("grn1", "green", {"10.3.0.1/30"});
  AddInterface("grn2", "green", {});
  AddInterface("grn3", "green", {"10.4.0.1/30"});
  AddInterface("red1", "red", {"10.3.0.1/30"});
  EXPECT_THAT(Items("ripd", "router rip vrf green\n network 10.3.0.0/30\n network grn2\n network red1\n"),
              ElementsAre("vrf green rip interface grn1", "vrf green rip interface grn2"));
}

TEST_F(ConfigNodes, RipngIsEnabledByNetworksAndNames) {
  AddInterface("grn1", "green", {"10.3.0.1/30", "2001:db8:1::1/64"});
  AddInterface("grn2", "green", {"10.4.0.1/30"});
  AddInterface("grn3", "green", {"2001:db8:2::1/64"});
  const std::string config = "router ripng vrf green\n network 2001:db8:1::/48\n network grn2\n";
  EXPECT_THAT(Items("ripngd", config),
              ElementsAre("vrf green ripng interface grn1", "vrf green ripng interface grn2"));
  EXPECT_THAT(Paths("ripd", config), IsEmpty());
}

TEST_F(ConfigNodes, Ospf6IsEnabledByTheAreaOfAnInterfaceAndTheProcessOfItsVrf) {
  AddInterface("blue1", "blue", {"2001:db8::1/64"});
  const std::string interface = "interface blue1\n ipv6 ospf6 area 0.0.0.9\nexit\n";
  EXPECT_THAT(Paths("ospf6d", interface + "router ospf6 vrf red\nrouter ospf vrf blue\n"), IsEmpty());
  EXPECT_THAT(Paths("ospf6d", "router ospf6 vrf blue\n"), IsEmpty());
  EXPECT_THAT(Items("ospf6d", interface + "router ospf6 vrf blue\n"),
              ElementsAre("vrf blue ospf ospf6 area 0.0.0.9 interface blue1"));
}

TEST_F(ConfigNodes, EigrpIsEnabledByNetworks) {
  AddInterface("red2", "red", {"10.4.0.1/30"});
  AddInterface("red1", "red", {"10.1.0.1/30"});
  EXPECT_THAT(Items("eigrpd", "router eigrp 100 vrf red\n network 10.4.0.0/30\n"),
              ElementsAre("vrf red eigrp 100 interface red2"));
}

TEST_F(ConfigNodes, StaticRoutesAreANodeEach) {
  EXPECT_EQ(Paths("staticd",
                  "vrf red\n ip route 10.9.0.0/16 10.1.0.2\n ip route 10.9.0.0/16 10.4.0.2\n"
                  " ip route 10.8.0.0/16 red1\n ipv6 route 2001:db8::/32 Null0\nexit-vrf\n")
                .size(),
            4U);
}

constexpr char kEverything[] =
    "interface red\n description d\nrouter ospf vrf red\n network 0.0.0.0/0 area 0\n"
    "router rip vrf red\n network 0.0.0.0/0\nrouter eigrp 1 vrf red\n network 0.0.0.0/0\n"
    "vrf red\n ip route 10.9.0.0/16 Null0\n vni 100\n"
    "interface red1\n ipv6 ospf6 area 0\nrouter ospf6 vrf red\nrouter ripng vrf red\n network red1\n"
    "router bgp 65000 as-notation dot\n";

TEST_F(ConfigNodes, ProgramProvidesNoNodesOfOthers) {
  AddVrf("red");
  AddInterface("red1", "red", {"10.1.0.1/30"});
  for (const Program& speaker : frr::kPrograms) {
    const Nodes nodes = Say(speaker.name, std::string(kRed) + kEverything);
    EXPECT_FALSE(nodes.empty()) << speaker.name;
    for (const Program& other : frr::kPrograms) {
      if (speaker.name == frr::kManagementProgram || other.name == frr::kManagementProgram) continue;
      for (const KvConfigNode& node : nodes)
        EXPECT_EQ(frr::owns(other, node.path), &other == &speaker) << node.path;
    }
  }
}

TEST_F(ConfigNodes, ManagementProgramProvidesTheNodesOfFourPrograms) {
  AddVrf("red");
  AddInterface("red1", "red", {"10.1.0.1/30"});
  std::vector<std::string> expected;
  for (const char* name : {"zebra", "ripd", "ripngd", "staticd"}) {
    for (const std::string& path : Paths(name, kEverything)) expected.push_back(path);
  }
  EXPECT_EQ(expected.size(), 5U);
  EXPECT_THAT(Paths("mgmtd", std::string(kRed) + kEverything), testing::UnorderedElementsAreArray(expected));
}

TEST_F(ConfigNodes, NodeThatIsNotAnItemBelongsToNoProgram) {
  for (const Program& program : frr::kPrograms) {
    EXPECT_FALSE(frr::owns(program, "/cfg/gl/vmap/vrf/red/former")) << program.name;
    EXPECT_FALSE(frr::owns(program, "/cfg/gl/ipv4-ospf/proc/ospf6/former")) << program.name;
  }
}

}  // namespace
