// What the shells offer after the words of a command line.
#include "cli/completion.h"

#include <gmock/gmock.h>

#include "cli/show/show_test_fixture.h"
#include "platform/core/trace/trace.h"
#include "platform/router/interface_states/interface_states.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/actions.h"

namespace cli {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Words = std::vector<std::string>;

Status router_help(const KvActionContext&, const Words&, std::string* text, void*) {
  *text =
      "Commands:\n\n  router show [NAME]\n      shows\n  router down NAME\n      down\n"
      "  router join NAME VRF\n      joins\n  router delete-vrf NAME\n      deletes";
  return kStatusOk;
}

class Completion : public ShowCommand {
 protected:
  void SetUp() override {
    ShowCommand::SetUp();
    ASSERT_EQ(interface_states_start(&router_, manager_), kStatusOk);
  }
  void TearDown() override {
    interface_states_stop();
    ShowCommand::TearDown();
  }
  void AddInterface(const std::string& name) {
    router::Interface interface;
    interface.name = name;
    interface.index = ++last_index_;
    ASSERT_EQ(router_.add_interface(interface), kStatusOk);
  }
  Words Offered(Words words) {
    words.insert(words.begin(), {"complete", "--"});
    Ask(words);
    EXPECT_EQ(Err(), "");
    Words lines;
    std::istringstream stream(Out());
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

 private:
  router::Router router_;
  std::uint32_t last_index_ = 0;
};

TEST_F(Completion, CommandsAndOptionsThatBeginSo) {
  EXPECT_THAT(Offered({""}),
              AllOf(Contains("show"), Contains("config"), Contains("help"), Not(Contains("complete"))));
  EXPECT_THAT(Offered({"sh"}), ElementsAre("show"));
  EXPECT_THAT(Offered({"show", "route"}), ElementsAre("route-targets", "routes"));
  EXPECT_THAT(Offered({"help", "show", "sc"}), ElementsAre("scalars"));
  EXPECT_THAT(Offered({"show", "vrf", "--st"}), ElementsAre("--state", "--structured"));
  EXPECT_THAT(Offered({"--js"}), ElementsAre("--json"));
  EXPECT_THAT(Offered({"show", "vrf", "--js"}), ElementsAre("--json"));
  EXPECT_THAT(Offered({"shwo", ""}), IsEmpty());
  EXPECT_EQ(Offered({}), Offered({""}));
}

TEST_F(Completion, VrfsOfTheDaemonByTheirBeginning) {
  for (const char* name : {"red", "red-2", "blue", "two words", "esc\x1b[1m"}) fake.vrfs[name];
  EXPECT_THAT(Offered({"show", "routes", "r"}), ElementsAre("red", "red-2"));
  EXPECT_THAT(Offered({"show", "interfaces", ""}), ElementsAre("blue", "red", "red-2"));
  EXPECT_THAT(Offered({"explain", "b"}), ElementsAre("blue"));
  EXPECT_THAT(Offered({"sh", "rou", "r"}), IsEmpty()) << "\"rou\" is ambiguous";
  EXPECT_THAT(Offered({"show", "vrf", "b"}), ElementsAre("blue", "brief"));
  EXPECT_THAT(Offered({"show", "vrf", "red", "d"}), ElementsAre("detail"));
  EXPECT_THAT(Offered({"show", "vrf", "--name", "b"}), ElementsAre("blue"));
  EXPECT_THAT(Offered({"--timeout", "5s", "show", "vrf", "--name=red", "red", "brief", "d"}),
              ElementsAre("detail"));
}

TEST_F(Completion, VrfsBeyondTheFirstPage) {
  for (unsigned number = 1; number <= 2500; ++number) fake.vrfs["v" + std::to_string(10'000 + number)];
  EXPECT_EQ(Offered({"show", "routes", "v1249"}).size(), 10U);
  EXPECT_EQ(Offered({"show", "routes", ""}).size(), 200U) << "no list that fills the screen several times";
}

TEST_F(Completion, InterfacesInTheirOrderAreReadFromTheirBeginningOn) {
  for (const char* name : {"ge1", "ge10", "ge2", "h", "two words", "ge"}) AddInterface(name);
  for (unsigned number = 1; number <= 1500; ++number) AddInterface("a" + std::to_string(10'000 + number));
  const auto begun = [this](const std::string& text) {
    return Offered({"config", "set", "vrf", "red", "rip", "interface", text});
  };
  EXPECT_THAT(begun("ge"), ElementsAre("ge", "ge1", "ge10", "ge2"));
  EXPECT_THAT(begun("ge1"), ElementsAre("ge1", "ge10"));
  EXPECT_THAT(begun("gf"), IsEmpty());
  EXPECT_THAT(begun("z"), IsEmpty());
  EXPECT_EQ(begun("").size(), 200U);
  EXPECT_EQ(begun("a1149").size(), 10U);
}

TEST_F(Completion, DestinationsOfTheVrfByTheirBeginning) {
  for (const char* vrf : {"red", "blue"}) fake.vrfs[vrf];
  const auto add = [this](const char* vrf, const char* destination, std::uint32_t length) {
    AddRoute(vrf, destination, length, std::string(std::string(destination).size(), '0'));
  };
  add("blue", "0a020000", 16);
  for (const char* destination : {"00000000", "0a010000", "0a020000", "0a140000", "ac100000"})
    add("red", destination, destination[0] == '0' && destination[1] == '0' ? 0 : 16);
  AddRoute("red", "0a020000", 16, "0a010009");
  add("red", "20010db8000000000000000000000000", 32);
  EXPECT_THAT(Offered({"explain", "red", "10.2"}), ElementsAre("10.2.0.0/16", "10.20.0.0/16"));
  EXPECT_THAT(Offered({"explain", "red", "10.2.0.0/"}), ElementsAre("10.2.0.0/16"));
  EXPECT_THAT(Offered({"show", "routes", "red", "2001:d"}), ElementsAre("2001:db8::/32"));
  EXPECT_THAT(Offered({"show", "routes", "red", "2001:db8::"}), ElementsAre("2001:db8::/32"));
  EXPECT_THAT(Offered({"explain", "red", "2"}), ElementsAre("2001:db8::/32"));
  EXPECT_EQ(Offered({"explain", "red", ""}).size(), 6U);
  EXPECT_THAT(Offered({"explain", "red", "0"}), ElementsAre("0.0.0.0/0"));
  add("red", "00000000000000000000000000000000", 0);
  EXPECT_THAT(Offered({"explain", "red", ":"}), ElementsAre("::/0"));
  EXPECT_THAT(Offered({"explain", "red", "x"}), IsEmpty());
  EXPECT_THAT(Offered({"explain", "red", "10.2.0.0/16", ""}), IsEmpty());
  EXPECT_THAT(Offered({"explain", "green", "1"}), IsEmpty());
}

TEST_F(Completion, ValuesOfOptions) {
  EXPECT_THAT(Offered({"show", "vrf", "--state", ""}), ElementsAre("down", "up"));
  EXPECT_THAT(Offered({"config", "show", "--owner", "c"}), ElementsAre("cli"));
  for (const char* option : {"--run-dir", "--socket"})
    EXPECT_THAT(Offered({option, ""}), ElementsAre(":files"));
  for (const char* option : {"--snmpd-conf", "--suite-conf", "--agentx-socket"})
    EXPECT_THAT(Offered({"doctor", option, ""}), ElementsAre(":files")) << option;
  EXPECT_THAT(Offered({"--timeout", ""}), IsEmpty());
  EXPECT_THAT(Offered({"graph", "--format", ""}), ElementsAre("dot", "svg"));
  EXPECT_THAT(Offered({"export", "--format", "n"}), ElementsAre("napalm", "netbox"));
}

TEST_F(Completion, ValuesInTheSameWordAsTheirOption) {
  EXPECT_THAT(Offered({"show", "vrf", "--state="}), ElementsAre("--state=down", "--state=up"));
  EXPECT_THAT(Offered({"show", "vrf", "--state=d"}), ElementsAre("--state=down"));
  EXPECT_THAT(Offered({"show", "vrf", "--stat=d"}), ElementsAre("--stat=down")) << "an abbreviation";
  EXPECT_THAT(Offered({"--run-dir=/tm"}), ElementsAre(":files"));
  EXPECT_THAT(Offered({"show", "vrf", "--brief=d"}), IsEmpty());
  EXPECT_THAT(Offered({"--json=d"}), IsEmpty()) << "it has no value";
}

TEST_F(Completion, WordsOfTheConfiguration) {
  AddInterface("ge1");
  fake.vrfs["red"];
  EXPECT_THAT(Offered({"config", "set", "vrf", "r"}), ElementsAre("red"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "r"}), Contains("rd"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "rt", ""}), ElementsAre("both", "export", "import"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "rip", "interface", "g"}), ElementsAre("ge1"));
  EXPECT_THAT(Offered({"config", "suppress", "vrf", "r"}), ElementsAre("red"));
  EXPECT_THAT(Offered({"config", "unsuppress", "vrf", "red", "rt", "i"}), ElementsAre("import"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "pol", "imp", ""}), ElementsAre("ipv4", "ipv6"));
  EXPECT_THAT(Offered({"config", "load", ""}), ElementsAre(":files"));
}

TEST_F(Completion, CommandsOfTheRouterAndWhatTheyTake) {
  ASSERT_EQ(kvtree_register_action("router", router_help, nullptr), kStatusOk);
  fake.vrfs["red"];
  AddInterface("ge1");
  EXPECT_THAT(Offered({"router", ""}), ElementsAre("delete-vrf", "down", "join", "show"));
  EXPECT_THAT(Offered({"router", "down", ""}), ElementsAre("ge1"));
  EXPECT_THAT(Offered({"router", "join", "ge1", ""}), ElementsAre("red"));
  EXPECT_THAT(Offered({"router", "delete-vrf", ""}), ElementsAre("red"));
  EXPECT_THAT(Offered({"router", "down", "ge1", ""}), IsEmpty());
}

TEST_F(Completion, WordsThatNeedNoDaemon) {
  TraceBuffer* buffer = nullptr;
  ASSERT_EQ(trace_open("mpls_vpn/init", 4, 0, 0, 0, &buffer), kStatusOk);
  EXPECT_THAT(Offered({"trace", ""}), ElementsAre("mpls_vpn/init"));
  trace_close(buffer);
  EXPECT_THAT(Offered({"watch", ""}), ElementsAre("changes", "interfaces", "routes", "traps", "vrf"));
  EXPECT_EQ(Run({"complete", "--", "--socket", "/nowhere", "show", "routes", ""}), kExitNoDaemon);
  EXPECT_EQ(Out() + Err(), "") << "nothing disturbs the line that the user types";
}

}  // namespace
}  // namespace cli
