// Nodes with owners and the history of commits, over the wire, in parts.
#include <ctime>
#include <string>
#include <vector>

#include "platform/store/client/client_commit_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST_F(ClientCommit, NodesOfAnOwnerAreListed) {
  OwnerCommits("script", {SetTo("/cfg/a", "script"), SetTo("/cfg/b", "script"), SetTo("/cfg/c", "script")});
  ASSERT_EQ(SetText("/cfg/own", "process"), kStatusOk);
  StartAndConnect();
  ASSERT_EQ(client.commit({SetTo("/cfg/b", "user")}, "").status, kStatusOk);
  EXPECT_THAT(Nodes("/cfg/"), ElementsAre("/cfg/a=script (script)", "/cfg/b=user (user)",
                                          "/cfg/c=script (script)", "/cfg/own=process ()"));
  EXPECT_THAT(Nodes("/cfg/", "script"),
              ElementsAre("/cfg/a=script (script)", "/cfg/b=script (script)", "/cfg/c=script (script)"));
  EXPECT_THAT(Nodes("/cfg/b", "user"), ElementsAre("/cfg/b=user (user)"));
  EXPECT_THAT(Nodes("/", "peer"), IsEmpty());
  EXPECT_EQ(client.nodes("/", 1, {}, "unknown").status, kStatusInvalid);
  const kvtree::NodesResult rest = client.nodes("/cfg/", 1, "/cfg/a", "script");
  ASSERT_THAT(rest.nodes, SizeIs(1));
  EXPECT_EQ(rest.nodes[0].path, "/cfg/b");
}

TEST_F(ClientCommit, NodesOfAnOwnerAreLookedForInSteps) {
  OwnerCommits("script", Many(20000));
  OwnerCommits("peer", {SetTo("/cfg/0", "first"), SetTo("/cfg/9999", "last")});
  ManualClock clock(7'000'000'000);
  clock.tick(100'000);  // twenty readings in a slice of the loop
  kvtree::NodesResult result;
  const unsigned iterations = IterationsOf([&] {
    EXPECT_EQ(client.connect(), kStatusOk);
    result = client.nodes("/cfg/", 1000, {}, "peer");
  });
  ASSERT_THAT(result.nodes, SizeIs(2));
  EXPECT_EQ(result.nodes[0].path, "/cfg/0");
  EXPECT_EQ(result.nodes[1].path, "/cfg/9999");
  EXPECT_GE(iterations, 10U);
}

TEST_F(ClientCommit, HistoryAndChangesAreReadInParts) {
  ManualClock clock(7'000'000'000);
  StartAndConnect();
  ASSERT_EQ(client.commit({SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")}, "one").status,
            kStatusOk);
  ASSERT_EQ(client.commit({SetTo("/cfg/a", "2"), Withdraw("/cfg/c")}, "two").status, kStatusOk);
  kvtree::HistoryResult history = client.history(1);
  ASSERT_THAT(history.commits, SizeIs(1));
  EXPECT_EQ(history.commits[0].id, "2");
  EXPECT_EQ(history.commits[0].time, 7'000'000'000U);
  EXPECT_EQ(history.commits[0].owner, "user");
  EXPECT_EQ(history.commits[0].comment, "two");
  EXPECT_EQ(history.commits[0].changes, 2U);
  history = client.history(5, "2");
  ASSERT_THAT(history.commits, SizeIs(1));
  EXPECT_EQ(history.commits[0].id, "1");
  kvtree::CommitChangesResult changes = client.commit_changes("2", 10);
  ASSERT_THAT(changes.changes, SizeIs(2));
  EXPECT_EQ(changes.changes[0].path, "/cfg/c");
  EXPECT_EQ(changes.changes[0].after, std::nullopt);
  EXPECT_EQ(changes.changes[1].owner_before, "user");
  EXPECT_EQ(Describe(changes.changes[1].before) + Describe(changes.changes[1].after), "12");
  changes = client.commit_changes("1", 1, 1);
  ASSERT_THAT(changes.changes, SizeIs(1));
  EXPECT_EQ(changes.changes[0].path, "/cfg/b");
  EXPECT_THAT(client.commit_changes("1", 1, 3).changes, IsEmpty());
  EXPECT_EQ(client.commit_changes("3", 1).status, kStatusNoSuchRow);
  EXPECT_EQ(client.history(1, "3").status, kStatusNoSuchRow);
}

// Small parts of two commits in turn: the processor time of all of them is that of reading a commit a few
// times, not once for each part.
TEST_F(ClientCommit, PartOfALargeCommitIsReadWithoutTheRest) {
  constexpr std::uint32_t kParts = 60;
  std::vector<KvConfigChange> changes = Many(20000);
  OwnerCommits("script", changes);
  changes.front().value.reset();
  changes.back().value.reset();
  for (std::size_t i = 1; i + 1 < changes.size(); ++i) changes[i].value->text = "y";
  OwnerCommits("script", changes);
  const std::clock_t start = std::clock();
  std::vector<KvConfigCommitChange> all[2];
  for (std::size_t commit = 0; commit < 2; ++commit)
    ASSERT_EQ(kvtree_config_changes(std::to_string(commit + 1), &all[commit]), kStatusOk);
  const std::clock_t whole = std::clock() - start;
  StartAndConnect();
  const std::clock_t parts = std::clock();
  for (std::uint32_t part = 0; part < kParts; ++part) {
    const std::uint32_t first = part * 333;
    const auto result = client.commit_changes(std::to_string(part % 2 + 1), 1, first);
    ASSERT_THAT(result.changes, SizeIs(1));
    EXPECT_EQ(result.changes[0].path, all[part % 2][first].path);
  }
  EXPECT_LT(std::clock() - parts, 8 * whole);
  EXPECT_EQ(all[1][0].path, "/cfg/0");
  EXPECT_EQ(all[1][1].path, "/cfg/19999");
}

// The parts of an answer are small, however much the client asks for.
TEST_F(ClientCommit, AnswerOfTheHistoryIsBoundedInChangesAndOctets) {
  std::vector<KvConfigChange> changes = Many(3000);
  OwnerCommits("script", changes);
  for (KvConfigChange& change : changes) change.value->text.assign(kMaxConfigText, 't');
  changes.resize(500);
  OwnerCommits("script", changes);
  StartAndConnect();
  EXPECT_EQ(client.commit_changes("1", 10000).changes.size(), kKvMaxListItems);
  const std::size_t large = client.commit_changes("2", 10000).changes.size();
  EXPECT_GT(large, 60U);
  EXPECT_LT(large, 70U);
}

}  // namespace
