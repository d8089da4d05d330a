#include "platform/store/server/followed_nodes.h"

#include <memory>
#include <optional>

#include "platform/store/server/test_store.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FollowedNodesTest : public StoreTest {
 protected:
  Status Follow(const std::string& path) {
    return followed->follow(path, manager,
                            [this](const KvNotification* notification) { Note(notification); });
  }
  void Note(const KvNotification* notification) {
    const KvNotifyInfo* info = kvtree_notify_info(notification);
    const std::string value = info->value == nullptr ? "-" : info->value->text;
    received.push_back(std::string(kvtree_notify_path(notification)) + " " + value);
    if (stops_when_notified) followed->stop();
  }
  std::vector<std::string> Received() {
    Run();
    return std::exchange(received, {});
  }

  std::optional<FollowedNodes> followed{std::in_place};
  std::vector<std::string> received;
  bool stops_when_notified = false;
};

TEST_F(FollowedNodesTest, ExistingNodesAndChangesAreNotified) {
  ASSERT_EQ(SetText("/cfg/gl/a", "1"), kStatusOk);
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  EXPECT_THAT(received, ElementsAre("a 1"));
  ASSERT_EQ(SetText("/cfg/gl/a", "2"), kStatusOk);
  ASSERT_EQ(kvtree_delete("/cfg/gl/a"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/other", "3"), kStatusOk);
  EXPECT_THAT(Received(), ElementsAre("a 1", "a 2", "a -"));
}

TEST_F(FollowedNodesTest, SeveralPathsAreFollowedTogether) {
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  ASSERT_EQ(Follow("/oper/"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/a", "1"), kStatusOk);
  ASSERT_EQ(SetText("/oper/b", "2"), kStatusOk);
  EXPECT_THAT(Received(), ElementsAre("a 1", "b 2"));
  followed->stop();
  ASSERT_EQ(SetText("/cfg/gl/a", "3"), kStatusOk);
  ASSERT_EQ(SetText("/oper/b", "4"), kStatusOk);
  EXPECT_THAT(Received(), IsEmpty());
}

TEST_F(FollowedNodesTest, PendingChangeIsNotNotifiedAfterTheEnd) {
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/a", "1"), kStatusOk);
  followed.reset();
  EXPECT_THAT(Received(), IsEmpty());
}

TEST_F(FollowedNodesTest, HandlerMayStopFollowing) {
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  stops_when_notified = true;
  ASSERT_EQ(SetText("/cfg/gl/a", "1"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/a", "2"), kStatusOk);
  EXPECT_THAT(Received(), ElementsAre("a 1"));
}

TEST_F(FollowedNodesTest, PathThatCannotBeFollowedLeavesTheOthersFollowed) {
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  for (const char* point : {"kvtree_bind", "kvtree_register_notification"}) {
    const ScopedFault fault(point, kStatusNoMemory);
    EXPECT_EQ(Follow("/oper/"), kStatusNoMemory) << point;
  }
  ASSERT_EQ(SetText("/oper/a", "1"), kStatusOk);
  ASSERT_EQ(SetText("/cfg/gl/a", "2"), kStatusOk);
  EXPECT_THAT(Received(), ElementsAre("a 2"));
}

// The data store keeps the registration, but the handler is no longer called.
TEST_F(FollowedNodesTest, FailedEndIsLoggedAndNotifiesNoFollower) {
  ASSERT_EQ(Follow("/cfg/gl/"), kStatusOk);
  {
    const ScopedFault fault("kvtree_unbind", kStatusIo);
    testing::internal::CaptureStderr();
    followed.reset();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("/cfg/gl/ is still followed: "));
  }
  ASSERT_EQ(SetText("/cfg/gl/a", "1"), kStatusOk);
  EXPECT_THAT(Received(), IsEmpty());
}

}  // namespace
