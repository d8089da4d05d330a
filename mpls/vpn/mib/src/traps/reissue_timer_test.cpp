// The re-issue timer.
#include "mpls/vpn/mib/src/traps/reissue_timer.h"

#include <cerrno>

#include "mpls/vpn/mib/src/traps/trap_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ReissueTimer : public TrapTest {
 protected:
  void AboveMaximum(const std::string& vrf, std::uint32_t maximum, std::uint32_t routes) {
    AddVrf(vrf);
    Run();
    mpls_vpn_vrf_attr* attributes = AttributesOf(vrf.c_str());
    attributes->high_thresh = maximum;
    attributes->curr_num_routes = routes;
    attributes->high_thresh_exceeded = 1;
  }
  // "red" is above its maximum, every notification is on, and the timer runs.
  void StartWithRed(std::uint32_t seconds) {
    Enable(kTrapAll);
    AboveMaximum("red", 100, 101);
    mpls_vpn_mib_timer_start(seconds);
  }
  void Pass(std::uint32_t seconds) {
    PassSeconds(seconds);
    Run();
  }
  static std::string Exceeded(const std::string& rest) {
    return "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded " + rest;
  }
};

struct FailingStep {
  const char* fault;
  const char* said;
};

class ReissueTimerInit : public ReissueTimer, public testing::WithParamInterface<FailingStep> {};

}  // namespace

TEST_F(ReissueTimer, InitIsPrinted) {
  mpls_vpn_mib_timer_deinit();
  OnlyArea(START);
  EXPECT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Timers initialized"));
}

TEST_P(ReissueTimerInit, FailedStepIsReportedAndWhatWasCreatedIsReleased) {
  mpls_vpn_mib_timer_deinit();
  mpls_vpn_debug_flags[START].enabled.store(0);
  ClearPrints();
  WithFault(GetParam().fault, kStatusNoMemory,
            [&] { EXPECT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusNoMemory); });
  EXPECT_THAT(Prints(), ElementsAre(std::string("Error in mpls_vpn_mib_timer_init: ") + GetParam().said +
                                        ": Cannot allocate memory",
                                    "Timers de-initialized"));
  ExpectErrorTraced(std::string("mpls_vpn_mib_timer_init: ") + GetParam().said, kStatusNoMemory);
  // The event is free again, or this would fail.
  EXPECT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusOk);
}

INSTANTIATE_TEST_SUITE_P(EachStep, ReissueTimerInit,
                         testing::Values(FailingStep{"event_async_attach",
                                                     "Failed to attach async timer event"},
                                         FailingStep{"timer_signal_init", "Failed to init timer event"},
                                         FailingStep{"timer_tree_new", "Failed to create master timer"},
                                         FailingStep{"timer_parent_new", "Failed to create parent timer"},
                                         FailingStep{"timer_leaf_new", "Failed to create leaf timer"}),
                         [](const auto& step) { return std::string(step.param.fault); });

TEST_F(ReissueTimer, IsStoppedAfterInit) {
  Enable(kTrapAll);
  AboveMaximum("red", 100, 101);
  ClearPrints();
  Pass(1'000'000);
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_FALSE(Printed("Timer wakeup"));
}

TEST_F(ReissueTimer, EveryVrfAboveItsMaximumIsRaisedAgainEachInterval) {
  Enable(kTrapMaxThreshExceeded);
  AboveMaximum("red", 100, 101);
  AboveMaximum("blue", 200, 250);
  AddVrf("calm");
  Run();
  mpls_vpn_mib_timer_start(60);
  Pass(59);
  EXPECT_THAT(Traps(), IsEmpty());
  for (int interval = 0; interval < 3; ++interval) {
    Pass(interval == 0 ? 1 : 60);
    EXPECT_THAT(Traps(),
                ElementsAre(Exceeded("red high=100 routes=101"), Exceeded("blue high=200 routes=250")));
  }
}

TEST_F(ReissueTimer, ShortestIntervalIsOneSecond) {
  StartWithRed(1);
  for (int interval = 0; interval < 3; ++interval) {
    Pass(1);
    EXPECT_EQ(Traps().size(), 1U) << interval;
  }
}

