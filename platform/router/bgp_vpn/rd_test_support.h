// For tests of route distinguishers: a router model whose VRFs have them, an empty configuration, and a
// callback that records its calls.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/feed/feed.h"
#include "platform/router/model/router_test_support.h"
#include "platform/store/tree/kvtree.h"

class RdTest : public ::testing::Test {
 protected:
  RdTest() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
    reported().clear();
    kvtree_reset();
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    bgp_vpn_attach(&router_);
  }
  ~RdTest() override {
    fault_disarm_all();
    bgp_vpn_rd_unregister_cb();
    bgp_vpn_attach(nullptr);
    feed::drop(&other_receiver_);
    kvtree_reset();
  }

  void AddVrf(const std::string& name, const std::string& rd) {
    vrf_.name = name;
    vrf_.id += 10;
    vrf_.rd = rd;
    ASSERT_EQ(router_.create_vrf(vrf_), kStatusOk);
  }
  // Notifications of other services, for several batches of the feed.
  void FillFeed() {
    other_receiver_.manager = manager_.get();
    for (int count = 0; count < 100; ++count) {
      feed::append(router_.changes(), feed::Phase::kRecord, &other_receiver_, [] {});
    }
  }
  void FollowFormat() const { ASSERT_EQ(bgp_util_asn_format_init_notify(manager_.get()), kStatusOk); }
  static KvConfigChange Format(std::string_view format) {
    const KvConfigNode node = vrf_config::as_format(format);
    return {node.path, node.value};
  }
  static void SetFormat(std::string_view format) {
    ASSERT_EQ(kvtree_config_commit(kConfigOwnerCli, {Format(format)}, ""), kStatusOk);
  }
  void ChangeRd(const std::string& name, const std::string& rd) {
    router::ChangeVrf(&router_, name, &router::Vrf::rd, rd);
  }
  // Its text, or why there is none.
  static std::string Rd(const std::string& name) {
    std::array<char, 51> text{};
    const Status status = bgp_vpn_rd_get(name.c_str(), text.data(), text.size());
    return status == kStatusOk ? text.data() : err_text(status);
  }

  // "set red 65000:1", "deletion red -".
  static std::vector<std::string>& reported() {
    static std::vector<std::string> all;
    return all;
  }
  static void Note(std::uint32_t set, const char* vrf, const char* rd) {
    reported().push_back(std::string(set != 0 ? "set " : "deletion ") + vrf + " " +
                         (rd == nullptr ? "-" : rd));
  }
  // Without the reports that the registration makes.
  void Register() const {
    const std::vector<std::string> before = reported();
    ASSERT_EQ(bgp_vpn_rd_register_cb(manager_.get(), &Note), kStatusOk);
    reported() = before;
  }
  void Run() const { event_run_pending(manager_.get()); }
  std::vector<std::string> TakeReported() const {
    Run();
    return std::exchange(reported(), {});
  }

  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
  feed::Receiver other_receiver_;
  router::Router router_;
  router::Vrf vrf_;
};
