// "show vrf detail", and how its list is read in pages.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/show/show_vrf_test_fixture.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/interface_states/interface_states.h"
#include "platform/router/model/router.h"
#include "platform/store/configuration/configuration.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using vrf_config::Family;

TEST_F(ShowVrf, DetailShowsEverything) {
  AddRed();
  fake.vrfs["red"].interfaces = {"ge1", "ge\n2"};
  EXPECT_EQ(AskForText({"show", "vrf", "red", "detail"}),
            "VRF red\n"
            "  description         Red Rail\n"
            "  route distinguisher 65000:10 (router file)\n"
            "  vni                 -\n"
            "  state               up\n"
            "  created             2023-11-13 21:13:20 UTC (1d01h ago)\n"
            "  last changed        2023-11-14 22:12:05 UTC (00:01:15 ago)\n"
            "  routes              7 now; additions and deletions are not counted\n"
            "  route thresholds    none\n"
            "  big                 no\n"
            "  interfaces          2, 1 active: ge1 ge\\x0a2\n");
}

TEST_F(ShowVrf, DetailNamesTheInterfacesThatAreNotActiveWithTheReason) {
  router::Router router;
  ASSERT_EQ(interface_states_start(&router, manager_), kStatusOk);
  std::uint32_t index = 0;
  for (const char* name : {"ge1", "ge2", "ge3"}) {
    router::Interface interface;
    interface.name = name;
    interface.index = ++index;
    interface.up = index != 2;
    router::Address address;
    ASSERT_TRUE(router::parse_address("10.0.0.1/24", &address));
    if (index != 3) interface.addresses.push_back(address);
    ASSERT_EQ(router.add_interface(interface), kStatusOk);
  }
  AddRed();
  fake.vrfs["red"].interfaces = {"ge1", "ge2", "ge3", "removed"};
  const std::string line = "4, 1 active: ge1 ge2 (down) ge3 (no address) removed\n";
  EXPECT_THAT(AskForText({"show", "vrf", "red", "detail"}), HasSubstr(line));
  EXPECT_THAT(AskForText({"show", "vrf", "detail"}), HasSubstr(line));
  interface_states_stop();
}

TEST_F(ShowVrf, RdThatIsNotConfiguredHasTheOriginOfTheModelsSource) {
  AddRed();
  StateOwnerOfModelRds(kConfigOwnerKernel);
  EXPECT_EQ(AskForJson({"show", "vrf", "red", "detail"})[0]["rdOrigin"], "kernel");
  StateOwnerOfModelRds("");
  EXPECT_EQ(AskForJson({"show", "vrf", "red", "detail"})[0]["rdOrigin"], Json());
}

TEST_F(ShowVrf, DetailShowsRouteTargetsAndPoliciesByFamily) {
  AddBlueWithTables();
  EXPECT_THAT(AskForText({"show", "vrf", "detail"}), HasSubstr("  big                 yes\n"));
  EXPECT_THAT(Out(), HasSubstr("  interfaces          0, 0 active\n"
                               "  ipv4 unicast\n"
                               "    import targets    65000:20 65000:99\n"
                               "    export targets    65000:20\n"
                               "    import policy     from-blue\n"
                               "    export policy     -\n"
                               "  ipv6 unicast\n"
                               "    import targets    -\n"
                               "    export targets    65000:26\n"
                               "    import policy     -\n"
                               "    export policy     to-blue\n"));
}

TEST_F(ShowVrf, DetailShowsTheThresholdsOfEachFamily) {
  AddBlueWithTables();
  Configure("blue", Family::kIpv4, 600, 500);
  Configure("blue", Family::kIpv6, 4294967295, 0);
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}),
              HasSubstr("  route thresholds    ipv4 high 600, mid 500\n"
                        "                      ipv6 high 4294967295, mid none\n"
                        "  big"));
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail", "ipv6"}),
              HasSubstr("  route thresholds    ipv6 high 4294967295, mid none\n"
                        "  big"));
}

