// The switches of the notifications, and the delivery of one to a watching client.
#include "mpls/vpn/mib/src/traps/notification.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "mpls/vpn/mib/src/traps/switches.h"
#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class TrapSwitches : public TrapTest {
 protected:
  static KvValue Number(std::int64_t number) {
    KvValue value;
    value.type = KvValueType::kNumber;
    value.number = number;
    return value;
  }
  static void Set(const char* item, const KvValue& value = Number(0)) {
    const KvNotifyInfo info = {item, kKvEventCreated | kKvEventSet, &value};
    traps_notify(&info);
  }
  static void Delete(const char* item, const KvValue* value = nullptr) {
    const KvNotifyInfo info = {item, kKvEventDeleted, value};
    traps_notify(&info);
  }
  static std::vector<std::uint32_t> Enabled() {
    std::vector<std::uint32_t> rows;
    for (std::uint32_t row = 0; row < kMplsVpnTrapRows; ++row) {
      if (mpls_vpn_mib_trap_info[row].enabled != 0) rows.push_back(row);
    }
    return rows;
  }
  // Every procedure once, for a VRF whose interface is down.
  void RaiseEverything() {
    IfNode* node = mpls_vpn_mib_get_if_by_handle(true, 0x77);
    if (node == nullptr) node = CreateIf("red", 77, "ge77", 0x77);
    node->vrf_up_trap_sent = node->vrf_down_trap_sent = 0;
    ConsiderUp("red", "ge77", node);
    ConsiderDown("red", "ge77");
    mpls_vpn_mib_trap_mid_thresh_exc("red", 80, 81);
    mpls_vpn_mib_trap_high_thresh_exc("red", 100, 101);
    mpls_vpn_mib_trap_ilg_lbl_vltns("red", 5);
    mpls_vpn_mib_trap_high_thresh_clr("red", 100, 99);
  }
};

// The notification as it arrives, with arguments that differ from each other.
void generate(const char* vrf_name = "red") {
  generate_trap_notification(kTrapMidThreshExceeded, vrf_name, 2, 3, 4, 5, 6, 7, 8);
}
constexpr char kGenerated[] =
    "mplsL3VpnVrfRouteMidThreshExceeded red if=2 oper=3 row=4 mid=5 high=6 routes=7 labels=8";

using TrapGeneration = TrapTest;

}  // namespace

// --- Switches

TEST_F(TrapSwitches, AreAllOffAtFirst) {
  EXPECT_THAT(Enabled(), IsEmpty());
  RaiseEverything();
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapSwitches, EachItemSwitchesItsOwnRow) {
  const char* const items[] = {
      "vrf-up", "vrf-down", "mid-thresh-exc", "max-thresh-exc", "ilg-lbl-exc", "max-thresh-clr", "all"};
  for (std::uint32_t row = 0; row < std::size(items); ++row) {
    Set(items[row]);
    EXPECT_THAT(Enabled(), ElementsAre(row)) << items[row];
    Delete(items[row]);
    EXPECT_THAT(Enabled(), IsEmpty()) << items[row];
  }
}

TEST_F(TrapSwitches, PrintTheItemAndTheEventBits) {
  OnlyArea(TRAPS);
  Set("vrf-up");
  Delete("vrf-up");
  EXPECT_THAT(Prints(), ElementsAre("Entering traps_notify. info->item_name = vrf-up, info->whichevent = 3",
                                    "Enabling trap vrf-up",
                                    "Entering traps_notify. info->item_name = vrf-up, info->whichevent = 4",
                                    "Disabling trap vrf-up"));
}

TEST_F(TrapSwitches, PresenceOfAnItemEnablesWhateverItsValue) {
  Set("vrf-down", Number(0));
  EXPECT_THAT(Enabled(), ElementsAre(kTrapVrfDown));
}

TEST_F(TrapSwitches, DeletionWinsOverASetOfTheSameEvent) {
  Set("vrf-up");
  const KvNotifyInfo both = {"vrf-up", kKvEventSet | kKvEventDeleted, nullptr};
  traps_notify(&both);
  EXPECT_THAT(Enabled(), IsEmpty());
}

TEST_F(TrapSwitches, OnlyAllRaisesEveryTrapType) {
  Set("all");
  RaiseEverything();
  EXPECT_THAT(Traps(),
              ElementsAre("mplsL3VpnVrfUp red if=77 oper=1 row=1", "mplsL3VpnVrfDown red if=77 oper=2 row=1",
                          "mplsL3VpnVrfRouteMidThreshExceeded red mid=80 routes=81",
                          "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded red high=100 routes=101",
                          "mplsL3VpnNumVrfSecIllglLblThrshExcd red labels=5",
                          "mplsL3VpnNumVrfRouteMaxThreshCleared red high=100 routes=99"));
}

TEST_F(TrapSwitches, DeletionOfAllLeavesTheTrapsThatAreEnabledOneByOne) {
  Set("all");
  Set("vrf-down");
  Set("max-thresh-clr");
  Delete("all");
  RaiseEverything();
  EXPECT_THAT(Traps(), ElementsAre("mplsL3VpnVrfDown red if=77 oper=2 row=1",
                                   "mplsL3VpnNumVrfRouteMaxThreshCleared red high=100 routes=99"));
}

