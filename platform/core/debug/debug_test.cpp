// The debug facility through its real socket: registration, switching, watching, slow and vanishing watchers,
// rights. The manager is stepped on the test's thread while the blocking client runs on another.
#include "platform/core/debug/debug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/debug_test_support.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/wire/wire.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST_F(DebugTest, InitialisationFillsTheFlagBlock) {
  EXPECT_EQ(flags_[1].index, 1U);
  EXPECT_EQ(flags_[1].kind, 7U);
  EXPECT_EQ(flags_[1].value, 1U);
  EXPECT_STREQ(flags_[1].command_name, "prov");
  EXPECT_FALSE(debug_enabled(flags_[1]));
}

TEST_F(DebugTest, InitialisationRefusesAFlagThatIsNotAtItsIndex) {
  EXPECT_EQ(debug_init_event(&flags_[1], flags_, 2, 7, "prov", 1), kStatusInvalid);
  EXPECT_EQ(debug_init_event(&flags_[1], flags_, 1, 7, nullptr, 1), kStatusInvalid);
  EXPECT_EQ(debug_init_event(&flags_[1], flags_, 1, 7, "", 1), kStatusInvalid);
}

TEST_F(DebugTest, RegistrationRefusesInvalidArguments) {
  DebugFlag unprepared[1] = {};
  EXPECT_EQ(debug_register(nullptr, flags_, 3, manager_), kStatusInvalid);
  EXPECT_EQ(debug_register("", flags_, 3, manager_), kStatusInvalid);
  EXPECT_EQ(debug_register(kNameSpace, nullptr, 3, manager_), kStatusInvalid);
  EXPECT_EQ(debug_register(kNameSpace, flags_, 0, manager_), kStatusInvalid);
  EXPECT_EQ(debug_register(kNameSpace, unprepared, 1, manager_), kStatusInvalid);
  EXPECT_EQ(debug_register(kNameSpace, flags_, 3, nullptr), kStatusInvalid);
}

TEST_F(DebugTest, OneBlockIsRegisteredUntilItIsCleanedUp) {
  Register();
  EXPECT_EQ(debug_register(kNameSpace, flags_, 3, manager_), kStatusExists);
  EXPECT_EQ(debug_register("/debug/other/", flags_, 3, manager_), kStatusExists);
  EXPECT_EQ(debug_cleanup("/debug/other/"), kStatusNoSuchRow);
  EXPECT_EQ(debug_cleanup(kNameSpace), kStatusOk);
  EXPECT_EQ(debug_cleanup(kNameSpace), kStatusNoSuchRow);
  EXPECT_EQ(debug_cleanup(nullptr), kStatusNoSuchRow);
  Register();
}

TEST_F(DebugTest, FaultPointsFailInitialisationAndRegistration) {
  const ScopedFault fault("debug_init_event", kStatusIo);
  EXPECT_EQ(debug_init_event(&flags_[0], flags_, 0, 7, "start", 1), kStatusIo);
  const ScopedFault other("debug_register", kStatusNoMemory);
  EXPECT_EQ(debug_register(kNameSpace, flags_, 3, manager_), kStatusNoMemory);
  EXPECT_EQ(debug_cleanup(kNameSpace), kStatusNoSuchRow);
}

TEST_F(DebugTest, ListShowsEveryFlagInOrder) {
  RegisterAndConnect();
  std::vector<DebugFlagState> flags;
  Serve([&] { ASSERT_EQ(client_.list(&flags), kStatusOk); });
  ASSERT_EQ(flags.size(), 3U);
  EXPECT_EQ(flags[0].name_space, kNameSpace);
  EXPECT_EQ(flags[0].name, "start");
  EXPECT_EQ(flags[2].name, "errors");
  EXPECT_TRUE(names_that_are_on(flags).empty());
}

TEST_F(DebugTest, SwitchingOneFlagLeavesTheOthers) {
  RegisterAndConnect();
  Serve([&] { EXPECT_EQ(client_.set("prov", true), kStatusOk); });
  EXPECT_THAT(On(), ElementsAre("prov"));
  Serve([&] { EXPECT_EQ(client_.set("prov", false), kStatusOk); });
  EXPECT_TRUE(On().empty());
  Serve([&] { EXPECT_EQ(client_.set("nonsense", true), kStatusNoSuchRow); });
  EXPECT_TRUE(client_.connected());
}

TEST_F(DebugTest, AllSwitchesEveryFlag) {
  RegisterAndConnect();
  Serve([&] { EXPECT_EQ(client_.set("all", true), kStatusOk); });
  EXPECT_THAT(On(), ElementsAre("start", "prov", "errors"));
  Serve([&] { EXPECT_EQ(client_.set("all", false), kStatusOk); });
  EXPECT_TRUE(On().empty());
}

