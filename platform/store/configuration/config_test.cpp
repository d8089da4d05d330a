// Tests of commits: owners, effective values, notifications.
#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ConfigCommit : public ConfigTest {
 protected:
  ConfigCommit() { Subscribe("/cfg/", kKvEventCreated | kKvEventSet | kKvEventDeleted); }
};

TEST_F(ConfigCommit, CommandLineWinsOverFileOverRoutingSuite) {
  EXPECT_THAT(Commit("frr", {SetTo("/cfg/a", "frr")}), ElementsAre("a 3 frr"));
  EXPECT_THAT(Commit("cli", {SetTo("/cfg/a", "cli")}), ElementsAre("a 2 cli"));
  EXPECT_THAT(Commit("file", {SetTo("/cfg/a", "file")}), IsEmpty());
  EXPECT_EQ(id, "");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=cli"));
  EXPECT_THAT(Owned("file"), ElementsAre("/cfg/a=file"));
}

TEST_F(ConfigCommit, WhatTheSuiteDerivesIsBelowWhatIsConfiguredInItAndAboveTheKernel) {
  EXPECT_THAT(Commit("kernel", {SetTo("/cfg/a", "kernel")}), ElementsAre("a 3 kernel"));
  EXPECT_THAT(Commit("frr-derived", {SetTo("/cfg/a", "derived")}), ElementsAre("a 2 derived"));
  EXPECT_THAT(Commit("frr", {SetTo("/cfg/a", "frr")}), ElementsAre("a 2 frr"));
  EXPECT_THAT(Commit("frr", {Withdraw("/cfg/a")}), ElementsAre("a 2 derived"));
}

TEST_F(ConfigCommit, EveryOwnerHasAnOrigin) {
  std::vector<std::string> origins;
  for (const std::string_view owner : kConfigOwners) origins.emplace_back(kvtree_config_origin(owner));
  EXPECT_THAT(origins, ElementsAre("operator", "router file", "configured", "derived", "kernel"));
  EXPECT_EQ(kvtree_config_origin(""), "");
}

TEST_F(ConfigCommit, ObserverReceivesEffectiveChangesWithTheirOwners) {
  std::vector<std::string> seen;
  auto handle = kvtree_config_observe("/cfg/a/", [&](const std::vector<KvConfigCommitChange>& changes) {
    for (const KvConfigCommitChange& change : changes) {
      seen.push_back(change.path + " " + Describe(change.before) + "(" + change.owner_before + ") " +
                     Describe(change.after) + "(" + change.owner_after + ")");
    }
  });
  const auto take = [&] { return std::exchange(seen, {}); };
  Commit("frr", {SetTo("/cfg/a/x", "1"), SetTo("/cfg/b", "1")});
  EXPECT_THAT(take(), ElementsAre("/cfg/a/x none() 1(frr)"));
  Commit("cli", {SetTo("/cfg/a/x", "1")});
  Commit("file", {SetTo("/cfg/a/x", "2")});
  EXPECT_THAT(take(), IsEmpty()) << "the same value, and one that is covered";
  Commit("cli", {Withdraw("/cfg/a/x")});
  EXPECT_THAT(take(), ElementsAre("/cfg/a/x 1(cli) 2(file)"));
  EXPECT_EQ(kvtree_config_replay({"/cfg/a/x"}), kStatusOk);
  EXPECT_THAT(take(), IsEmpty()) << "a replay is not a change";
  handle.reset();
  Commit("file", {SetTo("/cfg/a/x", "3")});
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ConfigCommit, NodeIsFoundWithWhoHoldsIt) {
  EXPECT_FALSE(kvtree_config_find("/cfg/a"));
  Commit("frr", {SetTo("/cfg/a", "x")});
  Commit("file", {SetTo("/cfg/a", "y")});
  const auto found = kvtree_config_find("/cfg/a");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->value.text, "y");
  EXPECT_EQ(found->owner, "file");
}

