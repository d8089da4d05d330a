// Routes as a manager sees them, over a simulated daemon whose walk begins after a key, as the real one's.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <set>

#include "agent/tables/mib_test_fixture.h"

namespace {

using agent_test::cell;
using agent_test::FakeDaemon;
using agent_test::kPerformance;
using agent_test::kRoute;
using agent_test::kVrf;
using agent_test::L3vpnTablesTest;
using agent_test::name_of;
using agent_test::route_key;
using oid::Oid;
using tables::Answer;

class RouteTableTest : public L3vpnTablesTest {
 protected:
  // Some routes of many kinds: with and without next hop, of one prefix, at the ends of what keys can be.
  void AddRandomRoutes(int count) {
    static const std::vector<std::string> kVrfs = {"a", "b", "c", "red", "reds"};
    static const std::vector<std::string> kPrefixes = {
        "0.0.0.0/0",   "0.0.0.0/32",    "0.0.0.1/32",         "10.0.0.0/8",
        "10.0.0.0/16", "10.0.1.0/24",   "255.255.255.255/32", "::/0",
        "::1/128",     "2001:db8::/32", "2001:db8::/64",      "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128"};
    static const std::vector<std::string> kHops4 = {"", "0.0.0.1", "192.0.2.1", "192.0.2.255",
                                                    "255.255.255.255"};
    static const std::vector<std::string> kHops6 = {"", "::1", "2001:db8::1",
                                                    "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
    for (int i = 0; i < count; ++i) {
      const std::string& prefix = kPrefixes[random_() % kPrefixes.size()];
      const auto& hops = prefix.find(':') == std::string::npos ? kHops4 : kHops6;
      const std::string& hop = hops[random_() % hops.size()];
      const std::int32_t type = !hop.empty() ? 4 : random_() % 2 == 0 ? 3 : 5;
      daemon_.AddRoute(kVrfs[random_() % kVrfs.size()], prefix, hop, type);
    }
  }

  std::mt19937 random_{33};
};

TEST_F(RouteTableTest, RouteRowHasItsTwelveColumns) {
  daemon_.AddRoute("red", "10.0.0.0/8", "192.0.2.1", 4, {1, 2, 3, 4});
  const std::string index = "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1";
  EXPECT_THAT(Row(kRoute, 7, "red", index),
              testing::ElementsAre("7 integer", "4 integer", "14 integer", "60 gauge", "65010 unsigned",
                                   "10 integer", "20 integer", "30 integer", "40 integer",
                                   "4294967295 integer" /* -1 */, "\x01\x02\x03\x04", "1 integer"));
}

TEST_F(RouteTableTest, RouteWithoutCrossConnectPointsToNoLabelStack) {
  daemon_.AddRoute("red", "10.0.0.0/8", "", 3, {});
  EXPECT_EQ(Text(cell(kRoute, 17, "red", "1.4.10.0.0.0.8.2.0.0.0.0")), std::string(1, '\0'));
}

TEST_F(RouteTableTest, RoutesAreInTheOrderOfTheMib) {
  AddEverything();
  const std::string db8 = "2.16.32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.0";
  const std::string zeros = "0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0";
  EXPECT_EQ(Column(kRoute, 7),
            (std::vector<std::string>{
                "1.97.1.4.10.0.0.0.24.2.0.0.1.4.192.0.2.1",
                "3.114.101.100.1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0",
                "3.114.101.100.1.4.10.0.0.0.8.2.0.0.0.0",
                "3.114.101.100.1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1",
                "3.114.101.100.1.4.10.0.0.0.16.2.0.0.1.4.192.0.2.1",
                "3.114.101.100." + db8 + ".32.2.0.0.2.16.32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1",
                "4.98.108.117.101.1.4.10.9.0.0.16.2.0.0.0.0",
                "4.98.108.117.101.2.16." + zeros + ".0.2.0.0.2.16." + zeros,
                "4.98.108.117.101." + db8 + ".64.2.0.0.0.0",
            }));
}

TEST_F(RouteTableTest, UnreachableDefaultAppearsOnceAndDoesNotLoop) {
  daemon_.AddRoute("red", "0.0.0.0/0", "", 2);
  daemon_.AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Column(kRoute, 8),
            (std::vector<std::string>{"3.114.101.100.1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0",
                                      "3.114.101.100.1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1"}));
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Next(cell(kRoute, 8, "red", "1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0")),
            oid::to_text(cell(kRoute, 8, "red", "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1").view()));
  EXPECT_EQ(Shown(cell(kRoute, 8, "red", "1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0")), "2 integer");
  EXPECT_EQ(Get(cell(kRoute, 8, "red", "1.4.0.0.0.0.0.2.0.0.0.0")), Answer::kNoSuchInstance);
}

