// Clients that watch prints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/core/debug/debug.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/debug_test_support.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/wire/wire.h"

namespace {

using namespace std::chrono_literals;

TEST_F(DebugTest, WatcherSeesPrintsWithTheirFlag) {
  RegisterAndWatch();
  debug_printf(flags_[1], "Entering function %s", "mpls_vpn_mib_prov_get");
  debug_printf(flags_[2], "Error in %s: %s: %s", "main", "proc_ready", "Success");
  event_run_pending(manager_);
  EXPECT_EQ(Next(), "prov: Entering function mpls_vpn_mib_prov_get");
  EXPECT_EQ(Next(), "errors: Error in main: proc_ready: Success");
}

TEST_F(DebugTest, EveryWatcherSeesEveryPrint) {
  RegisterAndWatch();
  DebugClient second(DebugClient::default_socket());
  Watch(&second);
  Print(flags_[0], "Completed init");
  EXPECT_EQ(Next(), "start: Completed init");
  DebugLine line;
  EXPECT_EQ(second.next_line(1s, &line), kStatusOk);
}

TEST_F(DebugTest, NextLineTimesOutWithTheConnectionOpen) {
  Register();
  EXPECT_EQ(Next(1ms), err_text(kStatusNotConnected));
  Connect(&client_);
  EXPECT_EQ(Next(1ms), err_text(kStatusInvalid));
  Serve([&] { ASSERT_EQ(client_.watch(), kStatusOk); });
  EXPECT_EQ(Next(1ms), err_text(kStatusTimedOut));
  EXPECT_TRUE(client_.connected());
}

TEST_F(DebugTest, PrintsBeforeAnAnswerAreStoredForNextLine) {
  RegisterAndWatch();
  Print(flags_[0], "before the answer");
  std::vector<DebugFlagState> flags;
  Serve([&] { ASSERT_EQ(client_.list(&flags), kStatusOk); });
  EXPECT_EQ(flags.size(), 3U);
  EXPECT_EQ(Next(0ms), "start: before the answer");
}

TEST_F(DebugTest, PrintOfAnUnregisteredFlagReachesNoWatcher) {
  RegisterAndWatch();
  DebugFlag lone = {};
  ASSERT_EQ(debug_init_event(&lone, &lone, 0, 7, "lone", 1), kStatusOk);
  Print(lone, "alone");
  EXPECT_EQ(Next(0ms), err_text(kStatusTimedOut));
  EXPECT_EQ(prints_, "alone\n");
}

TEST_F(DebugTest, WatcherThatVanishesDisturbsNoOther) {
  RegisterAndWatch();
  {
    DebugClient vanishes(DebugClient::default_socket());
    Watch(&vanishes);
  }
  for (const char* text : {"0", "1", "2"}) debug_printf(flags_[0], "%s", text);
  event_run_pending(manager_);
  for (const std::string text : {"0", "1", "2"}) EXPECT_EQ(Next(), "start: " + text);
}

struct Tally {
  std::uint64_t lines = 0;
  std::uint64_t dropped = 0;
  bool count_alone = false;
};

TEST_F(DebugTest, SlowWatcherMissesPrintsAndReceivesTheirCount) {
  RegisterAndWatch();
  constexpr std::uint64_t kPrints = 20'000;
  const std::string text(100, 'x');
  for (std::uint64_t i = 0; i < kPrints; ++i) {
    debug_printf(flags_[0], "%s", text.c_str());
    if (i % 500 == 0) event_run_pending(manager_);
  }
  event_run_pending(manager_);
  Tally tally;
  Serve([&] {
    DebugLine line;
    while (tally.lines + tally.dropped < kPrints && client_.next_line(2s, &line) == kStatusOk) {
      tally.dropped += line.dropped;
      if (line.flag.empty()) {
        tally.count_alone = true;
      } else {
        ++tally.lines;
      }
    }
  });
  EXPECT_GT(tally.dropped, 0U);
  EXPECT_GT(tally.lines, 1000U);
  EXPECT_TRUE(tally.count_alone);
  EXPECT_EQ(tally.lines + tally.dropped, kPrints);
}

TEST_F(DebugTest, MoreThanTheQueueHoldsIsCountedBeforeTheServiceRuns) {
  RegisterAndWatch();
  for (std::size_t i = 0; i < debug_detail::kPendingPrints + 5; ++i) debug_printf(flags_[0], "x");
  event_run_pending(manager_);
  Print(flags_[0], "after");
  Serve([&] {
    DebugLine line;
    for (std::size_t i = 0; i < debug_detail::kPendingPrints; ++i) {
      ASSERT_EQ(client_.next_line(1s, &line), kStatusOk);
      ASSERT_EQ(line.dropped, 0U);
    }
    ASSERT_EQ(client_.next_line(1s, &line), kStatusOk);
    EXPECT_EQ(line.text, "after");
    EXPECT_EQ(line.dropped, 5U);
  });
}

}  // namespace
