// The trap switches through the data store.
#include <gmock/gmock.h>

#include "cli/output/json_list.h"
#include "cli/served_test_fixture.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<std::string>& notified() {
  static std::vector<std::string> all;
  return all;
}

void note(const KvNotification* notification) {
  const KvNotifyInfo* info = kvtree_notify_info(notification);
  const bool deleted = (info->whichevent & kKvEventDeleted) != 0;
  notified().push_back(std::string(info->item_name) +
                       (deleted ? " deleted" : " " + std::to_string(info->value->number)));
}

class TrapSwitches : public ServedCommandLine {
 protected:
  // Listens where the daemon listens.
  void SetUp() override {
    ServedCommandLine::SetUp();
    notified().clear();
    KvConnection* connection = nullptr;
    ASSERT_EQ(kvtree_bind(&connection, "/cfg/gl/snmp/enable/traps/l3vpnmib/", kKvBindConfiguration),
              kStatusOk);
    ASSERT_EQ(kvtree_register_notification(connection, "", kKvEventSet | kKvEventDeleted, note, manager_, 0,
                                           0, 4, nullptr),
              kStatusOk);
  }
};

TEST_F(TrapSwitches, SetAndDeleteReachTheDaemonsPath) {
  EXPECT_EQ(Ask({"config", "set", "traps", "vrf-up"}), kExitOk) << Err();
  EXPECT_EQ(Out(), "");
  EXPECT_EQ(Ask({"config", "set", "traps", "notif-reissue-time", "60"}), kExitOk) << Err();
  EXPECT_EQ(Ask({"config", "delete", "traps", "vrf-up"}), kExitOk) << Err();
  EXPECT_THAT(notified(), ElementsAre("vrf-up 1", "notif-reissue-time 60", "vrf-up deleted"));
}

TEST_F(TrapSwitches, EveryItemIsKnown) {
  for (const char* item :
       {"vrf-up", "vrf-down", "mid-thresh-exc", "max-thresh-exc", "ilg-lbl-exc", "max-thresh-clr", "all"}) {
    EXPECT_EQ(Ask({"config", "set", "traps", item}), kExitOk) << Err();
    EXPECT_EQ(notified().back(), std::string(item) + " 1");
  }
}

TEST_F(TrapSwitches, AreShown) {
  EXPECT_EQ(Ask({"config", "show", "traps"}), kExitOk);
  EXPECT_EQ(Out(), "ITEM  VALUE\n");
  Ask({"config", "set", "traps", "vrf-up"});
  Ask({"config", "set", "traps", "notif-reissue-time", "60"});
  EXPECT_EQ(Ask({"config", "show", "traps"}), kExitOk);
  EXPECT_EQ(Out(), "ITEM                VALUE\nnotif-reissue-time  60\nvrf-up              1\n");
  EXPECT_EQ(Ask({"--json", "config", "show", "traps"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()),
            (Json{{{"item", "notif-reissue-time"}, {"value", 60}}, {{"item", "vrf-up"}, {"value", 1}}}));
  EXPECT_EQ(Ask({"--json", "config", "show", "traps", "vrf-up"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()).size(), 1U);
  EXPECT_EQ(Ask({"--json", "config", "show", "traps", "all"}), kExitOk);
  EXPECT_EQ(Json::parse(Out()), Json::array());
}

TEST_F(TrapSwitches, UnknownItemNamesTheKnownOnes) {
  for (const char* verb : {"show", "set", "delete"}) {
    EXPECT_EQ(Run({"config", verb, "traps", "vrf-sideways"}), kExitUsage);
    EXPECT_EQ(Err(),
              "mplsvpn: unknown word \"vrf-sideways\"; expected vrf-up, vrf-down, mid-thresh-exc, "
              "max-thresh-exc, ilg-lbl-exc, max-thresh-clr, all or notif-reissue-time\n");
  }
}

TEST_F(TrapSwitches, WrongWordsAreUsage) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"config"},
           {"config", "set", "traps"},
           {"config", "delete", "traps"},
           {"config", "set"},
           {"config", "show", "routes"},
           {"config", "set", "traps", "vrf-up", "off"},
           {"config", "set", "traps", "notif-reissue-time"},
           {"config", "set", "traps", "notif-reissue-time", "-1"},
           {"config", "set", "traps", "notif-reissue-time", "2147483648"},
           {"config", "set", "traps", "notif-reissue-time", "1m"},
       }) {
    EXPECT_EQ(Run(words), kExitUsage) << words.back();
    EXPECT_NE(Err(), "");
  }
  EXPECT_THAT(notified(), IsEmpty());
}

TEST_F(TrapSwitches, DeletionOfWhatIsNotSetFails) {
  EXPECT_EQ(Ask({"config", "delete", "traps", "all"}), kExitFailed);
  EXPECT_EQ(Err(), "mplsvpn: traps all is not set\n");
}

TEST_F(TrapSwitches, RefusalOfTheDaemonIsAFailure) {
  fault_arm("kvtree_config_commit", kStatusAccess);
  EXPECT_EQ(Ask({"config", "set", "traps", "all"}), kExitFailed);
  EXPECT_EQ(
      Err(),
      "mplsvpn: permission denied: only root and the administrators' group may change the configuration\n");
  fault_arm("kvtree_config_commit", kStatusIo);
  EXPECT_EQ(Ask({"config", "set", "traps", "all"}), kExitFailed);
  EXPECT_THAT(Err(), HasSubstr("config set traps all: Input/output error"));
}

TEST_F(CommandLine, ConfigReportsThatTheDaemonIsNotRunning) {
  EXPECT_EQ(Run({"config", "set", "traps", "all"}), kExitNoDaemon);
  EXPECT_EQ(Run({"watch"}), kExitNoDaemon);
}

}  // namespace
}  // namespace cli
