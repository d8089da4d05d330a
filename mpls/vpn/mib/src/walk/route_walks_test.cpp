// Walks over routes.
#include <algorithm>
#include <numeric>
#include <random>
#include <set>

#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/walk/walks_test_support.h"

namespace {

using router::MakeRoute;
using router::Route;
using router::RouteType;
using testing::IsEmpty;

class RouteWalks : public Walks {
 protected:
  static std::string AsText(const mpls_vpn_mib_route& row) { return RouteText(row); }
  const Walked<mpls_vpn_mib_route> routes_{kMibRouteParcel, route_following_path, AsText};

  void ExpectRoutes(const std::string& path, const std::vector<std::string>& rows) {
    ExpectWalk(routes_, path, rows);
  }
  void AddRejectedDefault(const std::string& vrf, const std::string& prefix) {
    Route route = MakeRoute(prefix);
    route.type = RouteType::kReject;
    AddRoute(vrf, route, FamilyOf(prefix));
  }
};

TEST_F(RouteWalks, RejectedDefaultRoutesAreShownOnce) {
  AddVrf("red");
  AddVrf("blue");
  for (const char* vrf : {"red", "blue"}) {
    AddRejectedDefault(vrf, "0.0.0.0/0");
    AddRejectedDefault(vrf, "::/0");
    AddRoute(vrf, "10.0.0.0/8", "192.0.2.1");
    AddRoute(vrf, "2001:db8::/32", "fe80::1");
  }
  ExpectRoutes(
      "route-next//1/0/1/0/0",
      {"red 0.0.0.0/0", "red 10.0.0.0/8 via 192.0.2.1", "red ::/0", "red 2001:db8::/32 via fe80::1",
       "blue 0.0.0.0/0", "blue 10.0.0.0/8 via 192.0.2.1", "blue ::/0", "blue 2001:db8::/32 via fe80::1"});
}

TEST_F(RouteWalks, DefaultRouteAloneDoesNotLoop) {
  AddVrf("red");
  AddRejectedDefault("red", "0.0.0.0/0");
  ExpectRoutes("route-next//1/0/1/0/0", {"red 0.0.0.0/0"});
  AddVrf("blue");
  AddRejectedDefault("blue", "::/0");
  ExpectRoutes("route-next//1/0/1/0/0", {"red 0.0.0.0/0", "blue ::/0"});
}

TEST_F(RouteWalks, ZeroKeyBeginsTheTableInASingleReadAndFollowsTheDefaultRouteInAWalk) {
  AddVrf("red");
  AddRejectedDefault("red", "0.0.0.0/0");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  Run();
  const std::string zero_key = "route-next/red/1/0/1/00000000/00000000";
  Reply reply;
  ASSERT_EQ(kvtree_get("/oper/mpls_vpn/gl/" + zero_key, false, reply.Place()), kStatusOk);
  const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply.Get());
  EXPECT_EQ(RouteText(*row.operator->()), "red 0.0.0.0/0");
  ExpectRoutes(zero_key, {"red 10.0.0.0/8 via 192.0.2.1"});
}

TEST_F(RouteWalks, LocalDefaultRouteIsShownOnceToo) {
  AddVrf("red");
  AddRoute("red", "0.0.0.0/0");
  AddRoute("red", "0.0.0.0/0", "192.0.2.1");
  ExpectRoutes("route-next//1/0/1/0/0", {"red 0.0.0.0/0", "red 0.0.0.0/0 via 192.0.2.1"});
}

TEST_F(RouteWalks, SmallestNextHopAfterTheDefaultRouteIsNotLost) {
  AddVrf("red");
  AddRejectedDefault("red", "0.0.0.0/0");
  AddRoute("red", "0.0.0.0/0", "0.0.0.1");
  AddRoute("red", "0.0.0.0/0", "0.0.0.2");
  AddRejectedDefault("red", "::/0");
  AddRoute("red", "::/0", "::1");
  AddRoute("red", "::/0", "::2");
  ExpectRoutes("route-next//1/0/1/0/0",
               {"red 0.0.0.0/0", "red 0.0.0.0/0 via 0.0.0.1", "red 0.0.0.0/0 via 0.0.0.2", "red ::/0",
                "red ::/0 via ::1", "red ::/0 via ::2"});
}

