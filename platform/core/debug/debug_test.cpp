// The debug facility through its real socket: registration, switching, watching, slow and vanishing watchers,
// rights. The manager is stepped on the test's thread while the blocking client runs on another.
#include "platform/core/debug/debug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <list>
#include <thread>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/directories.h"
#include "platform/core/wire/wire.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr const char* kManager = "/dev/mpls/vpn/debug";
constexpr const char* kNameSpace = "/debug/mpls_vpn/";
constexpr std::uint64_t kStep = 10 * 1'000'000;  // nanoseconds
constexpr unsigned kMaxSteps = 2000;

std::vector<std::string> names_that_are_on(const std::vector<DebugFlagState>& flags) {
  std::vector<std::string> names;
  for (const DebugFlagState& flag : flags) {
    if (flag.on) names.push_back(flag.name);
  }
  return names;
}

class DebugTest : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("MPLS_VPN_MIB_DEBUG");
    manager_ = event_manager_create(kManager, 0);
    ASSERT_NE(manager_, nullptr);
    Prepare(flags_);
    debug_capture(&prints_);
  }

  void TearDown() override {
    debug_capture(nullptr);
    const Status status = debug_cleanup(kNameSpace);
    EXPECT_TRUE(status == kStatusOk || status == kStatusNoSuchRow);
    event_run_pending(manager_);
    event_manager_destroy(manager_);
    unsetenv("MPLS_VPN_MIB_DEBUG");
  }

  template <std::size_t N>
  static void Prepare(DebugFlag (&flags)[N]) {
    static constexpr const char* kNames[] = {"start", "prov", "errors"};
    for (std::uint32_t i = 0; i < N; ++i) {
      ASSERT_EQ(debug_init_event(&flags[i], flags, i, 7, kNames[i], 1), kStatusOk);
    }
  }

  void Register() {
    ASSERT_EQ(debug_register(kNameSpace, flags_, 3, manager_), kStatusOk);
    event_run_pending(manager_);
  }

  // Runs `client` on its own thread and the manager on this one until it has returned.
  void Serve(const std::function<void()>& client) {
    std::atomic<bool> done{false};
    std::thread thread([&] {
      client();
      done = true;
    });
    for (unsigned step = 0; !done && step < kMaxSteps; ++step) event_run_pending(manager_, kStep);
    thread.join();
    event_run_pending(manager_);
  }

  void Connect(DebugClient* client) {
    Serve([&] { ASSERT_EQ(client->connect(), kStatusOk); });
  }
  void RegisterAndConnect() {
    Register();
    Connect(&client_);
  }
  void Watch(DebugClient* client) {
    Connect(client);
    Serve([&] { ASSERT_EQ(client->watch(), kStatusOk); });
  }
  void RegisterAndWatch() {
    Register();
    Watch(&client_);
  }
  // "flag: text" of the client's next print, or the error's text.
  std::string Next(std::chrono::milliseconds timeout = 1s) {
    DebugLine line;
    const Status status = client_.next_line(timeout, &line);
    return status == kStatusOk ? line.flag + ": " + line.text : err_text(status);
  }
  void Print(const DebugFlag& flag, const std::string& text) {
    debug_printf(flag, "%s", text.c_str());
    event_run_pending(manager_);
  }

  std::vector<std::string> On() {
    DebugClient client(DebugClient::default_socket());
    std::vector<DebugFlagState> flags;
    Connect(&client);
    Serve([&] { EXPECT_EQ(client.list(&flags), kStatusOk); });
    return names_that_are_on(flags);
  }

  TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
  DebugFlag flags_[3] = {};
  DebugClient client_{DebugClient::default_socket()};
  std::string prints_;
};

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

