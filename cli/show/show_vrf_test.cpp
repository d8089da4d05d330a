// "show vrf" and "show vrf invalid".
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "cli/show/show_vrf_test_fixture.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST_F(ShowVrf, TableHasALineAVrfInTheDaemonsOrder) {
  AddRed();
  AddBlueWithTables();
  EXPECT_EQ(AskForText({"show", "vrf"}),
            "VRF   RD        STATE  INTERFACES  ACTIVE  ROUTES   CHANGED  DESCRIPTION\n"
            "red   65000:10  up              2       1       7  00:01:15  Red Rail\n"
            "blue  -         down            0       0       0  00:00:00  -\n");
}

TEST_F(ShowVrf, OneVrfIsShownAlone) {
  AddRed();
  AddBlueWithTables();
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "blue"})), ElementsAre("blue"));
}

TEST_F(ShowVrf, JsonHasTheRecordsKeys) {
  AddRed();
  EXPECT_EQ(AskForJson({"show", "vrf"})[0], Json::parse(R"({
    "name": "red", "description": "Red Rail", "rd": "65000:10",
    "creationTime": 1699910000, "creationTimeText": "2023-11-13 21:13:20 UTC",
    "operStatus": 1, "operStatusName": "up",
    "activeInterfaces": 1, "associatedInterfaces": 2, "midThresh": 0, "highThresh": 0,
    "confLastChanged": 1699999925, "confLastChangedText": "2023-11-14 22:12:05 UTC",
    "rowStatus": 1, "rowStatusName": "active",
    "adminStatus": 1, "adminStatusName": "up",
    "storageType": 5, "storageTypeName": "readOnly",
    "illegalLabelViolations": 0, "discontinuityTime": 0,
    "routesAdded": 0, "routesDeleted": 0, "currNumRoutes": 7, "routesDropped": 0, "discTime": 0})"));
}

TEST_F(ShowVrf, NumberOfRoutesIsUnknownWhileRoutesCannotBeRead) {
  AddRed();
  kvtree_guard("/oper/mpls_vpn/gl/route", [] { return kStatusNoRouteModule; });
  EXPECT_EQ(AskForJson({"show", "vrf"})[0]["currNumRoutes"], Json());
  EXPECT_EQ(AskForJson({"show", "vrf", "red", "detail"})[0]["currNumRoutes"], Json());
  EXPECT_THAT(AskForText({"show", "vrf", "red"}), HasSubstr(" 1  unknown  00:01:15"));
  EXPECT_THAT(AskForText({"show", "vrf", "red", "detail"}), HasSubstr("routes              unknown now;"));
  kvtree_guard("/oper/mpls_vpn/gl/route", nullptr);
  EXPECT_EQ(AskForJson({"show", "vrf"})[0]["currNumRoutes"], 7);
}

TEST_F(ShowVrf, NoVrfIsAnEmptyList) {
  EXPECT_EQ(AskForJson({"show", "vrf"}), Json::array());
  EXPECT_EQ(AskForJson({"show", "vrf", "detail"}), Json::array());
  EXPECT_EQ(AskForText({"show", "vrf"}),
            "VRF  RD  STATE  INTERFACES  ACTIVE  ROUTES  CHANGED  DESCRIPTION\n");
}

TEST_F(ShowVrf, UnknownVrfIsReported) {
  AddRed();
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"show", "vrf", "re\x1b"},
                                             {"show", "vrf", "re\x1b", "detail"},
                                             {"show", "vrf", "re\x1b", "ipv6"}}) {
    EXPECT_EQ(Ask(words), kExitFailed);
    EXPECT_EQ(Out(), "");
    EXPECT_EQ(Err(), "mplsvpn: VRF re\\x1b does not exist; did you mean red?\n");
  }
}

TEST_F(ShowVrf, NameThatAbbreviatesAWordIsReportedWithTheWord) {
  AddRed();
  const auto refused = [this](const std::vector<std::string>& words) {
    EXPECT_EQ(Ask(words), kExitFailed);
    return Err();
  };
  EXPECT_EQ(refused({"show", "vrf", "br"}),
            "mplsvpn: VRF br does not exist; did you mean the word \"brief\"?\n");
  EXPECT_EQ(refused({"show", "vrf", "inv"}),
            "mplsvpn: VRF inv does not exist; did you mean the word \"invalid\"?\n");
  EXPECT_EQ(refused({"show", "vrf", "ipv", "detail"}),
            "mplsvpn: VRF ipv does not exist; did you mean the word \"ipv4\" or \"ipv6\"?\n");
  EXPECT_EQ(refused({"show", "vrf", "breif"}),
            "mplsvpn: VRF breif does not exist; did you mean the word \"brief\"?\n");
  EXPECT_EQ(refused({"show", "vrf", "--name", "br"}), "mplsvpn: VRF br does not exist\n");
}

