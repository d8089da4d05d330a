// Walks of VRFs, route targets and routes through the data store: every row once, in the MIB's order,
// whatever the size of the pieces and wherever a walk begins.
#include <algorithm>
#include <cstddef>
#include <numeric>
#include <random>
#include <set>

#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"

namespace {

using router::MakeRoute;
using router::Route;
using router::RouteType;
using testing::ElementsAreArray;
using testing::IsEmpty;

// What a walk needs to know of its table: a row as text, and the rule that forms the following path.
template <typename Record>
struct Walked {
  const ParcelDescription& description;
  Status (*following)(const KvReply*, std::string*);
  std::string (*text)(const Record&);
};

class Walks : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    Connect();
    Provide();
  }
  // Walks from `path` to the end, `piece` rows at a time; each piece begins where the rule sends a reader
  // after the last row of the piece before.
  template <typename Record>
  std::vector<std::string> WalkAll(const Walked<Record>& table, std::string path, std::uint32_t piece) {
    Run();
    std::vector<std::string> texts;
    bool end = false;
    while (!end && texts.size() < 1000) {
      std::vector<std::vector<std::uint8_t>> rows = WalkOnce(path, piece, &end);
      for (std::vector<std::uint8_t>& row : rows) texts.push_back(Text(table, &row));
      if (rows.empty()) break;
      const KvReply last = {kKvKindRecord, rows.back().data(), rows.back().size()};
      if (table.following(&last, &path) != kStatusOk) break;
    }
    return texts;
  }
  template <typename Record>
  static std::string Text(const Walked<Record>& table, std::vector<std::uint8_t>* row) {
    const Decoded<Record> decoded(table.description, {kKvKindRecord, row->data(), row->size()});
    return table.text(*decoded.operator->());
  }
  // In pieces of every size from 1 up, the rows must be these.
  template <typename Record>
  void ExpectWalk(const Walked<Record>& table, const std::string& path,
                  const std::vector<std::string>& rows) {
    for (const std::uint32_t piece : {1U, 2U, 3U, 100U}) {
      EXPECT_THAT(WalkAll(table, path, piece), ElementsAreArray(rows)) << path << " in pieces of " << piece;
      ExpectBatch(path, piece);
    }
  }
  // A batch of columns has the columns of the records that a walk shows.
  void ExpectBatch(const std::string& path, std::uint32_t max_rows) {
    const KvColumnRule& rule = *std::find_if(
        mpls_vpn_mib_column_rules, mpls_vpn_mib_column_rules + mpls_vpn_mib_column_rule_count,
        [&](const KvColumnRule& each) { return path.starts_with(std::string(each.first_component) + "/"); });
    KvColumnBatch expected = NewBatch(max_rows);
    const std::vector<std::vector<std::uint8_t>> rows = WalkOnce(path, max_rows, &expected.end);
    for (std::vector<std::uint8_t> row : rows) {
      ASSERT_EQ(rule.pack({kKvKindRecord, row.data(), row.size()}, &expected), kStatusOk);
    }
    KvColumnBatch batch = NewBatch(max_rows);
    const Status rc = kvtree_columns("/oper/mpls_vpn/gl/" + path, &batch);
    EXPECT_EQ(rc, rows.empty() ? kStatusNoSuchRow : kStatusOk) << path << ": " << err_text(rc);
    EXPECT_EQ(batch.octets, expected.octets) << path << ", at most " << max_rows;
    EXPECT_EQ(batch.rows, rows.size());
    EXPECT_EQ(batch.end || rows.empty(), expected.end) << path << ", at most " << max_rows;
  }
  static KvColumnBatch NewBatch(std::uint32_t max_rows) {
    static constexpr std::uint8_t kSome[] = {0, 1, 2, 3,
                                             4, 5, 6};  // the index of every kind of row, and more
    KvColumnBatch batch;
    batch.columns = kSome;
    batch.max_rows = max_rows;
    batch.packer = kvtree::ColumnPacker(std::size(kSome));
    return batch;
  }
};

// --- VRFs

const Walked<mpls_vpn_mib_vrf> kVrfs = {kMibVrfParcel, vrf_following_path,
                                        [](const mpls_vpn_mib_vrf& row) { return std::string(row.name); }};

TEST_F(Walks, VrfsAreShownOnceInOrder) {
  for (const char* name : {"vrf10", "vrf9", "a/b", "red"}) AddVrf(name);
  NameVrf("later");
  ExpectWalk(kVrfs, "vrf-next/", {"a/b", "red", "vrf9", "vrf10"});
  ExpectWalk(kVrfs, "vrf-next/red", {"red", "vrf9", "vrf10"});
  ExpectWalk(kVrfs, "vrf-next/vrf11", {});
}

TEST_F(Walks, VrfsThatRemainAreShownOnceWhileOthersAreAddedAndRemoved) {
  for (const char* name : {"a", "c", "e", "g"}) AddVrf(name);
  Run();
  bool end = false;
  std::vector<std::vector<std::uint8_t>> rows = WalkOnce("vrf-next/", 2, &end);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(Text(kVrfs, &rows[1]), "c");
  DeleteVrf("c");
  AddVrf("b");
  AddVrf("d");
  const KvReply last = {kKvKindRecord, rows.back().data(), rows.back().size()};
  std::string path;
  ASSERT_EQ(vrf_following_path(&last, &path), kStatusOk);
  ExpectWalk(kVrfs, path, {"d", "e", "g"});
}