TEST_F(DebugTest, MissingServerIsNotConnected) {
  DebugClient client(directory_.path() + "/absent");
  std::vector<DebugFlagState> flags;
  EXPECT_EQ(client.list(&flags), kStatusNotConnected);
  EXPECT_EQ(client.set("all", true), kStatusNotConnected);
  EXPECT_EQ(client.watch(), kStatusNotConnected);
  EXPECT_NE(client.connect(), kStatusOk);
  EXPECT_FALSE(client.connected());
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

TEST_F(DebugTest, LongPrintIsCut) {
  RegisterAndWatch();
  Print(flags_[0], std::string(2 * debug_detail::kMaxPrint, 'x'));
  EXPECT_EQ(Next(), "start: " + std::string(debug_detail::kMaxPrint - 1, 'x'));
}

class MalformedRequest : public DebugTest, public testing::WithParamInterface<std::pair<int, std::string>> {};

TEST_P(MalformedRequest, ClosesOnlyItsClient) {
  Register();
  DebugClient other(DebugClient::default_socket());
  Connect(&other);
  wire::ClientSocket bad;
  Serve([&] {
    ASSERT_EQ(bad.connect(DebugClient::default_socket(), 1s), kStatusOk);
    wire::Writer out = bad.begin(static_cast<std::uint16_t>(GetParam().first), 1);
    for (const char c : GetParam().second) out.u8(static_cast<std::uint8_t>(c));
    ASSERT_EQ(bad.send(), kStatusOk);
    wire::Message answer;
    EXPECT_EQ(bad.receive(&answer), kStatusNotConnected);
  });
  Serve([&] { EXPECT_EQ(other.set("prov", true), kStatusOk); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, MalformedRequest,
                         testing::Values(std::pair<int, std::string>{99, ""},
                                         std::pair<int, std::string>{1, "x"},
                                         std::pair<int, std::string>{3, "x"},
                                         std::pair<int, std::string>{2, ""},
                                         std::pair<int, std::string>{2, std::string("\xff\xff\xff\xff"
                                                                                    "a",
                                                                                    5)},
                                         std::pair<int, std::string>{2, std::string("\3\0\0\0all\2", 8)},
                                         std::pair<int, std::string>{2, std::string("\3\0\0\0all\1\1", 9)}));

// How many of these clients are answered while all are connected.
int count_answered(int clients) {
  std::list<DebugClient> all;
  int answered = 0;
  for (int i = 0; i < clients; ++i) {
    DebugClient& client = all.emplace_back(DebugClient::default_socket(), 5000ms);
    std::vector<DebugFlagState> flags;
    if (client.connect() == kStatusOk && client.list(&flags) == kStatusOk && flags.size() == 3) ++answered;
  }
  return answered;
}

// Peers that are neither root, nor this process's user, nor administrators. Only root can make one.
class DebugReaderTest : public DebugTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to change the peer's user";
    DebugTest::SetUp();
    Register();
    ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(DebugClient::default_socket().c_str(), 0666), 0);
  }
  void TearDown() override {
    if (manager_ != nullptr) DebugTest::TearDown();
  }
  // The result of the call in a process of another user.
  int AsReader(const std::function<int()>& call) {
    const pid_t child = fork();
    EXPECT_GE(child, 0);
    if (child == 0) _exit(setgid(65534) != 0 || setuid(65534) != 0 ? 90 : call());
    int status = 0;
    unsigned steps = 0;
    while (waitpid(child, &status, WNOHANG) == 0 && ++steps < kMaxSteps) event_run_pending(manager_, kStep);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
  }
};

TEST_F(DebugReaderTest, ReadsButDoesNotSwitch) {
  const int result = AsReader([] {
    DebugClient client(DebugClient::default_socket(), 5000ms);
    std::vector<DebugFlagState> flags;
    if (client.connect() != kStatusOk) return 91;
    if (client.list(&flags) != kStatusOk || flags.size() != 3) return 92;
    return static_cast<int>(client.set("all", true));
  });
  EXPECT_EQ(result, static_cast<int>(kStatusAccess));
  EXPECT_FALSE(debug_enabled(flags_[0]));
}

TEST_F(DebugReaderTest, HasFourConnectionsOfSixteen) {
  EXPECT_EQ(AsReader([] { return count_answered(6); }), 4);
  int answered = 0;
  Serve([&] { answered = count_answered(18); });
  EXPECT_EQ(answered, 16);
}

// The daemon's arrangement: the manager's loop on its own thread, registration, prints and cleaning up on
// others.
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
