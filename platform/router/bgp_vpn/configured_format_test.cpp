// The configured AS number format: what subscribers of route targets and the RD callback get when it changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/bgp_vpn/rd_test_support.h"
#include "platform/store/configuration/configuration.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using vrf_config::Direction;
using vrf_config::Family;

// Stores route targets by their text, as subscribers do.
struct TargetTable {
  std::multiset<std::string> rows;
  std::vector<std::string> reports;  // "+text" and "-text"
  std::size_t fewest = SIZE_MAX;
  std::size_t misses = 0;  // deletions of unknown targets

  static TargetTable& instance() {
    static TargetTable table;
    return table;
  }
  void take(const KvNotifyInfo* info, const RequestArgs* args) {
    std::array<char, 50> text{};
    std::uint32_t afi = 0;
    std::uint32_t safi = 0;
    ASSERT_EQ(bgp_vpn_extract_rt(args, text.size(), text.data(), &afi, &safi), kStatusOk);
    const std::string row = std::string(args->arg[0].text) + " " + text.data();
    if ((info->whichevent & kKvEventDeleted) == 0) {
      rows.insert(row);
      reports.push_back("+" + row);
    } else {
      const auto found = rows.find(row);
      found == rows.end() ? static_cast<void>(++misses) : static_cast<void>(rows.erase(found));
      reports.push_back("-" + row);
    }
    fewest = std::min(fewest, rows.size());
  }
};

void take_target(const KvNotifyInfo* info, const RequestArgs* args) {
  TargetTable::instance().take(info, args);
}
constexpr KvPathRow kPaths[] = {
    {"vrf/<s>/ord_z/afi_safi/<n>/<n>/default/ord_b/bgp/ord_c/import-rt/<n>/<n>/<n>/<n>/<ip4>/<n>/<n>",
     {0, take_target, nullptr, nullptr, nullptr}}};
constexpr KvPathTable kTable{kPaths, std::size(kPaths)};
void take_notification(const KvNotification* notification) {
  kvtree_match_notify(notification, &kTable);
}

class ConfiguredFormat : public RdTest {
 protected:
  ConfiguredFormat() { table() = {}; }
  static TargetTable& table() { return TargetTable::instance(); }
  void Subscribe() {
    ASSERT_EQ(kvtree_bind(&connection_, "/cfg/gl/vmap/", kKvBindConfiguration), kStatusOk);
    ASSERT_EQ(kvtree_register_notification(connection_, "", kKvEventCreated | kKvEventSet | kKvEventDeleted,
                                           take_notification, manager_.get(), 0, 0, 0, nullptr),
              kStatusOk);
  }
  // Not delivered before Run().
  static void Post(const std::vector<KvConfigChange>& changes, std::string_view owner = kConfigOwnerCli) {
    ASSERT_EQ(kvtree_config_commit(owner, changes, ""), kStatusOk);
  }
  void Commit(const std::vector<KvConfigChange>& changes, std::string_view owner = kConfigOwnerCli) const {
    Post(changes, owner);
    Run();
  }
  static KvConfigChange NoFormat() { return {vrf_config::as_format({}).path, std::nullopt}; }
  static KvConfigChange Target(const std::string& text, const std::string& vrf = "red") {
    const KvConfigNode node = vrf_config::route_target(vrf, Family::kIpv4, Direction::kImport,
                                                       vrf_config::parse_target(text).value());
    return {node.path, node.value};
  }
  static KvConfigChange NoTarget(const std::string& text) { return {Target(text).path, std::nullopt}; }
  static std::vector<std::string> Rows() { return {table().rows.begin(), table().rows.end()}; }
  static std::vector<std::string> TakeTargetReports() { return std::exchange(table().reports, {}); }

  KvConnection* connection_ = nullptr;
  std::array<char, 1024> buffer_{};
};

class SubscribedFormat : public ConfiguredFormat {
 protected:
  void SetUp() override {
    FollowFormat();
    Subscribe();
  }
};

TEST_F(ConfiguredFormat, IsEffectiveWhenFollowingStarts) {
  Post({Format("asdot")});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  FollowFormat();
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdot);
  Post({Target("4200000000:30")});
  Subscribe();
  EXPECT_THAT(Rows(), ElementsAre("red 64086.59904:30"));
}

TEST_F(SubscribedFormat, ChangeReportsRouteTargetsAsDeletedInTheOldAndSetInTheNewFormat) {
  Commit({Target("4200000000:30"), Target("65536:1", "blue")});
  TakeTargetReports();
  Commit({Format("asdot")});
  EXPECT_THAT(TakeTargetReports(),
              ElementsAre("-blue 65536:1", "+blue 1.0:1", "-red 4200000000:30", "+red 64086.59904:30"));
  Commit({NoFormat()});
  EXPECT_THAT(Rows(), ElementsAre("blue 65536:1", "red 4200000000:30"));
  EXPECT_EQ(table().misses, 0U);
}

TEST_F(SubscribedFormat, RouteTargetsWithTheSameTextAreNotReported) {
  Commit({Target("65000:100"), Target("0.65000:100"), Target("10.0.0.1:5"), Target("65535:4294967295")});
  TakeTargetReports();
  Commit({Format("asdot")});
  Commit({Format("asdot+")});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdotPlus);
  EXPECT_THAT(TakeTargetReports(), IsEmpty());
  EXPECT_THAT(Rows(),
              ElementsAre("red 0.65000:100", "red 10.0.0.1:5", "red 65000:100", "red 65535:4294967295"));
}

