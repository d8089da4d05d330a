// Descriptions that the router itself has for its VRFs, as configuration of the lowest precedence.
#include "sources/kernel/links/vrf_descriptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/test_support.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/chkpt/test_blocked_disk.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/configuration/test_configuration.h"
#include "platform/store/tree/kvtree.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vrf_config::commit_count;
using vrf_config::words_in_force;

class RouterDescriptions : public ::testing::Test {
 protected:
  RouterDescriptions() : manager_(event_manager_create("/dev/mpls/vpn/main", 0)) {
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
  }
  ~RouterDescriptions() override {
    fault_disarm_all();
    descriptions_.reset();
    kvtree_reset();
    event_manager_destroy(manager_);
  }

  void AddVrf(const std::string& name, std::uint32_t id, const std::string& text) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = id;
    vrf.description = text;
    ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
  }
  void Describe(const std::string& name, const std::string& text) {
    router::ChangeVrf(&router_, name, &router::Vrf::description, text);
  }
  void Start() {
    ASSERT_EQ(descriptions_->load(&error_), kStatusOk) << error_;
    ASSERT_EQ(descriptions_->start(manager_), kStatusOk);
  }
  void Run() { kvtree::run_with_commits(manager_); }

  TestRunDirectory directory_;
  EventManager* manager_;
  router::Router router_;
  std::unique_ptr<VrfDescriptions> descriptions_ = std::make_unique<VrfDescriptions>(&router_);
  std::string error_;
};

TEST_F(RouterDescriptions, AreEffectiveByDefault) {
  AddVrf("red", 10, "Red");
  AddVrf("blue", 20, "");
  Start();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description Red"));
}

TEST_F(RouterDescriptions, ChangesFollowAsOneCommit) {
  AddVrf("red", 10, "Red");
  Start();
  Describe("red", "redder");
  AddVrf("blue", 20, "Blue");
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description Red")) << "not from inside the change";
  Run();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf blue description Blue", "vrf red description redder"));
  EXPECT_EQ(commit_count(), 2U);
  Describe("blue", "");
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  Run();
  EXPECT_THAT(words_in_force(), IsEmpty());
}

TEST_F(RouterDescriptions, LoopDoesNotWaitForTheDisk) {
  ASSERT_EQ(kvtree_keep_configuration(directory_.path()), kStatusOk);
  AddVrf("red", 10, "Red");
  Start();
  BlockedDisk disk;
  Describe("red", "redder");
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10; ++i) event_run_pending(manager_);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  Describe("red", "reddest");
  AddVrf("blue", 20, "Blue");
  Describe("red", "crimson");
  event_run_pending(manager_);
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description Red"));
  disk.release();
  Run();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf blue description Blue", "vrf red description crimson"));
  EXPECT_EQ(commit_count(), 3U) << "changes during a commit are one commit";
}

TEST_F(RouterDescriptions, EndDuringACommit) {
  ASSERT_EQ(kvtree_keep_configuration(directory_.path()), kStatusOk);
  AddVrf("red", 10, "Red");
  Start();
  Describe("red", "redder");
  event_run_pending(manager_);
  descriptions_.reset();
  Run();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description redder"));
}

TEST_F(RouterDescriptions, ChangeThatIsRevertedMakesNoCommit) {
  AddVrf("red", 10, "Red");
  Start();
  Describe("red", "other");
  Describe("red", "Red");
  Run();
  EXPECT_EQ(commit_count(), 1U);
}

TEST_F(RouterDescriptions, EveryOtherOwnerOverridesThem) {
  AddVrf("red", 10, "Red");
  Start();
  const KvConfigNode node = vrf_config::description("red", "configured");
  for (const std::string_view owner : {kConfigOwnerCli, kConfigOwnerFile, kConfigOwnerFrr}) {
    ASSERT_EQ(kvtree_config_commit(owner, {{node.path, node.value}}, ""), kStatusOk);
    EXPECT_THAT(words_in_force(), ElementsAre("vrf red description configured")) << owner;
    ASSERT_EQ(kvtree_config_commit(owner, {{node.path, std::nullopt}}, ""), kStatusOk);
    EXPECT_THAT(words_in_force(), ElementsAre("vrf red description Red")) << owner;
  }
}

TEST_F(RouterDescriptions, FailedCommitIsRetriedAfterASecondWithoutAChange) {
  ManualClock clock(kNanosecondsPerSecond);
  AddVrf("red", 10, "Red");
  Start();
  fault_arm("kvtree_config_commit", kStatusIo);
  Describe("red", "redder");
  Run();
  EXPECT_EQ(fault_reached("kvtree_config_commit"), 1U);
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description Red"));
  clock.tick(kNanosecondsPerSecond);
  Run();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red description redder"));
}

TEST_F(RouterDescriptions, FailedLoadIsReported) {
  AddVrf("red", 10, "Red");
  const ScopedFault fault("kvtree_config_replace", kStatusIo);
  EXPECT_EQ(descriptions_->load(&error_), kStatusIo);
  EXPECT_EQ(error_, std::string("cannot store the descriptions of VRFs: ") + err_text(kStatusIo));
}

TEST_F(RouterDescriptions, NextProcessReplacesThem) {
  AddVrf("red", 10, "Red");
  Start();
  descriptions_ = std::make_unique<VrfDescriptions>(&router_);
  ASSERT_EQ(router_.delete_vrf("red"), kStatusOk);
  Start();
  EXPECT_THAT(words_in_force(), IsEmpty());
}

TEST_F(RouterDescriptions, ReleaseRemovesThem) {
  AddVrf("red", 10, "Red");
  Start();
  ASSERT_EQ(VrfDescriptions::remove_configured(&error_), kStatusOk) << error_;
  EXPECT_THAT(words_in_force(), IsEmpty());
}

}  // namespace
