// Derived items, from recorded answers of versions 8.4.4 and 10.3, which print the same.
#include "sources/frr/derived.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/config/test_support.h"
#include "sources/frr/config_nodes.h"

namespace {

using frr::Derived;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kImports[] =
    "router bgp 65000 vrf red\n address-family ipv4 unicast\n  import vrf blue\n exit-address-family\nexit\n";
constexpr char kFollowsVnis[] =
    "router bgp 65000\n address-family l2vpn evpn\n  advertise-all-vni\n exit-address-family\nexit\n";

// "red" imports from "blue" and from a VRF that the router does not have, "blue" from "red".
constexpr char kIpv4Leaks[] = R"(% Unknown command: mpls-vpn-mib-part-0.
vm# show bgp vrf all ipv4 unicast route-leak json
{
  "vrfs":{
    "default":{
      "vrf":"default",
      "afiSafi":"ipv4Unicast",
      "importFromVrfs":"none",
      "importRts":"none",
      "exportToVrfs":[
        "blue"
      ],
      "routeDistinguisher":"10.255.0.1:1",
      "exportRts":"10.255.0.1:1"
    },
    "red":{
      "vrf":"red",
      "afiSafi":"ipv4Unicast",
      "importFromVrfs":[
        "blue",
        "nosuch"
      ],
      "importRts":"10.3.0.1:3 0.0.0.0:4",
      "exportToVrfs":[
        "blue"
      ],
      "routeDistinguisher":"10.1.0.1:2",
      "exportRts":"10.1.0.1:2"
    },
    "green":{
      "vrf":"green",
      "afiSafi":"ipv4Unicast",
      "importFromVrfs":"none",
      "importRts":"none",
      "exportToVrfs":"none",
      "routeDistinguisher":"none",
      "exportRts":"none"
    }
  }
}
vm# )";
constexpr char kNoLeaks[] = R"({"vrfs":{}})";
constexpr char kVrfs[] = R"({"vrfs":{"default":{"type":"DFLT","vrfId":0,"routerId":"10.255.0.1","l3vni":0},
  "red":{"type":"VRF","vrfId":2,"routerId":"10.1.0.1","l3vni":100,"interface":"br100"},
  "blue":{"type":"VRF","vrfId":3,"routerId":"10.3.0.1","l3vni":0,"interface":"unknown"}},"totalVrfs":3})";
constexpr char kVnis[] = R"({
  "advertiseGatewayMacip":"Disabled",
  "advertiseAllVnis":"Enabled",
  "numVnis":2,
  "numL2Vnis":1,
  "numL3Vnis":1,
  "200":{"vni":200,"type":"L2","rd":"10.255.0.1:3","importRTs":["65000:200"],"exportRTs":["65000:200"]},
  "100":{
    "vni":100,
    "type":"L3",
    "inKernel":"True",
    "originatorIp":"10.255.0.1",
    "rd":"10.1.0.1:2",
    "rmac":"66:06:59:56:e6:5e",
    "importRTs":[
      "65000:500",
      "65000:100"
    ],
    "exportRTs":[
      "65000:100"
    ]
  }
})";

class DerivedItems : public ::testing::Test {
 protected:
  std::optional<Derived> Derive(const std::string& text, const std::vector<std::string>& shown) {
    const frr::RunningConfig config = frr::parse_running_config(text);
    const router::Router router;
    return frr::derive(config, true, shown, frr::kPrograms[0].nodes(config, router));
  }
  std::vector<std::string> Words(const std::string& text, const std::vector<std::string>& shown) {
    const auto derived = Derive(text, shown);
    EXPECT_TRUE(derived.has_value());
    std::vector<std::string> words;
    for (const KvConfigNode& node : derived.value_or(Derived{}).nodes) {
      words.push_back(vrf_config::words_or_path(node));
    }
    return words;
  }
  static std::vector<std::string> Commands(const std::string& text) {
    return frr::derived_commands(frr::parse_running_config(text), true);
  }
};

TEST_F(DerivedItems, AreAskedForOnlyWhenTheSuiteDerivesSome) {
  EXPECT_THAT(Commands("router bgp 65000 vrf red\n address-family ipv4 unicast\n  rd vpn export 65000:1\n"
                       "  rt vpn both 65000:1\n  import vpn\n"),
              IsEmpty());
  EXPECT_THAT(Commands(kImports), ElementsAre("show bgp vrf all ipv4 unicast route-leak json",
                                              "show bgp vrf all ipv6 unicast route-leak json"));
  EXPECT_THAT(Commands(kFollowsVnis), ElementsAre("show bgp vrfs json", "show bgp l2vpn evpn vni json"));
}

TEST_F(DerivedItems, OfVrfsThatImportByNameAreInBothDirections) {
  EXPECT_THAT(Words(kImports, {kIpv4Leaks, kNoLeaks}),
              UnorderedElementsAre("vrf red rd 10.1.0.1:2 ipv4", "vrf red rt import 10.3.0.1:3 ipv4",
                                   "vrf red rt import 0.0.0.0:4 ipv4", "vrf red rt export 10.1.0.1:2 ipv4"));
}

TEST_F(DerivedItems, OfIpv6AreOfTheirFamily) {
  EXPECT_THAT(Words(kImports, {kNoLeaks, kIpv4Leaks}), testing::Contains("vrf red rd 10.1.0.1:2 ipv6"));
}

