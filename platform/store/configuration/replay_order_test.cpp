// Tests of the order in which the configuration is replayed: that in which it was last set.
#include <algorithm>

#include "platform/store/configuration/test_configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

class ConfigOrder : public ConfigTest {
 protected:
  void SetUp() override { ASSERT_EQ(Keep(), kStatusOk); }
  // The replay to a subscriber that registers now, which is the same in the next process.
  std::vector<std::string> Replayed() {
    const std::vector<std::string> now = RegisterAndTake();
    Restart();
    EXPECT_EQ(RegisterAndTake(), now);
    return now;
  }

 private:
  std::vector<std::string> RegisterAndTake() {
    TakeReceived();
    Subscribe("/cfg", kKvEventSet);
    return TakeReceived();
  }
};

TEST_F(ConfigOrder, FollowsTheCommitsAndTheChangesInThem) {
  Make("user", {SetTo("/cfg/d", "1"), SetTo("/cfg/c", "1")}, "");
  Make("script", {SetTo("/cfg/b", "1"), SetTo("/cfg/a", "1")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("d 2 1", "c 2 1", "b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, NodeThatIsSetAgainIsTheLast) {
  Make("user", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1"), SetTo("/cfg/c", "1")}, "");
  Make("user", {SetTo("/cfg/b", "2")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("a 2 1", "c 2 1", "b 2 2"));
}

TEST_F(ConfigOrder, NodeThatIsCreatedAgainIsTheLast) {
  Make("user", {SetTo("/cfg/a", "1"), SetTo("/cfg/b", "1")}, "");
  Make("user", {Withdraw("/cfg/a")}, "");
  Make("user", {SetTo("/cfg/a", "1")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, ValueThatBecomesEffectiveIsTheLast) {
  Make("script", {SetTo("/cfg/a", "script"), SetTo("/cfg/b", "script")}, "");
  Make("user", {SetTo("/cfg/a", "user")}, "");
  Make("user", {SetTo("/cfg/c", "user")}, "");
  Make("user", {Withdraw("/cfg/a")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("b 2 script", "c 2 user", "a 2 script"));
}

TEST_F(ConfigOrder, ChangesWithoutNotificationDoNotChangeTheOrder) {
  for (const char* path : {"/cfg/c", "/cfg/b", "/cfg/a"}) Make("user", {SetTo(path, "1")}, "");
  Make("script", {SetTo("/cfg/b", "1")}, "");
  Make("peer", {SetTo("/cfg/b", "other")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("c 2 1", "b 2 1", "a 2 1"));
  Make("user", {Withdraw("/cfg/b")}, "");
  EXPECT_THAT(Replayed(), ElementsAre("c 2 1", "b 2 1", "a 2 1"));
}

TEST_F(ConfigOrder, FollowsALargeCommitToo) {
  std::vector<KvConfigChange> changes = Many(1200, "x");
  std::ranges::reverse(changes);
  Make("script", changes, "");
  Make("user", {SetTo("/cfg/many/000600", "y")}, "");
  const std::vector<std::string> replayed = Replayed();
  ASSERT_THAT(replayed, SizeIs(1200));
  EXPECT_EQ(replayed.front(), "001199 2 x");
  EXPECT_EQ(replayed[1198], "000000 2 x");
  EXPECT_EQ(replayed.back(), "000600 2 y");
}

TEST_F(ConfigOrder, FollowsTheSetsOfTheProcessItselfToo) {
  for (const char* path : {"/oper/b", "/oper/a", "/oper/c", "/oper/b"})
    ASSERT_EQ(SetText(path, "x"), kStatusOk);
  Subscribe("/oper", kKvEventSet);
  EXPECT_THAT(TakeReceived(), ElementsAre("a 2 x", "c 2 x", "b 2 x"));
}

}  // namespace
