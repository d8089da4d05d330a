// "show routes" and "show route-targets".
#include <gmock/gmock.h>

#include "cli/show/show_test_fixture.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ShowRoutes : public ShowCommand {
 protected:
  void SetUp() override {
    ShowCommand::SetUp();
    fake.vrfs["red"];
    fake.vrfs["blue"];
  }
  // A default route, two of one prefix, one inside it, and a local one.
  void AddRoutesOfRed() {
    AddRoute("red", "00000000", 0, "", {.type = 5, .protocol = 2});
    AddRoute("red", "0a0a0100", 24, "", {.if_index = 11, .type = 3, .protocol = 2, .age = 3});
    AddRoute("red", "0a0c0000", 16, "0a0a0102",
             {.if_index = 11, .protocol = 13, .age = 90'061, .metric = 20});
    AddRoute("red", "0a0c0000", 16, "0a0a0103", {.if_index = 2, .protocol = 13, .metric = 20});
    AddRoute("red", "0a0c0700", 24, "0a0a0102", {.protocol = 3, .cross_connect = {1, 0, 0xab}});
    AddRoute("red", "20010db8002100000000000000000000", 48, "20010db8001000010000000000000002",
             {.if_index = 11});
    AddRoute("blue", "0a000000", 8, "0a0a0a0a");
    fake.interfaces[{"red", 11}] = {"ge1"};
  }
  std::vector<std::string> PathsOf(const std::vector<std::string>& words) {
    std::vector<std::string> paths;
    for (const Json& row : AskForJson(words)) {
      const std::string prefix = row["prefix"];
      const std::string next_hop = row["nextHop"];
      paths.push_back(prefix + " " + next_hop);
    }
    return paths;
  }
};

TEST_F(ShowRoutes, TableShowsTheRoutesOfTheVrf) {
  AddRoutesOfRed();
  EXPECT_EQ(
      AskForText({"show", "routes", "red"}),
      "PREFIX            NEXT HOP          INTERFACE  PROTOCOL  TYPE       METRIC       AGE  CROSS-CONNECT\n"
      "0.0.0.0/0         -                 -          local     blackhole       -  00:00:00  -\n"
      "10.10.1.0/24      -                 ge1        local     local           -  00:00:03  -\n"
      "10.12.0.0/16      10.10.1.2         ge1        ospf      remote         20     1d01h  -\n"
      "10.12.0.0/16      10.10.1.3         #2         ospf      remote         20  00:00:00  -\n"
      "10.12.7.0/24      10.10.1.2         -          static    remote          -  00:00:00  0100ab\n"
      "2001:db8:21::/48  2001:db8:10:1::2  ge1        bgp       remote          -  00:00:00  -\n");
}

TEST_F(ShowRoutes, JsonHasTheRecordsKeys) {
  AddRoutesOfRed();
  EXPECT_EQ(AskForJson({"show", "routes", "red"})[2], Json::parse(R"({
    "vrfName": "red", "prefix": "10.12.0.0/16",
    "destType": 1, "destTypeName": "ipv4", "dest": "10.12.0.0", "mask": 16,
    "nextHopType": 1, "nextHopTypeName": "ipv4", "nextHop": "10.10.1.2",
    "ifIndex": 11, "interfaceName": "ge1",
    "type": 4, "typeName": "remote", "proto": 13, "protoName": "ospf",
    "age": 90061, "nextHopAS": 0,
    "metric1": 20, "metric2": -1, "metric3": -1, "metric4": -1, "metric5": -1,
    "xcPointer": "", "rowStatus": 1, "rowStatusName": "active"})"));
}

TEST_F(ShowRoutes, RouteWithoutNextHopHasNone) {
  AddRoutesOfRed();
  const Json local = AskForJson({"show", "routes", "red"})[1];
  EXPECT_EQ(local["nextHopTypeName"], "unknown");
  EXPECT_EQ(local["nextHop"], "");
}

TEST_F(ShowRoutes, VrfWithoutRoutesIsAnEmptyList) {
  AddRoute("green", "0a000000", 8, "0a0a0a0a");
  EXPECT_EQ(AskForJson({"show", "routes", "red"}), Json::array());
  EXPECT_EQ(AskForText({"show", "routes", "red"}),
            "PREFIX  NEXT HOP  INTERFACE  PROTOCOL  TYPE  METRIC  AGE  CROSS-CONNECT\n");
}

TEST_F(ShowRoutes, PrefixShowsItsRoutesOnly) {
  AddRoutesOfRed();
  EXPECT_THAT(PathsOf({"show", "routes", "red", "10.12.0.0/16"}),
              ElementsAre("10.12.0.0/16 10.10.1.2", "10.12.0.0/16 10.10.1.3"));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "10.10.1.0/24"}), ElementsAre("10.10.1.0/24 "));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "2001:db8:21::/48"}),
              ElementsAre("2001:db8:21::/48 2001:db8:10:1::2"));
}

