// For tests of "show vrf": a daemon with VRFs that have details.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cli/show/show_test_fixture.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/core/base/clock.h"
#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/configuration.h"

namespace cli {

inline constexpr std::uint32_t kNow = 1'700'000'000;  // 2023-11-14 22:13:20 UTC

class ShowVrf : public ShowCommand {
 protected:
  void SetUp() override {
    ShowCommand::SetUp();
    setenv("TZ", "UTC0", 1);
    StateOwnerOfModelRds(kConfigOwnerFile);
  }
  void AddRed() {
    fake.vrfs["red"] = {"Red Rail", "65000:10", kNow - 90'000, kNow - 75, 1, 7, 0, {"ge1", "ge2"}, {}, false};
  }
  void AddBlueWithTables() {
    FakeTable ipv4 = {1, 1, {{1, "65000:20"}, {1, "65000:99"}, {2, "65000:20"}}, "from-blue", ""};
    FakeTable ipv6 = {2, 1, {{2, "65000:26"}}, "", "to-blue"};
    fake.vrfs["blue"] = {"", "", kNow, kNow, 0, 0, 500, {}, {ipv4, ipv6}, true};
  }
  void AddMany(unsigned count) {
    for (unsigned number = 1; number <= count; ++number) {
      fake.vrfs["v" + std::to_string(100'000 + number)].rd = "1:" + std::to_string(number);
    }
  }
  static void StateOwnerOfModelRds(std::string_view owner) {
    KvValue value{KvValueType::kText, std::string(owner), 0, {}, {}};
    ASSERT_EQ(kvtree_set(vpn_events::kRdOwnerPath, value), kStatusOk);
  }
  static void Configure(const std::string& vrf, vrf_config::Family family, std::uint32_t maximum,
                        std::uint32_t mid) {
    const KvConfigNode node = vrf_config::route_threshold(vrf, family, maximum, mid);
    ASSERT_EQ(kvtree_set(node.path, node.value), kStatusOk);
  }
  const ManualClock clock_{std::uint64_t{kNow} * kNanosecondsPerSecond};
};

}  // namespace cli