TEST_F(ReissueTimer, ItsEventHasTheCode128) {
  const auto nothing = [] {};
  EXPECT_EQ(event_async_attach(manager_, 128, nothing), -1);
  EXPECT_EQ(errno, EEXIST);
  mpls_vpn_mib_timer_deinit();
  EXPECT_EQ(event_async_attach(manager_, 128, nothing), 0);
  event_async_detach(manager_, 128);
}

TEST_F(ReissueTimer, CurrentNumbersAreRaisedUntilTheVrfFallsBelowItsMaximum) {
  StartWithRed(10);
  Pass(10);
  Traps();
  AttributesOf("red")->curr_num_routes = 180;
  AttributesOf("red")->high_thresh = 150;
  Pass(10);
  EXPECT_THAT(Traps(), ElementsAre(Exceeded("red high=150 routes=180")));
  AttributesOf("red")->high_thresh_exceeded = 0;
  Pass(10);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ReissueTimer, SwitchIsLookedAtAnewEachInterval) {
  AboveMaximum("red", 100, 101);
  mpls_vpn_mib_timer_start(10);
  Pass(10);
  EXPECT_THAT(Traps(), IsEmpty());
  Enable(kTrapMaxThreshExceeded);
  Pass(10);
  EXPECT_EQ(Traps().size(), 1U);
  Disable(kTrapMaxThreshExceeded);
  Enable(kTrapAll);
  Pass(10);
  EXPECT_EQ(Traps().size(), 1U);
  Disable(kTrapAll);
  Pass(10);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ReissueTimer, RoundIsPrinted) {
  mpls_vpn_mib_timer_start(10);
  OnlyArea(TRAPS);
  Pass(10);
  EXPECT_THAT(Prints(), ElementsAre("Timer wakeup", "Timer restart"));
}

TEST_F(ReissueTimer, StopEndsTheRounds) {
  StartWithRed(10);
  OnlyArea(TRAPS);
  mpls_vpn_mib_timer_stop();
  EXPECT_THAT(Prints(), ElementsAre("Entering mpls_vpn_mib_timer_stop "));
  Pass(100);
  EXPECT_THAT(Traps(), IsEmpty());
}

TEST_F(ReissueTimer, SecondStartCountsFromItsOwnTime) {
  StartWithRed(60);
  Pass(50);
  mpls_vpn_mib_timer_start(20);
  Pass(19);
  EXPECT_THAT(Traps(), IsEmpty());
  Pass(1);
  EXPECT_EQ(Traps().size(), 1U);
  Pass(20);
  EXPECT_EQ(Traps().size(), 1U);
}

TEST_F(ReissueTimer, StartThatFailsIsReported) {
  OnlyArea(ERR);
  const ScopedFault fault("timer_leaf_start", kStatusIo);
  mpls_vpn_mib_timer_start(60);
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_mib_timer_start", "timer_leaf_start", kStatusIo)));
}

TEST_F(ReissueTimer, RestartThatFailsIsReportedAndNotPrintedAsDone) {
  mpls_vpn_mib_timer_start(10);
  ClearPrints();
  WithFault("timer_leaf_start", kStatusIo, [&] { Pass(10); });
  EXPECT_TRUE(Printed(Failure("mpls_vpn_mib_timer_wakeup", "timer_leaf_start", kStatusIo)));
  EXPECT_FALSE(Printed("Timer restart"));
}

TEST_F(ReissueTimer, DeinitEndsEverythingAndMayBeRepeated) {
  StartWithRed(10);
  OnlyArea(TRAPS);
  mpls_vpn_mib_timer_deinit();
  mpls_vpn_mib_timer_deinit();
  EXPECT_THAT(Prints(), ElementsAre("Timers de-initialized", "Timers de-initialized"));
  Pass(100);
  EXPECT_THAT(Traps(), IsEmpty());
  EXPECT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusOk);
}

TEST_F(ReissueTimer, WakeUpAfterAStopOrItsEndDoesNotRestart) {
  const auto expect_no_restart = [this] {
    OnlyArea(TRAPS);
    mpls_vpn_mib_timer_wakeup();
    EXPECT_THAT(Prints(), ElementsAre("Timer wakeup"));
  };
  mpls_vpn_mib_timer_start(10);
  mpls_vpn_mib_timer_stop();
  expect_no_restart();
  mpls_vpn_mib_timer_start(10);
  mpls_vpn_mib_timer_deinit();
  expect_no_restart();
  ASSERT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusOk);
  expect_no_restart();
}
