// The configuration of a router file: each load commits the difference.
#include "platform/config/test_support.h"
#include "platform/store/configuration/configuration.h"
#include "sources/file/file_source_test_support.h"
#include "sources/large_configuration_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vrf_config::commit_count;
using vrf_config::words_in_force;

class ConfigurationOnDisk : public RouterOnDisk {
 protected:
  ConfigurationOnDisk() { Keep(); }
  void Keep() const { ASSERT_EQ(kvtree_keep_configuration(directory_.path()), kStatusOk); }
  // As a new process.
  void Restart() {
    source_.reset();
    kvtree_reset();
    router_ = std::make_unique<router::Router>();
    Keep();
    source_ = std::make_unique<FileSource>(router_.get(), path_);
  }
};

constexpr char kRed[] = "vrfs: [{name: red, id: 10, description: Red, rip: {interfaces: [ge0]}}]\n";

TEST_F(ConfigurationOnDisk, LoadMakesItEffective) {
  LoadWell(kRed);
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description Red"));
  std::vector<KvConfigCommit> commits;
  ASSERT_EQ(kvtree_config_history(100, {}, &commits), kStatusOk);
  ASSERT_EQ(commits.size(), 1U);
  EXPECT_EQ(commits[0].owner, kConfigOwnerFile);
  EXPECT_EQ(commits[0].comment, "router file " + path_);
}

TEST_F(ConfigurationOnDisk, NextLoadChangesWhatDiffers) {
  LoadWell(kRed);
  LoadWell("vrfs: [{name: red, id: 10, description: Red}]\ntraps: {vrf-up: true}\n");
  EXPECT_THAT(words_in_force(), ElementsAre("traps vrf-up", "vrf red description Red"));
  EXPECT_EQ(commit_count(), 2U);
  LoadWell("vrfs: [{name: red, id: 10, description: Red, big: true}]\ntraps: {vrf-up: true}\n");
  EXPECT_EQ(commit_count(), 2U) << "only the router changed";
  LoadWell("vrfs: []\n");
  EXPECT_THAT(words_in_force(), IsEmpty());
}

TEST_F(ConfigurationOnDisk, TenThousandConfiguredVrfsAreLoadedAndRemoved) {
  constexpr unsigned kVrfs = 10000;
  LoadWell(router_file_text(kVrfs));
  EXPECT_EQ(vrf_config::words_owned(kConfigOwnerFile).size(), kVrfs * kNodesOfFilesVrf);
  LoadWell(router_file_text(1, false));
  EXPECT_THAT(vrf_config::words_owned(kConfigOwnerFile), IsEmpty());
}

TEST_F(ConfigurationOnDisk, FormatOfAsNumbersFollowsItsKey) {
  LoadWell("vrfs: []\nas_format: asdot\n");
  EXPECT_THAT(words_in_force(), ElementsAre("bgp as-format asdot"));
  LoadWell("vrfs: []\nas_format: asdot+\n");
  EXPECT_THAT(words_in_force(), ElementsAre("bgp as-format asdot+"));
  LoadWell("vrfs: []\n");
  EXPECT_THAT(words_in_force(), IsEmpty());
}

TEST_F(ConfigurationOnDisk, ErrorInTheFileChangesNothing) {
  LoadWell(kRed);
  EXPECT_EQ(Load("vrfs: [{name: red, id: 10, description: New, rip: {interfaces: ge0}}]\n"), kStatusInvalid);
  EXPECT_EQ(error_, path_ + ":1:64: interfaces are written as a list");
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description Red"));
  EXPECT_EQ(commit_count(), 1U);
}

TEST_F(ConfigurationOnDisk, CommitThatFailsEndsTheLoadWithoutAChange) {
  LoadWell(kRed);
  const ScopedFault fault("kvtree_config_replace", kStatusIo);
  EXPECT_EQ(Load("vrfs: [{name: blue, id: 20, description: Blue}]\n"), kStatusIo);
  EXPECT_EQ(error_, path_ + ": cannot change the configuration: " + err_text(kStatusIo));
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description Red"));
  EXPECT_NE(router_->find_vrf("red"), nullptr);
  EXPECT_EQ(router_->find_vrf("blue"), nullptr);
}

TEST_F(ConfigurationOnDisk, SameFileAfterARestartMakesNoCommit) {
  LoadWell(kRed);
  Restart();
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description Red"))
      << "before the load";
  LoadWell(kRed);
  EXPECT_EQ(commit_count(), 1U);
}

TEST_F(ConfigurationOnDisk, CommandLineOverridesTheFile) {
  const KvConfigNode said = vrf_config::description("red", "by hand");
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{said.path, said.value}}, ""), kStatusOk);
  LoadWell(kRed);
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description \"by hand\""));
  ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{said.path, std::nullopt}}, ""), kStatusOk);
  EXPECT_THAT(words_in_force(), ElementsAre("vrf red rip interface ge0", "vrf red description Red"));
}

TEST_F(ConfigurationOnDisk, ReloadReportsWhatChanged) {
  LoadWell("vrfs: [{name: red, id: 10}]\n");
  Start();
  std::string answer;
  std::ofstream(path_) << "vrfs: [{name: red, id: 10, rip: {interfaces: [ge0]}}]\n";
  ASSERT_EQ(Act({"router", "reload"}, &answer), kStatusOk);
  EXPECT_EQ(answer, path_ + " loaded: configuration changed (commit 1)");
  std::ofstream(path_) << "vrfs: [{name: red, id: 10, description: Red, rip: {interfaces: [ge0]}}]\n";
  ASSERT_EQ(Act({"router", "reload"}, &answer), kStatusOk);
  EXPECT_EQ(answer, path_ + " loaded: 1 VRF changed, configuration changed (commit 2)");
}

TEST_F(ConfigurationOnDisk, ReleaseRemovesEverything) {
  LoadWell(kRed);
  ASSERT_EQ(FileSource::remove_configured(&error_), kStatusOk) << error_;
  EXPECT_THAT(words_in_force(), IsEmpty());
}

}  // namespace