TEST_F(RouteTableTest, WalkThatLeavesIpv6RoutesShowsTheNextVrfsIpv4Routes) {
  AddEverything();
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(
      Next(
          cell(kRoute, 7, "red",
               "2.16.32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.0.32.2.0.0.2.16.32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1")),
      oid::to_text(cell(kRoute, 7, "blue", "1.4.10.9.0.0.16.2.0.0.0.0").view()));
}

TEST_F(RouteTableTest, LocalRouteIsNotShownAgainAtTheBeginningOfAWindow) {
  // The 128th row is a local route, so that the next window begins after it.
  for (int i = 1; i <= 127; ++i) daemon_.AddRoute("a", "10.0." + std::to_string(i) + ".0/24", "192.0.2.1");
  daemon_.AddRoute("a", "10.1.0.0/24", "", 3);
  daemon_.AddRoute("a", "10.1.0.0/24", "192.0.2.1");
  daemon_.AddRoute("a", "10.2.0.0/24", "192.0.2.1");
  EXPECT_EQ(Column(kRoute, 7).size(), 130U);
  EXPECT_EQ(daemon_.reads, 2);
  EXPECT_EQ(daemon_.paths[1], "/oper/mpls_vpn/gl/route-next/a/1/23/1/0a010000/ffffffff");
}

TEST_F(RouteTableTest, LocalRouteAsTheOnlyOneOfAWindowIsTheEnd) {
  daemon_.AddRoute("a", "10.1.0.0/24", "", 3);
  EXPECT_EQ(Column(kRoute, 7).size(), 1U);
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Get(cell(kRoute, 7, "a", "1.4.10.1.0.0.24.2.0.0.1.4.0.0.0.0")), Answer::kNoSuchInstance);
}

TEST_F(RouteTableTest, EarlyRowIsOneAtMostAndOnlyOfRoutes) {
  const Oid start = cell(kRoute, 7, "a", "1.4.10.1.0.0.24.2.0.0.0.0");  // after it
  const auto row = [](const char* prefix, const char* next_hop) {
    return FakeDaemon::RouteRecord(route_key("a", prefix, next_hop), *next_hop == 0 ? 3 : 4, {0});
  };
  daemon_.AnswerWalksWith({row("10.1.0.0/24", ""), row("10.1.0.0/24", "192.0.2.1")}, true);
  EXPECT_EQ(Next(start), oid::to_text(cell(kRoute, 7, "a", "1.4.10.1.0.0.24.2.0.0.1.4.192.0.2.1").view()));
  clock_.advance(kNanosecondsPerSecond);
  daemon_.AnswerWalksWith({row("10.0.0.0/24", ""), row("10.1.0.0/24", ""), row("10.1.0.0/24", "192.0.2.1")},
                          true);
  EXPECT_EQ(Next(start), "failed");
  daemon_.AnswerWalksWith({row("10.1.0.0/24", "")}, false);
  EXPECT_EQ(Next(start), "failed") << "neither a row nor the end";
  daemon_.AnswerWalksWith({row("10.2.0.0/24", ""), row("10.1.0.0/24", "192.0.2.1")}, true);
  EXPECT_EQ(Next(start), "failed") << "out of order";
}