TEST_F(ShowVrf, InvalidVrfIsNotReportedAsUnknown) {
  fake.invalid["orange"] = {"ge6"};
  EXPECT_EQ(Ask({"show", "vrf", "orange"}), kExitFailed);
  EXPECT_EQ(
      Err(),
      "mplsvpn: VRF orange is invalid: interfaces are bound to it, but it does not exist (mplsvpn show vrf "
      "invalid)\n");
}

TEST_F(ShowVrf, FailureOfTheDaemonIsNotReportedAsAnUnknownVrf) {
  AddRed();
  fake.failure = kStatusIo;
  EXPECT_EQ(Ask({"show", "vrf", "red"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("Input/output error"));
  EXPECT_EQ(Ask({"show", "vrf", "red", "detail"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("Input/output error"));
}

TEST_F(ShowVrf, FamilyLeavesOutVrfsWithoutATable) {
  AddRed();
  AddBlueWithTables();
  fake.vrfs["green"].tables = {{1, 2, {}, "", ""}};
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "ipv4"})), ElementsAre("blue", "green"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "multicast"})), ElementsAre("green"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "unicast", "ipv6"})), ElementsAre("blue"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "detail", "ipv4"})), ElementsAre("blue", "green"));
}

TEST_F(ShowVrf, NamedVrfWithoutATableOfTheFamilyIsAFailure) {
  AddRed();
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"show", "vrf", "red", "ipv6", "multicast"},
                                             {"show", "vrf", "red", "detail", "ipv6", "multicast"}}) {
    EXPECT_EQ(Ask(words), kExitFailed);
    EXPECT_EQ(Err(), "mplsvpn: VRF red has no ipv6 multicast table\n");
  }
}

TEST_F(ShowVrf, NameThatIsAWordIsGivenByItsOption) {
  fake.vrfs["detail"];
  AddRed();
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--name", "detail"})), ElementsAre("detail"));
}

TEST_F(ShowVrf, WordsThatMakeNoRequestAreUsageErrors) {
  const std::vector<std::vector<std::string>> wrong = {{"red", "blue"},
                                                       {"red", "ipv4", "ipv6"},
                                                       {"unicast", "multicast"},
                                                       {"detail", "detail"},
                                                       {"detail", "red"},
                                                       {"invalid", "detail"},
                                                       {"red", "invalid"},
                                                       {"invalid", "red"},
                                                       {"red", "detail", "ipv4", "unicast", "ipv4"},
                                                       {"invalid", "--name", "red"}};
  for (std::vector<std::string> words : wrong) {
    words.insert(words.begin(), {"show", "vrf"});
    EXPECT_EQ(Ask(words), kExitUsage) << ::testing::PrintToString(words);
    EXPECT_EQ(Out(), "");
    EXPECT_NE(Err(), "");
  }
  EXPECT_EQ(fake.requests, 0U);
}

TEST_F(ShowVrf, OddNamesTravelSafely) {
  for (const char* name : {"-", "a/b", "50%", "caf\xc3\xa9", "with blank"}) {
    fake.vrfs.clear();
    fake.vrfs[name].tables = {{1, 1, {}, "", ""}};
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"show", "vrf"},
                                               {"show", "vrf", "detail"},
                                               {"show", "vrf", "--name", name},
                                               {"show", "vrf", "--name", name, "detail"},
                                               {"show", "vrf", "--name", name, "detail", "ipv4"},
                                               {"show", "vrf", "--name", name, "--structured"},
                                               {"show", "vrf", "--structured"}}) {
      EXPECT_THAT(NamesOf(AskForJson(words)), ElementsAre(name)) << ::testing::PrintToString(words);
    }
  }
}

// --- Brief, selected and sorted

TEST_F(ShowVrf, BriefHasFewColumns) {
  AddRed();
  EXPECT_EQ(AskForText({"show", "vrf", "brief"}),
            "VRF  RD        STATE  ROUTES\n"
            "red  65000:10  up          7\n");
  EXPECT_EQ(AskForText({"show", "vrf", "red", "brief"}), Out());
  EXPECT_EQ(Ask({"show", "vrf", "brief", "detail"}), kExitUsage);
  EXPECT_EQ(Ask({"show", "vrf", "red", "brif"}), kExitUsage);
  EXPECT_THAT(Err(), HasSubstr("unknown word \"brif\"; did you mean \"brief\"?"));
}

