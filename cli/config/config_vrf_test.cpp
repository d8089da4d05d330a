// Configuration: set, delete, show and load.
#include <unistd.h>

#include <cstdio>

#include "cli/config/config_edits.h"
#include "cli/config/config_test_fixture.h"
#include "platform/config/owners.h"

namespace cli {
namespace {

using ::testing::HasSubstr;

TEST_F(Configuration, SetTakesEffectAtOnceAndIsShownAsItIsLoaded) {
  EXPECT_EQ(Done("set vrf red rt both 65000:100"), "commit 1" + ByMe());
  Done("set vrf red description Customer Red");
  Done("set vrf red rd 65000:1");
  Done("set vrf blue threshold ipv4 100 80");
  Done("set traps vrf-up");
  EXPECT_EQ(Done("show"),
            "set vrf blue threshold ipv4 100 80\n"
            "set vrf red description \"Customer Red\"\n"
            "set vrf red rd 65000:1 ipv4\n"
            "set vrf red rt import 65000:100 ipv4\n"
            "set vrf red rt export 65000:100 ipv4\n"
            "set vrf red rt import 65000:100 ipv6\n"
            "set vrf red rt export 65000:100 ipv6\n"
            "set traps vrf-up\n");
}

TEST_F(Configuration, ShowTakesTheBeginningOfWhatIsWanted) {
  Done("set vrf red rt both 65000:100");
  Done("set vrf red2 rt both 65000:100");
  EXPECT_EQ(Done("show vrf red rt import"),
            "set vrf red rt import 65000:100 ipv4\nset vrf red rt import 65000:100 ipv6\n");
  EXPECT_EQ(Done("show vrf blue"), "");
  EXPECT_THAT(Refused("show vrf red colour", kExitUsage),
              HasSubstr("unknown word \"colour\"; expected description, rd"));
  EXPECT_THAT(Refused("show --owner noone", kExitUsage),
              HasSubstr("--owner: unknown word \"noone\"; expected cli, file, "));
}

TEST_F(Configuration, WhatIsShownLoadsAgain) {
  Done("set vrf \"a b\" description \"say \\\"x\\\" \\\\ # \"");
  Done("set vrf red bgp 65000 neighbor fe80::1 ipv6");
  Done("set vrf red static 10.0.0.0/8 interface ge0 via 192.0.2.1");
  Done("set traps notif-reissue-time 60");
  const std::string shown = Done("show");
  const std::string file = Write(shown);
  Done("delete vrf red");
  Done("delete vrf \"a b\"");
  Done("delete traps notif-reissue-time");
  EXPECT_EQ(Done("show"), "");
  EXPECT_THAT(Done("load " + file), HasSubstr("commit "));
  EXPECT_EQ(Done("show"), shown);
}

TEST_F(Configuration, FormatOfAsNumbersIsSetShownAndDeleted) {
  Done("set bgp as-format asdot");
  Done("set traps vrf-up");
  Done("set vrf red description x");
  EXPECT_EQ(Done("show"), "set vrf red description x\nset bgp as-format asdot\nset traps vrf-up\n");
  EXPECT_EQ(Done("show bgp"), "set bgp as-format asdot\n");
  Done("set bgp as-format asdot+");
  EXPECT_THAT(Refused("delete bgp as-format asplain"), HasSubstr("is not set, but bgp as-format asdot+"));
  EXPECT_THAT(Refused("set bgp as-format dotted", kExitUsage),
              HasSubstr("unknown word \"dotted\"; expected asplain, asdot or asdot+"));
  Done("delete bgp as-format");
  EXPECT_EQ(Done("show bgp"), "");
}

TEST_F(Configuration, TrapSwitchesAreShownWithTheirValues) {
  EXPECT_EQ(Done("show traps"), "ITEM  VALUE\n");
  Done("set traps vrf-up");
  Done("set traps notif-reissue-time 60");
  EXPECT_EQ(Done("show traps"),
            "ITEM                VALUE\nnotif-reissue-time  60\nvrf-up              true\n");
  EXPECT_EQ(DoneAsJson("show traps"),
            (Json{{{"item", "notif-reissue-time"}, {"value", 60}}, {{"item", "vrf-up"}, {"value", true}}}));
  EXPECT_EQ(DoneAsJson("show traps vrf-up").size(), 1U);
  EXPECT_EQ(DoneAsJson("show traps all"), Json::array());
  Done("delete traps vrf-up");
  EXPECT_EQ(DoneAsJson("show traps").size(), 1U);
}

TEST_F(Configuration, OwnersAreShown) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Hold(kConfigOwnerFrr, "vrf red rip interface ge0");
  Done("set vrf red description cli");
  EXPECT_EQ(Done("show --owners"),
            "OWNER  CONFIGURATION\n"
            "cli    vrf red description cli\n"
            "frr    vrf red rip interface ge0\n");
  EXPECT_EQ(Done("show --owner file"), "set vrf red description file\n");
  const Json shown = DoneAsJson("show vrf red description");
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0]["words"], "vrf red description cli");
  EXPECT_EQ(shown[0]["owner"], "cli");
  EXPECT_EQ(shown[0]["value"], "cli");
}

