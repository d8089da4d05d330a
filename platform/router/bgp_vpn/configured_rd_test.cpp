// Configured route distinguishers: which one is effective, and what is reported.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/bgp_vpn/rd_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using vrf_config::Family;

class ConfiguredRd : public RdTest {
 protected:
  static KvConfigNode Node(const std::string& vrf, Family family, const std::string& rd) {
    return vrf_config::route_distinguisher(vrf, family, vrf_config::parse_target(rd).value());
  }
  static void Configure(const std::string& vrf, const std::string& rd, Family family = Family::kIpv4,
                        std::string_view owner = kConfigOwnerCli) {
    const KvConfigNode node = Node(vrf, family, rd);
    ASSERT_EQ(kvtree_config_commit(owner, {{node.path, node.value}}, ""), kStatusOk);
  }
  static void Remove(const std::string& vrf, Family family = Family::kIpv4) {
    ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {{Node(vrf, family, "1:1").path, std::nullopt}}, ""),
              kStatusOk);
  }
};

TEST_F(ConfiguredRd, WinsOverTheModels) {
  AddVrf("red", "65000:1");
  Configure("red", "65000:2");
  EXPECT_EQ(Rd("red"), "65000:2");
  Remove("red");
  EXPECT_EQ(Rd("red"), "65000:1");
}

TEST_F(ConfiguredRd, OfTheLowestFamilyCounts) {
  AddVrf("red", "");
  Configure("red", "65000:6", Family::kIpv6);
  EXPECT_EQ(Rd("red"), "65000:6");
  Configure("red", "65000:4", Family::kIpv4);
  EXPECT_EQ(Rd("red"), "65000:4");
  Remove("red", Family::kIpv4);
  EXPECT_EQ(Rd("red"), "65000:6");
}

TEST_F(ConfiguredRd, OfEvpnCountsWhenNoAddressFamilyHasOne) {
  AddVrf("red", "");
  Configure("red", "65000:25", Family::kEvpn);
  EXPECT_EQ(Rd("red"), "65000:25");
  Configure("red", "65000:6", Family::kIpv6);
  EXPECT_EQ(Rd("red"), "65000:6");
}

TEST_F(ConfiguredRd, OfAVrfThatDoesNotExistIsReturned) {
  Configure("later", "65000:7");
  EXPECT_EQ(Rd("later"), "65000:7");
  EXPECT_EQ(Rd("late"), err_text(kStatusNoSuchRow));
  AddVrf("later", "");
  EXPECT_EQ(Rd("later"), "65000:7");
}

TEST_F(ConfiguredRd, OfAnOddNameIsFound) {
  Configure("a b/c%", "65000:8");
  EXPECT_EQ(Rd("a b/c%"), "65000:8");
}

TEST_F(ConfiguredRd, IsShownInTheEffectiveFormat) {
  Configure("red", "4200000000:30");
  SetFormat("asdot");
  FollowFormat();
  EXPECT_EQ(Rd("red"), "64086.59904:30");
}

TEST_F(ConfiguredRd, ExistingRdsAreReportedBeforeTheRegistrationReturns) {
  AddVrf("red", "65000:1");
  Configure("red", "65000:2");
  Configure("named", "65000:4");
  ASSERT_EQ(bgp_vpn_rd_register_cb(manager_.get(), &Note), kStatusOk);
  EXPECT_THAT(std::exchange(reported(), {}), ElementsAre("set named 65000:4", "set red 65000:2"));
  EXPECT_THAT(TakeReported(), IsEmpty());
  Configure("red", "65000:3");
  EXPECT_THAT(TakeReported(), ElementsAre("set red 65000:3"));
}

TEST_F(ConfiguredRd, ConfiguredRdOfACreatedVrfIsReported) {
  Configure("later", "65000:7");
  Register();
  AddVrf("later", "65000:1");
  EXPECT_THAT(TakeReported(), ElementsAre("set later 65000:7"));
}