TEST_F(ShowVrf, StateAndProtocolSelectVrfs) {
  AddRed();
  AddBlueWithTables();
  fake.interfaces[{"red", 1}] = {"ge1", 0x40};
  fake.interfaces[{"red", 2}] = {"ge2", 0x04};
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--state", "up"})), ElementsAre("red"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--state", "down"})), ElementsAre("blue"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--protocol", "bgp"})), ElementsAre("red"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--protocol", "static", "--state", "up"})),
              ElementsAre("red"));
  EXPECT_EQ(AskForJson({"show", "vrf", "--protocol", "rip"}), Json::array());
  EXPECT_EQ(Ask({"show", "vrf", "--state", "sideways"}), kExitUsage);
  EXPECT_EQ(Ask({"show", "vrf", "detail", "--state", "up"}), kExitUsage);
}

TEST_F(ShowVrf, LinesAreSortedByTheChosenColumn) {
  AddRed();
  AddBlueWithTables();
  fake.vrfs["a"] = {"", "1:1", kNow - 10, kNow - 10, 0, 9, 0, {}, {}, false};
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "name"})), ElementsAre("a", "blue", "red"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "routes"})), ElementsAre("a", "red", "blue"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "changed"})), ElementsAre("blue", "a", "red"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "interfaces"})), ElementsAre("red", "a", "blue"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "state"})), ElementsAre("a", "blue", "red"));
  EXPECT_THAT(NamesOf(AskForJson({"show", "vrf", "--sort", "rd"})), ElementsAre("blue", "a", "red"));
  EXPECT_EQ(Ask({"show", "vrf", "--sort", "color"}), kExitUsage);
  EXPECT_EQ(Err(),
            "mplsvpn: --sort: unknown word \"color\"; expected name, rd, state, interfaces, routes or "
            "changed (mplsvpn show vrf --help)\n");
}

// --- The structured form

TEST_F(ShowVrf, StructuredIsAskedInItsForms) {
  AddRed();
  EXPECT_EQ(AskForJson({"show", "vrf", "--structured"})[0]["addressFamilies"], Json::array());
  EXPECT_EQ(fake.last_form, 2U);
  EXPECT_EQ(AskForJson({"show", "vrf", "red", "--structured"})[0]["addressFamilies"], Json::array());
  EXPECT_EQ(fake.last_form, 3U);
}

TEST_F(ShowVrf, StructuredPagesContinueAfterOddNames) {
  for (unsigned number = 100; number < 400; ++number) fake.vrfs["a/" + std::to_string(number)];
  EXPECT_EQ(AskForJson({"show", "vrf", "--structured"}).size(), 300U);
}

// --- Invalid VRFs

TEST_F(ShowVrf, InvalidVrfsAreShownWithTheirInterfaces) {
  AddRed();
  fake.invalid["orange"] = {"ge6", "ge7"};
  fake.invalid["yellow"] = {};
  EXPECT_EQ(AskForText({"show", "vrf", "invalid"}),
            "VRF     INTERFACE\n"
            "orange  ge6\n"
            "orange  ge7\n"
            "yellow  -\n");
  EXPECT_EQ(AskForJson({"show", "vrf", "invalid"}),
            Json::array({{{"name", "orange"}, {"interfaces", {"ge6", "ge7"}}},
                         {{"name", "yellow"}, {"interfaces", Json::array()}}}));
}

TEST_F(ShowVrf, NoInvalidVrfIsAnEmptyList) {
  EXPECT_EQ(AskForText({"show", "vrf", "invalid"}), "VRF  INTERFACE\n");
  EXPECT_EQ(Err(), "mplsvpn: no VRF is invalid\n");
  EXPECT_EQ(AskForJson({"show", "vrf", "invalid"}), Json::array());
  EXPECT_EQ(Err(), "");
}

TEST_F(ShowVrf, EmptyTableSaysThatNothingIsThere) {
  AskForText({"show", "vrf", "--state", "up", "--protocol", "bgp"});
  EXPECT_EQ(Err(), "mplsvpn: no VRF is as requested\n");
  fake.vrfs.clear();
  AskForText({"show", "vrf"});
  EXPECT_EQ(Err(), "mplsvpn: there is no VRF; \"mplsvpn doctor\" finds out why\n");
  EXPECT_EQ(AskForJson({"show", "vrf"}), Json::array());
  EXPECT_EQ(Err(), "");
}

TEST_F(ShowVrf, ManyInvalidVrfsAreReadInPages) {
  for (unsigned number = 1000; number < 1600; ++number) fake.invalid["x" + std::to_string(number)] = {"ge"};
  EXPECT_EQ(AskForJson({"show", "vrf", "invalid"}).size(), 600U);
  EXPECT_EQ(fake.largest_page, 256U);
}

}  // namespace
}  // namespace cli
