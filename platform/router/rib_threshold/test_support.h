// For tests: a router whose VRFs have thresholds, and a subscriber of the threshold events.
//
// Reported() returns the events since its last call, one line each: the name of the table, what happened,
// "table: routes/threshold" ("red.ipv4.unicast exceeds maximum 10: 5/5"). Published() returns such a line for
// each node that is in the data store.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/config/vrf_config.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/parcel/parcel.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/rib_threshold/records.h"
#include "platform/router/rib_threshold/rib_threshold.h"
#include "platform/store/tree/kvtree.h"

namespace rib_threshold {

using vrf_config::Family;

class RibThresholdTest : public router::RouterTest {
 protected:
  RibThresholdTest() {
    kvtree_reset();
    lines<kReported>().clear();
    manager_ = event_manager_create("/dev/test/main", 0);
  }
  ~RibThresholdTest() override {
    fault_disarm_all();
    rib_threshold_detach();
    kvtree_reset();
    event_manager_destroy(manager_);
  }
  void Attach() { ASSERT_EQ(rib_threshold_attach(&router_, manager_), kStatusOk); }
  // Attached, with a subscriber.
  void Start() {
    Attach();
    Register(note<kReported>);
  }

  // Both tables have the number, unless another is given for IPv6.
  void AddVrf(const std::string& name, std::uint32_t table, std::uint32_t ipv6_table = 0) {
    router::Vrf vrf = MakeVrf(name, ++last_id_);
    vrf.ipv4_table = table;
    vrf.ipv6_table = ipv6_table == 0 ? table : ipv6_table;
    RouterTest::AddVrf(vrf);
  }
  void ChangeTables(const std::string& name, std::uint32_t ipv4, std::uint32_t ipv6) {
    router::Vrf vrf = *router_.find_vrf(name);
    vrf.ipv4_table = ipv4;
    vrf.ipv6_table = ipv6;
    ChangeVrf(vrf);
  }
  void Configure(const std::string& vrf, std::uint32_t maximum, std::uint32_t mid,
                 Family family = Family::kIpv4) {
    const KvConfigNode node = vrf_config::route_threshold(vrf, family, maximum, mid);
    ASSERT_EQ(kvtree_set(node.path, node.value), kStatusOk);
    Run();
  }
  void ConfigureQuietly(const std::string& vrf, std::uint32_t maximum, std::uint32_t mid) {
    Configure(vrf, maximum, mid);
    Reported();
  }
  void Unconfigure(const std::string& vrf, Family family = Family::kIpv4) {
    ASSERT_EQ(kvtree_delete(vrf_config::route_threshold(vrf, family, 0, 0).path), kStatusOk);
    Run();
  }
  // The table has this many routes now.
  void SetRoutes(std::uint32_t table, std::size_t count, Family family = Family::kIpv4) {
    SetRoutesInBatch(table, count, family);
    router_.flush_route_changes();
    Run();
  }
  void SetRoutesInBatch(std::uint32_t table, std::size_t count, Family family = Family::kIpv4) {
    const router::RouteTableId id{family == Family::kIpv4 ? router::Family::kIpv4 : router::Family::kIpv6,
                                  table};
    const auto route = [&](std::size_t n) {
      return router::MakeRoute(family == Family::kIpv4 ? "10.0." + std::to_string(n) + ".0/24"
                                                       : "2001:db8:" + std::to_string(n) + "::/48");
    };
    while (router_.routes().count(id) < count) {
      ASSERT_EQ(router_.routes().put(id, route(router_.routes().count(id) + 1)), kStatusOk);
    }
    while (router_.routes().count(id) > count) {
      ASSERT_EQ(router_.routes().erase(id, route(router_.routes().count(id)).key), kStatusOk);
    }
  }
  void Run() const { event_run_pending(manager_); }

  std::vector<std::string> Reported() {
    Run();
    return ReportedSoFar();
  }
  // The table has this many routes now.
  std::vector<std::string> ReportedWith(std::uint32_t table, std::size_t routes,
                                        Family family = Family::kIpv4) {
    SetRoutes(table, routes, family);
    return Reported();
  }
  // Those of Reported() without running the event loop.
  std::vector<std::string> ReportedSoFar() { return std::exchange(lines<kReported>(), {}); }
  std::vector<std::string> Published() {
    KvConnection* connection = Register(note<kPublished>);
    EXPECT_EQ(kvtree_unbind(connection), kStatusOk);
    return std::exchange(lines<kPublished>(), {});
  }

  TestRunDirectory directory_;
  EventManager* manager_ = nullptr;

 private:
  // Two sets of lines, each with its subscriber.
  enum Subscriber { kReported, kPublished };
  template <Subscriber kWhose>
  static std::vector<std::string>& lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  template <Subscriber kWhose>
  static void note(const KvNotification* notification) {
    const auto note_line = [](const KvNotifyInfo* info, const RequestArgs* args) {
      lines<kWhose>().push_back(LineOf(*info, *args));
    };
    static const KvPathRow routes[] = {{"<s>/mid-thresh-exc", {0, note_line, nullptr, nullptr, nullptr}},
                                       {"<s>/max-thresh-exc", {0, note_line, nullptr, nullptr, nullptr}}};
    static const KvPathTable table{routes, std::size(routes)};
    kvtree_match_notify(notification, &table);
  }
  static std::string LineOf(const KvNotifyInfo& info, const RequestArgs& args) {
    const std::vector<std::uint8_t>& octets = info.value->record;
    std::string line = args.arg[0].text;
    if (std::string(info.item_name) == "mid-thresh-exc") {
      MidThreshold mid{};
      EXPECT_EQ(parcel_decode(&kMidThresholdParcel, octets.data(), octets.size(), &mid), kStatusOk);
      return line + " exceeds mid " +
             Numbers(mid.ext_table_id, mid.ext_curr_num_routes, mid.ext_conf_mid_threshold);
    }
    MaximumThreshold maximum{};
    EXPECT_EQ(parcel_decode(&kMaximumThresholdParcel, octets.data(), octets.size(), &maximum), kStatusOk);
    line += maximum.ext_clear == 0 ? " exceeds maximum " : " clears maximum ";
    return line + Numbers(maximum.ext_table_id, maximum.ext_curr_num_routes, maximum.ext_conf_max_threshold);
  }
  static std::string Numbers(std::uint32_t table, std::uint32_t routes, std::uint32_t threshold) {
    return std::to_string(table) + ": " + std::to_string(routes) + "/" + std::to_string(threshold);
  }

  KvConnection* Register(KvNotificationEntry entry) {
    KvConnection* connection = nullptr;
    EXPECT_EQ(kvtree_bind(&connection, "/oper/rib_threshold/", kKvBindConfiguration), kStatusOk);
    EXPECT_EQ(kvtree_register_notification(connection, "", kKvEventCreated | kKvEventSet, entry, manager_, 0,
                                           0, 4, nullptr),
              kStatusOk);
    return connection;
  }

  std::uint32_t last_id_ = 1;
};

}  // namespace rib_threshold
