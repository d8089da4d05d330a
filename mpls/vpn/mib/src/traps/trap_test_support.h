// For tests: notifications as a client of the data store receives them.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mpls/vpn/mib/src/provider/connection.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "mpls/vpn/mib/src/traps/info.h"
#include "mpls/vpn/mib/src/traps/procedures.h"
#include "mpls/vpn/mib/src/traps/reissue_timer.h"
#include "platform/core/parcel/parcel.h"
#include "platform/store/client/client.h"

class TrapTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    ASSERT_EQ(kvtree_serve(manager_), kStatusOk);
    ASSERT_EQ(kvtree_bind(&prov_kvtree_conn_h, "/oper/mpls_vpn/gl/", kKvBindProvider), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_timer_init(manager_), kStatusOk);
    StartWatching();
    ClearPrints();
  }
  void TearDown() override {
    fault_disarm_all();
    for (MplsVpnTrapInfo& info : mpls_vpn_mib_trap_info) info.enabled = 0;
    notif_reissue_time = 0;
    mpls_vpn_mib_timer_deinit();
    client_.reset();
    prov_kvtree_conn_h = nullptr;
    kvtree_stop_serving(manager_);
    kvtree_reset();
    DaemonTest::TearDown();
  }

  static void Enable(MplsVpnTrapRow row) { mpls_vpn_mib_trap_info[row].enabled = 1; }
  static void Disable(MplsVpnTrapRow row) { mpls_vpn_mib_trap_info[row].enabled = 0; }

  // The procedures, called as their callers call them: with the mutex held.
  static void ConsiderUp(const char* vrf, const char* name, IfNode* node = nullptr) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL();
    mpls_vpn_mib_trap_vrf_up(vrf, name, node);
  }
  static void ConsiderDown(const char* vrf, const char* name) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL();
    mpls_vpn_mib_trap_vrf_down(vrf, name);
  }

  // The notifications that the watching client received since the last call, one line each: its name, the VRF
  // and every number that is not 0 ("mplsL3VpnVrfUp red if=3 oper=1 row=1").
  std::vector<std::string> Traps() {
    std::vector<std::string> lines;
    for (;;) {
      kvtree::NotificationResult received = client_->next_notification(std::chrono::milliseconds(0));
      if (received.status != kStatusOk) {
        EXPECT_EQ(received.status, kStatusTimedOut);
        return lines;
      }
      EXPECT_EQ(received.path, "/oper/mpls_vpn/gl/");
      EXPECT_EQ(received.item_name, "trap_msg");
      EXPECT_EQ(received.values[0], 2U);
      EXPECT_EQ(received.values[1], 7U);
      lines.push_back(LineOf(received.record));
    }
  }

 private:
  // The calls of a client wait for answers that this thread has to give.
  void StartWatching() {
    client_ = std::make_unique<kvtree::Client>(event_manager_socket("/dev/mpls/vpn/main"),
                                               std::chrono::seconds(20));
    std::atomic<bool> done{false};
    Status status = kStatusIo;
    std::thread caller([&] {
      status = client_->connect();
      if (status == kStatusOk) status = client_->subscribe("/oper/mpls_vpn/gl/").status;
      done.store(true);
    });
    while (!done.load()) event_run_pending(manager_, kNanosecondsPerMillisecond);
    caller.join();
    ASSERT_EQ(status, kStatusOk);
  }

  static std::string LineOf(const kvtree::Octets& record) {
    mpls_vpn_mib_trap trap{};
    EXPECT_EQ(parcel_decode(&kMibTrapParcel, record.data(), record.size(), &trap), kStatusOk);
    EXPECT_LT(trap.trapType, static_cast<std::uint32_t>(kTrapAll));
    std::string line = trap.trapType < kTrapAll ? mpls_vpn_mib_trap_info[trap.trapType].notification : "?";
    line += std::string(" ") + (trap.vrfName == nullptr ? "(null)" : trap.vrfName);
    const std::pair<const char*, std::int64_t> numbers[] = {
        {"if", trap.ifConfIndex},
        {"oper", trap.vrfOperStatus},
        {"row", trap.ifConfRowStatus},
        {"mid", trap.midThresh},
        {"high", trap.highThresh},
        {"routes", trap.currNumRoutes},
        {"labels", trap.illegalLabelViolations},
    };
    for (const auto& [name, number] : numbers) {
      if (number != 0) line += std::string(" ") + name + "=" + std::to_string(number);
    }
    EXPECT_EQ(parcel_free_indirections(&kMibTrapParcel, &trap), kStatusOk);
    return line;
  }

  std::unique_ptr<kvtree::Client> client_;
};