TEST_F(ShowVrf, DetailShowsTheOriginOfEachItem) {
  using vrf_config::Direction;
  AddBlueWithTables();
  fake.vrfs["blue"].rd = "65000:20";
  const auto commit = [](std::string_view owner, const std::vector<KvConfigNode>& nodes) {
    std::vector<KvConfigChange> changes;
    for (const KvConfigNode& node : nodes) changes.push_back({node.path, node.value});
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
  };
  const auto target = [](Direction direction, const char* text) {
    return vrf_config::route_target("blue", Family::kIpv4, direction, *vrf_config::parse_target(text));
  };
  commit(kConfigOwnerFrrDerived, {target(Direction::kImport, "65000:99")});
  commit(kConfigOwnerFrr,
         {target(Direction::kExport, "65000:20"),
          vrf_config::route_distinguisher("blue", Family::kIpv4, *vrf_config::parse_target("65000:20"))});
  commit(kConfigOwnerCli,
         {target(Direction::kImport, "65000:20"), vrf_config::route_threshold("blue", Family::kIpv4, 9, 7)});
  commit(kConfigOwnerFile,
         {vrf_config::route_policy("blue", Family::kIpv4, Direction::kImport, "from-blue")});
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}),
              HasSubstr("  route distinguisher 65000:20 (configured)\n"));
  EXPECT_THAT(Out(), HasSubstr("  route thresholds    ipv4 high 9, mid 7 (operator)\n"));
  EXPECT_THAT(Out(), HasSubstr("    import targets    65000:20 (operator) 65000:99 (derived)\n"
                               "    export targets    65000:20 (configured)\n"
                               "    import policy     from-blue (router file)\n"));
  const Json vrf = AskForJson({"show", "vrf", "blue", "detail", "ipv4"})[0];
  EXPECT_EQ(vrf["rdOrigin"], "configured");
  EXPECT_EQ(vrf["routeThresholds"][0]["origin"], "operator");
  EXPECT_EQ(vrf["addressFamilies"][0]["routeTargets"][1]["origin"], "derived");
  EXPECT_EQ(vrf["addressFamilies"][0]["importRoutePolicyOrigin"], "router file");
}

TEST_F(ShowVrf, DetailShowsTheVni) {
  AddBlueWithTables();
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}), HasSubstr("  vni                 -\n"));
  const Json without = AskForJson({"show", "vrf", "blue", "detail"})[0];
  EXPECT_TRUE(without.at("vni").is_null() && without.at("vniOrigin").is_null()) << without;
  const KvConfigNode node = vrf_config::vni("blue", vrf_config::kGreatestVni);
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerFrr, {{node.path, node.value}}, ""), kStatusOk);
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}),
              HasSubstr("  vni                 16777215 (configured)\n"));
  const Json with = AskForJson({"show", "vrf", "blue", "detail", "ipv4"})[0];
  EXPECT_EQ(with["vni"], 16777215);
  EXPECT_EQ(with["vniOrigin"], "configured");
}

// The show record has the tables of the router only.
TEST_F(ShowVrf, DetailShowsTheRouteTargetsOfEvpn) {
  using vrf_config::Direction;
  AddBlueWithTables();
  fake.targets = {{{"blue", 1}, {1, "65000:20", "IPv4 Unicast"}},
                  {{"blue", 2}, {1, "65000:201", ""}},
                  {{"blue", 3}, {2, "65000:203", ""}},
                  {{"cyan", 1}, {1, "65000:9", ""}}};
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}), Not(HasSubstr("evpn"))) << "none is configured";
  for (const auto& [direction, text] :
       {std::pair(Direction::kImport, "65000:201"), {Direction::kExport, "65000:203"}}) {
    const KvConfigNode node =
        vrf_config::route_target("blue", Family::kEvpn, direction, *vrf_config::parse_target(text));
    ASSERT_EQ(kvtree_config_commit(kConfigOwnerFrr, {{node.path, node.value}}, ""), kStatusOk);
  }
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail"}),
              HasSubstr("  l2vpn evpn\n"
                        "    import targets    65000:201 (configured)\n"
                        "    export targets    65000:203 (configured)\n"
                        "    import policy     -\n"));
  const Json tables = AskForJson({"show", "vrf", "blue", "detail"})[0]["addressFamilies"];
  EXPECT_EQ(tables.back()["safiName"], "evpn");
  EXPECT_EQ(tables.back()["routeTargets"][1]["value"], "65000:203");
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail", "ipv4"}), Not(HasSubstr("evpn")));
}

