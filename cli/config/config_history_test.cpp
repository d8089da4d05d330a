// Candidates, the history of commits, and the way back.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>

#include "cli/config/config_candidate.h"
#include "cli/config/config_test_fixture.h"
#include "platform/config/owners.h"
#include "platform/core/files/lock_file.h"

namespace cli {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class ConfigurationCandidate : public Configuration {
 protected:
  std::string CandidateFile() const {
    return std::filesystem::directory_iterator(Directory() + "/mplsvpn")->path();
  }
};
class ConfigurationHistory : public Configuration {
 protected:
  std::string NewestCommit() { return DoneAsJson("history --max 1").at(0).at("id").dump(); }
};

TEST_F(ConfigurationCandidate, CollectsUntilItIsCommitted) {
  Done("set vrf red description old");
  EXPECT_EQ(Done("set --candidate vrf red rd 65000:1"), "");
  Done("delete --candidate vrf red description");
  Done("load --candidate " + Write("set vrf red description \"new one\"\nset traps all\n"));
  EXPECT_EQ(Done("show"), "set vrf red description old\n");
  EXPECT_EQ(Done("diff"),
            "+ traps all\n- vrf red description old\n+ vrf red description \"new one\"\n+ vrf red rd 65000:1 "
            "ipv4\n");
  EXPECT_THAT(Done("commit --comment \"new customer\""), MatchesRegex("commit [0-9]+" + ByMe()));
  EXPECT_EQ(Done("show"),
            "set vrf red description \"new one\"\nset vrf red rd 65000:1 ipv4\nset traps all\n");
  EXPECT_EQ(DoneAsJson("history --max 1")[0]["comment"], "new customer");
  EXPECT_EQ(Done("discard"), "no edits are collected: nothing is discarded\n");
  EXPECT_EQ(Done("diff"), "");
}

TEST_F(ConfigurationCandidate, WrongEditIsNotCollected) {
  Done("set --candidate vrf red rd 65000:1");
  EXPECT_THAT(Refused("set --candidate vrf red colour", kExitUsage), HasSubstr("colour"));
  EXPECT_EQ(Refused("delete --candidate vrf blue"), "mplsvpn: vrf blue is not set\n");
  EXPECT_EQ(Done("diff"), "+ vrf red rd 65000:1 ipv4\n");
}

TEST_F(ConfigurationCandidate, IsDropped) {
  Done("set --candidate vrf red rd 65000:1");
  EXPECT_EQ(Done("discard"), "candidate discarded (1 line)\n");
  EXPECT_EQ(Done("diff"), "");
  EXPECT_EQ(Done("discard"), "no edits are collected: nothing is discarded\n");
  EXPECT_EQ(DoneAsJson("discard")["discardedLines"], 0);
  EXPECT_THAT(Refused("commit"), HasSubstr("no edits are collected"));
}

TEST_F(ConfigurationCandidate, ThatCannotBeReadIsDropped) {
  Done("set --candidate vrf red rd 65000:1");
  const std::string file = CandidateFile();
  std::ofstream(file) << "set vrf \"red\n\nbroken\n";
  EXPECT_THAT(Refused("diff"),
              ::testing::AllOf(HasSubstr(file + ":1: the quotes do not end"),
                               HasSubstr("; \"mplsvpn config discard\" drops the candidate\n")));
  EXPECT_EQ(DoneAsJson("discard")["discardedLines"], 3);
  EXPECT_EQ(Done("diff"), "");
  std::filesystem::remove(file);
  std::filesystem::create_symlink(Directory() + "/elsewhere", file);
  Refused("diff");
  Done("discard");
  EXPECT_EQ(Done("diff"), "");
}

TEST_F(ConfigurationCandidate, WithoutPermissionsOrOfAnotherUserIsDropped) {
  Done("set --candidate vrf red rd 65000:1");
  const std::string file = CandidateFile();
  ASSERT_EQ(chmod(file.c_str(), 0), 0);
  ASSERT_EQ(chown(file.c_str(), geteuid() == 0 ? 12345 : geteuid(), getegid()), 0);
  EXPECT_THAT(Refused("diff"), HasSubstr(file + ": Permission denied"));
  Done("discard");
  EXPECT_EQ(Done("diff"), "");
}

TEST_F(ConfigurationCandidate, OfADaemonWithoutItsRunDirectoryIsRemovedOnceItIsEmpty) {
  Done("set --candidate vrf red rd 65000:1");
  const std::filesystem::path folder = std::filesystem::path(CandidateFile()).parent_path();
  const auto candidate = [&](const std::string& socket, const char* text) {
    const std::filesystem::path file = folder / ("candidate." + kvtree_encode_text(socket));
    std::ofstream(file) << text;
    return file;
  };
  const auto stale = candidate("/nowhere/at/all/main", "");
  const auto edits_of_a_stopped = candidate("/nowhere/else/main", "set traps all\n");
  const auto stopped = candidate(Directory() + "/stopped", "");
  std::ofstream(folder / "notes") << "of the user\n";
  EXPECT_EQ(Done("diff"), "+ vrf red rd 65000:1 ipv4\n");
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(edits_of_a_stopped));
  EXPECT_TRUE(std::filesystem::exists(stopped));
  EXPECT_TRUE(std::filesystem::exists(folder / "notes"));
}