TEST_F(RouteWalks, VrfsWithOneFamilyOrNoneAreNotJumpedOver) {
  for (const char* vrf : {"a", "b", "c", "d", "e", "f"}) AddVrf(vrf);
  AddRoute("a", "2001:db8::/32", "fe80::1");
  AddRoute("b", "10.0.0.0/8", "192.0.2.1");
  AddRoute("d", "2001:db8::/32", "fe80::1");
  AddRoute("d", "10.0.0.0/8", "192.0.2.1");
  AddRoute("f", "11.0.0.0/8", "192.0.2.1");
  const std::vector<std::string> all = {"a 2001:db8::/32 via fe80::1", "b 10.0.0.0/8 via 192.0.2.1",
                                        "d 10.0.0.0/8 via 192.0.2.1", "d 2001:db8::/32 via fe80::1",
                                        "f 11.0.0.0/8 via 192.0.2.1"};
  ExpectRoutes("route-next//1/0/1/0/0", all);
  ExpectRoutes("route-next/c/1/0/1/0/0", {all.begin() + 2, all.end()});
  ExpectRoutes("route-next/e/1/0/1/0/0", {all.begin() + 4, all.end()});
}

// VRFs with tables of both families, of one or of none, with and without routes, in a random order of names.
class RandomRoutes : public RouteWalks, public testing::WithParamInterface<unsigned> {
 protected:
  void SetUp() override {
    RouteWalks::SetUp();
    std::set<std::string> names;
    while (names.size() < 12) names.insert(std::string(1 + Draw(3), static_cast<char>('a' + Draw(5))));
    for (const std::string& name : names) AddRandomVrf(name);
    Run();
  }
  unsigned Draw(unsigned below) { return static_cast<unsigned>(random_() % below); }
  void AddRandomVrf(const std::string& name) {
    const bool ipv4 = Draw(3) != 0;
    const bool ipv6 = Draw(3) != 0;
    AddVrfWithTables(name, ipv4, ipv6);
    if (ipv4) AddRandomRoutes(name, {"0.0.0.0/0", "10.0.0.0/8", "10.1.0.0/16", "192.0.2.0/24"}, "192.0.2.");
    if (ipv6) AddRandomRoutes(name, {"::/0", "2001:db8::/32", "2001:db8:1::/48", "fd00::/8"}, "fe80::");
  }
  void AddRandomRoutes(const std::string& vrf, const std::vector<std::string>& prefixes,
                       const std::string& hop) {
    for (const std::string& prefix : prefixes) {
      if (Draw(3) == 0) AddRoute(vrf, prefix, hop + "1");
      if (Draw(3) == 0) AddRoute(vrf, prefix, hop + "2");
      if (Draw(3) == 0 && !prefix.ends_with("/0")) AddRoute(vrf, prefix);
    }
  }
  // What the router has.
  std::vector<std::string> RowsOfTheRouter() {
    std::vector<std::string> rows;
    router_.for_each_vrf([&](const router::Vrf& vrf) {
      for (const router::Family family : {router::Family::kIpv4, router::Family::kIpv6}) {
        for (const std::string& row : router::Walk(router_.routes(), TableOf(vrf.name, family))) {
          rows.push_back(vrf.name + " " + row);
        }
      }
    });
    return rows;
  }
  // What single reads show: each asks for the row after the one that was read.
  std::vector<std::string> RowsReadOneByOne(std::string path) {
    std::vector<std::string> rows;
    for (;;) {
      Reply reply;
      const Status rc = kvtree_get("/oper/mpls_vpn/gl/" + path, false, reply.Place());
      EXPECT_TRUE(rc == kStatusOk || rc == kStatusNoSuchRow) << path << ": " << err_text(rc);
      if (rc != kStatusOk || rows.size() > 1000) return rows;
      const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply.Get());
      rows.push_back(RouteText(*row.operator->()));
      const KvReply read = reply.Get();
      EXPECT_EQ(route_following_path(&read, &path), kStatusOk);
    }
  }

 private:
  std::minstd_rand random_{GetParam()};
};

TEST_P(RandomRoutes, SingleReadsAndBatchesShowWhatTheRouterHas) {
  const std::vector<std::string> rows = RowsOfTheRouter();
  ASSERT_GT(rows.size(), 10U);
  EXPECT_EQ(RowsReadOneByOne("route-next//1/0/1/0/0"), rows);
  ExpectRoutes("route-next//1/0/1/0/0", rows);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRoutes, testing::Range(1U, 41U));

TEST_F(RouteWalks, WalkFromAKeyOfAVrfThatIsNotThereShowsTheFollowingVrfsWhole) {
  AddVrf("blue");
  AddRoute("blue", "9.0.0.0/8", "192.0.2.1");
  AddRoute("blue", "10.0.0.0/8", "192.0.2.1");
  const std::vector<std::string> all = {"blue 9.0.0.0/8 via 192.0.2.1", "blue 10.0.0.0/8 via 192.0.2.1"};
  ExpectRoutes("route-next/red/1/8/1/09000000/c0000201", all);
  ExpectRoutes("route-next/red/1/8/1/ff000000/c0000201", all);
  ExpectRoutes("route-next/red/2/0/2/0/0", all);
}

