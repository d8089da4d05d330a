// Tests of the commit history as the daemon asks for it, and of the search in what it loads.
#include "platform/store/cfgmgr/cfgmgr.h"

#include "platform/core/base/test_fault.h"
#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Cfgmgr : public ConfigTest {
 protected:
  ~Cfgmgr() override {
    fault_disarm_all();
    const Status destroyed = target == nullptr ? kStatusOk : cfgmgr_target_destroy(target);
    EXPECT_EQ(destroyed, kStatusOk);
  }
  void CreateTarget() {
    ASSERT_EQ(cfgmgr_target_create(&target, &changes, "mpls_vpn", "lab", "", 0, 0, 0, 0), kStatusOk);
  }
  Status Load(const char* commit) { return cfgmgr_target_load_changes(target, commit, commit, 1, 128); }
  std::vector<std::string> Loaded() const {
    std::vector<std::string> all;
    for (const KvConfigCommitChange& change : changes->changes)
      all.push_back(change.path + "=" + Describe(change.after));
    return all;
  }
  // "value" of the first change, or "-".
  std::string Find(const char* item, const char* below = "", std::uint32_t max_text = 256) const {
    std::uint32_t found = 7;
    KvValue value;
    EXPECT_EQ(kvtree_event_find(changes, item, below, &found, &value, max_text, 0), kStatusOk);
    return found == 0 ? "-" : Describe(value);
  }
  static std::vector<std::string> ListCommits(std::uint32_t count) {
    CfgmgrCommit* commits = nullptr;
    EXPECT_EQ(cfgmgr_config_get_history(&count, &commits, 0), kStatusOk);
    std::vector<std::string> all;
    for (std::uint32_t i = 0; i < count; ++i)
      all.push_back(std::string(commits[i].commit_id) + " " + commits[i].timestamp);
    cfgmgr_commit_list_free(commits, count);
    return all;
  }

  CfgmgrTarget* target = nullptr;
  KvChangeSet* changes = nullptr;
};

TEST_F(Cfgmgr, NewestCommitsAreListedOldestFirst) {
  ManualClock clock(1'795'256'829'000'000'000);
  for (const char* text : {"1", "2", "3"}) {
    Commit("user", {SetTo("/cfg/a", text)});
    clock.advance(60 * kNanosecondsPerSecond);
  }
  EXPECT_THAT(ListCommits(2), ElementsAre("2 2026-11-21T10:28:09Z", "3 2026-11-21T10:29:09Z"));
  EXPECT_EQ(ListCommits(15).size(), 3U);
}

TEST_F(Cfgmgr, EmptyHistoryIsAnEmptyList) {
  std::uint32_t count = 15;
  CfgmgrCommit* commits = reinterpret_cast<CfgmgrCommit*>(this);
  EXPECT_EQ(cfgmgr_config_get_history(&count, &commits, 0), kStatusOk);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(commits, nullptr);
}

TEST_F(Cfgmgr, ChangesOfCommitsAreLoadedAndForgotten) {
  for (const char* text : {"1", "2"}) Commit("user", {SetTo("/cfg/a", text)});
  CreateTarget();
  ASSERT_EQ(Load("2"), kStatusOk);
  ASSERT_EQ(Load("1"), kStatusOk);
  EXPECT_THAT(Loaded(), ElementsAre("/cfg/a=2", "/cfg/a=1"));
  ASSERT_EQ(cfgmgr_target_clear(target, 0), kStatusOk);
  EXPECT_THAT(Loaded(), IsEmpty());
}

TEST_F(Cfgmgr, MissingCommitsAndRangesLoadNothing) {
  for (const char* text : {"1", "2"}) Commit("user", {SetTo("/cfg/a", text)});
  CreateTarget();
  EXPECT_EQ(Load("3"), kStatusNoSuchRow);
  EXPECT_EQ(Load(""), kStatusNoSuchRow);
  EXPECT_EQ(cfgmgr_target_load_changes(target, "1", "2", 1, 128), kStatusInvalid);
  EXPECT_THAT(Loaded(), IsEmpty());
}

