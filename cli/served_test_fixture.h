// mplsvpn against a data store that this process serves: the command on a thread of its own.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "cli/command_line_test_fixture.h"
#include "cli/output/json_list.h"
#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

class ServedCommandLine : public CommandLine {
 protected:
  void SetUp() override {
    manager_ = event_manager_create("/dev/mpls/vpn/main", 0);
    ASSERT_NE(manager_, nullptr);
    ASSERT_EQ(vrf_config::register_configuration(), kStatusOk);
    ASSERT_EQ(kvtree_bind(&provider_, "/oper/mpls_vpn/gl/", kKvBindProvider), kStatusOk);
    ASSERT_EQ(kvtree_serve(manager_), kStatusOk);
  }
  void TearDown() override {
    fault_disarm_all();
    kvtree_stop_serving(manager_);
    kvtree_reset();
    event_manager_destroy(manager_);
  }

  int Ask(const std::vector<std::string>& words) {
    int exit_status = -1;
    Serve([&] { exit_status = Run(words); });
    return exit_status;
  }
  std::string AskForText(const std::vector<std::string>& words) {
    EXPECT_EQ(Ask(words), kExitOk) << Err();
    return Out();
  }
  Json AskForJson(std::vector<std::string> words) {
    words.insert(words.begin(), "--json");
    EXPECT_EQ(Ask(words), kExitOk) << Err();
    return Json::parse(Out());
  }
  // Runs a client on a thread of its own, to its end.
  void Serve(const std::function<void()>& client) {
    std::atomic<bool> done = false;
    std::thread thread([&] {
      client();
      done = true;
      event_post(manager_, [] {});
    });
    while (!done) event_run_pending(manager_, 5 * kNanosecondsPerSecond);
    thread.join();
  }
  EventManager* manager_ = nullptr;
  KvConnection* provider_ = nullptr;
};

}  // namespace cli