TEST_F(ConfiguredRd, ChangesAreReportedOnTheLoopAndFallBackToTheModel) {
  AddVrf("red", "65000:1");
  Register();
  Configure("red", "65000:2");
  EXPECT_THAT(reported(), IsEmpty()) << "before the loop ran";
  EXPECT_THAT(TakeReported(), ElementsAre("set red 65000:2"));
  Remove("red");
  EXPECT_THAT(TakeReported(), ElementsAre("set red 65000:1"));
}

TEST_F(ConfiguredRd, RemovingTheLastOneReportsADeletion) {
  Register();
  Configure("named", "65000:2");
  Remove("named");
  Configure("named", "65000:3");
  Remove("named");
  EXPECT_THAT(TakeReported(), IsEmpty()) << "set and removed before the loop ran";
  Configure("named", "65000:4");
  EXPECT_THAT(TakeReported(), ElementsAre("set named 65000:4"));
  Remove("named");
  EXPECT_THAT(TakeReported(), ElementsAre("deletion named -"));
}

TEST_F(ConfiguredRd, ChangeWithoutEffectIsNotReported) {
  AddVrf("red", "65000:1");
  Register();
  Configure("red", "65000:1");
  EXPECT_THAT(TakeReported(), IsEmpty());
  Configure("red", "65000:9", Family::kIpv6);
  EXPECT_THAT(TakeReported(), IsEmpty());
  Configure("red", "65000:1", Family::kIpv4, kConfigOwnerFile);
  EXPECT_THAT(TakeReported(), IsEmpty());
  Remove("red", Family::kIpv6);
  EXPECT_THAT(TakeReported(), IsEmpty());
}

TEST_F(ConfiguredRd, ChangeOfTheModelBelowAConfiguredRdIsNotReported) {
  AddVrf("red", "65000:1");
  Configure("red", "65000:2");
  Register();
  ChangeRd("red", "65000:3");
  EXPECT_THAT(TakeReported(), IsEmpty());
  Remove("red");
  EXPECT_THAT(TakeReported(), ElementsAre("set red 65000:3"));
}

TEST_F(ConfiguredRd, ConfiguredWhileTheModelsIsPendingIsReportedLast) {
  Register();
  FillFeed();
  AddVrf("red", "65000:1");
  Configure("red", "65000:2");
  EXPECT_EQ(TakeReported().back(), "set red 65000:2");
}

TEST_F(ConfiguredRd, OtherItemsAreNotReported) {
  AddVrf("red", "65000:1");
  Register();
  const KvConfigNode description = vrf_config::description("red", "rd");
  ASSERT_EQ(kvtree_config_commit("cli", {{description.path, description.value}}, ""), kStatusOk);
  KvValue text;
  text.type = KvValueType::kText;
  text.text = "65000:5";
  ASSERT_EQ(kvtree_config_commit("cli", {{"/cfg/gl/vmap/other/rd", text}}, ""), kStatusOk);
  EXPECT_THAT(TakeReported(), IsEmpty());
}

TEST_F(ConfiguredRd, ValueThatIsNotATextIsIgnored) {
  KvConfigNode node = Node("red", Family::kIpv4, "65000:1");
  node.value = {};
  ASSERT_EQ(kvtree_config_commit("cli", {{node.path, node.value}}, ""), kStatusOk);
  EXPECT_EQ(Rd("red"), err_text(kStatusNoSuchRow));
}

TEST_F(ConfiguredRd, FormatChangeIsReportedOnceForEveryVrf) {
  AddVrf("blue", "4200000000:1");
  AddVrf("red", "4200000000:2");
  Configure("red", "4200000000:3");
  Configure("named", "4200000000:4");
  FollowFormat();
  Register();
  SetFormat("asdot");
  EXPECT_THAT(TakeReported(),
              ElementsAre("set blue 64086.59904:1", "set named 64086.59904:4", "set red 64086.59904:3"));
}

TEST_F(ConfiguredRd, FailedSubscriptionLeavesNoCallback) {
  for (const char* point : {"kvtree_bind", "kvtree_register_notification"}) {
    fault_arm(point, kStatusNoMemory);
    EXPECT_EQ(bgp_vpn_rd_register_cb(manager_.get(), &Note), kStatusNoMemory) << point;
  }
  Configure("red", "65000:2");
  EXPECT_THAT(TakeReported(), IsEmpty());
  Register();
}

}  // namespace