// The row has one pair, which is 0 after the deletion of either family's.
TEST_F(ShowVrf, DetailShowsThresholdsThatTheRowDoesNot) {
  AddBlueWithTables();
  fake.vrfs["blue"].mid_threshold = 0;
  fake.vrfs["blues"];
  Configure("blue", Family::kIpv6, 9, 7);
  EXPECT_THAT(AskForText({"show", "vrf", "detail"}), HasSubstr("  route thresholds    ipv6 high 9, mid 7\n"));
  EXPECT_THAT(Out(), HasSubstr("  route thresholds    none\n"));
  const Json vrfs = AskForJson({"show", "vrf", "detail"});
  EXPECT_EQ(vrfs[0]["midThresh"], 0);
  EXPECT_EQ(vrfs[0]["routeThresholds"], Json::parse(R"([
    {"afi": 2, "afiName": "ipv6", "midThresh": 7, "highThresh": 9, "origin": null}])"));
  EXPECT_EQ(vrfs[1]["routeThresholds"], Json::array());
}

// The configuration orders VRFs by their whole names, the table shorter names first; some VRFs have more
// nodes than are read at once, and some have none.
TEST_F(ShowVrf, DetailShowsTheConfigurationOfEachVrfWhateverTheOrderOfTheirNames) {
  std::map<std::string, std::uint32_t> maxima;
  std::vector<KvConfigChange> changes;
  const auto add = [&](const KvConfigNode& node) { changes.push_back({node.path, node.value}); };
  for (std::uint32_t number = 0; number < 400; ++number) {
    const std::string vrf = (number % 3 == 0 ? "a/b" : "v") + std::to_string(number);
    fake.vrfs[vrf];
    maxima[vrf] = number % 5 == 0 ? 0 : 1000 + number;
    if (maxima[vrf] != 0) add(vrf_config::route_threshold(vrf, Family::kIpv4, maxima[vrf], 1));
    const std::uint32_t targets = number % 50 == 7 ? 150 : number % 4;
    for (std::uint32_t target = 0; target < targets; ++target) {
      add(vrf_config::route_target(vrf, Family::kIpv4, vrf_config::Direction::kImport,
                                   {.administrator = 65000, .assigned = target}));
    }
  }
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerFrr, changes, ""), kStatusOk);
  const Json vrfs = AskForJson({"show", "vrf", "detail"});
  ASSERT_EQ(vrfs.size(), 400U);
  for (const Json& vrf : vrfs) {
    const std::uint32_t maximum = maxima.at(vrf["name"]);
    const Json& shown = vrf["routeThresholds"];
    EXPECT_EQ(shown.empty() ? Json(0) : shown[0]["highThresh"], maximum) << vrf["name"];
  }
}

TEST_F(ShowVrf, DetailOfAFamilyLeavesOutTheOthers) {
  AddBlueWithTables();
  EXPECT_THAT(AskForText({"show", "vrf", "blue", "detail", "ipv6"}), HasSubstr("ipv6 unicast"));
  EXPECT_THAT(Out(), Not(HasSubstr("ipv4 unicast")));
}