TEST_F(ConfigurationCandidate, StaysWhenItsCommitIsRefused) {
  Done("set --candidate vrf red rd 65000:1");
  fault_arm("kvtree_config_commit", kStatusIo);
  EXPECT_THAT(Refused("commit"), HasSubstr("config commit: Input/output error"));
  EXPECT_EQ(Done("diff"), "+ vrf red rd 65000:1 ipv4\n");
  Done("commit");
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:1 ipv4\n");
}

TEST_F(ConfigurationCandidate, ThatFitsNoMoreNamesItsLine) {
  Done("set vrf red description old");
  Done("delete --candidate vrf red description");
  Done("delete vrf red description");
  EXPECT_THAT(Refused("commit"),
              MatchesRegex("mplsvpn: .*/candidate\\..*:2: vrf red description is not set\n"));
}

TEST_F(ConfigurationCandidate, IsNotMadeOverALaterChangeOfItsItems) {
  Done("set vrf red rd 65000:1");
  Done("set vrf red description old");
  Done("set --candidate vrf red rd 65000:3");
  Done("delete --candidate vrf red description");
  Done("set vrf red rd 65000:2");
  EXPECT_EQ(
      Refused("commit"),
      "mplsvpn: vrf red rd 65000:2 ipv4 was set by commit 3 after the candidate was begun: see \"config "
      "diff\", then \"config commit --force\" or \"config discard\"\n");
  Done("set vrf red rd 65000:3");
  Done("set vrf red description new");
  EXPECT_THAT(Refused("commit"), HasSubstr("vrf red description new was set by commit 5"));
  EXPECT_EQ(Done("show"), "set vrf red description new\nset vrf red rd 65000:3 ipv4\n");
  EXPECT_EQ(Done("commit --force"), "commit 6" + ByMe());
  EXPECT_EQ(Done("show"), "set vrf red rd 65000:3 ipv4\n");
}

TEST_F(ConfigurationCandidate, IsNotMadeOverALaterDeletion) {
  Done("set vrf red rd 65000:1");
  Done("set --candidate vrf red rd 65000:2");
  Done("delete vrf red");
  EXPECT_THAT(Refused("commit"), HasSubstr("vrf red rd 65000:1 ipv4 was deleted by commit 2"));
}

TEST_F(ConfigurationCandidate, IsMadeWhenOthersChangedOtherItems) {
  Done("set --candidate vrf red rd 65000:1");
  Done("set vrf red description new");
  Hold(kConfigOwnerFile, "vrf red rd 65000:9");
  EXPECT_THAT(Done("commit"), HasSubstr("commit "));
  EXPECT_EQ(Done("show vrf red rd"), "set vrf red rd 65000:1 ipv4\n");
}

TEST_F(ConfigurationCandidate, IsCommittedWhenAnotherCommitMadeTheSameChange) {
  Done("set --candidate vrf red rd 65000:1");
  Done("set vrf red rd 65000:2");
  Done("set vrf red rd 65000:1");
  EXPECT_EQ(Done("commit"), "nothing changed\n");
}

