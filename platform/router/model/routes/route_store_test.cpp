// The route store by itself: order, identity, ages, refreshes, and what it refuses.
#include "platform/router/model/route_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "platform/core/base/fault.h"
#include "platform/router/model/route_test_support.h"
#include "platform/router/model/routes/route_store_test_support.h"

namespace router {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(RouteStoreRows, AreOrderedByDestinationPrefixLengthAndNextHop) {
  for (const char* prefix : {"10.0.0.0/24", "200.0.0.0/8", "10.0.0.0/8", "9.255.255.0/24"}) Put(prefix);
  Put("10.0.0.0/8", "192.0.2.1");
  Put("10.0.0.0/8", "9.0.0.1");
  Put("0.0.0.0/0");
  EXPECT_THAT(Walk(store_, kRed),
              ElementsAre("0.0.0.0/0", "9.255.255.0/24", "10.0.0.0/8", "10.0.0.0/8 via 9.0.0.1",
                          "10.0.0.0/8 via 192.0.2.1", "10.0.0.0/24", "200.0.0.0/8"));
}

TEST_F(RouteStoreRows, OfIpv6AreOrderedByTheirOctets) {
  for (const char* prefix : {"fe80::/64", "2001:db8::/48", "2001:db8::/32", "2001:db8:0:1::/64", "::/0"}) {
    Put(kRed6, MakeRoute(prefix));
  }
  Put(kRed6, MakeRoute("2001:db8::/32", "fe80::2"));
  Put(kRed6, MakeRoute("2001:db8::/32", "2001:db8::1"));
  EXPECT_THAT(Walk(store_, kRed6),
              ElementsAre("::/0", "2001:db8::/32", "2001:db8::/32 via 2001:db8::1",
                          "2001:db8::/32 via fe80::2", "2001:db8::/48", "2001:db8:0:1::/64", "fe80::/64"));
}

TEST_F(RouteStoreRows, OrderIsThatOfAMapOverManyRandomRoutes) {
  std::mt19937 random(1);
  for (const RouteTableId table : {kRed, kRed6}) {
    const std::size_t used = table.family == Family::kIpv4 ? 4 : 16;
    std::map<RouteKey, std::uint32_t> expected;
    for (std::uint32_t number = 1; number <= 5000; ++number) {
      Route route;
      for (std::size_t at = 0; at < used; ++at) {
        route.key.destination[at] = static_cast<std::uint8_t>(random() % 3 * 127);
        route.key.next_hop[at] = static_cast<std::uint8_t>(random() % 2 * 255);
      }
      route.key.prefix_length = static_cast<std::uint8_t>(8 * used);
      route.interface_index = number;
      if (random() % 4 == 0 && !expected.empty()) {
        const auto victim = std::next(expected.begin(), static_cast<long>(random() % expected.size()));
        ASSERT_EQ(store_.erase(table, victim->first), kStatusOk);
        expected.erase(victim);
      }
      ASSERT_EQ(store_.put(table, route), kStatusOk);
      expected[route.key] = number;
    }
    ASSERT_EQ(store_.count(table), expected.size());
    RouteKey key{};
    Route row;
    for (const auto& [wanted, number] : expected) {
      ASSERT_TRUE(key == RouteKey{} ? store_.find_first(table, &row) : store_.find_next(table, key, &row));
      ASSERT_EQ(row.key, wanted);
      ASSERT_EQ(row.interface_index, number);
      key = row.key;
    }
    EXPECT_FALSE(store_.find_next(table, key, &row));
  }
}

TEST_F(RouteStoreRows, CarryEverythingThatWasPut) {
  Route route = MakeRoute("10.1.0.0/16", "192.0.2.1");
  route.interface_index = 17;
  route.type = RouteType::kReject;
  route.protocol = static_cast<RouteProtocol>(200);
  route.row_status = 2;
  route.metrics = {1, -1, 0, 2147483647, 5};
  route.next_hop_as = 4200000000;
  route.labels = {1048575, 0, 100};
  Put(kRed, route);
  const Route row = Find(kRed, "10.1.0.0/16", "192.0.2.1");
  EXPECT_EQ(row.key, route.key);
  EXPECT_EQ(row.interface_index, 17U);
  EXPECT_EQ(row.type, RouteType::kReject);
  EXPECT_EQ(row.protocol, static_cast<RouteProtocol>(200));
  EXPECT_EQ(row.row_status, 2);
  EXPECT_THAT(row.metrics, ElementsAre(1, -1, 0, 2147483647, 5));
  EXPECT_EQ(row.next_hop_as, 4200000000U);
  EXPECT_THAT(row.labels, ElementsAre(1048575, 0, 100));
}

TEST_F(RouteStoreRows, SeveralPathsOfOnePrefixAreSeveralRows) {
  EXPECT_EQ(Put("10.0.0.0/8", "192.0.2.1"), RouteChange::kAdded);
  EXPECT_EQ(Put("10.0.0.0/8", "192.0.2.2"), RouteChange::kAdded);
  EXPECT_EQ(store_.count(kRed), 2U);
}

TEST_F(RouteStoreRows, OneKeyIsOneRow) {
  Put("10.0.0.0/8", "192.0.2.1");
  Route other = MakeRoute("10.0.0.0/8", "192.0.2.1");
  other.interface_index = 9;
  EXPECT_EQ(Put(kRed, other), RouteChange::kReplaced);
  EXPECT_EQ(store_.count(kRed), 1U);
  EXPECT_EQ(Find(kRed, "10.0.0.0/8", "192.0.2.1").interface_index, 9U);
}

TEST_F(RouteStoreRows, UnchangedRowRetainsItsAge) {
  Put("10.0.0.0/8", "192.0.2.1");
  Wait(30);
  EXPECT_EQ(Put("10.0.0.0/8", "192.0.2.1"), RouteChange::kNone);
  EXPECT_EQ(Age("10.0.0.0/8", "192.0.2.1"), 30U);
}

TEST_F(RouteStoreRows, EveryDifferenceResetsTheAge) {
  const Route first = MakeRoute("10.0.0.0/8", "192.0.2.1");
  const auto change_one = [&](auto change) {
    Put(kRed, first);
    Wait(30);
    Route other = first;
    change(&other);
    EXPECT_EQ(Put(kRed, other), RouteChange::kReplaced);
    EXPECT_EQ(Age("10.0.0.0/8", "192.0.2.1"), 0U);
  };
  change_one([](Route* route) { route->interface_index = 1; });
  change_one([](Route* route) { route->type = RouteType::kOther; });
  change_one([](Route* route) { route->protocol = RouteProtocol::kBgp; });
  change_one([](Route* route) { route->row_status = 3; });
  for (std::size_t metric = 0; metric < 5; ++metric) {
    change_one([metric](Route* route) { route->metrics[metric] = 7; });
  }
  change_one([](Route* route) { route->next_hop_as = 65000; });
  change_one([](Route* route) { route->labels = {16}; });
}

TEST_F(RouteStoreRows, AgeCountsFromTheChange) {
  Wait(5);
  Put("10.0.0.0/8");
  Wait(7);
  EXPECT_EQ(Age("10.0.0.0/8"), 7U);
}

TEST_F(RouteStoreRows, FindNextNeedsNoRowAtItsKey) {
  Put("10.0.0.0/8", "192.0.2.5");
  Put("11.0.0.0/8");
  Route route;
  ASSERT_TRUE(store_.find_next(kRed, MakeKey("10.0.0.0/8", "192.0.2.4"), &route));
  EXPECT_EQ(Text(Family::kIpv4, route.key), "10.0.0.0/8 via 192.0.2.5");
  ASSERT_TRUE(store_.find_next(kRed, MakeKey("10.0.0.0/8", "255.255.255.255"), &route));
  EXPECT_EQ(Text(Family::kIpv4, route.key), "11.0.0.0/8");
  EXPECT_FALSE(store_.find_next(kRed, MakeKey("11.0.0.0/8"), &route));
}

TEST_F(RouteStoreRows, WalkByKeysSurvivesChangesInBetween) {
  for (const char* prefix : {"10.0.0.0/8", "11.0.0.0/8", "13.0.0.0/8"}) Put(prefix);
  Route route;
  ASSERT_TRUE(store_.find_first(kRed, &route));
  ASSERT_EQ(store_.erase(kRed, route.key), kStatusOk);  // the current row of the walk
  ASSERT_EQ(store_.erase(kRed, MakeKey("11.0.0.0/8")), kStatusOk);
  Put("12.0.0.0/8");
  ASSERT_TRUE(store_.find_next(kRed, route.key, &route));
  EXPECT_EQ(Text(Family::kIpv4, route.key), "12.0.0.0/8");
}

TEST_F(RouteStoreRows, FindWritesNothingWhenThereIsNoRow) {
  Put("10.0.0.0/8");
  Route route = MakeRoute("99.0.0.0/8");
  EXPECT_FALSE(store_.find(kRed, MakeKey("10.0.0.0/9"), &route));
  EXPECT_FALSE(store_.find(kBlue, MakeKey("10.0.0.0/8"), &route));
  EXPECT_FALSE(store_.find_first(kBlue, &route));
  EXPECT_EQ(Text(Family::kIpv4, route.key), "99.0.0.0/8");
}

TEST_F(RouteStoreRows, KeysOfTheOtherFamilyFindNothing) {
  Put("0.0.0.0/0");
  Route route;
  EXPECT_FALSE(store_.find(kRed, MakeKey("2001:db8::/32"), &route));
  RouteKey beyond;
  beyond.destination[4] = 1;
  EXPECT_FALSE(store_.find(kRed, beyond, &route));
  EXPECT_FALSE(store_.find_next(kRed, beyond, &route));
  EXPECT_EQ(store_.erase(kRed, beyond), kStatusNoSuchRow);
}

TEST_F(RouteStoreRows, EraseRemovesOneRow) {
  Put("10.0.0.0/8", "192.0.2.1");
  Put("10.0.0.0/8", "192.0.2.2");
  EXPECT_EQ(store_.erase(kRed, MakeKey("10.0.0.0/8", "192.0.2.1")), kStatusOk);
  EXPECT_EQ(store_.erase(kRed, MakeKey("10.0.0.0/8", "192.0.2.1")), kStatusNoSuchRow);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.0.0.0/8 via 192.0.2.2"));
}

TEST_F(RouteStoreRows, CountsFollowTheRows) {
  EXPECT_EQ(store_.count(kRed), 0U);
  for (unsigned octet = 1; octet <= 200; ++octet) Put(std::to_string(octet) + ".0.0.0/8");
  EXPECT_EQ(store_.count(kRed), 200U);
  Put("1.0.0.0/8");
  EXPECT_EQ(store_.count(kRed), 200U);
  EXPECT_EQ(store_.erase(kRed, MakeKey("1.0.0.0/8")), kStatusOk);
  EXPECT_EQ(store_.count(kRed), 199U);
  EXPECT_EQ(store_.count({Family::kIpv4, 99}), 0U);
}

// --- Attributes that few routes have

TEST_F(RouteStoreRows, LabelsOfOneRouteAreNotThoseOfAnother) {
  Put(kRed, Labelled("10.0.0.0/8", "192.0.2.1", {100}));
  Put(kRed, Labelled("11.0.0.0/8", "192.0.2.1", {200, 300}));
  Put("12.0.0.0/8", "192.0.2.1");
  EXPECT_THAT(Find(kRed, "10.0.0.0/8", "192.0.2.1").labels, ElementsAre(100));
  EXPECT_THAT(Find(kRed, "11.0.0.0/8", "192.0.2.1").labels, ElementsAre(200, 300));
  EXPECT_THAT(Find(kRed, "12.0.0.0/8", "192.0.2.1").labels, IsEmpty());
}

TEST_F(RouteStoreRows, SharedLabelsRemainWhileOneRouteHasThem) {
  const Route first = Labelled("10.0.0.0/8", "192.0.2.1", {100});
  Route second = Labelled("11.0.0.0/8", "192.0.2.1", {100});
  Put(kRed, first);
  Put(kRed, second);
  Put(kRed, second);
  EXPECT_EQ(store_.erase(kRed, first.key), kStatusOk);
  EXPECT_THAT(Find(kRed, "11.0.0.0/8", "192.0.2.1").labels, ElementsAre(100));
  second.labels = {200};
  EXPECT_EQ(Put(kRed, second), RouteChange::kReplaced);
  EXPECT_THAT(Find(kRed, "11.0.0.0/8", "192.0.2.1").labels, ElementsAre(200));
}

TEST_F(RouteStoreRows, FirstLabelledPathOfAPrefixIsFound) {
  Put("10.0.0.0/8", "192.0.2.1");
  Route labelled = Labelled("10.0.0.0/8", "192.0.2.2", {100});
  Put(kRed, labelled);
  Put("10.0.0.0/9", "192.0.2.9");
  Route route;
  ASSERT_TRUE(store_.find_labelled(kRed, labelled.key.destination, 8, &route));
  EXPECT_EQ(Text(Family::kIpv4, route.key), "10.0.0.0/8 via 192.0.2.2");
  EXPECT_FALSE(store_.find_labelled(kRed, labelled.key.destination, 9, &route));
  EXPECT_FALSE(store_.find_labelled(kRed, labelled.key.destination, 7, &route));
  EXPECT_FALSE(store_.find_labelled(kRed, labelled.key.destination, 33, &route));
  EXPECT_FALSE(store_.find_labelled(kBlue, labelled.key.destination, 8, &route));
}

// --- Refreshes

TEST_F(RouteStoreRows, TableThatIsNotOpenTakesNoRoute) {
  EXPECT_EQ(store_.put({Family::kIpv4, 99}, MakeRoute("10.0.0.0/8")), kStatusNoSuchRow);
  EXPECT_EQ(store_.erase({Family::kIpv4, 99}, MakeKey("10.0.0.0/8")), kStatusNoSuchRow);
}

TEST_F(RouteStoreRows, InvalidRouteIsRejected) {
  const Route good = MakeRoute("10.0.0.0/8", "192.0.2.1");
  const auto refused = [&](RouteTableId table, auto change) {
    Route bad = good;
    change(&bad);
    return store_.put(table, bad) == kStatusInvalid;
  };
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->key.destination[1] = 1; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->key.prefix_length = 6; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->key.prefix_length = 33; }));
  EXPECT_TRUE(refused(kRed6, [](Route* route) { route->key.prefix_length = 129; }));
  EXPECT_TRUE(refused(kRed6, [](Route* route) { route->key.destination[15] = 1; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) {
    route->key.prefix_length = 32;
    route->key.destination[4] = 1;
  }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->key.next_hop[15] = 1; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->type = RouteType::kLocal; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->type = static_cast<RouteType>(6); }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->type = static_cast<RouteType>(0); }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->row_status = 0; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->row_status = 7; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->metrics[4] = -2; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->labels = {kLabelMax + 1}; }));
  EXPECT_TRUE(refused(kRed, [](Route* route) { route->labels.assign(kLabelStackMax + 1, 16); }));
  EXPECT_EQ(store_.total(), 0U);
  EXPECT_EQ(store_.put(kRed, good), kStatusOk);
}

TEST_F(RouteStoreRows, HostRoutesAreRoutes) {
  Put("10.1.2.3/32");
  Put(kRed6, MakeRoute("2001:db8::1/128"));
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.1.2.3/32"));
  EXPECT_THAT(Walk(store_, kRed6), ElementsAre("2001:db8::1/128"));
}

TEST_F(RouteStoreRows, FaultPointsFailTheChanges) {
  Put("10.0.0.0/8");
  {
    const ScopedFault fault("route_store_put", kStatusNoMemory);
    EXPECT_EQ(store_.put(kRed, MakeRoute("11.0.0.0/8")), kStatusNoMemory);
  }
  const ScopedFault fault("route_store_erase", kStatusIo);
  EXPECT_EQ(store_.erase(kRed, MakeKey("10.0.0.0/8")), kStatusIo);
  EXPECT_THAT(Walk(store_, kRed), ElementsAre("10.0.0.0/8"));
}

// --- Open tables and what changed

}  // namespace
}  // namespace router