TEST_F(DebugTest, EnvironmentSwitchesFlagsOnAtRegistration) {
  setenv("MPLS_VPN_MIB_DEBUG", "errors,start", 1);
  Register();
  EXPECT_THAT(On(), ElementsAre("start", "errors"));
  ASSERT_EQ(debug_cleanup(kNameSpace), kStatusOk);
  setenv("MPLS_VPN_MIB_DEBUG", "all", 1);
  Register();
  EXPECT_THAT(On(), ElementsAre("start", "prov", "errors"));
}

TEST_F(DebugTest, CleanUpSwitchesTheFlagsOffAndEndsTheService) {
  setenv("MPLS_VPN_MIB_DEBUG", "all", 1);
  Register();
  DebugClient client(DebugClient::default_socket(), 500ms);
  Connect(&client);
  EXPECT_EQ(debug_cleanup(kNameSpace), kStatusOk);
  EXPECT_FALSE(debug_enabled(flags_[0]));
  std::vector<DebugFlagState> flags;
  Serve([&] { EXPECT_EQ(client.list(&flags), kStatusNotConnected); });
  EXPECT_FALSE(client.connected());
}

TEST_F(DebugTest, CaptureReceivesEachPrintAsOneLine) {
  debug_printf(flags_[0], "Completed %s", "init");
  debug_printf(flags_[0], "%s: Cannot find matching WAVL node\n", "delete");
  EXPECT_EQ(prints_, "Completed init\ndelete: Cannot find matching WAVL node\n");
}

TEST_F(DebugTest, StandardErrorReceivesEachPrintAsOneLine) {
  testing::internal::CaptureStderr();
  debug_printf(flags_[0], "Completed init\n");
  debug_printf(flags_[0], "next");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Completed init\nnext\n");
}

TEST_F(DebugTest, PrintsBeyondTheRateAreDroppedAndCountedInOneLine) {
  debug_capture(nullptr);
  ManualClock clock(1'700'000'000 * kNanosecondsPerSecond);
  testing::internal::CaptureStderr();
  for (std::uint64_t i = 0; i < debug_detail::kMostPrints + 7; ++i) debug_printf(flags_[0], "x");
  EXPECT_EQ(testing::internal::GetCapturedStderr().size(), 2 * debug_detail::kMostPrints);
  EXPECT_TRUE(debug_prints_are_dropped());
  testing::internal::CaptureStderr();
  clock.advance(debug_detail::kPrintPeriod * kNanosecondsPerSecond);
  EXPECT_FALSE(debug_prints_are_dropped());
  debug_printf(flags_[0], "Completed %s", "init");
  debug_printf(flags_[0], "next");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "debug: 7 prints were dropped, more than 50000 in 5 s\nCompleted init\nnext\n");
}

TEST_F(DebugTest, MissingServerIsNotConnected) {
  DebugClient client(directory_.path() + "/absent");
  std::vector<DebugFlagState> flags;
  EXPECT_EQ(client.list(&flags), kStatusNotConnected);
  EXPECT_EQ(client.set("all", true), kStatusNotConnected);
  EXPECT_EQ(client.watch(), kStatusNotConnected);
  EXPECT_NE(client.connect(), kStatusOk);
  EXPECT_FALSE(client.connected());
}

TEST_F(DebugTest, LongPrintIsCut) {
  RegisterAndWatch();
  Print(flags_[0], std::string(2 * debug_detail::kMaxPrint, 'x'));
  EXPECT_EQ(Next(), "start: " + std::string(debug_detail::kMaxPrint - 1, 'x'));
}

TEST_F(DebugTest, RegistrationPrintsAndCleanUpFromOtherThreads) {
  std::atomic<bool> stop{false};
  std::thread loop([&] {
    while (!stop) event_run_pending(manager_, kStep);
  });
  ASSERT_EQ(debug_register(kNameSpace, flags_, 3, manager_), kStatusOk);
  DebugClient client(DebugClient::default_socket(), 5000ms);
  // A connection made before the service has begun on its thread is closed: try again, with a bound.
  Status status = kStatusNotConnected;
  for (int attempt = 0; attempt < 1000 && status != kStatusOk; ++attempt) {
    status = client.connect();
    if (status == kStatusOk) status = client.watch();
  }
  ASSERT_EQ(status, kStatusOk);
  EXPECT_EQ(client.set("prov", true), kStatusOk);
  EXPECT_TRUE(debug_enabled(flags_[1]));
  const auto print_many = [&] {
    for (int i = 0; i < 200; ++i) debug_printf(flags_[1], "%d", i);
  };
  std::thread first(print_many);
  std::thread second(print_many);
  std::uint64_t seen = 0;
  DebugLine line;
  while (seen < 400 && client.next_line(5s, &line) == kStatusOk) seen += 1 + line.dropped;
  first.join();
  second.join();
  EXPECT_EQ(seen, 400U);
  EXPECT_EQ(debug_cleanup(kNameSpace), kStatusOk);
  EXPECT_EQ(client.next_line(5s, &line), kStatusNotConnected);
  stop = true;
  loop.join();
}

}  // namespace