TEST_F(ShowRoutes, DefaultRouteWithoutNextHopIsShownOnce) {
  AddRoutesOfRed();
  EXPECT_THAT(PathsOf({"show", "routes", "red", "0.0.0.0/0"}), ElementsAre("0.0.0.0/0 0.0.0.0"));
  AddRoute("red", "00000000", 0, "0a0a0102");
  EXPECT_THAT(PathsOf({"show", "routes", "red", "0.0.0.0/0"}),
              ElementsAre("0.0.0.0/0 0.0.0.0", "0.0.0.0/0 10.10.1.2"));
}

TEST_F(ShowRoutes, AddressShowsTheLongestMatch) {
  AddRoutesOfRed();
  EXPECT_THAT(PathsOf({"show", "routes", "red", "10.12.7.9"}), ElementsAre("10.12.7.0/24 10.10.1.2"));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "10.12.8.9"}),
              ElementsAre("10.12.0.0/16 10.10.1.2", "10.12.0.0/16 10.10.1.3"));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "10.10.1.255"}), ElementsAre("10.10.1.0/24 "));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "192.0.2.1"}), ElementsAre("0.0.0.0/0 0.0.0.0"));
  EXPECT_THAT(PathsOf({"show", "routes", "red", "2001:db8:21::7"}),
              ElementsAre("2001:db8:21::/48 2001:db8:10:1::2"));
}

