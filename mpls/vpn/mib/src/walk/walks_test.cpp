// Walks of VRFs, route targets and routes through the data store: every row once, in the MIB's order,
// whatever the size of the pieces and wherever a walk begins.
#include <cstddef>

#include "mpls/vpn/mib/src/records/pack.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/walk/walks_test_support.h"

namespace {

using router::MakeRoute;
using router::Route;

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

}  // namespace