TEST_F(ConfigurationCandidate, IsBegunByItsFirstEdit) {
  for (int i = 1; i <= 9; ++i) Done("set vrf red rd 65000:" + std::to_string(i));
  Done("set --candidate vrf red rd 65000:20");
  Done("set vrf red rd 65000:10");
  EXPECT_THAT(Refused("commit"), HasSubstr("by commit 10 after"));
  Done("discard");
  Done("load --candidate " + Write("# nothing\n"));
  Done("set vrf red rd 65000:11");
  Done("set --candidate vrf red rd 65000:20");
  Done("set --candidate traps all");
  EXPECT_EQ(Done("commit"), "commit 12" + ByMe()) << "no other commit after the first edit";
  Done("set --candidate vrf red rd 65000:21");
  EXPECT_EQ(Done("commit"), "commit 13" + ByMe()) << "and the next one is begun anew";
}

TEST_F(ConfigurationCandidate, IsForItsOwnerAlone) {
  Done("set --candidate vrf red rd 65000:1");
  for (const auto& entry : std::filesystem::directory_iterator(Directory() + "/mplsvpn")) {
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
  }
}

TEST_F(ConfigurationCandidate, ThatAnotherProcessUsesIsAFailureWithItsId) {
  Done("set --candidate vrf red rd 65000:1");
  const std::string file = CandidateFile();
  std::array<int, 2> ready{-1, -1};
  ASSERT_EQ(pipe(ready.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    pid_t holder = 0;
    const int fd = open(file.c_str(), O_RDWR);
    if (lock_file(fd, std::chrono::milliseconds(0), &holder) == kStatusOk && write(ready[1], "x", 1) == 1)
      pause();
    _exit(1);
  }
  close(ready[1]);
  char octet = 0;
  EXPECT_EQ(read(ready[0], &octet, 1), 1);
  close(ready[0]);
  candidate_patience = std::chrono::milliseconds(1);
  EXPECT_THAT(Refused("diff"), HasSubstr(file + ": process " + std::to_string(child) + " has it locked"));
  candidate_patience = std::chrono::seconds(30);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(Done("diff"), "+ vrf red rd 65000:1 ipv4\n");
}

TEST_F(ConfigurationCandidate, LinkInPlaceOfItsFileIsNotFollowed) {
  Done("set --candidate vrf red rd 65000:1");
  const std::string file = CandidateFile();
  const std::string precious = Directory() + "/precious";
  std::filesystem::remove(file);
  std::filesystem::create_symlink(precious, file);
  EXPECT_THAT(Refused("set --candidate vrf red rd 65000:2"), HasSubstr(file + ": "));
  EXPECT_FALSE(std::filesystem::exists(precious));
}

TEST_F(ConfigurationCandidate, WithoutAPlaceIsAFailure) {
  std::ofstream(Directory() + "/mplsvpn") << "in the way";
  EXPECT_THAT(Refused("set --candidate vrf red rd 65000:1"), HasSubstr(Directory() + "/mplsvpn: "));
  const std::string home = std::getenv("HOME") == nullptr ? "" : std::getenv("HOME");
  unsetenv("XDG_STATE_HOME");
  unsetenv("HOME");
  EXPECT_THAT(Refused("discard"), HasSubstr("the candidate cannot be stored: set XDG_STATE_HOME"));
  setenv("HOME", home.c_str(), 1);
}

TEST_F(ConfigurationHistory, ListsCommitsNewestFirst) {
  EXPECT_THAT(Done("history"), MatchesRegex("COMMIT +TIME +OWNER +USER +CHANGES +COMMENT\n"));
  Done("set vrf red rt both 65000:100");
  Hold(kConfigOwnerFrr, "vrf red rip interface ge0");
  Done("set --comment \"for Bob\" traps all");
  const Json commits = DoneAsJson("history");
  ASSERT_EQ(commits.size(), 3U);
  EXPECT_EQ(commits[0]["comment"], "for Bob");
  EXPECT_EQ(commits[0]["owner"], "cli");
  EXPECT_EQ(commits[1]["owner"], "frr");
  EXPECT_EQ(commits[2]["comment"], "set vrf red rt both 65000:100");
  EXPECT_EQ(commits[2]["changes"], 4);
  EXPECT_EQ(commits[2]["user"], user_name(geteuid()));
  EXPECT_EQ(commits[1]["user"], nullptr);
  EXPECT_GT(commits[2]["time"], 0);
  EXPECT_EQ(DoneAsJson("history --max 2").size(), 2U);
  EXPECT_THAT(Done("history --max 1"), HasSubstr("for Bob"));
}

TEST_F(ConfigurationHistory, CommitsThatAreNotShownAreCounted) {
  for (int number = 1; number <= 22; ++number) Done("set vrf red description " + std::to_string(number));
  EXPECT_EQ(DoneAsJson("history").size(), 20U);
  EXPECT_EQ(Err(), "{\"note\":{\"message\":\"2 older: --last all\"}}\n");
  Done("history");
  EXPECT_EQ(Err(), "mplsvpn: 2 older: --last all\n");
  EXPECT_EQ(DoneAsJson("history --last all").size(), 22U);
  EXPECT_EQ(Err(), "");
}

TEST_F(ConfigurationHistory, CommitZeroIsRefusedWithWhatIsMeant) {
  EXPECT_EQ(
      Refused("rollback 0", kExitUsage),
      "mplsvpn: there is no commit 0: \"config rollback N\" returns to what commit N left (\"mplsvpn config "
      "history\"), and \"config discard\" drops the candidate\n");
}

TEST_F(ConfigurationHistory, CandidateAsJsonStatesItsLines) {
  EXPECT_EQ(DoneAsJson("set --candidate vrf red rd 65000:1"), (Json{{"candidateLines", 1}}));
  EXPECT_EQ(DoneAsJson("set --candidate vrf red rt both 65000:1"), (Json{{"candidateLines", 2}}));
}

TEST_F(ConfigurationHistory, CommentDistinguishesASetFromADeletion) {
  Done("set vrf red description one");
  Done("delete vrf red");
  const Json commits = DoneAsJson("history");
  EXPECT_EQ(commits[0]["comment"], "delete vrf red");
  EXPECT_EQ(commits[1]["comment"], "set vrf red description one");
}

TEST_F(ConfigurationHistory, CommentIsShownAsTheWordsWereQuoted) {
  Done("set vrf red description \"a\\\\b \\x0a\"");
  EXPECT_THAT(Done("history"), HasSubstr("set vrf red description \"a\\\\b \\x0a\"\n"));
}

TEST_F(ConfigurationHistory, AtMostNoneIsRefused) {
  EXPECT_EQ(Ask({"config", "history", "--max", "0"}), kExitUsage);
  EXPECT_THAT(Err(), HasSubstr("--last: 0 is neither a number from 1 to 4294967295 nor \"all\""));
  EXPECT_EQ(Ask({"config", "history", "--last", "most"}), kExitUsage);
  EXPECT_THAT(Err(), HasSubstr("most is neither a number from 1 to 4294967295 nor \"all\""));
  Done("set vrf red description one");
  EXPECT_EQ(Done("history --last al"), Done("history --last all"));
  EXPECT_EQ(Ask({"config", "history", "1", "--max", "5"}), kExitUsage);
}

TEST_F(ConfigurationHistory, ShowsWhatACommitChanged) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Done("set vrf red description cli");
  EXPECT_EQ(Done("history " + NewestCommit()),
            "- vrf red description file (file)\n+ vrf red description cli\n");
  Done("set vrf red rt import 65000:1 ipv4");
  const Json changes = DoneAsJson("history " + NewestCommit());
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0]["before"], nullptr);
  EXPECT_EQ(changes[0]["ownerBefore"], nullptr);
  EXPECT_EQ(changes[0]["after"], 1);
  EXPECT_EQ(changes[0]["wordsAfter"], "vrf red rt import 65000:1 ipv4");
  EXPECT_EQ(Refused("history 4711"),
            "mplsvpn: commit \"4711\" is not in the history; \"mplsvpn config history\" lists the commits\n");
}