TEST_F(Configuration, OwnersAreShownBesideTheWordsThatCanBeLoaded) {
  Done("set vrf red description \"a\\\\b \\xe9\"");
  EXPECT_EQ(Done("show"), "set vrf red description \"a\\\\b \\xe9\"\n");
  EXPECT_EQ(Done("show --owners"), "OWNER  CONFIGURATION\ncli    vrf red description \"a\\\\b \\xe9\"\n");
}

TEST_F(Configuration, NodeWithoutWordsIsShownAsAComment) {
  KvValue value;
  value.type = KvValueType::kTuple;
  value.tuple = {1, 2};
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{"/cfg/gl/odd", value}}, ""), kStatusOk);
  EXPECT_EQ(Done("show"), "# /cfg/gl/odd = (1, 2)\n");
  EXPECT_EQ(DoneAsJson("show")[0]["words"], nullptr);
}

TEST_F(Configuration, MoreThanOnePageIsShown) {
  std::vector<KvConfigChange> changes;
  for (std::uint32_t i = 0; i < 2100; ++i) {
    const vrf_config::Target target{vrf_config::Target::Type::kTwoOctetAs, 65000, i};
    const KvConfigNode node =
        vrf_config::route_target("red", vrf_config::Family::kIpv4, vrf_config::Direction::kImport, target);
    changes.push_back({node.path, node.value});
  }
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, changes, ""), kStatusOk);
  EXPECT_EQ(DoneAsJson("show vrf red").size(), 2100U);
  Done("delete vrf red rt import");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(Configuration, DeletionTakesTheWordsAtTheirWordFirst) {
  Done("set vrf red static 10.0.0.0/8");
  Done("set vrf red static 10.0.0.0/8 via 192.0.2.1");
  Done("delete vrf red static 10.0.0.0/8");
  EXPECT_EQ(Done("show"), "set vrf red static 10.0.0.0/8 via 192.0.2.1\n");
  Done("delete vrf red static 10.0.0.0/8");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(Configuration, DeletionOfTheBeginningIsAllThatFollows) {
  Done("set vrf red rt both 65000:100");
  Done("set vrf red description x");
  Done("set vrf redder description y");
  Done("delete vrf red rt import");
  EXPECT_EQ(Done("show vrf red rt"),
            "set vrf red rt export 65000:100 ipv4\nset vrf red rt export 65000:100 ipv6\n");
  Done("delete vrf red");
  EXPECT_EQ(Done("show"), "set vrf redder description y\n");
}

TEST_F(Configuration, DeletionOfBothFamiliesTakesTheOneThatIsThere) {
  Done("set vrf red rt both 65000:100 ipv4");
  Done("delete vrf red rt both 65000:100");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(Configuration, DeletionNeedsAName) {
  Done("set vrf red description x");
  EXPECT_EQ(Refused("delete vrf", kExitUsage), "mplsvpn: after \"vrf\": expected the VRF\n");
  EXPECT_EQ(
      Refused("delete traps", kExitUsage),
      "mplsvpn: after \"traps\": expected vrf-up, vrf-down, mid-thresh-exc, max-thresh-exc, ilg-lbl-exc, "
      "max-thresh-clr, all or notif-reissue-time\n");
  EXPECT_EQ(Refused("delete bgp", kExitUsage), "mplsvpn: after \"bgp\": expected as-format\n");
  EXPECT_THAT(Refused("delete vrf red colour", kExitUsage), HasSubstr("unknown word \"colour\"; expected "));
}

TEST_F(Configuration, DeletionOfWhatIsNotSetFails) {
  EXPECT_EQ(Refused("delete vrf red"), "mplsvpn: vrf red is not set\n");
  EXPECT_EQ(Refused("delete vrf red rd 65000:1"), "mplsvpn: vrf red rd 65000:1 is not set\n");
  Done("set vrf red description Bar");
  EXPECT_EQ(Refused("delete vrf red description Foo"),
            "mplsvpn: vrf red description Foo is not set, but vrf red description Bar\n");
  EXPECT_EQ(Done("show"), "set vrf red description Bar\n");
}

TEST_F(Configuration, WhatAnotherOwnerHoldsIsNotDeleted) {
  Hold(kConfigOwnerFrr, "vrf red rip interface ge0");
  EXPECT_EQ(Refused("delete vrf red rip interface ge0"),
            "mplsvpn: vrf red rip interface ge0 is not set by the command line, but by \"frr\"; \"config "
            "suppress\" disables it\n");
  EXPECT_EQ(
      Refused("delete vrf red"),
      "mplsvpn: vrf red is not set by the command line, but by \"frr\"; \"config suppress\" disables it\n");
  EXPECT_EQ(Refused("delete vrf re"), "mplsvpn: vrf re is not set\n");
  EXPECT_EQ(Refused("delete vrf red rip interface ge1"), "mplsvpn: vrf red rip interface ge1 is not set\n");
  EXPECT_EQ(Done("show"), "set vrf red rip interface ge0\n");
}

TEST_F(Configuration, WordsThatMayFollowAreShownWithoutADaemon) {
  EXPECT_EQ(Run({"config", "words", "vrf", "red", "rt"}), kExitOk);
  EXPECT_EQ(Out(), "import\nexport\nboth\n");
  EXPECT_EQ(Run({"--json", "config", "words", "vrf"}), kExitOk);
  EXPECT_EQ(Out(), "[\"NAME\"]\n");
  EXPECT_EQ(Run({"config", "words", "vrf", "red", "colour"}), kExitUsage);
}

TEST_F(Configuration, WrongWordsChangeNothing) {
  EXPECT_EQ(Refused("set vrf red rt import 65000", kExitUsage),
            "mplsvpn: \"65000\" is not a route target (65000:1, 10.0.0.1:1)\n");
  EXPECT_THAT(Refused("set vrf red", kExitUsage),
              HasSubstr("mplsvpn: after \"vrf red\": expected description, "));
  EXPECT_EQ(Done("show"), "");
}

TEST_F(Configuration, DryRunShowsWhatWouldChange) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Hold(kConfigOwnerFile, "vrf red rd 65000:1");
  EXPECT_EQ(Done("set --dry-run vrf red description cli"),
            "- vrf red description file (file)\n+ vrf red description cli\n");
  EXPECT_EQ(Done("set --dry-run vrf red rd 65000:1"), "= vrf red rd 65000:1 ipv4 (file, then cli)\n");
  Done("set vrf red description cli");
  EXPECT_EQ(Done("set --dry-run vrf red description cli"), "");
  EXPECT_EQ(Err(), "mplsvpn: nothing would change\n");
  EXPECT_EQ(Done("delete --dry-run vrf red description"),
            "- vrf red description cli\n+ vrf red description file (file)\n");
  EXPECT_EQ(Done("show vrf red description"), "set vrf red description cli\n");
  const Json changes = DoneAsJson("delete --dry-run vrf red");
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0]["wordsBefore"], "vrf red description cli");
  EXPECT_EQ(changes[0]["before"], "cli");
  EXPECT_EQ(changes[0]["after"], "file");
  EXPECT_EQ(changes[0]["ownerAfter"], "file");
}

