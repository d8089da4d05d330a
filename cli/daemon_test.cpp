// The commands against a data store that answers over its socket, with records that the tests fill.
#include <gmock/gmock.h>

#include <filesystem>

#include "cli/show/show_test_fixture.h"
#include "platform/router/interface_states/interface_states.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/actions.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Status router_action(const KvActionContext&, const std::vector<std::string>& words, std::string* text,
                     void*) {
  *text = std::to_string(words.size());
  for (const std::string& word : words) *text += "|" + word;
  return words.at(1) == "refuse" ? kStatusExists : kStatusOk;
}

class Daemon : public ShowCommand {
 protected:
  static void AddRow(const std::string& vrf, std::uint32_t index, const std::string& name,
                     std::uint8_t protocol = 0x80) {
    fake.interfaces[{vrf, index}] = {name, protocol};
  }
};

TEST_F(Daemon, ScalarsAreShownWithTheirTitles) {
  fake.scalars = {3, 2, 8, 1, 60, 5};
  EXPECT_EQ(Ask({"show", "scalars"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "VRFs configured             3\n"
            "VRFs active                 2\n"
            "interfaces connected        8\n"
            "notifications               enabled\n"
            "maximum threshold re-issue  60 s\n");
}

TEST_F(Daemon, ScalarsWithoutAReissueTimeShowNever) {
  EXPECT_EQ(Ask({"show", "scalars"}), kExitOk) << Err();
  EXPECT_THAT(Out(), HasSubstr("re-issue  never\n"));
  EXPECT_THAT(Out(), HasSubstr("notifications               disabled\n"));
}

TEST_F(Daemon, ScalarsAsJsonHaveTheRecordsKeys) {
  fake.scalars = {3, 2, 8, 1, 60, 5};
  EXPECT_EQ(AskForJson({"show", "scalars"}), (Json{{"configuredVrfs", 3},
                                                   {"activeVrfs", 2},
                                                   {"connectedInterfaces", 8},
                                                   {"notificationEnable", true},
                                                   {"notificationEnableName", "enabled"},
                                                   {"maxThresholdNotifTime", 60},
                                                   {"illegalLabelsThreshold", 5}}));
}

TEST_F(Daemon, InterfacesAreShownInTheDaemonsOrder) {
  AddRow("customer", 3, "ge0.100", 0x44);
  AddRow("red", 12, "ge1", 0);
  AddRow("red", 300000, "ge2");
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitOk) << Err();
  EXPECT_EQ(Out(),
            "VRF       INTERFACE  STATE  ADDRESSES  PROTOCOLS    INDEX\n"
            "red       ge1        -      -          -               12\n"
            "red       ge2        -      -          none        300000\n"
            "customer  ge0.100    -      -          bgp,static       3\n");
}

TEST_F(Daemon, InterfacesOfOneVrfAreShownAlone) {
  AddRow("red", 1, "a");
  AddRow("blue", 2, "b");
  AddRow("blue", 3, "c");
  AddRow("green", 4, "d");
  const Json rows = AskForJson({"show", "interfaces", "blue"});
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["name"], "b");
  EXPECT_EQ(rows[1]["name"], "c");
}

TEST_F(Daemon, InterfaceAsJsonHasNumbersAndNames) {
  AddRow("red", 12, "ge1", 0x44);
  EXPECT_EQ(AskForJson({"show", "interfaces"})[0], (Json{{"vrfName", "red"},
                                                         {"ifConfIndex", 12},
                                                         {"name", "ge1"},
                                                         {"vpnClassification", 2},
                                                         {"vpnClassificationName", "enterprise"},
                                                         {"protocol", 0x44},
                                                         {"protocolNames", {"bgp", "static"}},
                                                         {"storageType", 5},
                                                         {"storageTypeName", "readOnly"},
                                                         {"rowStatus", 1},
                                                         {"rowStatusName", "active"},
                                                         {"state", nullptr},
                                                         {"addresses", nullptr},
                                                         {"description", nullptr}}))
      << "the router's state is unknown";
}

