// Items of several owners: taking them over, returning them, suppressing them; and commits to be confirmed.
#include "cli/config/config_test_fixture.h"
#include "platform/config/owners.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class ConfigurationOwners : public Configuration {
 protected:
  std::string NewestCommit() { return DoneAsJson("history --max 1").at(0).at("id").dump(); }
};

TEST_F(ConfigurationOwners, LoadReportsWhatItTakesOver) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Hold(kConfigOwnerFile, "vrf red rd 65000:1");
  Hold(kConfigOwnerFrr, "vrf red rip interface ge0");
  const std::string file = Write(Done("show"));
  for (const char* option : {"--dry-run ", ""}) {
    Done(std::string("load ") + option + file);
    EXPECT_THAT(Err(),
                HasSubstr("warning: the command line takes over items of other owners (2 of file, 1 of "
                          "frr), whose later changes have no effect"));
  }
  Done("load " + file);
  EXPECT_EQ(Err(), "");
}

TEST_F(ConfigurationOwners, CommitOfACandidateReportsWhatItTakesOver) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Done("load --candidate " + Write(Done("show")));
  EXPECT_EQ(Done("commit"), "commit 2" + ByMe());
  EXPECT_THAT(Err(),
              HasSubstr("warning: the command line takes over items of other owners (1 of file), whose "
                        "later changes have no effect"));
}

TEST_F(ConfigurationOwners, RollbackReturnsWhatWasTakenOver) {
  Hold(kConfigOwnerFile, "vrf red description file");
  const std::string before = NewestCommit();
  EXPECT_EQ(Done("load " + Write(Done("show"))), "commit 2" + ByMe());
  EXPECT_EQ(Done("history 2"), "= vrf red description file (file, then cli)\n");
  Hold(kConfigOwnerFile, "vrf red description later");
  EXPECT_EQ(Done("show"), "set vrf red description file\n");
  Done("rollback " + before);
  EXPECT_EQ(Done("show"), "set vrf red description later\n");
  EXPECT_EQ(Done("show --owner cli"), "");
}

TEST_F(ConfigurationOwners, BackupOfTheCommandLinesItemsLeavesTheOthers) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Hold(kConfigOwnerFile, "vrf red rd 65000:1");
  Done("set traps all");
  Done("suppress vrf red description");
  const std::string backup = Done("show --owner cli");
  EXPECT_EQ(backup, "suppress vrf red description file\nset traps all\n");
  Done("unsuppress vrf red");
  Done("delete traps all");
  Done("load " + Write(backup));
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:1 ipv4\nset traps all\n");
}

TEST_F(ConfigurationOwners, SuppressedItemHasNoEffectUntilItIsNotSuppressed) {
  Hold(kConfigOwnerFile, "vrf red rd 65000:1");
  EXPECT_EQ(Done("suppress --dry-run vrf red rd 65000:1"),
            "- vrf red rd 65000:1 ipv4 (file)\n+ suppress vrf red rd 65000:1 ipv4\n");
  Done("suppress vrf red rd 65000:1");
  EXPECT_EQ(Done("show"), "");
  Hold(kConfigOwnerFile, "vrf red rd 65000:2");
  EXPECT_EQ(Done("show"), "");
  EXPECT_THAT(Done("show --owners"), HasSubstr("cli    vrf red rd 65000:1 ipv4 (suppressed)\n"));
  EXPECT_EQ(DoneAsJson("show --owners")[0]["suppressed"], true);
  EXPECT_EQ(Refused("delete vrf red"), "mplsvpn: vrf red is not set\n");
  EXPECT_EQ(Done("unsuppress --dry-run vrf red"),
            "- suppress vrf red rd 65000:1 ipv4\n+ vrf red rd 65000:2 ipv4 (file)\n");
  Done("unsuppress vrf red");
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:2 ipv4\n");
  EXPECT_EQ(Done("history " + NewestCommit()),
            "- suppress vrf red rd 65000:1 ipv4\n+ vrf red rd 65000:2 ipv4 (file)\n");
  EXPECT_EQ(Refused("unsuppress vrf red"), "mplsvpn: vrf red is not suppressed\n");
  EXPECT_EQ(Refused("suppress vrf blue"), "mplsvpn: vrf blue is not set by another owner\n");
}