TEST_F(Configuration, DeletionUncoversTheFirstOwnerBelow) {
  Hold(kConfigOwnerKernel, "vrf red description kernel");
  Hold(kConfigOwnerKernel, "vrf blue description kernel");
  Hold(kConfigOwnerFrr, "vrf red description frr");
  Done("set vrf red description cli");
  Done("set vrf blue description kernel");
  Done("set vrf green description cli");
  EXPECT_EQ(Done("delete --dry-run vrf red"), "- vrf red description cli\n+ vrf red description frr (frr)\n");
  EXPECT_EQ(Done("delete --dry-run vrf blue"), "= vrf blue description kernel (cli, then kernel)\n");
  EXPECT_EQ(Done("delete --dry-run vrf green"), "- vrf green description cli\n");
}

TEST_F(Configuration, DeletionOfADeletedNodeChangesNothing) {
  std::ostringstream out;
  std::ostringstream err;
  const Session session{out, err, false, kvtree::Client::default_socket(), "", "", std::chrono::seconds(10)};
  Serve([&session] {
    const auto client = connect_to_daemon(session);
    EXPECT_TRUE(foresee_changes(session, *client, {{"/cfg/deleted", std::nullopt}}).empty());
  });
}

TEST_F(Configuration, LoadIsOneCommit) {
  Done("set vrf red description old");
  const std::string file = Write(
      "# a new customer\n"
      "\n"
      "delete vrf red\r\n"
      "  set vrf red rd 65000:1   # its own\n"
      "set vrf red rt import 65000:1 ipv4\n"
      "set vrf red description \"new # one\"");
  EXPECT_EQ(Done("load --dry-run " + file),
            "- vrf red description old\n+ vrf red description \"new # one\"\n"
            "+ vrf red rd 65000:1 ipv4\n+ vrf red rt import 65000:1 ipv4\n");
  const Json commit = DoneAsJson("load " + file);
  EXPECT_EQ(commit["commit"], DoneAsJson("history --max 1")[0]["id"]);
  EXPECT_EQ(DoneAsJson("history --max 1")[0]["changes"], 3);
  EXPECT_EQ(DoneAsJson("history --max 1")[0]["comment"], "load " + file);
  EXPECT_EQ(Done("load " + file), "nothing changed\n");
}