class InterfacesOfTheRouter : public Daemon {
 protected:
  void SetUp() override {
    Daemon::SetUp();
    ASSERT_EQ(interface_states_start(&router_, manager_), kStatusOk);
  }
  void TearDown() override {
    interface_states_stop();
    Daemon::TearDown();
  }
  void Add(const std::string& name, std::uint32_t index, bool up, const std::vector<std::string>& addresses) {
    router::Interface interface;
    interface.name = name;
    interface.index = index;
    interface.up = up;
    interface.description = "to " + name;
    for (const std::string& text : addresses) {
      router::Address address;
      ASSERT_TRUE(router::parse_address(text, &address));
      interface.addresses.push_back(address);
    }
    ASSERT_EQ(router_.add_interface(interface), kStatusOk);
    AddRow("red", index, name);
  }
  router::Router router_;
};

TEST_F(InterfacesOfTheRouter, AreShownWithStateAndAddresses) {
  Add("ge2", 12, true, {"10.0.0.1/24", "2001:db8::1/64"});
  Add("ge1", 15, false, {});
  AddRow("blue", 7, "removed");
  EXPECT_EQ(AskForText({"show", "interfaces"}),
            "VRF   INTERFACE  STATE  ADDRESSES                   PROTOCOLS  INDEX\n"
            "red   ge2        up     10.0.0.1/24 2001:db8::1/64  none          12\n"
            "red   ge1        down   -                           none          15\n"
            "blue  removed    -      -                           none           7\n");
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"show", "interfaces"}, {"show", "interfaces", "red"}}) {
    const Json rows = AskForJson(words);
    EXPECT_EQ(rows[0]["state"], "up");
    EXPECT_EQ(rows[0]["addresses"], Json({"10.0.0.1/24", "2001:db8::1/64"}));
    EXPECT_EQ(rows[0]["description"], "to ge2");
    EXPECT_EQ(rows[1]["state"], "down");
    EXPECT_EQ(rows[1]["addresses"], Json::array());
  }
}

TEST_F(InterfacesOfTheRouter, ManyAreReadInBatches) {
  for (std::uint32_t index = 1; index <= 1200; ++index)
    Add("ge" + std::to_string(index), index, index % 2 == 0, {"10.0.0.1/8"});
  const Json rows = AskForJson({"show", "interfaces"});
  ASSERT_EQ(rows.size(), 1200U);
  for (std::uint32_t at = 0; at < 1200; ++at) EXPECT_EQ(rows[at]["state"], at % 2 == 0 ? "down" : "up");
}