TEST_F(ShowRoutes, PrefixWithoutARouteIsAFailure) {
  AddRoutesOfRed();
  EXPECT_EQ(Ask({"show", "routes", "red", "10.13.0.0/16"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Err(), "mplsvpn: VRF red has no route for 10.13.0.0/16\n");
  EXPECT_EQ(Ask({"--json", "show", "routes", "red", "2001:db8:22::1"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Json::parse(Err())["error"]["message"], "VRF red has no route to 2001:db8:22::1");
}

TEST_F(ShowRoutes, RouteOfAnotherVrfDoesNotMatch) {
  AddRoute("blue", "0a000000", 8, "0a0a0a0a");
  EXPECT_EQ(Ask({"show", "routes", "red", "10.0.0.0/8"}), kExitFailed);
  EXPECT_EQ(Ask({"show", "routes", "red", "10.1.1.1"}), kExitFailed);
}

TEST_F(ShowRoutes, BadPrefixIsAUsageErrorWithTheReason) {
  const std::vector<std::pair<std::string, std::string>> wrong = {
      {"10.0.0.0/33", "the length is from 0 to 32"},
      {"::/129", "the length is from 0 to 128"},
      {"10.0.0.0/", "the length is from 0 to 32"},
      {"10.0.0.0/8x", "the length is from 0 to 32"},
      {"10.0.0.0/-1", "the length is from 0 to 32"},
      {"10.0.0", "expected ADDRESS/LENGTH or ADDRESS, IPv4 or IPv6"},
      {"ge1", "expected ADDRESS/LENGTH or ADDRESS, IPv4 or IPv6"},
  };
  for (const auto& [prefix, why] : wrong) {
    EXPECT_EQ(Ask({"show", "routes", "red", prefix}), kExitUsage);
    EXPECT_EQ(Out(), "");
    EXPECT_EQ(Err(), "mplsvpn: \"" + prefix + "\" is not a prefix; " + why + "\n");
  }
}

TEST_F(ShowRoutes, PrefixWithHostBitsIsAUsageErrorThatShowsTheRightPrefix) {
  EXPECT_EQ(Ask({"show", "routes", "red", "10.1.0.0/8"}), kExitUsage);
  EXPECT_EQ(Err(), "mplsvpn: 10.1.0.0/8 has host bits set; did you mean 10.0.0.0/8?\n");
  EXPECT_EQ(Ask({"show", "routes", "red", "2001:db8::1/64"}), kExitUsage);
  EXPECT_EQ(Err(), "mplsvpn: 2001:db8::1/64 has host bits set; did you mean 2001:db8::/64?\n");
}

TEST_F(ShowRoutes, UnknownVrfIsReported) {
  AddRoutesOfRed();
  EXPECT_EQ(Ask({"show", "routes", "green"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: VRF green does not exist\n");
  EXPECT_EQ(Ask({"show", "routes"}), kExitUsage);
}

TEST_F(ShowRoutes, ManyRoutesAreReadInBatchesWithEachOnce) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (unsigned number = 0; number < 1200; ++number) {
    std::string digits = "14000000";
    for (unsigned at = 0; at < 4; ++at) digits[5 - at] = kDigits[number >> 4 * at & 0xfU];
    AddRoute("red", digits, 24, "0a0a0102");
  }
  const auto paths = PathsOf({"show", "routes", "red"});
  ASSERT_EQ(paths.size(), 1200U);
  EXPECT_EQ(paths[0], "20.0.0.0/24 10.10.1.2");
  EXPECT_EQ(paths[511], "20.1.255.0/24 10.10.1.2");
  EXPECT_EQ(paths[512], "20.2.0.0/24 10.10.1.2");
  EXPECT_EQ(paths[1199], "20.4.175.0/24 10.10.1.2");
}

TEST_F(ShowRoutes, NameOfThePathsInterfaceIsOfItsOwnVrf) {
  AddRoute("red", "0a000000", 8, "0a0a0a0a", {.if_index = 2});
  fake.interfaces[{"blue", 2}] = {"ge2"};
  EXPECT_EQ(AskForJson({"show", "routes", "red"})[0]["interfaceName"], "");
}

// --- Route targets

class ShowRouteTargets : public ShowCommand {
 protected:
  void AddTargets() {
    fake.vrfs["red"];
    fake.vrfs["blue"];
    fake.targets[{"red", 1}] = {1, "65000:10", "IPv4 Unicast"};
    fake.targets[{"red", 2}] = {2, "192.0.2.1:10", "IPv6 Unicast"};
    fake.targets[{"cyan", 1}] = {2, "65000:7", ""};
  }
};

TEST_F(ShowRouteTargets, TableShowsThemAll) {
  AddTargets();
  EXPECT_EQ(AskForText({"show", "route-targets"}),
            "VRF   INDEX  TYPE    ROUTE TARGET  FAMILY\n"
            "red       1  import  65000:10      IPv4 Unicast\n"
            "red       2  export  192.0.2.1:10  IPv6 Unicast\n"
            "cyan      1  export  65000:7       -\n");
}

TEST_F(ShowRouteTargets, OneVrfsAreShownAlone) {
  AddTargets();
  EXPECT_EQ(AskForJson({"show", "route-targets", "red"}), Json::parse(R"([
    {"vrfName": "red", "index": 1, "type": 1, "typeName": "import",
     "rt": "65000:10", "description": "IPv4 Unicast",
     "storageType": 5, "storageTypeName": "readOnly", "rowStatus": 1, "rowStatusName": "active"},
    {"vrfName": "red", "index": 2, "type": 2, "typeName": "export",
     "rt": "192.0.2.1:10", "description": "IPv6 Unicast",
     "storageType": 5, "storageTypeName": "readOnly", "rowStatus": 1, "rowStatusName": "active"}])"));
}

TEST_F(ShowRouteTargets, VrfWithoutAnyIsAnEmptyList) {
  AddTargets();
  EXPECT_EQ(AskForJson({"show", "route-targets", "blue"}), Json::array());
  EXPECT_EQ(AskForText({"show", "route-targets", "blue"}), "VRF  INDEX  TYPE  ROUTE TARGET  FAMILY\n");
}

TEST_F(ShowRouteTargets, TargetsOfAVrfThatIsOnlyConfiguredAreShown) {
  AddTargets();
  EXPECT_EQ(AskForJson({"show", "route-targets", "cyan"}).size(), 1U);
}

TEST_F(ShowRouteTargets, UnknownVrfIsReported) {
  AddTargets();
  EXPECT_EQ(Ask({"show", "route-targets", "green"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Err(), "mplsvpn: VRF green does not exist\n");
}

TEST_F(ShowRouteTargets, ManyAreReadInBatchesWithEachOnce) {
  for (std::uint32_t index = 1; index <= 1100; ++index)
    fake.targets[{"red", index}] = {1, "1:" + std::to_string(index), "IPv4 Unicast"};
  const Json rows = AskForJson({"show", "route-targets"});
  ASSERT_EQ(rows.size(), 1100U);
  for (std::uint32_t at = 0; at < 1100; ++at) ASSERT_EQ(rows[at]["index"], at + 1);
}

// --- Any path

class RawCommand : public ShowCommand {
 protected:
  void SetUp() override {
    ShowCommand::SetUp();
    fake.vrfs["a/b"].rd = "1:1";
    fake.vrfs["red"].tables = {{2, 1, {}, "", ""}};
  }
};

TEST_F(RawCommand, ListShowsTheKeys) {
  EXPECT_EQ(AskForText({"list", "vrf-detail"}), "a/b\nred\n");
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(AskForJson({"list", "/oper/mpls_vpn/gl/vrf-detail-filter/-/2/1"}),
            Json::array({{{"key", "red"}, {"kind", 3}}}));
}

TEST_F(RawCommand, DatalistShowsKeysAndRecords) {
  const Json items = AskForJson({"datalist", "vrf-detail"});
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0]["key"], "a/b");
  EXPECT_EQ(items[0]["kind"], 7);
  EXPECT_EQ(items[0]["record"]["RouteDistinguisher"], "1:1");
  EXPECT_THAT(AskForText({"datalist", "vrf-detail/a%2Fb"}), HasSubstr("red\n{\n  \"VRFName\": \"red\""));
}

TEST_F(RawCommand, StructuredFormIsReachedByEach) {
  EXPECT_EQ(AskForJson({"get", "vrf/red", "--structured"})["name"], "red");
  EXPECT_EQ(fake.last_form, 2U);
  EXPECT_EQ(AskForJson({"datalist", "vrf-detail", "--structured"})[0]["key"], "a%2Fb");
  EXPECT_EQ(fake.last_form, 2U);
  EXPECT_EQ(AskForJson({"list", "vrf-detail-filter/red", "--structured"}).size(), 1U);
  EXPECT_EQ(fake.last_form, 3U);
}

TEST_F(RawCommand, TruncatedListIsReported) {
  EXPECT_EQ(AskForText({"list", "vrf-detail", "--max", "1"}), "a/b\n");
  EXPECT_EQ(Err(), "mplsvpn: stopped after 1 item (--max); there may be more\n");
  EXPECT_EQ(Ask({"datalist", "vrf-detail", "--max", "2"}), kExitOk);
  EXPECT_THAT(Err(), HasSubstr("there may be more"));
}

TEST_F(RawCommand, EmptyListIsAnEmptyArray) {
  fake.vrfs.clear();
  EXPECT_EQ(AskForJson({"list", "vrf-detail"}), Json::array());
  EXPECT_EQ(AskForJson({"datalist", "vrf-detail"}), Json::array());
}

TEST_F(RawCommand, FailuresHaveThePathAndTheReason) {
  EXPECT_EQ(Ask({"list", "nothing"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/nothing: No such path\n");
  EXPECT_EQ(Ask({"datalist", "vrf/red"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("The path does not serve this operation"));
  EXPECT_EQ(Ask({"list", "vrf-detail", "--max", "0"}), kExitUsage);
  EXPECT_EQ(Ask({"list", "vrf-detail", "--max", "1025"}), kExitUsage);
  EXPECT_THAT(AskForText({"datalist"}), HasSubstr("\nvrf-detail/VRF "));
}

TEST_F(RawCommand, KeysCannotSteerTheTerminal) {
  fake.vrfs.clear();
  fake.vrfs["\x1b[2J"];
  EXPECT_EQ(AskForText({"list", "vrf-detail"}), "\\x1b[2J\n");
}

}  // namespace
}  // namespace cli
