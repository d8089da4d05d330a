// For tests: the service with a router model, its configuration and a manual clock.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/config/items.h"
#include "platform/config/paths.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/route_watch/records.h"
#include "platform/router/route_watch/route_watch.h"
#include "platform/store/tree/kvtree.h"

namespace route_watch {

using vrf_config::Kind;

class RouteWatch : public router::RouterTest {
 protected:
  RouteWatch() {
    kvtree_reset();
    manager_ = event_manager_create("/dev/test/main", 0);
    EXPECT_EQ(route_watch_attach(&router_, manager_), kStatusOk);
    AddVrf("red", 10);
  }
  ~RouteWatch() override {
    route_watch_detach();
    kvtree_reset();
    event_manager_destroy(manager_);
  }
  void AddVrf(const std::string& name, std::uint32_t table) {
    router::Vrf vrf = MakeVrf(name, ++last_id_);
    vrf.ipv4_table = vrf.ipv6_table = table;
    RouterTest::AddVrf(vrf);
  }
  void Set(Kind kind, const vrf_config::Fields& fields) {
    const KvConfigNode node = vrf_config::node_of(kind, fields);
    ASSERT_EQ(kvtree_set(node.path, node.value), kStatusOk);
    Run();
  }
  void Unset(Kind kind, const vrf_config::Fields& fields) {
    ASSERT_EQ(kvtree_delete(vrf_config::node_of(kind, fields).path), kStatusOk);
    Run();
  }
  void SetLow(std::uint32_t low, std::uint32_t hold, const std::string& vrf = "red") {
    Set(Kind::kLowWater, {.vrf = vrf, .number = low, .mid = hold});
  }
  void WatchPrefix(const std::string& prefix, const std::string& vrf = "red") {
    Set(Kind::kWatchedPrefix, {.vrf = vrf, .prefix = prefix});
  }
  static router::RouteTableId Table(const std::string& prefix) {
    return {prefix.find(':') == std::string::npos ? router::Family::kIpv4 : router::Family::kIpv6, 10};
  }
  void AddRoute(const std::string& prefix, const std::string& next_hop = "") {
    PutRoute(Table(prefix), router::MakeRoute(prefix, next_hop));
  }
  void AddRoute(const std::string& prefix, router::RouteType type) {
    router::Route route = router::MakeRoute(prefix);
    route.type = type;
    PutRoute(Table(prefix), route);
  }
  void PutRoute(router::RouteTableId table, const router::Route& route) {
    ASSERT_EQ(router_.routes().put(table, route), kStatusOk);
    router_.flush_route_changes();
  }
  void RemoveRoute(const std::string& prefix, const std::string& next_hop = "") {
    ASSERT_EQ(router_.routes().erase(Table(prefix), router::MakeKey(prefix, next_hop)), kStatusOk);
    router_.flush_route_changes();
  }
  void Run() { event_run_pending(manager_); }
  void RunIteration() {
    std::array<unsigned char, 1024> buffer;
    EventContext context{manager_, buffer.data(), buffer.size(), 0};
    if (event_wait_for(&context, 0) == 0) event_dispatch(&context);
  }
  void Pass(std::uint64_t milliseconds) {
    clock_.advance(milliseconds * kNanosecondsPerMillisecond);
    Run();
  }
  // "ipv4 routes<low/hold state", and "prefix present" or "prefix absent", of all VRFs, as a reader gets
  // them.
  static std::vector<std::string> Shown() {
    std::vector<std::string> lines;
    std::string path = std::string(kProviderPath) + kVrfNext + "/-";
    KvReply reply{};
    while (kvtree_get(path, false, &reply) == kStatusOk) {
      WatchedVrfRecord record{};
      EXPECT_EQ(parcel_decode(&kWatchedVrfParcel, reply.data, reply.length, &record), kStatusOk);
      std::free(reply.data);
      AddLines(record, &lines);
      path = std::string(kProviderPath) + kVrfNext + "/" + kvtree_encode_text(record.vrf);
      EXPECT_EQ(parcel_free_indirections(&kWatchedVrfParcel, &record), kStatusOk);
    }
    return lines;
  }
  static void AddLines(const WatchedVrfRecord& record, std::vector<std::string>* lines) {
    const auto* table = static_cast<const WatchedTableRecord*>(record.tables.elements);
    for (std::uint64_t at = 0; at < record.tables.count; ++at, ++table) {
      lines->push_back(std::string(record.vrf) + " " + (table->afi == 1 ? "ipv4 " : "ipv6 ") +
                       std::to_string(table->routes) + "<" + std::to_string(table->low) + "/" +
                       std::to_string(table->hold) + (table->is_low != 0 ? " low" : " ok") +
                       (table->is_unread != 0 ? ", not read" : ""));
    }
    const auto* prefix = static_cast<const WatchedPrefixRecord*>(record.prefixes.elements);
    for (std::uint64_t at = 0; at < record.prefixes.count; ++at, ++prefix)
      lines->push_back(std::string(record.vrf) + " " + prefix->prefix +
                       (prefix->is_watched == 0   ? " not watched"
                        : prefix->is_present != 0 ? " present"
                                                  : " absent") +
                       (prefix->is_unread != 0 ? ", not read" : ""));
  }
  // What is logged meanwhile.
  template <typename Action>
  static std::string LogOf(Action action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
  }

  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
  TestRunDirectory directory_;
  EventManager* manager_ = nullptr;
  std::uint32_t last_id_ = 1;
};

}  // namespace route_watch