TEST_F(RouteTableTest, RecordThatIsNotARouteOfTheMibFailsTheWindow) {
  auto key = route_key("a", "10.1.0.0/24", "192.0.2.1");
  for (const auto& spoil : std::vector<void (*)(agent_test::RouteKey*)>{
           [](auto* broken) { broken->type = 3; }, [](auto* broken) { broken->type = 2; },
           [](auto* broken) { broken->destination.pop_back(); },
           [](auto* broken) { broken->next_hop.clear(); },
           [](auto* broken) { broken->prefix_length = 33; }}) {
    auto broken = key;
    spoil(&broken);
    daemon_.AnswerWalksWith({FakeDaemon::RouteRecord(broken, 4, {0})}, true);
    EXPECT_EQ(Next(cell(kRoute, 7, "a")), "failed");
  }
  daemon_.AnswerWalksWith({FakeDaemon::RouteRecord(key, 4, {0})}, true);
  EXPECT_NE(Next(cell(kRoute, 7, "a")), "failed");
}

TEST_F(RouteTableTest, PartialOverlongAndOutOfRangeIndexesHaveNoInstance) {
  AddEverything();
  for (const char* rest :
       {"", "1", "1.4", "1.4.10.0.0.0", "1.4.10.0.0.0.8", "1.4.10.0.0.0.8.2.0.0", "1.4.10.0.0.0.8.2.0.0.1.4",
        "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2", "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1.0",
        "1.4.10.0.0.0.33.2.0.0.0.0", "3.4.10.0.0.0.8.2.0.0.0.0", "1.16.10.0.0.0.8.2.0.0.0.0",
        "1.4.10.0.0.256.8.2.0.0.0.0", "1.4.10.0.0.0.8.0.0.0", "1.4.10.0.0.0.8.3.0.0.0.0.0",
        "1.4.10.0.0.0.8.2.0.0.2.4.192.0.2.1"}) {
    EXPECT_EQ(Get(cell(kRoute, 7, "red", rest)), Answer::kNoSuchInstance) << rest;
  }
  EXPECT_EQ(daemon_.reads, 0);
  EXPECT_EQ(Get(cell(kRoute, 7, "red", "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.2")), Answer::kNoSuchInstance);
  EXPECT_EQ(Get(cell(kRoute, 7, "red", "1.4.10.0.0.0.8.2.0.0.1.4.0.0.0.0")), Answer::kNoSuchInstance);
  EXPECT_EQ(Get(cell(kRoute, 7, "red", "1.4.10.0.0.0.8.2.0.0.1.4.192.0.2.1")), Answer::kValue);
}

TEST_F(RouteTableTest, WalkWithoutAnyReadAheadShowsTheSame) {
  AddRandomRoutes(150);
  const std::vector<Oid> names = Walk();
  tables::Mib unbuffered(tables::l3vpn_tables(), daemon_, 0);
  Oid at = agent_test::parse_oid("1.3.6.1.2.1.10.166.11");
  for (const Oid& name : names) {
    ASSERT_EQ(unbuffered.next(at.view(), false, {}, &variable_), Answer::kValue);
    at = name_of(variable_);
    ASSERT_EQ(oid::to_text(at.view()), oid::to_text(name.view()));
  }
  EXPECT_EQ(unbuffered.next(at.view(), false, {}, &variable_), Answer::kEnd);
}

TEST_F(RouteTableTest, GetFindsWhatGetNextFoundInEveryTable) {
  AddEverything();
  AddRandomRoutes(150);
  const std::vector<Oid> names = Walk();
  EXPECT_GT(names.size(), 12U * 70U);
  for (const Oid& name : names) {
    clock_.advance(kNanosecondsPerSecond);
    ASSERT_EQ(Get(name), Answer::kValue) << oid::to_text(name.view());
    ASSERT_EQ(oid::to_text(name_of(variable_).view()), oid::to_text(name.view()));
  }
}

TEST_F(RouteTableTest, GetNextFromAnywhereFindsTheFollowingNameInEveryTable) {
  AddEverything();
  AddRandomRoutes(80);
  const std::vector<Oid> names = Walk();
  for (int round = 0; round < 1500; ++round) {
    Oid start = names[random_() % names.size()];
    start.truncate(8 + random_() % (start.size() - 7));
    if (random_() % 2 == 0) start[start.size() - 1] += static_cast<std::uint32_t>(random_() % 3) - 1;
    if (random_() % 4 == 0) {
      ASSERT_TRUE(start.append(static_cast<std::uint32_t>(random_() % 2)));
    }
    const auto expected = std::upper_bound(
        names.begin(), names.end(), start,
        [](const Oid& left, const Oid& right) { return oid::compare(left.view(), right.view()) < 0; });
    clock_.advance(kNanosecondsPerSecond);
    ASSERT_EQ(Next(start), expected == names.end() ? "end" : oid::to_text(expected->view()))
        << oid::to_text(start.view());
  }
}

