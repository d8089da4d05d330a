// "show thresholds" against a data store and a router model in this process.
#include <gmock/gmock.h>

#include "cli/served_test_fixture.h"
#include "platform/config/items.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/route_watch/route_watch.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using vrf_config::Kind;

class ShowThresholds : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    ASSERT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
    router::Vrf red;
    red.name = "red";
    red.id = 2;
    red.ipv4_table = red.ipv6_table = 10;
    ASSERT_EQ(router_.create_vrf(red), kStatusOk);
    const router::Route route = router::MakeRoute("10.1.0.0/16");
    ASSERT_EQ(router_.routes().put({router::Family::kIpv4, 10}, route), kStatusOk);
  }
  void TearDown() override {
    route_watch_detach();
    ServedCommandLine::TearDown();
  }
  static void Set(Kind kind, const vrf_config::Fields& fields) {
    const KvConfigNode node = vrf_config::node_of(kind, fields);
    ASSERT_EQ(kvtree_set(node.path, node.value), kStatusOk);
  }
  void Configure() {
    Set(Kind::kLowWater, {.vrf = "red", .number = 5, .mid = 0});
    Set(Kind::kThreshold, {.vrf = "red", .family = vrf_config::Family::kIpv6, .number = 1000, .mid = 800});
    Set(Kind::kWatchedPrefix, {.vrf = "red", .prefix = "10.1.0.0/16"});
    Set(Kind::kWatchedPrefix, {.vrf = "red", .prefix = "2001:db8::/32"});
    event_run_pending(manager_);
  }
  router::Router router_;
};

TEST_F(ShowThresholds, TextHasTablesAndThenPrefixes) {
  Configure();
  EXPECT_THAT(AskForText({"show", "thresholds"}),
              MatchesRegex("VRF  FAMILY  ROUTES  LOW       FOR  MID  MAXIMUM  STATE  LOW CHANGED\n"
                           "red  ipv4         1    5  00:00:00    -        -  low    20[^\n]+\n"
                           "red  ipv6         0    -         -  800     1000  ok     -\n"
                           "\n"
                           "VRF  PREFIX         STATE    CHANGED\n"
                           "red  10\\.1\\.0\\.0/16    present  20[^\n]+\n"
                           "red  2001:db8::/32  absent   -\n"));
}

TEST_F(ShowThresholds, JsonHasNullForWhatIsNotConfigured) {
  Configure();
  const Json shown = AskForJson({"show", "thresholds"});
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0]["tables"][1], (Json{{"family", "ipv6"},
                                         {"routes", 0},
                                         {"low", nullptr},
                                         {"lowSeconds", nullptr},
                                         {"mid", 800},
                                         {"maximum", 1000},
                                         {"state", "ok"},
                                         {"lowChanged", nullptr},
                                         {"lowChangedText", nullptr}}));
  EXPECT_EQ(shown[0]["prefixes"][1], (Json{{"prefix", "2001:db8::/32"},
                                           {"watched", true},
                                           {"present", false},
                                           {"changed", nullptr},
                                           {"changedText", nullptr}}));
  EXPECT_EQ(shown[0]["notWatched"], 0);
}

TEST_F(ShowThresholds, PrefixesBeyondTheLimitAreNotWatched) {
  for (int n = 0; n < 1002; ++n) {
    const std::string prefix = "10." + std::to_string(n / 256) + "." + std::to_string(n % 256) + ".0/24";
    Set(Kind::kWatchedPrefix, {.vrf = "red", .prefix = prefix});
  }
  event_run_pending(manager_);
  const Json shown = AskForJson({"show", "thresholds"});
  EXPECT_EQ(shown[0]["notWatched"], 2);
  EXPECT_EQ(shown[0]["prefixes"].back(), (Json{{"prefix", "10.3.233.0/24"},
                                               {"watched", false},
                                               {"present", nullptr},
                                               {"changed", nullptr},
                                               {"changedText", nullptr}}));
  const std::string text = AskForText({"show", "thresholds"});
  EXPECT_THAT(text, HasSubstr("red  10.3.233.0/24  not watched  -\n"));
  EXPECT_THAT(text, HasSubstr("\n2 prefixes are not watched: 1000 of all VRFs are the limit\n"));
}

TEST_F(ShowThresholds, WatchedVrfThatDoesNotExistIsShown) {
  Set(Kind::kLowWater, {.vrf = "absent", .number = 5, .mid = 0});
  event_run_pending(manager_);
  const Json shown = AskForJson({"show", "thresholds", "absent"});
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0]["tables"][0]["state"], "low");
  EXPECT_NE(Ask({"show", "thresholds", "neither"}), kExitOk);
}

TEST_F(ShowThresholds, NothingConfiguredIsAnEmptyTable) {
  EXPECT_EQ(AskForText({"show", "thresholds"}),
            "VRF  FAMILY  ROUTES  LOW  FOR  MID  MAXIMUM  STATE  LOW CHANGED\n");
}

}  // namespace
}  // namespace cli
