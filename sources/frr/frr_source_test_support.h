// For tests: the FRR source with a simulated suite, a router model and a manual clock.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/test_support.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/store/configuration/configuration.h"
#include "sources/frr/fake_suite_test_support.h"
#include "sources/frr/frr_source.h"

inline constexpr std::uint64_t kPollInterval = 20 * kNanosecondsPerMillisecond;
inline constexpr auto kBound = std::chrono::seconds(30);

inline constexpr char kRd10[] = "  rd vpn export 65000:10\n";
inline constexpr char kTarget10[] = "  rt vpn import 65000:10\n";
inline constexpr char kRd10Words[] = "vrf red rd 65000:10 ipv4";
inline constexpr char kTarget10Words[] = "vrf red rt import 65000:10 ipv4";
inline constexpr char kStaticRed[] = "vrf red\n ip route 10.9.0.0/16 red1\nexit-vrf\n";

inline std::string bgp_red(const std::string& lines) {
  return "router bgp 65000 vrf red\n address-family ipv4 unicast\n" + lines + " exit-address-family\nexit\n";
}

class FrrSourceTest : public ::testing::Test {
 protected:
  FrrSourceTest() {
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    EXPECT_EQ(kvtree_keep_configuration(directory.path()), kStatusOk);
    AddInterface("blue1", "10.2.0.1/30", "blue");
  }
  ~FrrSourceTest() override {
    source.reset();
    kvtree_reset();
    event_manager_destroy(manager);
    fault_disarm_all();
  }
  void AddInterface(const std::string& name, const std::string& address, const std::string& vrf) {
    router::Interface added;
    added.name = name;
    added.vrf = vrf;
    added.index = static_cast<std::uint32_t>(router.interface_count()) + 1;
    router::Address parsed;
    ASSERT_TRUE(router::parse_address(address, &parsed));
    added.addresses.push_back(parsed);
    ASSERT_EQ(router.add_interface(added), kStatusOk);
  }
  FrrSource::Options Options() const {
    FrrSource::Options options;
    options.shell = suite.shell();
    options.limits.patience = 3600 * kNanosecondsPerSecond;  // the clock runs ahead of the processes
    return options;
  }
  void Start() { Start(Options()); }
  void Start(const FrrSource::Options& options) {
    source = std::make_unique<FrrSource>(&router, options);
    ASSERT_EQ(source->load(&error), kStatusOk) << error;
    ASSERT_EQ(source->start(manager), kStatusOk);
  }
  void Restart() {
    source.reset();
    Start();
  }
  // Waits until an answer to a question from now on was processed: the next question follows it.
  void AwaitAnswer(const std::string& program) {
    const std::size_t wanted = suite.Asked(program) + 2;
    PumpUntil([&] { return suite.Asked(program) >= wanted; });
  }
  // Waits until a shell was started after a failure, twice.
  void AwaitFailure(const std::string& program) {
    const std::size_t wanted = suite.Started(program) + 2;
    PumpUntil([&] { return suite.Started(program) >= wanted; });
  }
  void AwaitAnswers(const std::vector<std::string>& programs) {
    for (const std::string& program : programs) AwaitAnswer(program);
  }
  // Starts with programs that have answered with these configurations.
  void StartWith(const std::map<std::string, std::string>& configurations) {
    for (const auto& [program, text] : configurations) suite.Configure(program, text);
    Start();
    for (const auto& [program, text] : configurations) AwaitAnswer(program);
  }
  void StartWith(const std::string& program, const std::string& configuration) {
    StartWith({{program, configuration}});
  }
  // Starts as if the suite was named in the settings, and waits until bgpd has failed.
  void StartWanted() {
    FrrSource::Options options = Options();
    options.wanted = true;
    Start(options);
    AwaitFailure("bgpd");
  }
  void StopSuite() const {
    for (const auto& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
  }
  // bgpd ends and starts again with this configuration.
  void RestartBgpd(const std::string& configuration) {
    suite.Become("bgpd", "absent");
    AwaitFailure("bgpd");
    suite.Configure("bgpd", configuration);
    suite.Become("bgpd", "ok");
    AwaitAnswer("bgpd");
  }
  // Advances the clock only while no answer is pending, so the time that the processes take does not count.
  template <typename Condition>
  void PumpUntil(const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      const bool waits = source->pending_answers() > silent_programs;
      if (!event_run_pending(manager, waits ? kPollInterval : 0) && !waits) clock.advance(kStep);
    }
    EXPECT_TRUE(condition());
  }
  void PumpFor(std::uint64_t nanoseconds) {
    const std::uint64_t end = clock_monotonic() + nanoseconds;
    PumpUntil([end] { return clock_monotonic() >= end; });
  }
  // Too short to settle, even with the questions before and after it; twice as long is enough.
  static inline const std::uint64_t kNotEnough = FrrSource::Options().settling / 2;
  // The suite's configuration in the tree, in words.
  std::vector<std::string> Stored() const { return vrf_config::words_owned(kConfigOwnerFrr); }

  // A tenth of the interval, so that a second of a test is a few questions.
  static constexpr std::uint64_t kStep = 100 * kNanosecondsPerMillisecond;
  ManualClock clock{1'000'000 * kNanosecondsPerSecond};
  TestRunDirectory directory;
  FakeSuite suite;
  EventManager* manager = nullptr;
  router::Router router;
  std::unique_ptr<FrrSource> source;
  std::size_t silent_programs = 0;
  std::string error;
};