// What costs a search is left out of a row unless a column needs it.
TEST_F(Walks, BatchOfEachColumnOfAVrfHasWhatItsRecordHas) {
  AddVrf("red");
  AddVrf("idle");
  AddActiveInterface("ge0", "red");
  AddRoute("red", MakeRoute("10.1.0.0/16", "192.0.2.1"));
  Run();
  bool end = false;
  const std::vector<std::vector<std::uint8_t>> rows = WalkOnce("vrf-next/", 9, &end);
  ASSERT_EQ(rows.size(), 2U);
  for (std::uint8_t number = 0; number < std::size(mib::kVrfColumns); ++number) {
    const std::uint8_t columns[] = {number};
    KvColumnBatch expected;
    expected.columns = columns;
    expected.packer = kvtree::ColumnPacker(1);
    for (std::vector<std::uint8_t> row : rows) {
      const KvReply reply = {kKvKindRecord, row.data(), row.size()};
      ASSERT_EQ((mib::pack_reply<mib::Vrf, kMibVrfParcel, mib::kVrfColumns>(reply, &expected)), kStatusOk);
    }
    KvColumnBatch batch;
    batch.columns = columns;
    batch.max_rows = 9;
    ASSERT_EQ(kvtree_columns("/oper/mpls_vpn/gl/vrf-next/", &batch), kStatusOk);
    EXPECT_EQ(batch.octets, expected.octets) << "column " << unsigned{number};
  }
}

// --- Interfaces

TEST_F(Walks, BatchesOfInterfacesShowWhatAWalkShows) {
  for (const char* vrf : {"blue", "red", "a", "later", "empty"}) AddVrf(vrf);
  int number = 0;
  for (const char* vrf : {"red", "blue", "red", "a", "red", "later"}) {
    AddActiveInterface("ge" + std::to_string(number++), vrf);
  }
  Run();
  bool end = false;
  ASSERT_EQ(WalkOnce("interface-next//0", 100, &end).size(), 6U);
  const auto expect_batches = [this] {
    for (const char* path :
         {"interface-next//0", "interface-next/red/0", "interface-next/red/2", "interface-next/zz/0",
          "interface-next/blue/2147483647", "interface-next/longer-than-all-others/9"}) {
      for (const std::uint32_t piece : {1U, 2U, 3U, 100U}) ExpectBatch(path, piece);
    }
  };
  expect_batches();
  DeleteVrf("red");
  NameVrf("later");
  Run();
  expect_batches();
}

// --- Route targets

const Walked<mpls_vpn_mib_rt> kRouteTargets = {
    kMibRtParcel, rt_following_path, [](const mpls_vpn_mib_rt& row) {
      return std::string(row.vrfName) + "/" + std::to_string(row.index) + "/" + std::to_string(row.type) +
             " " + row.rt;
    }};

class RouteTargetWalks : public Walks {
 protected:
  void SetUp() override {
    Walks::SetUp();
    AddRouteTarget("aa", kRtExport, "1:3");
    AddRouteTarget("aa", kRtImport, "1:1");
    AddRouteTarget("b", kRtImport, "2:1");
    AddRouteTarget("b", kRtImport, "2:2");
    AddRouteTarget("b", kRtExport, "2:1", 2);
    AddRouteTarget("ccc", kRtExport, "3:1");
  }
  const std::vector<std::string> all = {"b/1/1 2:1",  "b/2/1 2:2",  "b/3/2 2:1",
                                        "aa/1/1 1:1", "aa/2/2 1:3", "ccc/1/2 3:1"};
  std::vector<std::string> From(std::ptrdiff_t first) const { return {all.begin() + first, all.end()}; }
};

TEST_F(RouteTargetWalks, EveryOneIsShownOnceUnderItsNumber) {
  ExpectWalk(kRouteTargets, "rt-next//0/0", all);
}

TEST_F(RouteTargetWalks, WalkBeginsAtTheFirstKeyThatIsNotSmaller) {
  ExpectWalk(kRouteTargets, "rt-next/b/0/3", all);
  ExpectWalk(kRouteTargets, "rt-next/b/2/1", From(1));
  ExpectWalk(kRouteTargets, "rt-next/b/2/2", From(2));
  ExpectWalk(kRouteTargets, "rt-next/b/3/3", From(3));
  ExpectWalk(kRouteTargets, "rt-next/c/1/1", From(3));
  ExpectWalk(kRouteTargets, "rt-next/ccc/1/3", {});
}

TEST_F(RouteTargetWalks, NumberThatTheVrfDoesNotHaveLosesNoRowOfTheFollowingVrfs) {
  ExpectWalk(kRouteTargets, "rt-next/b/4/1", From(3));
  ExpectWalk(kRouteTargets, "rt-next/b/5/2", From(3));
  ExpectWalk(kRouteTargets, "rt-next/b/6/1", From(3));
  ExpectWalk(kRouteTargets, "rt-next/b/7/1", From(3));
  ExpectWalk(kRouteTargets, "rt-next/b/4294967295/1", From(3));
}

TEST_F(RouteTargetWalks, RouteTargetsRemovedDuringAWalkHideNoRowOfTheFollowingVrfs) {
  ASSERT_EQ(mpls_vpn_mib_delete_rt_wavl_node("b", kRtImport, "2:1", 1, 1), 1);
  ASSERT_EQ(mpls_vpn_mib_delete_rt_wavl_node("b", kRtImport, "2:2", 1, 1), 1);
  ExpectWalk(kRouteTargets, "rt-next/b/3/3", From(3));
}

TEST_F(RouteTargetWalks, EmptyDatabaseHasNoRows) {
  mpls_vpn_mib_rt_dbase_end();
  ExpectWalk(kRouteTargets, "rt-next//0/0", {});
  ExpectWalk(kRouteTargets, "rt-next/b/3/1", {});
}

// --- Routes

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