TEST_F(RouteWalks, WalkBeginsAfterTheGivenKey) {
  AddVrf("red");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "10.0.0.0/8", "192.0.2.2");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  ExpectRoutes("route-next/red/1/8/1/0a000000/c0000201",
               {"red 10.0.0.0/8 via 192.0.2.2", "red 2001:db8::/32 via fe80::1"});
  ExpectRoutes("route-next/red/1/32/1/ffffffff/ffffffff", {"red 2001:db8::/32 via fe80::1"});
  ExpectRoutes("route-next/red/2/0/2/0/0", {"red 2001:db8::/32 via fe80::1"});
  ExpectRoutes("route-next/red/2/128/2/" + std::string(32, 'f') + "/" + std::string(32, 'f'), {});
}

TEST_F(RouteWalks, RowsThatRemainAreShownOnceWhileOthersAreAddedAndRemoved) {
  AddVrf("red");
  AddRejectedDefault("red", "0.0.0.0/0");
  for (int i = 1; i <= 20; ++i) AddRoute("red", "10." + std::to_string(i) + ".0.0/16", "192.0.2.1");
  std::vector<std::string> shown;
  std::string path = "route-next//1/0/1/0/0";
  Run();
  for (int turn = 0; turn < 100; ++turn) {
    bool end = false;
    std::vector<std::vector<std::uint8_t>> rows = WalkOnce(path, 3, &end);
    if (rows.empty()) break;
    for (std::vector<std::uint8_t>& row : rows) shown.push_back(Text(routes_, &row));
    const KvReply last = {kKvKindRecord, rows.back().data(), rows.back().size()};
    ASSERT_EQ(route_following_path(&last, &path), kStatusOk);
    // Odd rows are removed, some of them while the walk is at them; new rows are added before and after it.
    if (turn < 10) RemoveRoute("red", "10." + std::to_string(2 * turn + 1) + ".0.0/16", "192.0.2.1");
    AddRoute("red", "9." + std::to_string(turn) + ".0.0/16", "192.0.2.1");
  }
  for (int i = 2; i <= 20; i += 2) {
    const std::string stayed = "red 10." + std::to_string(i) + ".0.0/16 via 192.0.2.1";
    EXPECT_EQ(std::count(shown.begin(), shown.end(), stayed), 1) << stayed;
  }
  EXPECT_EQ(std::count(shown.begin(), shown.end(), "red 0.0.0.0/0"), 1);
}

TEST_F(RouteWalks, WithoutRoutesThereAreNoRows) {
  AddVrf("red");
  ExpectRoutes("route-next//1/0/1/0/0", {});
  ExpectRoutes("route-next/red/2/0/2/0/0", {});
}

TEST_F(RouteWalks, WalkThatRunsOutOfMemoryFailsInsteadOfLosingRows) {
  AddVrf("red");
  AddVrf("blue");
  for (const char* vrf : {"red", "blue"}) {
    AddRoute(vrf, "10.0.0.0/8", "192.0.2.1");
    AddRoute(vrf, "2001:db8::/32", "fe80::1");
  }
  AddRoute("red", "2001:db9::/32", "fe80::1");
  Run();
  const std::string in_ipv6 =
      "route-next/red/2/32/2/20010db8000000000000000000000000/" + std::string(32, 'f');
  for (const std::string& path : {std::string("route-next//1/0/1/0/0"), in_ipv6}) {
    for (const char* point : {"calloc_tagged:route dest", "calloc_tagged:forwardmib"}) {
      const ScopedFault fault(point, kStatusNoMemory);
      std::vector<std::vector<std::uint8_t>> rows;
      bool end = false;
      EXPECT_EQ(kvtree_walk("/oper/mpls_vpn/gl/" + path, false, 9, &rows, &end), kStatusNoMemory) << point;
      EXPECT_THAT(rows, IsEmpty());
    }
  }
}

TEST_F(RouteWalks, BatchThatRunsOutOfMemoryFailsInsteadOfLosingRows) {
  AddVrf("red");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  Run();
  const ScopedFault fault("calloc_tagged:forwardmib", kStatusNoMemory);
  KvColumnBatch batch = NewBatch(9);
  EXPECT_EQ(kvtree_columns("/oper/mpls_vpn/gl/route-next//1/0/1/0/0", &batch), kStatusNoMemory);
}