TEST_F(ConfigurationHistory, MoreThanOnePageOfCommitsAndChangesIsRead) {
  const std::string text(kMaxConfigText, 'x');  // an answer is full before it has all of them
  std::vector<KvConfigChange> changes;
  for (int i = 100; i < 200; ++i) {
    changes.push_back({"/cfg/large/" + std::to_string(i), KvValue{}});
    changes.back().value->type = KvValueType::kText;
    changes.back().value->text = text;
  }
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, changes, ""), kStatusOk);
  const Json shown = DoneAsJson("history " + NewestCommit());
  ASSERT_EQ(shown.size(), 100U);
  EXPECT_EQ(shown[99]["path"], "/cfg/large/199");
  for (int i = 0; i < 70; ++i) Hold(kConfigOwnerFile, "vrf blue description " + std::to_string(i));
  EXPECT_EQ(DoneAsJson("history --max 1000").size(), 71U);
}

TEST_F(ConfigurationHistory, RollbackUndoesAllLaterCommits) {
  Done("set vrf red description one");
  const std::string first = NewestCommit();
  const std::string shown = Done("show");
  Done("set vrf red description two");
  Done("set vrf red description three");
  Done("set vrf blue rd 65000:1");
  Done("delete vrf red description");
  EXPECT_EQ(Done("rollback --dry-run " + first), "- vrf blue rd 65000:1 ipv4\n+ vrf red description one\n");
  EXPECT_THAT(Done("show"), HasSubstr("blue"));
  EXPECT_THAT(Done("rollback " + first), MatchesRegex("commit [0-9]+" + ByMe()));
  EXPECT_EQ(Done("show"), shown);
  EXPECT_EQ(Err(), "");
  EXPECT_EQ(DoneAsJson("history --max 1")[0]["comment"], "rollback " + first);
  EXPECT_EQ(DoneAsJson("history --max 1")[0]["changes"], 2);
}