TEST_F(ShowVrf, FlowRulesCountAsUnicast) {
  fake.vrfs["red"].tables = {{1, 1, {}, "", ""}, {1, 133, {}, "", ""}};
  EXPECT_THAT(AskForText({"show", "vrf", "red", "detail", "unicast"}), HasSubstr("  ipv4 flow\n"));
}

TEST_F(ShowVrf, DetailAsJsonHasFamiliesAndInterfaces) {
  AddBlueWithTables();
  fake.vrfs["blue"].interfaces = {"ge3"};
  const Json vrf = AskForJson({"show", "vrf", "blue", "detail", "ipv4"})[0];
  EXPECT_EQ(vrf["name"], "blue");
  EXPECT_EQ(vrf["midThresh"], 500);
  EXPECT_EQ(vrf["isBigVrf"], true);
  EXPECT_EQ(vrf["interfaces"], Json({"ge3"}));
  EXPECT_EQ(vrf["addressFamilies"], Json::parse(R"([{
    "afi": 1, "afiName": "ipv4", "safi": 1, "safiName": "unicast",
    "routeTargets": [
      {"type": 1, "typeName": "import", "value": "65000:20", "origin": null},
      {"type": 1, "typeName": "import", "value": "65000:99", "origin": null},
      {"type": 2, "typeName": "export", "value": "65000:20", "origin": null}],
    "importRoutePolicy": "from-blue", "importRoutePolicyOrigin": null,
    "exportRoutePolicy": "", "exportRoutePolicyOrigin": null}])"));
}

TEST_F(ShowVrf, ManyInterfacesGoOnBelowEachOther) {
  for (unsigned number = 10; number < 60; ++number)
    fake.vrfs["red"].interfaces.push_back("ge" + std::to_string(number));
  EXPECT_EQ(Ask({"show", "vrf", "red", "detail"}), kExitOk) << Err();
  std::istringstream lines(Out());
  std::size_t longest = 0;
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  EXPECT_GT(longest, 90U);
  EXPECT_LE(longest, 100U);
  EXPECT_THAT(Out(), HasSubstr("\n                      ge"));
  EXPECT_THAT(Out(), HasSubstr("ge59"));
}

TEST_F(ShowVrf, ManyVrfsAreReadInPagesWithEachOnce) {
  AddMany(1100);
  const auto names = NamesOf(AskForJson({"show", "vrf", "detail"}));
  ASSERT_EQ(names.size(), 1100U);
  for (unsigned at = 0; at < 1100; ++at) ASSERT_EQ(names[at], "v" + std::to_string(100'001 + at));
  EXPECT_EQ(fake.largest_page, 256U);
  EXPECT_EQ(fake.datalists, 5U);
  EXPECT_EQ(NamesOf(AskForJson({"show", "vrf"})), names);
}

TEST_F(ShowVrf, LastPageThatIsFullIsFollowedByAnEmptyOne) {
  AddMany(512);
  EXPECT_EQ(AskForJson({"show", "vrf", "detail"}).size(), 512U);
  EXPECT_EQ(fake.datalists, 3U);
}

TEST_F(ShowVrf, PageThatIsTooLargeIsHalved) {
  AddMany(100);
  fake.most_items = 40;
  EXPECT_EQ(AskForJson({"show", "vrf", "detail"}).size(), 100U);
  fake.most_items = 0;
  EXPECT_EQ(Ask({"show", "vrf", "detail"}), kExitFailed);
  EXPECT_EQ(Out(), "");
}

TEST_F(ShowVrf, ListThatRepeatsAnItemEnds) {
  AddMany(600);
  fake.repeats = true;
  EXPECT_EQ(Ask({"show", "vrf", "detail"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("the daemon repeats an item; the list is incomplete"));
}

TEST_F(ShowVrf, VrfThatIsDeletedMeanwhileIsLeftOut) {
  AddMany(3);
  fake.hidden_row = "v100002";
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "detail"})), ElementsAre("v100001", "v100003"));
}

}  // namespace
}  // namespace cli
