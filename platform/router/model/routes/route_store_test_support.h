// For tests of the route store: a store, tables of it, and rows as texts.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/router/model/route_store.h"
#include "platform/router/model/route_test_support.h"

namespace router {

inline constexpr RouteTableId kRed{Family::kIpv4, 10};
inline constexpr RouteTableId kRed6{Family::kIpv6, 10};
inline constexpr RouteTableId kBlue{Family::kIpv4, 20};

class RouteStoreRows : public ::testing::Test {
 protected:
  RouteStoreRows() {
    store_.open(kRed);
    store_.open(kRed6);
    store_.open(kBlue);
  }

  RouteChange Put(RouteTableId table, const Route& route) {
    RouteChange change = RouteChange::kNone;
    EXPECT_EQ(store_.put(table, route, &change), kStatusOk);
    return change;
  }
  RouteChange Put(const std::string& prefix, const std::string& next_hop = "") {
    return Put(kRed, MakeRoute(prefix, next_hop));
  }
  RouteChange PutFrom(std::uint32_t origin, const std::string& prefix, const std::string& next_hop) {
    Route route = MakeRoute(prefix, next_hop);
    route.origin = origin;
    return Put(kRed, route);
  }
  static Route Labelled(const std::string& prefix, const std::string& next_hop,
                        const std::vector<std::uint32_t>& labels) {
    Route route = MakeRoute(prefix, next_hop);
    route.labels = labels;
    return route;
  }

  Route Find(RouteTableId table, const std::string& prefix, const std::string& next_hop = "") {
    Route route;
    EXPECT_TRUE(store_.find(table, MakeKey(prefix, next_hop), &route)) << prefix << " via " << next_hop;
    return route;
  }
  std::uint32_t Age(const std::string& prefix, const std::string& next_hop = "") {
    return route_age(Find(kRed, prefix, next_hop));
  }
  std::size_t EndRefresh(std::size_t limit = 1000) {
    std::size_t erased = 0;
    while (store_.end_refresh(kRed, limit, &erased)) ++pauses_;
    return erased;
  }
  void Wait(std::uint64_t seconds) { clock_.advance(seconds * kNanosecondsPerSecond); }
  void Reopen(RouteTableId table) {
    store_.close(table);
    store_.open(table);
  }
  std::vector<RouteTableId> TakeChanged() {
    std::vector<RouteTableId> tables;
    store_.take_changed([&](RouteTableId table) { tables.push_back(table); });
    return tables;
  }

  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
  RouteStore store_;
  int pauses_ = 0;
};

}  // namespace router