TEST_F(ConfigurationHistory, RollbackToTheNewestChangesNothing) {
  Done("set vrf red description one");
  EXPECT_EQ(Done("rollback " + NewestCommit()), "nothing changed\n");
  EXPECT_EQ(Refused("rollback 4711"),
            "mplsvpn: commit \"4711\" is not in the history; \"mplsvpn config history\" lists the commits\n");
}

TEST_F(ConfigurationHistory, RollbackReportsWhatOtherOwnersStillSet) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Done("set traps all");
  const std::string first = NewestCommit();
  Done("set vrf red description cli");
  Hold(kConfigOwnerFrr, "vrf red rip interface ge0");
  Hold(kConfigOwnerFrr, "vrf red rip interface ge1");
  Withdraw(kConfigOwnerFrr, "vrf red rip interface ge1");
  Done("rollback " + first);
  EXPECT_EQ(Err(), "mplsvpn: unchanged, as owner \"frr\" sets it: vrf red rip interface ge0\n");
  EXPECT_EQ(Done("show"), "set vrf red description file\nset vrf red rip interface ge0\nset traps all\n");
}

TEST_F(ConfigurationHistory, RollbackReportsWhatAnotherOwnerDeleted) {
  Hold(kConfigOwnerFile, "vrf red description file");
  Done("set traps all");
  const std::string first = NewestCommit();
  Withdraw(kConfigOwnerFile, "vrf red description file");
  EXPECT_EQ(Done("rollback " + first), "nothing changed\n");
  EXPECT_EQ(Err(), "mplsvpn: unchanged, as owner \"file\" deleted it: vrf red description file\n");
}

TEST_F(ConfigurationHistory, FailedReadOfTheHistoryIsAFailure) {
  Done("set traps all");
  fault_arm("kvtree_config_history", kStatusIo);
  EXPECT_THAT(Refused("history"), HasSubstr("config history: Input/output error"));
  fault_arm("kvtree_config_changes", kStatusIo);
  EXPECT_THAT(Refused("history " + NewestCommit()), HasSubstr("Input/output error"));
}

}  // namespace
}  // namespace cli
