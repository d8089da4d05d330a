// Tests of commits: owners, effective values, notifications.
#include "platform/core/base/test_fault.h"
#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ConfigCommit : public ConfigTest {
 protected:
  ConfigCommit() { Subscribe("/cfg/", kKvEventCreated | kKvEventSet | kKvEventDeleted); }
};

TEST_F(ConfigCommit, OwnerThatIsRegisteredEarlierWins) {
  EXPECT_THAT(Commit("peer", {SetTo("/cfg/a", "peer")}), ElementsAre("a 3 peer"));
  EXPECT_THAT(Commit("user", {SetTo("/cfg/a", "user")}), ElementsAre("a 2 user"));
  EXPECT_THAT(Commit("script", {SetTo("/cfg/a", "script")}), IsEmpty());
  EXPECT_EQ(id, "");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=user"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=script"));
}

TEST_F(ConfigCommit, WithdrawalUncoversTheNextOwnerInOrder) {
  EXPECT_THAT(Commit("system", {SetTo("/cfg/a", "system")}), ElementsAre("a 3 system"));
  EXPECT_THAT(Commit("peer-derived", {SetTo("/cfg/a", "derived")}), ElementsAre("a 2 derived"));
  EXPECT_THAT(Commit("peer", {SetTo("/cfg/a", "peer")}), ElementsAre("a 2 peer"));
  EXPECT_THAT(Commit("peer", {Withdraw("/cfg/a")}), ElementsAre("a 2 derived"));
}

TEST_F(ConfigCommit, RegistrationOfOwnersIsChecked) {
  EXPECT_EQ(kvtree_config_register_owners(std::vector<KvConfigOwner>{{"a", 1}, {"a", 2}}), kStatusInvalid);
  EXPECT_EQ(kvtree_config_register_owners(std::vector<KvConfigOwner>{{"a", 1}, {"b", 1}}), kStatusInvalid);
  EXPECT_EQ(kvtree_config_register_owners(std::vector<KvConfigOwner>{{"", 1}}), kStatusInvalid);
  EXPECT_EQ(kvtree_config_register_owners(std::vector<KvConfigOwner>{{"a", 0xff}}), kStatusInvalid);
  std::vector<std::string> names;
  for (std::size_t at = 0; at <= kMaxConfigOwners; ++at) names.push_back("owner" + std::to_string(at));
  std::vector<KvConfigOwner> many;
  for (const std::string& name : names) many.push_back({name, static_cast<std::uint8_t>(many.size())});
  EXPECT_EQ(kvtree_config_register_owners(many), kStatusInvalid);
  EXPECT_THAT(Commit("peer-derived", {SetTo("/cfg/a", "x")}), ElementsAre("a 3 x"));
}

TEST_F(ConfigCommit, OwnersDoNotChangeWhileNodesHaveValues) {
  Commit("user", {SetTo("/cfg/a", "x")});
  const KvConfigOwner other{"other", 9};
  EXPECT_EQ(kvtree_config_register_owners({&other, 1}), kStatusExists);
  EXPECT_EQ(kvtree_config_register_owners(kTestOwners), kStatusOk) << "the same owners again";
  Commit("user", {Withdraw("/cfg/a")});
  ASSERT_EQ(kvtree_config_register_owners({&other, 1}), kStatusOk);
  EXPECT_THAT(Commit("other", {SetTo("/cfg/a", "y")}), ElementsAre("a 3 y"));
  EXPECT_EQ(Refused("user", {SetTo("/cfg/a", "x")}, kStatusInvalid), "unknown owner \"user\"");
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
  Commit("peer", {SetTo("/cfg/a/x", "1"), SetTo("/cfg/b", "1")});
  EXPECT_THAT(take(), ElementsAre("/cfg/a/x none() 1(peer)"));
  Commit("user", {SetTo("/cfg/a/x", "1")});
  Commit("script", {SetTo("/cfg/a/x", "2")});
  EXPECT_THAT(take(), IsEmpty()) << "the same value, and one that is covered";
  Commit("user", {Withdraw("/cfg/a/x")});
  EXPECT_THAT(take(), ElementsAre("/cfg/a/x 1(user) 2(script)"));
  EXPECT_EQ(kvtree_config_replay({"/cfg/a/x"}), kStatusOk);
  EXPECT_THAT(take(), IsEmpty()) << "a replay is not a change";
  handle.reset();
  Commit("script", {SetTo("/cfg/a/x", "3")});
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ConfigCommit, NodeIsFoundWithWhoHoldsIt) {
  EXPECT_FALSE(kvtree_config_find("/cfg/a"));
  Commit("peer", {SetTo("/cfg/a", "x")});
  Commit("script", {SetTo("/cfg/a", "y")});
  const auto found = kvtree_config_find("/cfg/a");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->value.text, "y");
  EXPECT_EQ(found->owner, "script");
}