TEST_F(ConfigCommit, WithdrawalMakesTheNextValueEffective) {
  for (const char* owner : {"frr", "file", "cli"}) Commit(owner, {SetTo("/cfg/a", owner)});
  EXPECT_THAT(Commit("cli", {Withdraw("/cfg/a")}), ElementsAre("a 2 file"));
  EXPECT_THAT(Commit("frr", {Withdraw("/cfg/a")}), IsEmpty());
  EXPECT_THAT(Commit("file", {Withdraw("/cfg/a")}), ElementsAre("a 4 none"));
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(ConfigCommit, SameValueNotifiesNoSubscriber) {
  Commit("file", {SetTo("/cfg/a", "x")});
  EXPECT_THAT(Commit("file", {SetTo("/cfg/a", "x")}), IsEmpty());
  EXPECT_THAT(Commit("cli", {SetTo("/cfg/a", "x")}), IsEmpty());
  EXPECT_EQ(id, "");
  EXPECT_THAT(Owned("cli"), ElementsAre("/cfg/a=x"));
  EXPECT_THAT(Commit("file", {Withdraw("/cfg/a")}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x"));
  EXPECT_THAT(History(), ElementsAre("1 file 1 "));
}

TEST_F(ConfigCommit, DeletionsAreNotifiedBeforeSets) {
  Commit("cli", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")});
  EXPECT_THAT(
      Commit("cli", {SetTo("/cfg/z", "2"), Withdraw("/cfg/c"), SetTo("/cfg/b", "2"), Withdraw("/cfg/a")}),
      ElementsAre("c 4 none", "a 4 none", "z 3 2", "b 2 2"));
}

TEST_F(ConfigCommit, EveryTypeOfValueIsHeld) {
  Commit("file", {{"/cfg/none", KvValue{}},
                  {"/cfg/number", NumberValue(INT64_MIN)},
                  {"/cfg/text", TextValue("")},
                  {"/cfg/tuple", TupleValue({5, -1})},
                  {"/cfg/tuple-empty", TupleValue({})}});
  EXPECT_THAT(Effective(), ElementsAre("/cfg/none=.", "/cfg/number=#" + std::to_string(INT64_MIN),
                                       "/cfg/text=", "/cfg/tuple=(5 -1)", "/cfg/tuple-empty=()"));
}

TEST_F(ConfigCommit, ValuesDifferByTypeToo) {
  Commit("cli", {{"/cfg/a", NumberValue(0)}});
  EXPECT_THAT(Commit("cli", {{"/cfg/a", KvValue{}}}), ElementsAre("a 2 "));
  EXPECT_THAT(Commit("cli", {{"/cfg/a", TupleValue({0})}}), ElementsAre("a 2 "));
  EXPECT_THAT(Commit("cli", {{"/cfg/a", TupleValue({0})}}), IsEmpty());
}

// Each of these follows a change that alone would be made.
TEST_F(ConfigCommit, InvalidChangeChangesNothing) {
  KvValue record;
  record.type = KvValueType::kRecord;
  const auto refused = [&](KvConfigChange change, Status status) {
    return Refused("cli", {SetTo("/cfg/good", "x"), std::move(change)}, status);
  };
  EXPECT_EQ(refused(Withdraw("/cfg/a"), kStatusNoSuchRow), "/cfg/a: cli does not set it");
  EXPECT_EQ(refused(SetTo("/cfg/good", "y"), kStatusInvalid), "/cfg/good: it is changed twice");
  EXPECT_EQ(refused({"/cfg/a", record}, kStatusInvalid), "/cfg/a: a configuration has no records");
  for (const char* path : {"/oper/a", "/cfg", "/cfg/", "/cfg/a/", "/", "", "cfg/a"}) {
    EXPECT_EQ(refused(SetTo(path, "x"), kStatusUnknownPath), std::string(path) + ": it is not below /cfg/");
  }
  const std::string long_path = "/cfg/" + std::string(kKvMaxPath - 4, 'a');
  EXPECT_THAT(refused(SetTo(long_path, "x"), kStatusMessageTooLarge), HasSubstr(": the path is too long"));
  EXPECT_THAT(refused(SetTo(std::string("/cfg/\0", 6), "x"), kStatusBadKey), HasSubstr("an octet 0"));
  EXPECT_EQ(refused(SetTo("/cfg/a", std::string(kMaxConfigText + 1, 'x')), kStatusMessageTooLarge),
            "/cfg/a: its text is too long");
  EXPECT_EQ(
      refused({"/cfg/a", TupleValue(std::vector<std::int64_t>(kMaxConfigTuple + 1))}, kStatusMessageTooLarge),
      "/cfg/a: it has too many numbers");
  EXPECT_THAT(Effective(), IsEmpty());
  EXPECT_THAT(History(), IsEmpty());
}

TEST_F(ConfigCommit, LongestTextPathAndTupleAreTaken) {
  const std::string path = "/cfg/" + std::string(kKvMaxPath - 5, 'a');
  Commit("cli", {SetTo(path, std::string(kMaxConfigText, 'x')),
                 {"/cfg/tuple", TupleValue(std::vector<std::int64_t>(kMaxConfigTuple))}});
  EXPECT_EQ(Effective().size(), 2U);
}

TEST_F(ConfigCommit, UnknownOwnersHoldNothing) {
  EXPECT_EQ(Refused("root", {SetTo("/cfg/a", "x")}, kStatusInvalid), "unknown owner \"root\"");
  EXPECT_EQ(Refused("", {SetTo("/cfg/a", "x")}, kStatusInvalid), "unknown owner \"\"");
  EXPECT_THAT(Owned("root"), IsEmpty());
}

TEST_F(ConfigCommit, WithdrawalOfAnotherOwnersValueIsInvalid) {
  Commit("file", {SetTo("/cfg/a", "x")});
  EXPECT_EQ(Refused("cli", {Withdraw("/cfg/a")}, kStatusNoSuchRow), "/cfg/a: cli does not set it");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x"));
}

TEST_F(ConfigCommit, CommitWithTooManyChangesIsRefused) {
  EXPECT_EQ(Refused("cli", Many(kMaxConfigChanges + 1, "x"), kStatusMessageTooLarge),
            "a commit has at most 100000 changes");
}

TEST_F(ConfigCommit, EmptyCommitIsNone) {
  EXPECT_THAT(Commit("cli", {}), IsEmpty());
  EXPECT_THAT(History(), IsEmpty());
}

TEST_F(ConfigCommit, CallerMayOmitIdAndError) {
  EXPECT_EQ(kvtree_config_commit("cli", {SetTo("/cfg/a", "x")}, ""), kStatusOk);
  EXPECT_EQ(kvtree_config_commit("cli", {Withdraw("/cfg/b")}, ""), kStatusNoSuchRow);
  EXPECT_EQ(kvtree_config_replace("cli", {"/cfg/"}, {}, ""), kStatusOk);
}

TEST_F(ConfigCommit, LaterSubscriberReceivesTheEffectiveValues) {
  Commit("file", {SetTo("/cfg/x/a", "file"), SetTo("/cfg/x/b", "file")});
  Commit("cli", {SetTo("/cfg/x/a", "cli")});
  Subscribe("/cfg/x/", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("b 2 file", "a 2 cli"));
}

class ConfigReplace : public ConfigCommit {
 protected:
  std::vector<std::string> Replace(const std::vector<std::string>& scopes,
                                   const std::vector<KvConfigNode>& nodes) {
    EXPECT_EQ(kvtree_config_replace("file", scopes, nodes, "reload", &id, &error), kStatusOk) << error;
    Run();
    return TakeReceived();
  }
};

TEST_F(ConfigReplace, OnlyTheDifferenceIsNotified) {
  Commit("file",
         {SetTo("/cfg/s/a", "1"), SetTo("/cfg/s/b", "1"), SetTo("/cfg/s/c", "1"), SetTo("/cfg/t/a", "1")});
  EXPECT_THAT(
      Replace({"/cfg/s/"},
              {{"/cfg/s/a", TextValue("1")}, {"/cfg/s/b", TextValue("2")}, {"/cfg/s/d", TextValue("1")}}),
      ElementsAre("c 4 none", "b 2 2", "d 3 1"));
  EXPECT_THAT(Owned("file"), ElementsAre("/cfg/s/a=1", "/cfg/s/b=2", "/cfg/s/d=1", "/cfg/t/a=1"));
  EXPECT_THAT(History(), ElementsAre("2 file 3 reload", "1 file 4 "));
}

TEST_F(ConfigReplace, SameNodesAreNoCommit) {
  Commit("file", {SetTo("/cfg/s/a", "1")});
  EXPECT_THAT(Replace({"/cfg/s/"}, {{"/cfg/s/a", TextValue("1")}}), IsEmpty());
  EXPECT_EQ(id, "");
  EXPECT_EQ(History().size(), 1U);
}

TEST_F(ConfigReplace, OthersKeepWhatTheyHold) {
  Commit("cli", {SetTo("/cfg/s/a", "cli")});
  Commit("file", {SetTo("/cfg/s/a", "file")});
  EXPECT_THAT(Replace({"/cfg/"}, {}), IsEmpty());
  EXPECT_THAT(Owned("cli"), ElementsAre("/cfg/s/a=cli"));
  EXPECT_THAT(Owned("file"), IsEmpty());
}

TEST_F(ConfigReplace, LastOfTwoNodesWithOnePathCounts) {
  EXPECT_THAT(Replace({"/cfg/s/"}, {{"/cfg/s/a", TextValue("1")}, {"/cfg/s/a", TextValue("2")}}),
              ElementsAre("a 3 2"));
}

TEST_F(ConfigReplace, ScopesMayOverlap) {
  Commit("file", {SetTo("/cfg/s/a", "1")});
  EXPECT_THAT(Replace({"/cfg/", "/cfg/s/"}, {}), ElementsAre("a 4 none"));
}

TEST_F(ConfigReplace, NodeOutsideTheScopesIsAMistake) {
  EXPECT_EQ(kvtree_config_replace("file", {"/cfg/s/"}, {{"/cfg/t", TextValue("1")}}, "", &id, &error),
            kStatusInvalid);
  EXPECT_EQ(error, "/cfg/t: it is outside of the replaced parts");
  for (const char* scope : {"/cfg", "/oper/", "", "/cfg/s"}) {
    EXPECT_EQ(kvtree_config_replace("file", {scope}, {}, "", &id, &error), kStatusUnknownPath);
    EXPECT_EQ(error, std::string(scope) + ": it is not part of the configuration");
  }
  EXPECT_THAT(Effective(), IsEmpty());
}

class ConfigReplay : public ConfigCommit {};

TEST_F(ConfigReplay, DeletionsThenSetsAreNotifiedAndNothingChanges) {
  Commit("file", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "2")});
  Commit("cli", {SetTo("/cfg/b", "3")});
  ASSERT_EQ(kvtree_config_replay({"/cfg/b", "/cfg/absent", "/cfg/a"}), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("b 4 none", "a 4 none", "b 3 3", "a 3 1"));
  EXPECT_EQ(History().size(), 2U);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=1", "/cfg/b=3"));
}

// The functions and the notifications are recorded in one order.
TEST_F(ConfigReplay, EachIsNotifiedAfterItsFunction) {
  Commit("file", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "2")});
  const auto note = [](const char* what) { return [what] { received().emplace_back(what); }; };
  ASSERT_EQ(kvtree_config_commit("file", {SetTo("/cfg/c", "before")}, ""), kStatusOk);
  ASSERT_EQ(
      kvtree_config_replay_each({"/cfg/b", "/cfg/absent", "/cfg/a"}, manager, note("deletion"), note("set")),
      kStatusOk);
  ASSERT_EQ(kvtree_config_commit("file", {Withdraw("/cfg/b")}, ""), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("c 3 before", "deletion", "b 4 none", "set", "b 3 2", "deletion",
                                          "a 4 none", "set", "a 3 1", "b 4 none"));
  EXPECT_EQ(History().size(), 3U);
}