TEST_F(Cfgmgr, ItemIsFoundWithEverythingBelowIt) {
  Commit("user", {SetTo("/cfg/gl/vmap/vrf/red/descr", "d"), SetTo("/cfg/gl/vmap/vrf/blue", "b")});
  CreateTarget();
  ASSERT_EQ(Load("1"), kStatusOk);
  EXPECT_EQ(Find("gl/vmap/vrf/red"), "d");
  EXPECT_EQ(Find("gl/vmap/vrf/red", "descr"), "d");
  EXPECT_EQ(Find("gl/vmap/vrf/red", "des"), "-");
  EXPECT_EQ(Find("gl/vmap/vrf/blue"), "b");
  EXPECT_EQ(Find("gl/vmap/vrf/re"), "-");
  EXPECT_EQ(Find("gl/vmap/vrf/redder"), "-");
  EXPECT_EQ(Find("gl/vmap/vrf/"), "-");
}

TEST_F(Cfgmgr, ItemsComponentsArePlainTexts) {
  Commit("user", {SetTo("/cfg/vrf/" + kvtree_encode_text("a b%") + "/descr", "d")});
  CreateTarget();
  ASSERT_EQ(Load("1"), kStatusOk);
  EXPECT_EQ(Find("vrf/a b%"), "d");
  EXPECT_EQ(Find("vrf/a%20b%25"), "-");
}

TEST_F(Cfgmgr, FoundDeletionHasNoValueAndLongTextsAreCut) {
  Commit("user", {SetTo("/cfg/a", "long"), SetTo("/cfg/b", "x")});
  Commit("user", {Withdraw("/cfg/b")});
  CreateTarget();
  ASSERT_EQ(Load("2"), kStatusOk);
  EXPECT_EQ(Find("b"), ".");
  ASSERT_EQ(Load("1"), kStatusOk);
  EXPECT_EQ(Find("a", "", 2), "lo");
}

TEST_F(Cfgmgr, WrongArgumentsAreRefused) {
  std::uint32_t count = 1;
  CfgmgrCommit* commits = nullptr;
  EXPECT_EQ(cfgmgr_config_get_history(nullptr, &commits, 0), kStatusInvalid);
  EXPECT_EQ(cfgmgr_config_get_history(&count, nullptr, 0), kStatusInvalid);
  EXPECT_EQ(cfgmgr_config_get_history(&count, &commits, 1), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_create(&target, &changes, nullptr, "lab", "", 0, 0, 0, 0), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_create(&target, &changes, "mpls_vpn", "lab", "", 0, 0, 0, 1), kStatusInvalid);
  CreateTarget();
  EXPECT_EQ(cfgmgr_target_load_changes(target, "1", "1", 2, 128), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_load_changes(nullptr, "1", "1", 1, 128), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_clear(target, 1), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_clear(nullptr, 0), kStatusInvalid);
  EXPECT_EQ(cfgmgr_target_destroy(nullptr), kStatusInvalid);
  std::uint32_t found = 0;
  KvValue value;
  EXPECT_EQ(kvtree_event_find(nullptr, "a", "", &found, &value, 256, 0), kStatusInvalid);
  EXPECT_EQ(kvtree_event_find(changes, nullptr, "", &found, &value, 256, 0), kStatusInvalid);
  EXPECT_EQ(kvtree_event_find(changes, "a", "", &found, &value, 256, 1), kStatusInvalid);
}

TEST_F(Cfgmgr, EveryOperationCanFail) {
  Commit("user", {SetTo("/cfg/a", "1")});
  std::uint32_t count = 1;
  CfgmgrCommit* commits = nullptr;
  std::uint32_t found = 0;
  KvValue value;
  for (const char* point :
       {"cfgmgr_config_get_history", "kvtree_config_history", "calloc_tagged:cfgmgr commits"})
    ExpectFault(point, [&] { return cfgmgr_config_get_history(&(count = 1), &commits, 0); });
  ExpectFault("cfgmgr_target_create",
              [&] { return cfgmgr_target_create(&target, &changes, "mpls_vpn", "lab", "", 0, 0, 0, 0); });
  CreateTarget();
  for (const char* point : {"cfgmgr_target_load_changes", "kvtree_config_changes"})
    ExpectFault(point, [this] { return Load("1"); });
  ExpectFault("cfgmgr_target_clear", [this] { return cfgmgr_target_clear(target, 0); });
  ExpectFault("kvtree_event_find",
              [&] { return kvtree_event_find(changes, "a", "", &found, &value, 256, 0); });
  ExpectFault("cfgmgr_target_destroy", [this] { return cfgmgr_target_destroy(target); });
  target = nullptr;
}

}  // namespace