TEST_F(Configuration, ByteOrderMarkBeforeAFilesFirstLineIsPassedOver) {
  EXPECT_THAT(Done("load " + Write("\xef\xbb\xbfset vrf red description one\n")), HasSubstr("commit "));
  EXPECT_EQ(Done("show"), "set vrf red description one\n");
}

TEST_F(Configuration, ErrorInAFileIsReportedWithItsLineAndChangesNothing) {
  const std::string file = Write("set vrf red rd 65000:1\n\nset vrf red rt in 1:1\n");
  EXPECT_EQ(Refused("load " + file),
            "mplsvpn: " + file + ":3: unknown word \"in\"; expected import, export or both\n");
  Write("set vrf red rd 65000:1\ndelete vrf blue\n");
  EXPECT_EQ(Refused("load " + file), "mplsvpn: " + file + ":2: vrf blue is not set\n");
  Write("add vrf red rd 65000:1\n");
  EXPECT_EQ(Refused("load " + file),
            "mplsvpn: " + file + ":1: unknown word \"add\"; expected set, delete, suppress or unsuppress\n");
  Write("set vrf \"red\n");
  EXPECT_EQ(Refused("load " + file), "mplsvpn: " + file + ":1: the quotes do not end\n");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(Configuration, DashLoadsTheStandardInput) {
  const std::string file = Write("set vrf red rd 65000:1\nset vrf red colour\n");
  const int input = dup(STDIN_FILENO);
  ASSERT_GE(input, 0);
  ASSERT_NE(std::freopen(file.c_str(), "r", stdin), nullptr);
  EXPECT_THAT(Refused("load -"), HasSubstr("mplsvpn: <stdin>:2: unknown word \"colour\""));
  Write("set vrf red rd 65000:1\n");
  EXPECT_THAT(Done("load -"), HasSubstr("commit "));
  ASSERT_EQ(dup2(input, STDIN_FILENO), STDIN_FILENO);
  close(input);
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:1 ipv4\n");
  EXPECT_EQ(DoneAsJson("history")[0]["comment"], "load -");
}

TEST_F(Configuration, FileThatCannotBeReadIsAFailure) {
  EXPECT_EQ(Refused("load " + Directory() + "/nowhere"),
            "mplsvpn: " + Directory() + "/nowhere: No such file or directory\n");
  EXPECT_EQ(Refused("load " + Directory()), "mplsvpn: " + Directory() + ": Is a directory\n");
}

TEST_F(Configuration, CommitIsRepeatedWhileTheDaemonIsBusy) {
  fault_arm("kvtree_config_commit", EBUSY, 1, 2);
  Done("set vrf red rd 65000:1");
  EXPECT_EQ(fault_reached("kvtree_config_commit"), 3U);
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:1 ipv4\n");
}

TEST_F(Configuration, RefusedCommitChangesNothing) {
  fault_arm("kvtree_config_commit", kStatusIo);
  EXPECT_THAT(Refused("set vrf red rd 65000:1"),
              HasSubstr("config set vrf red rd 65000:1: Input/output error"));
  fault_arm("kvtree_config_commit", kStatusAccess);
  EXPECT_EQ(Refused("delete traps all"), "mplsvpn: traps all is not set\n");
  EXPECT_EQ(
      Refused("set vrf red rd 65000:1", kExitNoRight),
      "mplsvpn: permission denied: only root and the group mpls_vpn_admin (unless the daemon has another) "
      "may "
      "change the configuration; \"adduser USER mpls_vpn_admin\" adds a user, from the next login on\n");
  EXPECT_EQ(Done("show"), "");
}

}  // namespace
}  // namespace cli
