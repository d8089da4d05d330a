// What the shells offer after the words of a command line.
#include "cli/completion.h"

#include <gmock/gmock.h>

#include "cli/show/show_test_fixture.h"
#include "platform/core/trace/trace.h"

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
  Words Offered(Words words) {
    words.insert(words.begin(), {"complete", "--"});
    Ask(words);
    EXPECT_EQ(Err(), "");
    Words lines;
    std::istringstream stream(Out());
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }
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
  EXPECT_THAT(Offered({"show", "routes", "red", ""}), IsEmpty());
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

TEST_F(Completion, ValuesOfOptions) {
  EXPECT_THAT(Offered({"show", "vrf", "--state", ""}), ElementsAre("down", "up"));
  EXPECT_THAT(Offered({"config", "show", "--owner", "c"}), ElementsAre("cli"));
  EXPECT_THAT(Offered({"--run-dir", ""}), ElementsAre(":files"));
  EXPECT_THAT(Offered({"--timeout", ""}), IsEmpty());
  EXPECT_THAT(Offered({"graph", "--format", ""}), ElementsAre("dot", "svg"));
  EXPECT_THAT(Offered({"export", "--format", "n"}), ElementsAre("napalm", "netbox"));
}

TEST_F(Completion, WordsOfTheConfiguration) {
  fake.interfaces[{"red", 11}] = {"ge1", 0};
  fake.vrfs["red"];
  EXPECT_THAT(Offered({"config", "set", "vrf", "r"}), ElementsAre("red"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "r"}), Contains("rd"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "rt", ""}), ElementsAre("both", "export", "import"));
  EXPECT_THAT(Offered({"config", "set", "vrf", "red", "rip", "interface", "g"}), ElementsAre("ge1"));
  EXPECT_THAT(Offered({"config", "suppress", "vrf", "r"}), ElementsAre("red"));
  EXPECT_THAT(Offered({"config", "unsuppress", "vrf", "red", "rt", "i"}), ElementsAre("import"));
  EXPECT_THAT(Offered({"config", "load", ""}), ElementsAre(":files"));
}

TEST_F(Completion, CommandsOfTheRouterAndWhatTheyTake) {
  ASSERT_EQ(kvtree_register_action("router", router_help, nullptr), kStatusOk);
  fake.vrfs["red"];
  fake.interfaces[{"red", 1}] = {"ge1", 0};
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