TEST_F(ConfigCommit, WithdrawalMakesTheNextValueEffective) {
  for (const char* owner : {"peer", "script", "user"}) Commit(owner, {SetTo("/cfg/a", owner)});
  EXPECT_THAT(Commit("user", {Withdraw("/cfg/a")}), ElementsAre("a 2 script"));
  EXPECT_THAT(Commit("peer", {Withdraw("/cfg/a")}), IsEmpty());
  EXPECT_THAT(Commit("script", {Withdraw("/cfg/a")}), ElementsAre("a 4 none"));
  EXPECT_THAT(Effective(), IsEmpty());
}

TEST_F(ConfigCommit, SameValueNotifiesNoSubscriber) {
  Commit("script", {SetTo("/cfg/a", "x")});
  EXPECT_THAT(Commit("script", {SetTo("/cfg/a", "x")}), IsEmpty());
  EXPECT_THAT(Commit("user", {SetTo("/cfg/a", "x")}), IsEmpty());
  EXPECT_THAT(Owned("user"), ElementsAre("/cfg/a=x"));
  EXPECT_THAT(Commit("script", {Withdraw("/cfg/a")}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x"));
}

TEST_F(ConfigCommit, DeletionsAreNotifiedBeforeSets) {
  Commit("user", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")});
  EXPECT_THAT(
      Commit("user", {SetTo("/cfg/z", "2"), Withdraw("/cfg/c"), SetTo("/cfg/b", "2"), Withdraw("/cfg/a")}),
      ElementsAre("c 4 none", "a 4 none", "z 3 2", "b 2 2"));
}

TEST_F(ConfigCommit, EveryTypeOfValueIsHeld) {
  Commit("script", {{"/cfg/none", KvValue{}},
                    {"/cfg/number", NumberValue(INT64_MIN)},
                    {"/cfg/text", TextValue("")},
                    {"/cfg/tuple", TupleValue({5, -1})},
                    {"/cfg/tuple-empty", TupleValue({})}});
  EXPECT_THAT(Effective(), ElementsAre("/cfg/none=.", "/cfg/number=#" + std::to_string(INT64_MIN),
                                       "/cfg/text=", "/cfg/tuple=(5 -1)", "/cfg/tuple-empty=()"));
}

TEST_F(ConfigCommit, ValuesDifferByTypeToo) {
  Commit("user", {{"/cfg/a", NumberValue(0)}});
  EXPECT_THAT(Commit("user", {{"/cfg/a", KvValue{}}}), ElementsAre("a 2 "));
  EXPECT_THAT(Commit("user", {{"/cfg/a", TupleValue({0})}}), ElementsAre("a 2 "));
  EXPECT_THAT(Commit("user", {{"/cfg/a", TupleValue({0})}}), IsEmpty());
}

// Each of these follows a change that alone would be made.
TEST_F(ConfigCommit, InvalidChangeChangesNothing) {
  KvValue record;
  record.type = KvValueType::kRecord;
  const auto refused = [&](KvConfigChange change, Status status) {
    return Refused("user", {SetTo("/cfg/good", "x"), std::move(change)}, status);
  };
  EXPECT_EQ(refused(Withdraw("/cfg/a"), kStatusNoSuchRow), "/cfg/a: user does not set it");
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

TEST_F(ConfigCommit, LongestTextPathAndTupleAreAccepted) {
  const std::string path = "/cfg/" + std::string(kKvMaxPath - 5, 'a');
  Commit("user", {SetTo(path, std::string(kMaxConfigText, 'x')),
                  {"/cfg/tuple", TupleValue(std::vector<std::int64_t>(kMaxConfigTuple))}});
  EXPECT_EQ(Effective().size(), 2U);
}

TEST_F(ConfigCommit, UnknownOwnersSetNothing) {
  EXPECT_EQ(Refused("root", {SetTo("/cfg/a", "x")}, kStatusInvalid), "unknown owner \"root\"");
  EXPECT_EQ(Refused("", {SetTo("/cfg/a", "x")}, kStatusInvalid), "unknown owner \"\"");
  EXPECT_THAT(Owned("root"), IsEmpty());
}

TEST_F(ConfigCommit, WithdrawalOfAnotherOwnersValueIsInvalid) {
  Commit("script", {SetTo("/cfg/a", "x")});
  EXPECT_EQ(Refused("user", {Withdraw("/cfg/a")}, kStatusNoSuchRow), "/cfg/a: user does not set it");
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=x"));
}

TEST_F(ConfigCommit, CommitWithTooManyChangesIsRefused) {
  EXPECT_EQ(Refused("user", Many(kMaxConfigChanges + 1, "x"), kStatusMessageTooLarge),
            "a commit has at most 100000 changes");
}

TEST_F(ConfigCommit, EmptyCommitIsNone) {
  EXPECT_THAT(Commit("user", {}), IsEmpty());
  EXPECT_THAT(History(), IsEmpty());
}

TEST_F(ConfigCommit, CallerMayOmitIdAndError) {
  EXPECT_EQ(kvtree_config_commit("user", {SetTo("/cfg/a", "x")}, ""), kStatusOk);
  EXPECT_EQ(kvtree_config_commit("user", {Withdraw("/cfg/b")}, ""), kStatusNoSuchRow);
  EXPECT_EQ(kvtree_config_replace("user", {}, ""), kStatusOk);
}

TEST_F(ConfigCommit, LaterSubscriberReceivesTheEffectiveValues) {
  Commit("script", {SetTo("/cfg/x/a", "script"), SetTo("/cfg/x/b", "script")});
  Commit("user", {SetTo("/cfg/x/a", "user")});
  Subscribe("/cfg/x/", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("b 2 script", "a 2 user"));
}

class ConfigReplace : public ConfigCommit {
 protected:
  std::vector<std::string> Replace(const std::vector<KvConfigNode>& nodes) {
    EXPECT_EQ(kvtree_config_replace("script", nodes, "reload", &id, &error), kStatusOk) << error;
    Run();
    return TakeReceived();
  }
};

TEST_F(ConfigReplace, OnlyTheDifferenceIsNotified) {
  Commit("script",
         {SetTo("/cfg/s/a", "1"), SetTo("/cfg/s/b", "1"), SetTo("/cfg/s/c", "1"), SetTo("/cfg/t/a", "1")});
  EXPECT_THAT(
      Replace({{"/cfg/s/a", TextValue("1")}, {"/cfg/s/b", TextValue("2")}, {"/cfg/s/d", TextValue("1")}}),
      ElementsAre("c 4 none", "a 4 none", "b 2 2", "d 3 1"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/s/a=1", "/cfg/s/b=2", "/cfg/s/d=1"));
  EXPECT_THAT(History(), ElementsAre("2 script 4 reload", "1 script 4 "));
}

TEST_F(ConfigReplace, SameNodesAreNoCommit) {
  Commit("script", {SetTo("/cfg/s/a", "1")});
  EXPECT_THAT(Replace({{"/cfg/s/a", TextValue("1")}}), IsEmpty());
  EXPECT_EQ(id, "");
  EXPECT_EQ(History().size(), 1U);
}

TEST_F(ConfigReplace, ValuesOfOtherOwnersRemain) {
  Commit("user", {SetTo("/cfg/s/a", "user")});
  Commit("script", {SetTo("/cfg/s/a", "script")});
  EXPECT_THAT(Replace({}), IsEmpty());
  EXPECT_THAT(Owned("user"), ElementsAre("/cfg/s/a=user"));
  EXPECT_THAT(Owned("script"), IsEmpty());
}

TEST_F(ConfigReplace, LastOfTwoNodesWithOnePathCounts) {
  EXPECT_THAT(Replace({{"/cfg/s/a", TextValue("1")}, {"/cfg/s/a", TextValue("2")}}), ElementsAre("a 3 2"));
}

TEST_F(ConfigReplace, OwnerMaySetMoreThanOneCommitOfAClient) {
  std::vector<KvConfigNode> nodes;
  for (const KvConfigChange& change : Many(kMaxConfigChanges + 50000, "x"))
    nodes.push_back({change.path, *change.value});
  Replace(nodes);
  EXPECT_EQ(Owned("script").size(), nodes.size());
  EXPECT_THAT(History(), ElementsAre("1 script 150000 reload"));
  Replace({});
  EXPECT_THAT(Owned("script"), IsEmpty());
}

TEST_F(ConfigReplace, NodeOutsideTheConfigurationIsRefused) {
  Commit("script", {SetTo("/cfg/s/a", "1")});
  EXPECT_EQ(kvtree_config_replace("script", {{"/oper/t", TextValue("1")}}, "", &id, &error),
            kStatusUnknownPath);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/s/a=1"));
}

class ConfigReplay : public ConfigCommit {};

TEST_F(ConfigReplay, DeletionsThenSetsAreNotifiedAndNothingChanges) {
  Commit("script", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "2")});
  Commit("user", {SetTo("/cfg/b", "3")});
  ASSERT_EQ(kvtree_config_replay({"/cfg/b", "/cfg/absent", "/cfg/a"}), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("b 4 none", "a 4 none", "b 3 3", "a 3 1"));
  EXPECT_EQ(History().size(), 2U);
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=1", "/cfg/b=3"));
}

// The functions and the notifications are recorded in one order.
TEST_F(ConfigReplay, EachIsNotifiedAfterItsFunction) {
  Commit("script", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "2")});
  const auto note = [](const char* what) { return [what] { received().emplace_back(what); }; };
  ASSERT_EQ(kvtree_config_commit("script", {SetTo("/cfg/c", "before")}, ""), kStatusOk);
  ASSERT_EQ(
      kvtree_config_replay_each({"/cfg/b", "/cfg/absent", "/cfg/a"}, manager, note("deletion"), note("set")),
      kStatusOk);
  ASSERT_EQ(kvtree_config_commit("script", {Withdraw("/cfg/b")}, ""), kStatusOk);
  EXPECT_THAT(TakeReceived(), IsEmpty());
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("c 3 before", "deletion", "b 4 none", "set", "b 3 2", "deletion",
                                          "a 4 none", "set", "a 3 1", "b 4 none"));
  EXPECT_EQ(History().size(), 3U);
}

TEST_F(ConfigReplay, NodeIsAnnouncedAsSetOrAsDeleted) {
  Commit("script", {SetTo("/cfg/a", "1")});
  Commit("user", {SetTo("/cfg/a", "2")});
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
  EXPECT_THAT(Commit("peer", {{item_, NumberValue(1)}}), ElementsAre("item 3 "));
  EXPECT_THAT(Commit("user", {SetTo(item_, "text")}), IsEmpty());
  EXPECT_THAT(Commit("user", {SetTo(item_, "other")}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre(item_ + "=other"));
  EXPECT_THAT(Changes(id), ElementsAre(item_ + ": text (user) -> other (user)"));
  Subscribe("/cfg/", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("item 2 other"))
      << "a later subscriber receives the effective value";
  EXPECT_THAT(Commit("user", {Withdraw(item_)}), IsEmpty());
  EXPECT_THAT(Effective(), ElementsAre(item_ + "=#1"));
  EXPECT_THAT(Commit("peer", {Withdraw(item_)}), ElementsAre("item 4 none"));
}

INSTANTIATE_TEST_SUITE_P(EachScope, ConfigCounted, ::testing::ValuesIn(kTestCountedScopes),
                         [](const auto& scope) { return "Number" + std::to_string(scope.index); });

TEST_F(ConfigCommit, EveryOperationCanFail) {
  std::vector<KvConfigCommit> commits;
  std::vector<KvConfigCommitChange> changes;
  const auto nothing = [] {};
  ExpectFault("kvtree_config_commit",
              [&] { return kvtree_config_commit("user", {SetTo("/cfg/a", "x")}, ""); });
  ExpectFault("kvtree_config_replace", [] { return kvtree_config_replace("user", {}, ""); });
  ExpectFault("kvtree_config_replay", [] { return kvtree_config_replay({}); });
  ExpectFault("kvtree_config_replay_each",
              [&] { return kvtree_config_replay_each({}, manager, nothing, nothing); });
  ExpectFault("kvtree_config_announce", [] { return kvtree_config_announce("/cfg/a"); });
  ExpectFault("kvtree_config_history", [&] { return kvtree_config_history(1, "", &commits); });
  ExpectFault("kvtree_config_changes", [&] { return kvtree_config_changes("1", &changes); });
  EXPECT_THAT(Effective(), IsEmpty());
}

}  // namespace