TEST_F(Daemon, TableWithoutInterfacesIsAnEmptyList) {
  EXPECT_EQ(AskForJson({"show", "interfaces"}), Json::array());
  EXPECT_EQ(Ask({"show", "interfaces", "red"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: VRF red does not exist\n");
  fake.vrfs["red"];
  EXPECT_EQ(AskForJson({"show", "interfaces", "red"}), Json::array());
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitOk);
  EXPECT_EQ(Out(), "VRF  INTERFACE  STATE  ADDRESSES  PROTOCOLS  INDEX\n");
}

TEST_F(Daemon, LongTableIsReadInBatchesWithEachRowOnce) {
  for (std::uint32_t index = 1; index <= 1500; ++index) AddRow("red", index, "ge" + std::to_string(index));
  AddRow("blue", 1, "last");
  const Json rows = AskForJson({"show", "interfaces"});
  ASSERT_EQ(rows.size(), 1501U);
  for (std::uint32_t at = 0; at < 1500; ++at) EXPECT_EQ(rows[at]["ifConfIndex"], at + 1);
  EXPECT_EQ(rows[1500]["name"], "last");
}

TEST_F(Daemon, LargestIndexIsFollowedByTheNextVrf) {
  AddRow("red", 2147483647, "a");
  AddRow("blue", 1, "b");
  EXPECT_EQ(AskForJson({"show", "interfaces"}).size(), 2U);
}

TEST_F(Daemon, OddVrfNamesTravelSafely) {
  for (const char* name : {"-", "a/b", "50%", "caf\xc3\xa9", "with blank"}) {
    fake.interfaces.clear();
    AddRow(name, 1, "ge0");
    const Json rows = AskForJson({"show", "interfaces", name});
    ASSERT_EQ(rows.size(), 1U) << name;
    EXPECT_EQ(rows[0]["vrfName"], name);
  }
}

TEST_F(Daemon, ListThatFailsIsStillValidJson) {
  for (std::uint32_t index = 1; index <= 1500; ++index) AddRow("red", index, "ge");
  fake.gets_until_failure = 700;
  EXPECT_EQ(Ask({"--json", "show", "interfaces"}), kExitFailed);
  const Json rows = Json::parse(Out());
  EXPECT_GT(rows.size(), 0U);
  EXPECT_LT(rows.size(), 1500U);
  const Json error = Json::parse(Err())["error"];
  EXPECT_EQ(error["status"], kExitFailed);
  EXPECT_EQ(error["name"], "failed");
  EXPECT_THAT(error["message"], HasSubstr("Input/output error"));
}

TEST_F(Daemon, RowsBeforeAFailureAreShown) {
  for (std::uint32_t index = 1; index <= 1500; ++index) AddRow("red", index, "ge");
  fake.gets_until_failure = 700;
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitFailed);
  EXPECT_THAT(Out(), HasSubstr("\nred  ge         -      -          none           1\n"));
}

TEST_F(Daemon, FailureBeforeTheFirstItemHasNoOutput) {
  EXPECT_EQ(Ask({"--json", "get", "nothing"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Json::parse(Err())["error"]["name"], "failed");
}

TEST_F(Daemon, TableThatRepeatsARowEnds) {
  AddRow("red", 1, "ge0");
  fake.repeats = true;
  EXPECT_EQ(Ask({"show", "interfaces"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("the daemon repeats a row of the interface table"));
}

TEST_F(Daemon, GetShowsARecordOfAnyType) {
  fake.scalars.configuredVrfs = 3;
  EXPECT_EQ(AskForJson({"get", "scalars"})["configuredVrfs"], 3);
  EXPECT_EQ(AskForJson({"get", "/oper/mpls_vpn/gl/scalars"})["configuredVrfs"], 3);
  AddRow("red", 1, "ge0");
  EXPECT_EQ(AskForJson({"get", "interface-next/red/0"})["name"], "ge0");
  EXPECT_EQ(Ask({"get", "scalars"}), kExitOk);
  EXPECT_THAT(Out(), StartsWith("{\n  "));
}

TEST_F(Daemon, FailureOfGetHasThePathAndTheReason) {
  EXPECT_EQ(Ask({"get", "nothing"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/nothing: No such path\n");
  EXPECT_EQ(Ask({"get", "interface-next/red"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/interface-next/red: A path argument is missing\n");
  EXPECT_EQ(Ask({"get", "interface-next/red/0"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: /oper/mpls_vpn/gl/interface-next/red/0: no such row\n");
}

TEST_F(Daemon, GetOfATypeWithoutDescriptionIsAFailure) {
  fake.answers_traps = true;
  parcel_registry_reset();
  std::filesystem::remove(Directory() + "/parcel.registry");
  EXPECT_EQ(Ask({"get", "scalars"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("a record of type \"mpls_vpn_mib_trap\" that " + Directory() +
                               "/parcel.registry does not describe"));
}

TEST_F(Daemon, AnswerOfAnotherTypeIsAFailure) {
  fake.answers_traps = true;
  EXPECT_EQ(Ask({"show", "scalars"}), kExitFailed);
  EXPECT_THAT(Err(),
              HasSubstr("the answer is not of the type mpls_vpn_mib_scalars as this program knows it"));
}

TEST_F(Daemon, RouterWordsGoToTheActionAsTheyAre) {
  ASSERT_EQ(kvtree_register_action("router", router_action, nullptr), kStatusOk);
  EXPECT_EQ(Ask({"router", "add-vrf", "red", "description", "two words", "--json"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "6|router|add-vrf|red|description|two words|--json\n");
  EXPECT_EQ(AskForJson({"router", "up", "ge0"}), (Json{{"text", "3|router|up|ge0"}}));
  EXPECT_EQ(Ask({"--json", "router", "show", "red"}), kExitOk);
  EXPECT_EQ(Out(), "4|router|show|red|--json\n");
}

TEST_F(Daemon, NamesInTheRoutersTextCannotControlTheTerminal) {
  ASSERT_EQ(kvtree_register_action("router", router_action, nullptr), kStatusOk);
  EXPECT_EQ(Ask({"router", "show", "\x1b[31mred\nnext"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "3|router|show|\\x1b[31mred\nnext\n");
  EXPECT_EQ(Ask({"router", "refuse", "\x1b[31mred"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("\\x1b[31mred"));
}

TEST_F(Daemon, RouterRefusalIsShownAsItIs) {
  ASSERT_EQ(kvtree_register_action("router", router_action, nullptr), kStatusOk);
  EXPECT_EQ(Ask({"router", "refuse"}), kExitFailed);
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Err(), "mplsvpn: 2|router|refuse\n");
}

TEST_F(Daemon, DaemonWithoutARouterFileHasNoRouterCommands) {
  EXPECT_EQ(Ask({"router", "show"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: the daemon's source is not a router file, so there are no router commands\n");
}

TEST_F(Daemon, DaemonThatDoesNotAnswerIsGivenUp) {
  const std::string reason = "mpls_vpn_mib did not answer within 50 ms (--timeout)";
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"show", "scalars"}, {"show", "vrf"}, {"show", "vrf", "red"}, {"get", "scalars"}}) {
    std::vector<std::string> all = {"--timeout", "50"};
    all.insert(all.end(), words.begin(), words.end());
    EXPECT_EQ(Run(all), kExitNoAnswer) << ::testing::PrintToString(words);  // the event loop does not run
    EXPECT_EQ(Err(), "mplsvpn: " + reason + "\n") << ::testing::PrintToString(words);
  }
  EXPECT_EQ(Run({"--json", "--timeout", "50", "show", "vrf"}), kExitNoAnswer);
  EXPECT_EQ(Json::parse(Err()),
            (Json{{"error", {{"status", kExitNoAnswer}, {"name", "notResponding"}, {"message", reason}}}}));
}

TEST_F(Daemon, DaemonThatStopsIsNotRunning) {
  std::atomic<bool> done = false;
  int exit_status = -1;
  std::thread command([&] {
    exit_status = Run({"--timeout", "60000", "show", "scalars"});
    done = true;
  });
  event_set_acceptor(manager_, [](int fd) { close(fd); });
  while (!done) event_run_pending(manager_, kNanosecondsPerMillisecond);
  command.join();
  EXPECT_EQ(exit_status, kExitNoDaemon);
  EXPECT_EQ(Err(),
            "mplsvpn: show scalars: mpls_vpn_mib closed the connection; its log has the reason, "
            "such as too many connections of one user\n");
}

TEST_F(Daemon, RequestThatTheRoleDoesNotAllowIsRefusedWithTheWayToTheRole) {
  fault_arm("kvtree_get", kStatusAccess);
  EXPECT_EQ(Ask({"show", "scalars"}), kExitNoRight);
  EXPECT_EQ(Err(),
            "mplsvpn: show scalars: permission denied for the role of this user; \"mplsvpn show "
            "status\" shows it\n");
}

}  // namespace
}  // namespace cli
