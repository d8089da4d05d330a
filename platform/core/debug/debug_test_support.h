// For tests of the debug service: a registered block of flags and its clients.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "platform/core/base/fault.h"
#include "platform/core/debug/debug.h"
#include "platform/core/debug/debug_client.h"
#include "platform/core/debug/protocol.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/wire/wire.h"

inline constexpr const char* kManager = "/dev/mpls/vpn/debug";
inline constexpr const char* kNameSpace = "/debug/mpls_vpn/";
inline constexpr std::uint64_t kStep = 10 * 1'000'000;  // nanoseconds
inline constexpr unsigned kMaxSteps = 2000;

inline std::vector<std::string> names_that_are_on(const std::vector<DebugFlagState>& flags) {
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
  std::string Next(std::chrono::milliseconds timeout = std::chrono::seconds(1)) {
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