// A client may begin one row before the one that it needs.
TEST_F(RouteWalks, BatchWhoseTimeIsOverAfterOneRowIsContinued) {
  for (const char* vrf : {"a", "b", "c"}) {
    AddVrf(vrf);
    AddRoute(vrf, "10.0.0.0/8", "192.0.2.1");
  }
  Run();
  KvSteps steps;  // each one is over at once
  KvColumnBatch batch = NewBatch(9);
  batch.steps = &steps;
  int unfinished = 0;
  Status rc = kStatusUnfinished;
  for (; rc == kStatusUnfinished && unfinished < 9; ++unfinished)
    rc = kvtree_columns("/oper/mpls_vpn/gl/route-next//1/0/1/0/0", &batch);
  EXPECT_EQ(rc, kStatusOk);
  EXPECT_GT(unfinished, 1);
  EXPECT_EQ(batch.rows, 3U);
  EXPECT_TRUE(batch.end);
  KvColumnBatch at_once = NewBatch(9);
  ASSERT_EQ(kvtree_columns("/oper/mpls_vpn/gl/route-next//1/0/1/0/0", &at_once), kStatusOk);
  EXPECT_EQ(batch.octets, at_once.octets);
}

TEST_F(RouteWalks, BatchOfUnknownColumnsOrAnInvalidKeyIsRefused) {
  AddVrf("red");
  Run();
  static constexpr std::uint8_t kUnknown[] = {200};
  for (const char* path : {"route-next//1/0/1/0/0", "interface-next//0", "vrf-next/"}) {
    KvColumnBatch batch;
    batch.columns = kUnknown;
    batch.max_rows = 1;
    const Status rc = kvtree_columns(std::string("/oper/mpls_vpn/gl/") + path, &batch);
    EXPECT_TRUE(rc == kStatusInvalid || rc == kStatusNoSuchRow) << path << ": " << err_text(rc);
  }
  for (const char* path :
       {"route-next/red/3/0/1/0/0", "route-next/red/1/33/1/0a000000/00000000", "route-next/red/1/8/1/0a/00",
        "route-next/red/1/x/1/0a000000/00000000", "route-next/red", "interface-next/red/x",
        "interface-next/red/-1", "interface-next/red/1/1"}) {
    KvColumnBatch batch = NewBatch(1);
    EXPECT_EQ(kvtree_columns(std::string("/oper/mpls_vpn/gl/") + path, &batch), kStatusBadKey) << path;
  }
}

TEST_F(RouteWalks, BatchHasTheCrossConnectOfALabelledRouteAndEveryOtherColumn) {
  AddVrf("red");
  Route route = MakeRoute("10.1.0.0/16", "192.0.2.1");
  route.interface_index = 7;
  route.metrics = {11, 12, 13, 14, 15};
  AddRoute("red", route);
  AddRoute("red", "2001:db8::/32", "fe80::1");
  Run();
  std::vector<std::uint8_t> every(std::size(mib::kRouteColumns));
  std::iota(every.begin(), every.end(), std::uint8_t{0});
  bool end = false;
  KvColumnBatch expected;
  expected.columns = every;
  expected.packer = kvtree::ColumnPacker(every.size());
  for (std::vector<std::uint8_t> row : WalkOnce("route-next//1/0/1/0/0", 9, &end)) {
    const KvReply reply = {kKvKindRecord, row.data(), row.size()};
    ASSERT_EQ((mib::pack_reply<mib::Route, kMibRouteParcel, mib::kRouteColumns>(reply, &expected)),
              kStatusOk);
  }
  KvColumnBatch batch;
  batch.columns = every;
  batch.max_rows = 9;
  ASSERT_EQ(kvtree_columns("/oper/mpls_vpn/gl/route-next//1/0/1/0/0", &batch), kStatusOk);
  EXPECT_EQ(batch.octets, expected.octets);
  EXPECT_EQ(batch.rows, 2U);
}

TEST_F(RouteWalks, LaterTablesOfAFamilyShowOnlyRowsAfterTheEarlierOnes) {
  AddVrfWithTables("four", true, false, true, false);
  AddRoute("four", "10.0.0.0/8", "192.0.2.1");
  AddMulticastRoute("four", "9.0.0.0/8", "192.0.2.1");
  AddMulticastRoute("four", "10.0.0.0/8", "192.0.2.1");
  AddMulticastRoute("four", "11.0.0.0/8", "192.0.2.1");
  ExpectRoutes("route-next//1/0/1/0/0", {"four 10.0.0.0/8 via 192.0.2.1", "four 11.0.0.0/8 via 192.0.2.1"});
}

}  // namespace