TEST_F(ConfigurationOwners, OwnItemIsNotReplacedByASuppression) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Done("set vrf red description own");
  for (const char* words : {"vrf red", "vrf red description", "vrf red description file"}) {
    EXPECT_EQ(Refused(std::string("suppress ") + words),
              "mplsvpn: vrf red description own is set by the command line: delete it first\n");
  }
  Done("delete vrf red description own");
  Done("suppress vrf red");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(ConfigurationOwners, RollbackRestoresASuppression) {
  Hold(kConfigOwnerFile, "vrf red rd 65000:1");
  Done("suppress vrf red rd");
  const std::string suppressed = NewestCommit();
  Done("set vrf red rd 65000:5");
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:5 ipv4\n");
  Done("rollback " + suppressed);
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(Done("show"), "");
}

TEST_F(ConfigurationOwners, CommitWaitsForItsConfirmation) {
  EXPECT_EQ(Refused("confirm"),
            "mplsvpn: no commit waits for its confirmation; \"--confirmed MINUTES\" requires one\n");
  EXPECT_THAT(
      Done("set --confirmed 10 vrf red rd 65000:1"),
      MatchesRegex("commit 1" + ByMe() + "it is undone at .* unless \"mplsvpn config confirm 1\" .*\n"));
  Done("show");
  EXPECT_THAT(Err(),
              MatchesRegex("mplsvpn: commit 1 by .* is undone at .* unless .* confirm 1\" confirms it\n"));
  EXPECT_THAT(Refused("set --confirmed 10 vrf red rd 65000:2"),
              HasSubstr("commit 1 waits for its confirmation"));
  EXPECT_EQ(Refused("confirm 7"), "mplsvpn: commit 7 does not wait for its confirmation; commit 1 by " +
                                      user_name(geteuid()) + " does\n");
  EXPECT_EQ(Done("confirm 1"), "commit 1 by " + user_name(geteuid()) + " is confirmed\n");
  EXPECT_EQ(Refused("confirm 1"), "mplsvpn: commit 1 does not wait for its confirmation; no commit does\n");
  Done("show");
  EXPECT_EQ(Err(), "");
  EXPECT_THAT(Refused("set --confirmed 25h traps all", kExitUsage),
              HasSubstr("25h is not a time from 1s to 24h"));
}

TEST_F(ConfigurationOwners, RollbackOfTheWaitingCommitEndsTheWaiting) {
  Done("set vrf red rd 65000:1");
  Done("load --confirmed 10 " + Write("set vrf red rd 65000:2\nset traps all\n"));
  Done("delete traps all");
  EXPECT_EQ(Err(), "") << "the RD is still to be confirmed";
  Done("rollback 1");
  EXPECT_EQ(Err(), "mplsvpn: commit 2" + ByMe().substr(0, ByMe().size() - 1) +
                       " no longer waits for its confirmation\n");
  EXPECT_THAT(Refused("confirm"), HasSubstr("no commit waits"));
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:1 ipv4\n");
}

TEST_F(ConfigurationOwners, CommitToBeConfirmedHasItsTimeInJson) {
  const Json made = DoneAsJson("set --confirmed 90s vrf red rd 65000:1");
  EXPECT_EQ(made["commit"], 1);
  EXPECT_EQ(made["user"], user_name(geteuid()));
  EXPECT_GT(made["confirmBefore"], 1'700'000'000);
  EXPECT_EQ(DoneAsJson("confirm")["commit"], 1);
  EXPECT_EQ(DoneAsJson("set traps all")["confirmBefore"], nullptr);
}

}  // namespace
}  // namespace cli
