// The notifications' names, object identifiers and items, as RFC 4382 section 6 numbers them.
#include "mpls/vpn/mib/src/traps/info.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(TrapInfo, NotificationsAreNumberedFromVrfUpOn) {
  const std::uint32_t prefix[] = {1, 3, 6, 1, 2, 1, 10, 166, 11, 0};
  for (std::uint32_t row = kTrapVrfUp; row <= kTrapMaxThreshCleared; ++row) {
    const MplsVpnTrapInfo& trap = mpls_vpn_mib_trap_info[row];
    EXPECT_TRUE(std::equal(std::begin(prefix), std::end(prefix), trap.oid)) << trap.notification;
    EXPECT_EQ(trap.oid[10], row + 1) << trap.notification;
  }
}

TEST(TrapInfo, RowsHaveTheirNotificationsAndItems) {
  const char* const rows[kMplsVpnTrapRows][2] = {
      {"mplsL3VpnVrfUp", "vrf-up"},
      {"mplsL3VpnVrfDown", "vrf-down"},
      {"mplsL3VpnVrfRouteMidThreshExceeded", "mid-thresh-exc"},
      {"mplsL3VpnVrfNumVrfRouteMaxThreshExceeded", "max-thresh-exc"},
      {"mplsL3VpnNumVrfSecIllglLblThrshExcd", "ilg-lbl-exc"},
      {"mplsL3VpnNumVrfRouteMaxThreshCleared", "max-thresh-clr"},
      {"", "all"},
      {"", "notif-reissue-time"}};
  for (unsigned i = 0; i < kMplsVpnTrapRows; ++i) {
    EXPECT_STREQ(mpls_vpn_mib_trap_info[i].notification, rows[i][0]);
    EXPECT_STREQ(mpls_vpn_mib_trap_info[i].item_name, rows[i][1]);
  }
}

TEST(TrapInfo, EverySwitchStartsOff) {
  for (const MplsVpnTrapInfo& trap : mpls_vpn_mib_trap_info) EXPECT_EQ(trap.enabled, 0U) << trap.item_name;
  EXPECT_EQ(notif_reissue_time, 0U);
}

}  // namespace
