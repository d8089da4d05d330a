// The interface index by name through the list that is fetched once.
#include "mpls/vpn/mib/src/interface/cached_ifindex.h"

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CachedIfindex : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    AddInterface("ge0");
    AddInterface("ge1");
    // These fault points only count calls: no test calls often enough for a failure.
    fault_arm("ifname_to_index", kStatusIo, 1'000'000);
    fault_arm("ifindex_get_index_list", kStatusIo, 1'000'000);
  }
  static std::string LookupFailure(const char* what, Status status) {
    return Failure("mpls_vpn_cached_ifname_to_index", what, status);
  }
};

}  // namespace

TEST_F(CachedIfindex, FirstSuccessFetchesTheListAndLaterLookupsReadIt) {
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 1U);
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 1U);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 1U);
}

TEST_F(CachedIfindex, FirstMissDropsTheListForGood) {
  mpls_vpn_cached_ifname_to_index("ge0");
  AddInterface("ge2");
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge2"), IndexOf("ge2"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 2U);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 3U);
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 1U);
}

TEST_F(CachedIfindex, UnknownNameIsZeroAndDoesNotUseUpTheFetch) {
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("none"), 0U);
  EXPECT_THAT(Prints(), ElementsAre(LookupFailure("ifname_to_index failed", kStatusNoSuchRow),
                                    std::string("Interface index error ") + err_text(kStatusNoSuchRow)));
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 0U);
  mpls_vpn_cached_ifname_to_index("ge0");
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 1U);
}

TEST_F(CachedIfindex, FailedFetchIsReportedAndNotRepeated) {
  fault_arm("ifindex_get_index_list", kStatusIo);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_THAT(Prints(), ElementsAre(LookupFailure("ifindex_get_index_list failed", kStatusIo)));
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 1U);
  EXPECT_EQ(fault_reached("ifname_to_index"), 2U);
}

TEST_F(CachedIfindex, ListThatCannotBeStartedIsDropped) {
  mpls_vpn_cached_ifname_to_index("ge0");
  ClearPrints();
  fault_arm("kvtree_datalist_start", kStatusIo);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
  EXPECT_THAT(Prints(), ElementsAre(LookupFailure("kvtree_datalist_start failed", kStatusIo)));
  EXPECT_EQ(fault_reached("ifname_to_index"), 2U);
  ClearPrints();
  mpls_vpn_cached_ifname_to_index("ge1");
  EXPECT_EQ(fault_reached("ifname_to_index"), 3U) << "the list is discarded";
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(CachedIfindex, ListWithAnEntryWithoutAValueIsDroppedByTheLookupThatReachesIt) {
  AddInterface("ge2");
  for (const char* name : {"ge1", "ge2"}) {  // the entry itself, and a later one
    mpls_vpn_cached_ifindex_end();           // a new list
    fault_arm("ifindex_list_entry", kStatusIo, 2);
    mpls_vpn_cached_ifname_to_index("ge0");
    fault_arm("ifname_to_index", kStatusIo, 1'000'000);  // counts from here
    EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0")) << "it is before the entry";
    EXPECT_EQ(fault_reached("ifname_to_index"), 0U);
    EXPECT_EQ(mpls_vpn_cached_ifname_to_index(name), IndexOf(name));
    EXPECT_EQ(fault_reached("ifname_to_index"), 1U) << name;
    EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
    EXPECT_EQ(fault_reached("ifname_to_index"), 2U) << "the list is discarded";
  }
}

TEST_F(CachedIfindex, ListThatCannotBeReadIsDropped) {
  mpls_vpn_cached_ifname_to_index("ge0");
  fault_arm("kvtree_datalist_next", kStatusIo);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 3U);
}

// What the list said of an interface ends with it: a name may be another interface's by the next lookup.
TEST_F(CachedIfindex, InterfaceMadeAgainUnderItsNameHasItsNewIndex) {
  mpls_vpn_cached_ifname_to_index("ge0");
  RemoveInterface("ge1");
  AddInterface("other");
  AddInterface("ge1");
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
}

TEST_F(CachedIfindex, InterfacesThatSwapTheirNamesHaveTheirOwnIndexes) {
  mpls_vpn_cached_ifname_to_index("ge0");
  Rename("ge0", "aside");
  Rename("ge1", "ge0");
  Rename("aside", "ge1");
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), IndexOf("ge1"));
}

TEST_F(CachedIfindex, InterfaceWhoseIndexChangesHasItsNewIndex) {
  mpls_vpn_cached_ifname_to_index("ge0");
  SetIndex("ge1", 77);
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), 77U);
}

TEST_F(CachedIfindex, RemovedInterfaceHasNoIndex) {
  mpls_vpn_cached_ifname_to_index("ge0");
  RemoveInterface("ge1");
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge1"), 0U);
}

TEST_F(CachedIfindex, LookupThatReachesAChangedInterfaceDropsTheListForGood) {
  AddInterface("ge2");
  mpls_vpn_cached_ifname_to_index("ge0");
  Rename("ge1", "renamed");
  fault_arm("ifname_to_index", kStatusIo, 1'000'000);  // counts from here
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 0U) << "ge0 precedes the changed entry";
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge2"), IndexOf("ge2"));
  EXPECT_EQ(mpls_vpn_cached_ifname_to_index("ge0"), IndexOf("ge0"));
  EXPECT_EQ(fault_reached("ifname_to_index"), 2U);
  EXPECT_EQ(fault_reached("ifindex_get_index_list"), 1U);
}