TEST_F(ConfigReplay, NodeIsAnnouncedAsSetOrAsDeleted) {
  Commit("file", {SetTo("/cfg/a", "1")});
  Commit("cli", {SetTo("/cfg/a", "2")});
  ASSERT_EQ(kvtree_config_announce("/cfg/a"), kStatusOk);
  ASSERT_EQ(kvtree_config_announce("/cfg/none"), kStatusOk);
  EXPECT_EQ(kvtree_config_announce("/oper/a"), kStatusUnknownPath);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 3 2", "none 4 none"));
  EXPECT_EQ(History().size(), 2U);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=2"));
}

TEST_F(ConfigReplay, EachNeedsAManagerAndBothFunctions) {
  const auto nothing = [] {};
  EXPECT_EQ(kvtree_config_replay_each({}, nullptr, nothing, nothing), kStatusInvalid);
  EXPECT_EQ(kvtree_config_replay_each({}, manager, nullptr, nothing), kStatusInvalid);
  EXPECT_EQ(kvtree_config_replay_each({}, manager, nothing, nullptr), kStatusInvalid);
}

class ConfigCounted : public ConfigCommit, public ::testing::WithParamInterface<std::string_view> {
 protected:
  const std::string item_ = std::string(GetParam()) + "red/item";
};

