// Tests of nodes that the first owner suppresses.
#include <filesystem>

#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Suppression : public ConfigTest {
 protected:
  Suppression() { Subscribe("/cfg/", kKvEventCreated | kKvEventSet | kKvEventDeleted); }
  static KvConfigChange Suppress(const std::string& path, const std::string& text) {
    KvConfigChange change = SetTo(path, text);
    change.value->is_suppressed = true;
    return change;
  }
};

TEST_F(Suppression, NodeIsDeletedForSubscribersAndReaders) {
  Commit("script", {SetTo("/cfg/a", "x"), SetTo("/cfg/b", "x")});
  EXPECT_THAT(Commit("user", {Suppress("/cfg/a", "x")}), ElementsAre("a 4 none"));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/b=x"));
  EXPECT_FALSE(kvtree_config_find("/cfg/a"));
  EXPECT_THAT(Owned("script"), ElementsAre("/cfg/a=x", "/cfg/b=x"));
}

TEST_F(Suppression, LaterValuesOfTheOtherOwnerHaveNoEffect) {
  Commit("script", {SetTo("/cfg/a", "x")});
  Commit("user", {Suppress("/cfg/a", "x")});
  EXPECT_THAT(Commit("script", {SetTo("/cfg/a", "y")}), IsEmpty());
  EXPECT_THAT(Commit("script", {Withdraw("/cfg/a")}), IsEmpty());
  EXPECT_THAT(Commit("peer", {SetTo("/cfg/a", "z")}), IsEmpty());
  EXPECT_THAT(Commit("user", {Withdraw("/cfg/a")}), ElementsAre("a 3 z"));
  EXPECT_THAT(Effective(), ElementsAre("/cfg/a=z"));
}

TEST_F(Suppression, OutlivesTheProcessFoldedOrNot) {
  for (const bool folded : {true, false}) {
    kvtree_reset();
    std::filesystem::remove(File());
    ASSERT_EQ(Keep(), kStatusOk);
    std::vector<KvConfigChange> many = Many(folded ? 2 : 1000, "x");
    Make("script", many, "");
    for (KvConfigChange& change : many) change.value->is_suppressed = true;
    Make("user", many, "");
    EXPECT_EQ(kvtree::store().node_store->has_unfolded(), !folded);
    for (int start = 0; start < 2; ++start) {
      Restart();
      EXPECT_THAT(Effective(), IsEmpty());
      EXPECT_EQ(Owned("script").size(), many.size());
      kvtree::fold_all();
    }
    Subscribe("/cfg/", kKvEventCreated | kKvEventSet);
    EXPECT_THAT(TakeReceived(), IsEmpty()) << "nothing is replayed";
    Make("user", {Withdraw("/cfg/many/000000")}, "");
    EXPECT_THAT(Effective(), ElementsAre("/cfg/many/000000=x"));
  }
}

TEST_F(Suppression, HistoryHasItAndItsEnd) {
  Make("script", {SetTo("/cfg/a", "x")}, "");
  Make("user", {Suppress("/cfg/a", "x")}, "suppressed");
  std::vector<KvConfigCommitChange> changes;
  ASSERT_EQ(kvtree_config_changes(id, &changes), kStatusOk);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].owner_before, "script");
  EXPECT_EQ(changes[0].owner_after, "user");
  ASSERT_TRUE(changes[0].after);
  EXPECT_TRUE(changes[0].after->is_suppressed);
  EXPECT_EQ(changes[0].after->text, "x");
  Make("user", {Withdraw("/cfg/a")}, "");
  ASSERT_EQ(kvtree_config_changes(id, &changes), kStatusOk);
  EXPECT_TRUE(changes.at(0).before->is_suppressed);
  EXPECT_EQ(changes.at(0).owner_after, "script");
}

TEST_F(Suppression, ObserversSeeADeletion) {
  Make("script", {SetTo("/cfg/a", "x")}, "");
  std::vector<KvConfigCommitChange> observed;
  const auto observer = kvtree_config_observe("/cfg/", [&](const auto& changes) { observed = changes; });
  Make("user", {Suppress("/cfg/a", "x")}, "");
  ASSERT_EQ(observed.size(), 1U);
  EXPECT_EQ(observed[0].owner_before, "script");
  EXPECT_EQ(observed[0].owner_after, "");
  EXPECT_FALSE(observed[0].after);
}

TEST_F(Suppression, IsForTheFirstOwnerOnly) {
  EXPECT_EQ(Refused("script", {Suppress("/cfg/a", "x")}, kStatusInvalid),
            "/cfg/a: only user suppresses nodes");
}

TEST_F(Suppression, AnnouncementAndReplayOfASuppressedNodeAreItsDeletionAndNothing) {
  Commit("script", {SetTo("/cfg/a", "x")});
  Commit("user", {Suppress("/cfg/a", "x")});
  ASSERT_EQ(kvtree_config_announce("/cfg/a"), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), ElementsAre("a 4 none"));
  ASSERT_EQ(kvtree_config_replay({"/cfg/a"}), kStatusOk);
  Run();
  EXPECT_THAT(TakeReceived(), IsEmpty());
}

}  // namespace