TEST_F(TrapSwitches, UnknownItemChangesNothingAndIsReported) {
  Set("vrf-up");
  OnlyArea(ERR);
  Set("vrf-u");
  Set("vrf-upper");
  Delete("");
  EXPECT_THAT(Enabled(), ElementsAre(kTrapVrfUp));
  const std::string line = "traps_notify: item_name does not match any trap type";
  EXPECT_THAT(Prints(), ElementsAre(line, line, line));
  EXPECT_THAT(Traced("mpls_vpn/error"), Contains(line).Times(3));
  OnlyArea(TRAPS);
  Set("vrf-u");
  EXPECT_EQ(Prints().back(), "Enabling trap vrf-u") << "the item is printed first";
}

// --- The re-issue time

TEST_F(TrapSwitches, ReissueTimeIsStoredAndStartsTheTimer) {
  OnlyArea(TRAPS);
  Set("notif-reissue-time", Number(60));
  EXPECT_EQ(notif_reissue_time, 60U);
  EXPECT_THAT(Enabled(), IsEmpty());
  EXPECT_THAT(Prints(),
              ElementsAre("Entering traps_notify. info->item_name = notif-reissue-time, info->whichevent = 3",
                          "Entering mpls_vpn_mib_timer_start with timeout 60"));
}

TEST_F(TrapSwitches, ReissueTimeThatIsZeroOrNegativeStopsTheTimerAsItsDeletionDoes) {
  for (const std::int64_t seconds : {0, -1, -60}) {
    Set("notif-reissue-time", Number(60));
    OnlyArea(TRAPS);
    Set("notif-reissue-time", Number(seconds));
    EXPECT_EQ(notif_reissue_time, 0U) << seconds;
    EXPECT_EQ(Prints().back(), "Entering mpls_vpn_mib_timer_stop ") << seconds;
  }
  const KvValue deleted = Number(30);  // a deletion may carry what it deletes
  for (const KvValue* value : {static_cast<const KvValue*>(nullptr), &deleted}) {
    Set("notif-reissue-time", Number(60));
    ClearPrints();
    Delete("notif-reissue-time", value);
    EXPECT_EQ(notif_reissue_time, 0U);
    EXPECT_EQ(Prints().back(), "Entering mpls_vpn_mib_timer_stop ");
  }
  PassSeconds(600);
  Run();
  EXPECT_FALSE(Printed("Timer wakeup"));
}

TEST_F(TrapSwitches, ReissueTimeThatIsNotA32BitNumberStopsTheTimer) {
  KvValue text;
  text.type = KvValueType::kText;
  text.number = 60;
  for (const KvValue& value : {text, Number(std::int64_t{1} << 31), Number((std::int64_t{1} << 32) + 60)}) {
    Set("notif-reissue-time", Number(60));
    Set("notif-reissue-time", value);
    EXPECT_EQ(notif_reissue_time, 0U);
  }
  Set("notif-reissue-time", Number((std::int64_t{1} << 31) - 1));
  EXPECT_EQ(notif_reissue_time, 2147483647U);
}

// --- Sending

TEST_F(TrapGeneration, EveryFieldArrivesInItsPlace) {
  generate();
  EXPECT_THAT(Traps(), ElementsAre(kGenerated));
}

TEST_F(TrapGeneration, IsPrinted) {
  OnlyArea(TRAPS);
  generate();
  EXPECT_THAT(Prints(), ElementsAre("Entering function generate_trap_notification"));
  OnlyArea(PROV);
  generate();
  EXPECT_THAT(Prints(), ElementsAre("Generate MPLS VPN MIB trap notification. trap type = 2, vrf = red"));
}

TEST_F(TrapGeneration, SwitchesAreNotLookedAt) {
  Disable(kTrapAll);
  Disable(kTrapMidThreshExceeded);
  generate();
  EXPECT_THAT(Traps(), ElementsAre(kGenerated));
}

TEST_F(TrapGeneration, BeforeTheProviderConnectionExistsItIsDropped) {
  KvConnection* const connection = prov_kvtree_conn_h;
  prov_kvtree_conn_h = nullptr;
  OnlyArea(PROV);
  generate();
  prov_kvtree_conn_h = connection;
  EXPECT_THAT(Prints(), ElementsAre("prov_kvtree_conn_h is NULL"));
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(TrapGeneration, FailedStepIsReportedAndOnlyAFailedReleaseIsAfterTheTrap) {
  const struct {
    const char* point;
    const char* what;
    std::size_t traps;
  } steps[] = {{"parcel_encode", "parcel_encode failed", 0},
               {"kvtree_prov_notify", "Could not generate PROV notification", 0},
               {"parcel_free_indirections", "parcel_free_indirections", 1}};
  const auto generated = Contains(testing::StartsWith("Generate MPLS VPN MIB trap notification"));
  for (const auto& step : steps) {
    OnlyArea(ERR);
    mpls_vpn_debug_flags[PROV].enabled.store(1);
    // Without a text nothing remains to release.
    WithFault(step.point, kStatusIo, [] { generate(nullptr); });
    EXPECT_THAT(Prints(), Contains(Failure("generate_trap_notification", step.what, kStatusIo)));
    if (step.traps == 0) {
      EXPECT_THAT(Prints(), testing::Not(generated)) << step.what;
    } else {
      EXPECT_THAT(Prints(), generated) << step.what;
    }
    ExpectErrorTraced(std::string("generate_trap_notification: ") + step.what, kStatusIo);
    EXPECT_EQ(Traps().size(), step.traps) << step.what;
  }
}

TEST_F(TrapGeneration, WithoutAWatcherNothingIsSent) {
  kvtree_stop_serving(manager_);
  OnlyArea(ERR);
  generate();
  EXPECT_THAT(Prints(), IsEmpty());
}