TEST_F(DerivedItems, OfEvpnAreThoseOfTheVrfWithTheVni) {
  EXPECT_THAT(Words(kFollowsVnis, {kVrfs, kVnis}),
              UnorderedElementsAre("vrf red rd 10.1.0.1:2 evpn", "vrf red rt import 65000:500 evpn",
                                   "vrf red rt import 65000:100 evpn", "vrf red rt export 65000:100 evpn"));
}

TEST_F(DerivedItems, ConfiguredItemsAreNotDerived) {
  EXPECT_THAT(Words(std::string(kFollowsVnis) + "router bgp 65000 vrf red\n address-family l2vpn evpn\n"
                                                "  route-target import 65000:500\n",
                    {kVrfs, kVnis}),
              UnorderedElementsAre("vrf red rd 10.1.0.1:2 evpn", "vrf red rt import 65000:100 evpn",
                                   "vrf red rt export 65000:100 evpn"));
}

// After a change of the router ID, 10.3 exports routes with a derived RD and prints the configured one.
constexpr char kGreen[] =
    "router bgp 65000 vrf green\n bgp router-id 10.9.3.1\n address-family ipv4 unicast\n"
    "  rd vpn export 65000:30\n  rt vpn import 65000:30\n  rt vpn export 10.9.3.1:5\n  export vpn\n";
constexpr char kExports[] = R"({
 "vrfId": 0,
 "vrfName": "default",
 "tableVersion": 1,
 "routerId": "10.255.0.1",
 "defaultLocPrf": 100,
 "localAS": 65000,
 "routes": {  "routeDistinguishers" : { "10.9.3.1:5" : { "10.4.0.0/24": [{"valid":true,"bestpath":true,
 "pathFrom":"external","prefix":"10.4.0.0","prefixLen":24,"path":"","origin":"incomplete",
 "announceNexthopSelf":true,"nhVrfName":"green","nhVrfId":4,"nexthops":[{"ip":"0.0.0.0","used":true}]}]
 }  }  } , "totalRoutes": 1, "totalPaths": 1 } )";

TEST_F(DerivedItems, RdOfExportedRoutesReplacesTheConfiguredOne) {
  EXPECT_THAT(Commands(kGreen), ElementsAre("show bgp ipv4 vpn rd 10.9.3.1:5 json"));
  const auto derived = Derive(kGreen, {kExports});
  ASSERT_TRUE(derived.has_value());
  EXPECT_THAT(
      vrf_config::shown(derived->nodes),
      ElementsAre("/cfg/gl/vmap/vrf/green/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_a/rd = '10.9.3.1:5'"));
  EXPECT_THAT(derived->ineffective,
              ElementsAre("/cfg/gl/vmap/vrf/green/ord_z/afi_safi/1/1/default/ord_b/bgp/ord_a/rd"));
}

TEST_F(DerivedItems, ExportTargetThatIsNotOfTheRouterIdIsNotDerived) {
  std::string other = kGreen;
  other.replace(other.find("10.9.3.1"), 8, "10.4.0.1");
  EXPECT_THAT(Commands(other), IsEmpty());
  EXPECT_THAT(frr::derived_commands(frr::parse_running_config(kGreen), false), IsEmpty());
}

TEST_F(DerivedItems, RdOfAnotherRouterIsNotThatOfTheVrf) {
  std::string other = kExports;
  other.replace(other.find("\"green\""), 7, "\"white\"");
  for (const std::string& shown : {other, std::string(R"({"routes":{"routeDistinguishers":{}}})")}) {
    const auto derived = Derive(kGreen, {shown});
    ASSERT_TRUE(derived.has_value());
    EXPECT_THAT(derived->nodes, IsEmpty());
    EXPECT_THAT(derived->ineffective, IsEmpty());
  }
}

TEST_F(DerivedItems, AreUnknownWhenAnAnswerCannotBeRead) {
  for (const char* text : {"{", "{\"vrfs\":", "{\"vrfs\":}", "{}{}"}) {
    EXPECT_FALSE(Derive(kImports, {kNoLeaks, text}).has_value()) << text;
  }
  EXPECT_FALSE(Derive(kImports, {kNoLeaks}).has_value());
}

// 8.4 prints nothing of an RD that it does not know, and of EVPN when BGP does not run.
TEST_F(DerivedItems, AnswerWithoutJsonShowsNone) {
  for (const char* text : {"", "vm# show bgp vrfs json\nvm# ", "% Unknown command"}) {
    EXPECT_THAT(Words(kImports, {text, text}), IsEmpty()) << text;
    EXPECT_THAT(Words(kGreen, {text}), IsEmpty()) << text;
  }
}

TEST_F(DerivedItems, JsonOfAnotherFormHasNone) {
  for (const char* text : {"{}", R"({"vrfs":1})", R"({"vrfs":[1]})", R"({"vrfs":{"red":1}})",
                           R"({"vrfs":{"red":{"importRts":7,"exportRts":[7],"routeDistinguisher":{}}}})"}) {
    EXPECT_THAT(Words(kImports, {text, text}), IsEmpty()) << text;
    EXPECT_THAT(Words(kFollowsVnis, {text, text}), IsEmpty()) << text;
  }
}

TEST_F(DerivedItems, InvalidItemsAreErrors) {
  const auto derived =
      Derive(kImports, {R"({"vrfs":{"red":{"importRts":"1:1 x","routeDistinguisher":"none"}}})", kNoLeaks});
  ASSERT_TRUE(derived.has_value());
  EXPECT_EQ(derived->nodes.size(), 1U);
  EXPECT_THAT(derived->errors, ElementsAre(HasSubstr("'x' is not a derived RD")));
}

}  // namespace