TEST_F(RouteTableTest, RowsThatRemainAreShownExactlyOnceWhileOthersAreAddedAndRemoved) {
  const auto add = [&](int i, bool local) {
    daemon_.AddRoute(i % 2 == 0 ? "a" : "bb",
                     "10." + std::to_string(i / 200) + "." + std::to_string(i % 200) + ".0/24",
                     local ? "" : "192.0.2.1", local ? 3 : 4);
  };
  for (int i = 0; i < 1000; i += 4) add(i, i % 3 == 0);  // stay in "a"
  for (int i = 1; i < 1000; i += 4) add(i, i % 3 == 0);  // stay in "bb"
  const std::vector<std::string> stay = Column(kRoute, 7);
  ASSERT_EQ(stay.size(), 500U);
  for (int round = 0; round < 5; ++round) {
    std::multiset<std::string> seen;
    Oid at = cell(kRoute, 7, "");
    at.truncate(at.size() - 1);
    const Oid end = agent_test::parse_oid("1.3.6.1.2.1.10.166.11.1.4.1.1.8");
    while (mib_.next(at.view(), false, end.view(), &variable_) == Answer::kValue) {
      const Oid found = name_of(variable_);
      ASSERT_TRUE(oid::compare(found.view(), at.view()) > 0);
      at = found;
      seen.insert(oid::to_text(variable_.instance));
      const int i = static_cast<int>(random_() % 250) * 4 + 2;
      if (random_() % 2 == 0) {
        add(i, random_() % 2 == 0);
        daemon_.AddRoute("aa", "2001:db8::/32", "", 3 + 2 * static_cast<int>(random_() % 2));
        daemon_.AddRoute("aa", "2001:db8::/32", "::5");
      } else {
        daemon_.RemoveRoute("a", "10." + std::to_string(i / 200) + "." + std::to_string(i % 200) + ".0/24",
                            "");
        daemon_.RemoveVrf("aa");
      }
      if (random_() % 20 == 0) clock_.advance(kNanosecondsPerSecond);
    }
    for (const std::string& instance : stay) ASSERT_EQ(seen.count(instance), 1U) << instance;
  }
}

TEST_F(RouteTableTest, WalkContinuesAfterAVrfThatWasDeleted) {
  AddEverything();
  EXPECT_EQ(Next(cell(kRoute, 7, "red")),
            oid::to_text(cell(kRoute, 7, "red", "1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0").view()));
  daemon_.RemoveVrf("red");
  clock_.advance(kNanosecondsPerSecond);
  EXPECT_EQ(Next(cell(kRoute, 7, "red", "1.4.0.0.0.0.0.2.0.0.1.4.0.0.0.0")),
            oid::to_text(cell(kRoute, 7, "blue", "1.4.10.9.0.0.16.2.0.0.0.0").view()));
  EXPECT_EQ(Next(cell(kVrf, 3, "red")), oid::to_text(cell(kVrf, 3, "blue").view()));
  EXPECT_EQ(Next(cell(kPerformance, 3, "red")), oid::to_text(cell(kPerformance, 3, "blue").view()));
}

TEST_F(RouteTableTest, ColumnsOfARowComeFromOneWindow) {
  AddEverything();
  EXPECT_EQ(Column(kRoute, 7).size(), 9U);
  EXPECT_EQ(Column(kRoute, 8).size(), 9U);
  daemon_.RemoveVrf("red");
  for (std::uint32_t column = 7; column <= 18; ++column)
    EXPECT_EQ(Column(kRoute, column).size(), 9U) << column;
  EXPECT_EQ(daemon_.reads, 2);
}

}  // namespace
