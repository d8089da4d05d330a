// "show traps" against a data store in this process.
#include <gmock/gmock.h>

#include <cstdlib>

#include "cli/served_test_fixture.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/store/history/history.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr std::uint64_t kNoon = 1'767'268'800 * kNanosecondsPerSecond;  // 2026-01-01T12:00:00Z

class ShowTraps : public ServedCommandLine {
 protected:
  void SetUp() override {
    ServedCommandLine::SetUp();
    ASSERT_EQ(kvtree_retain_notifications("/oper/mpls_vpn/gl/", "snmp", 10), kStatusOk);
    ASSERT_EQ(notification_history_start(manager_, {"/oper/mpls_vpn/gl/", "snmp", "", 6,
                                                    [](const KvProviderNotification& notification) {
                                                      return std::optional<std::uint32_t>(notification.first);
                                                    }}),
              kStatusOk);
  }
  void TearDown() override {
    notification_history_stop();
    ServedCommandLine::TearDown();
  }
  void Raise(const mpls_vpn_mib_trap& trap) {
    std::uint8_t* data = nullptr;
    std::size_t length = 0;
    ASSERT_EQ(parcel_encode(&kMibTrapParcel, &trap, &data, &length), kStatusOk);
    const KvProviderNotification notification{"trap_msg", trap.trapType, kKvKindRecord, {}, data, length};
    EXPECT_EQ(kvtree_prov_notify(provider_, &notification), kStatusOk);
    std::free(data);
    clock_.advance(1250 * kNanosecondsPerMillisecond);
  }
  void RaiseBoth() {
    Raise({1, red_.data(), 7, 2, 1, 0, 0, 0, 0});
    Raise({3, red_.data(), 0, 0, 0, 0, 100, 101, 0});
  }

  ManualClock clock_{kNoon};
  std::string red_ = "red";
};

TEST_F(ShowTraps, TextHasTheNumbersAndALineForEachTrap) {
  RaiseBoth();
  EXPECT_EQ(AskForText({"show", "traps"}),
            "NOTIFICATION                              RAISED\n"
            "mplsL3VpnVrfUp                                 0\n"
            "mplsL3VpnVrfDown                               1\n"
            "mplsL3VpnVrfRouteMidThreshExceeded             0\n"
            "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded       1\n"
            "mplsL3VpnNumVrfSecIllglLblThrshExcd            0\n"
            "mplsL3VpnNumVrfRouteMaxThreshCleared           0\n"
            "\n"
            "waiting for snmpd: 2\n"
            "\n"
            "TIME                      NOTIFICATION                              VRF  DETAILS\n"
            "2026-01-01T12:00:00.000Z  mplsL3VpnVrfDown                          red  interface 7 vrf down\n"
            "2026-01-01T12:00:01.250Z  mplsL3VpnVrfNumVrfRouteMaxThreshExceeded  red  routes 101 high "
            "threshold 100\n");
}

TEST_F(ShowTraps, JsonHasTheNamesAndNumbersOfTheMib) {
  RaiseBoth();
  const Json shown = AskForJson({"show", "traps", "--last", "1"});
  EXPECT_EQ(shown["waiting"], 2);
  ASSERT_EQ(shown["raised"].size(), 6U);
  EXPECT_EQ(shown["raised"][5], (Json{{"notification", "mplsL3VpnNumVrfRouteMaxThreshCleared"},
                                      {"notificationOid", "1.3.6.1.2.1.10.166.11.0.6"},
                                      {"trapType", 5},
                                      {"count", 0}}));
  EXPECT_THAT(shown["traps"], ElementsAre(Json{{"number", 2},
                                               {"time", kNoon / kNanosecondsPerSecond + 1},
                                               {"timeText", "2026-01-01T12:00:01.250Z"},
                                               {"notification", "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded"},
                                               {"notificationOid", "1.3.6.1.2.1.10.166.11.0.4"},
                                               {"trapType", 3},
                                               {"vrfName", "red"},
                                               {"ifConfIndex", 0},
                                               {"vrfOperStatus", 0},
                                               {"vrfOperStatusName", nullptr},
                                               {"ifConfRowStatus", 0},
                                               {"ifConfRowStatusName", nullptr},
                                               {"midThresh", 0},
                                               {"highThresh", 100},
                                               {"currNumRoutes", 101},
                                               {"illegalLabelViolations", 0}}));
}

TEST_F(ShowTraps, NamesCannotSteerTheTerminal) {
  red_ = "a\x1b[2J";
  RaiseBoth();
  EXPECT_THAT(AskForText({"show", "traps"}), HasSubstr("a\\x1b[2J"));
}

TEST_F(ShowTraps, DaemonWithoutAHistoryIsAFailure) {
  notification_history_stop();
  EXPECT_EQ(Ask({"show", "traps"}), kExitFailed);
  EXPECT_EQ(Out(), "");
}

TEST_F(ShowTraps, MoreThanAreStoredAreAUsageError) {
  EXPECT_EQ(Ask({"show", "traps", "--last", "501"}), kExitUsage);
}

}  // namespace
}  // namespace cli