TEST_F(SubscribedFormat, OneRouteTargetAtMostIsMissingMeanwhile) {
  std::vector<KvConfigChange> targets;
  for (int n = 0; n < 1000; ++n) targets.push_back(Target("4200000000:" + std::to_string(n)));
  Commit(targets);
  table().fewest = SIZE_MAX;
  Commit({Format("asdot")});
  EXPECT_EQ(table().rows.size(), 1000U);
  EXPECT_EQ(table().fewest, 999U);
  EXPECT_EQ(table().misses, 0U);
}

// Each of these changes the tree at once and is delivered after the change of the format.
TEST_F(SubscribedFormat, ChangesMeanwhileAreReportedOnce) {
  Commit({Target("65536:1"), Target("65536:2"), Target("65536:3")});
  Post({Target("65536:4"), Format("asdot"), Target("65536:5"), NoTarget("65536:1")});
  Post({NoTarget("65536:2"), Target("65536:6")});
  Post({Format("asplain")});
  Post({Target("65536:2"), NoTarget("65536:3")});
  Post({Format("asdot+")});
  Run();
  EXPECT_THAT(Rows(), ElementsAre("red 1.0:2", "red 1.0:4", "red 1.0:5", "red 1.0:6"));
  EXPECT_EQ(table().misses, 0U);
}

TEST_F(SubscribedFormat, ChangeTakesEffectAfterTheRouteTargetsAreReported) {
  Commit({Target("65536:1")});
  Post({Format("asdot")});
  EventContext context{manager_.get(), buffer_.data(), buffer_.size(), 0};
  ASSERT_EQ(event_wait_for(&context, 0), 0);
  event_dispatch(&context);  // the notification, which posts further events
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  Run();
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdot);
}

TEST_F(ConfiguredFormat, RdsAreReportedInTheNewFormat) {
  const KvConfigNode rd =
      vrf_config::route_distinguisher("red", Family::kIpv4, vrf_config::parse_target("4200000000:1").value());
  const KvConfigNode small =
      vrf_config::route_distinguisher("blue", Family::kIpv4, vrf_config::parse_target("0.65000:1").value());
  Post({{rd.path, rd.value}, {small.path, small.value}});
  FollowFormat();
  Register();
  Commit({Format("asdot")});
  EXPECT_THAT(TakeReported(), ElementsAre("set red 64086.59904:1"));
  Commit({NoFormat()});
  EXPECT_THAT(TakeReported(), ElementsAre("set red 4200000000:1"));
}

TEST_F(ConfiguredFormat, FormatOfALowerOwnerTakesEffectWhenTheHigherReleasesIts) {
  FollowFormat();
  Commit({Format("asdot")}, kConfigOwnerFile);
  Commit({Format("asplain")});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  Commit({NoFormat()});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdot);
}

TEST_F(ConfiguredFormat, OtherTextsAreAsplainAndLogged) {
  FollowFormat();
  Commit({Format("asdot")});
  ::testing::internal::CaptureStderr();
  Commit({Format("dotted")});
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("\"dotted\" is not a format of AS numbers"));
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  Commit({Format("asdot")});
  Commit({{vrf_config::as_format({}).path, KvValue{}}});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
}

TEST_F(ConfiguredFormat, OtherItemsAreIgnored) {
  FollowFormat();
  KvValue text;
  text.type = KvValueType::kText;
  text.text = "asdot";
  Commit({{"/cfg/gl/bgp-common/other/as-format", text}, {"/cfg/gl/bgp-common/as-format-2", text}});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
}

TEST_F(SubscribedFormat, IsUnchangedWhenTheRouteTargetsCannotBeReported) {
  Commit({Target("65536:1")});
  fault_arm("kvtree_config_replay_each", kStatusNoMemory);
  ::testing::internal::CaptureStderr();
  Commit({Format("asdot")});
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("the format of AS numbers stays as it was"));
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  EXPECT_THAT(Rows(), ElementsAre("red 65536:1"));
  Commit({Format("asdot+")});
  EXPECT_THAT(Rows(), ElementsAre("red 1.0:1"));
}

TEST_F(SubscribedFormat, StoppedFollowingIgnoresChanges) {
  Commit({Target("65536:1")});
  Post({Format("asdot")});
  bgp_vpn_rd_unregister_cb();
  Run();
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  EXPECT_THAT(Rows(), ElementsAre("red 65536:1"));
  FollowFormat();
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdot);
}

TEST_F(ConfiguredFormat, IsFollowedOnce) {
  FollowFormat();
  EXPECT_EQ(bgp_util_asn_format_init_notify(manager_.get()), kStatusExists);
  Commit({Format("asdot")});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdot);
}

TEST_F(ConfiguredFormat, FailedSubscriptionFollowsNothing) {
  Post({Format("asdot")});
  for (const char* point : {"kvtree_bind", "kvtree_register_notification"}) {
    fault_arm(point, kStatusNoMemory);
    EXPECT_EQ(bgp_util_asn_format_init_notify(manager_.get()), kStatusNoMemory) << point;
    EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  }
  Commit({Format("asdot+")});
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsplain);
  FollowFormat();
  EXPECT_EQ(bgp_util_asn_format_get(), BgpAsnFormat::kAsdotPlus);
}

}  // namespace