TEST_P(ConfigCounted, ChangedValueOfAnExistingNodeIsNotNotified) {
  EXPECT_THAT(Commit("frr", {{item_, NumberValue(1)}}), ElementsAre("item 3 "));
  EXPECT_THAT(Commit("cli", {SetTo(item_, "text")}), IsEmpty());
  EXPECT_THAT(Commit("cli", {SetTo(item_, "other")}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre(item_ + "=other"));
  EXPECT_THAT(Changes(id), ElementsAre(item_ + ": text (cli) -> other (cli)"));
  Subscribe("/cfg/", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("item 2 other"))
      << "a later subscriber receives the effective value";
  EXPECT_THAT(Commit("cli", {Withdraw(item_)}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre(item_ + "=#1"));
  EXPECT_THAT(Commit("frr", {Withdraw(item_)}), ElementsAre("item 4 none"));
}

INSTANTIATE_TEST_SUITE_P(EachScope, ConfigCounted, ::testing::ValuesIn(kConfigCountedScopes),
                         [](const auto& scope) { return "Number" + std::to_string(scope.index); });

TEST_F(ConfigCommit, EveryOperationCanFail) {
  std::vector<KvConfigCommit> commits;
  std::vector<KvConfigCommitChange> changes;
  for (const char* point :
       {"kvtree_config_commit", "kvtree_config_replace", "kvtree_config_replay", "kvtree_config_replay_each",
        "kvtree_config_announce", "kvtree_config_history", "kvtree_config_changes"}) {
    fault_arm(point, kStatusNoMemory);
  }
  EXPECT_EQ(kvtree_config_commit("cli", {SetTo("/cfg/a", "x")}, "", &id, &error), kStatusNoMemory);
  EXPECT_EQ(kvtree_config_replace("cli", {}, {}, "", &id, &error), kStatusNoMemory);
  EXPECT_EQ(kvtree_config_replay({}), kStatusNoMemory);
  EXPECT_EQ(kvtree_config_announce("/cfg/a"), kStatusNoMemory);
  EXPECT_EQ(kvtree_config_replay_each(
                {}, manager, [] {}, [] {}),
            kStatusNoMemory);
  EXPECT_EQ(kvtree_config_history(1, "", &commits), kStatusNoMemory);
  EXPECT_EQ(kvtree_config_changes("1", &changes), kStatusNoMemory);
  EXPECT_THAT(Effective(), IsEmpty());
}

}  // namespace
