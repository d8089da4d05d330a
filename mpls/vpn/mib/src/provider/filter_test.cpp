// Request arguments, and which VRFs pass a filter.
#include "mpls/vpn/mib/src/provider/filter.h"

#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "platform/store/tree/matcher.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class RequestFilter : public DaemonTest {
 protected:
  void TearDown() override {
    release_filter_vrf_name(&filter_);
    DaemonTest::TearDown();
  }
  void Decode(const Arguments& arguments) {
    OnlyArea(PROV);
    mpls_vpn_debug_flags[ERR].enabled.store(1);
    ClearPrints();
    set_filter_vrf_afi_safi(&filter_, arguments.Block());
  }
  // With the IPv4 and IPv6 tables of these SAFIs (bits 1 unicast, 2 multicast).
  void AddVrfWithTables(const std::string& name, unsigned ipv4_safis, unsigned ipv6_safis) {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = 50;
    vrf.ipv4_table = (ipv4_safis & 1U) != 0 ? 51 : 0;
    vrf.ipv4_multicast_table = (ipv4_safis & 2U) != 0 ? 52 : 0;
    vrf.ipv6_table = (ipv6_safis & 1U) != 0 ? 53 : 0;
    vrf.ipv6_multicast_table = (ipv6_safis & 2U) != 0 ? 54 : 0;
    ASSERT_EQ(router_.create_vrf(vrf), kStatusOk);
    Run();
    OnlyArea(PROV);
  }
  bool Matches(const char* name, std::uint32_t flags, std::uint32_t afi, std::uint32_t safi) {
    const VrfFilter filter = {flags, nullptr, nullptr, afi, safi};
    return vrf_matches_afi_safi(name, &filter);
  }
  static Arguments Request(std::uint32_t form, const char* name, std::uint32_t afi, std::uint32_t safi) {
    return Arguments(form, 3).Text(0, name).Number(1, afi).Number(2, safi);
  }
  VrfFilter filter_{};
};

TEST_F(RequestFilter, FormDecidesWhichArgumentsAreTaken) {
  const struct {
    const char* what;
    Arguments args;
    VrfFilter filter;
    std::vector<std::string> prints;
  } cases[] = {
      {"the plain name",
       Request(0, "red", 1, 1),
       {kFilterVrfName, "red", nullptr, 0, 0},
       {"BGEN ARG 0 vrf name = red", "Filter flags are 0x4"}},
      {"no plain name", Arguments(0, 3), {}, {"Filter flags are 0x0"}},
      {"plain name, AFI and SAFI",
       Request(1, "red", 2, 1),
       {kFilterVrfName | kFilterAfi | kFilterSafi, "red", nullptr, 2, 1},
       {"BGEN ARG 0 vrf name = red", "BGEN ARG 1 afi = 2", "BGEN ARG 2 safi = 1", "Filter flags are 0x7"}},
      {"only a SAFI",
       Arguments(1, 3).Number(2, 2),
       {kFilterSafi, nullptr, nullptr, 0, 2},
       {"BGEN ARG 2 safi = 2", "Filter flags are 0x2"}},
      {"the encoded name",
       Request(2, "a%2Fb", 1, 1),
       {kFilterVrfName, "a/b", nullptr, 0, 0},
       {"BGEN ARG 0 vrf name = a/b", "Filter flags are 0x4"}},
      {"no encoded name", Arguments(2, 3), {}, {"Filter flags are 0x0"}},
      {"encoded name, AFI and SAFI",
       Request(3, "a%2Fb", 1, 2),
       {0x7, "a/b", nullptr, 1, 2},
       {"BGEN ARG 0 vrf name = a/b", "BGEN ARG 1 afi = 1", "BGEN ARG 2 safi = 2", "Filter flags are 0x7"}},
  };
  for (const auto& each : cases) {
    Decode(each.args);
    EXPECT_EQ(filter_.flags, each.filter.flags) << each.what;
    EXPECT_STREQ(filter_.vrf_name, each.filter.vrf_name) << each.what;
    EXPECT_EQ(filter_.afi, each.filter.afi) << each.what;
    EXPECT_EQ(filter_.safi, each.filter.safi) << each.what;
    EXPECT_THAT(Prints(), ElementsAreArray(each.prints)) << each.what;
    release_filter_vrf_name(&filter_);
  }
}

TEST_F(RequestFilter, PlainNameIsBorrowedAndADecodedOneIsReleased) {
  const char name[] = "red";
  Decode(Arguments(1, 3).Text(0, name));
  EXPECT_EQ(filter_.vrf_name, name);
  release_filter_vrf_name(&filter_);
  EXPECT_EQ(filter_.vrf_name, name);
  Decode(Arguments(2, 3).Text(0, name));
  release_filter_vrf_name(&filter_);
  EXPECT_EQ(filter_.vrf_name, nullptr);
}

TEST_F(RequestFilter, NameThatDoesNotDecodeLeavesANamelessFilter) {
  Decode(Arguments(3, 3).Text(0, "a%2").Number(1, 1));
  EXPECT_EQ(filter_.flags, kFilterAfi);
  EXPECT_EQ(filter_.vrf_name, nullptr);
  EXPECT_EQ(filter_.decoded_name, nullptr);
  EXPECT_THAT(Prints(), ElementsAre("set_filter_vrf_afi_safi : kvtree_string_decode() failed: "
                                    "A path component does not decode as its key",
                                    "BGEN ARG 1 afi = 1", "Filter flags are 0x1"));
}

TEST_F(RequestFilter, DecoderThatFailsForAnotherReasonIsReportedTheSameWay) {
  const ScopedFault fault("kvtree_string_decode", kStatusNoMemory);
  Decode(Arguments(2, 3).Text(0, "red"));
  EXPECT_EQ(filter_.flags, 0U);
  EXPECT_THAT(Prints(), ElementsAre("set_filter_vrf_afi_safi : kvtree_string_decode() failed: "
                                    "Cannot allocate memory",
                                    "Filter flags are 0x0"));
  ExpectErrorTraced("set_filter_vrf_afi_safi: kvtree_string_decode", kStatusNoMemory);
}

TEST_F(RequestFilter, UnknownFormLeavesTheFilterEmpty) {
  Decode(Arguments(4, 3).Text(0, "red").Number(1, 1).Number(2, 1));
  EXPECT_EQ(filter_.flags, 0U);
  EXPECT_THAT(Prints(), ElementsAre("Unknown bgen ident = 4", "Filter flags are 0x0"));
}

TEST_F(RequestFilter, NameThatDoesNotDecodeIsAnErrorAndAnUnknownFormTheProviders) {
  ExpectUnder(ERR,
              "set_filter_vrf_afi_safi : kvtree_string_decode() failed: "
              "A path component does not decode as its key",
              [this] { set_filter_vrf_afi_safi(&filter_, Arguments(2, 3).Text(0, "a%2").Block()); });
  ExpectUnder(PROV, "Unknown bgen ident = 4",
              [this] { set_filter_vrf_afi_safi(&filter_, Arguments(4, 3).Block()); });
}

// What the path matcher hands over, not a block of the test's own.
TEST_F(RequestFilter, ArgumentsThatAPatternDoesNotHaveAreAbsentInEveryForm) {
  const KvPathRow rows[] = {{"vrf-next/<s>", {}}, {"vrf-detail-filter/<s>/<n>/<n>/<s>", {}}};
  const kvtree::CompiledTable table = kvtree::compile_table({rows, std::size(rows)});
  const struct {
    const char* path;
    std::uint32_t flags;
  } requests[] = {
      {"vrf-next/red", 0x4},
      {"vrf-detail-filter/red/1/2/blue", 0x7},
      {"vrf-detail-filter/red/-/2", 0x6},
  };
  for (const auto& request : requests) {
    for (const std::uint32_t form : {1U, 3U}) {
      kvtree::PathMatch match;
      ASSERT_EQ(kvtree::match_path(table, request.path, false, &match), kStatusOk) << request.path;
      match.args.form = form;
      release_filter_vrf_name(&filter_);
      set_filter_vrf_afi_safi(&filter_, &match.args);
      EXPECT_EQ(filter_.flags, request.flags) << request.path << " in form " << form;
    }
  }
}

TEST_F(RequestFilter, VrfWithoutTablesMatchesOnlyAFilterWithoutAfiAndSafi) {
  AddVrfWithTables("red", 0, 0);
  EXPECT_TRUE(Matches("red", 0, 0, 0));
  EXPECT_TRUE(Matches("red", kFilterVrfName, 0, 0));
  EXPECT_FALSE(Matches("red", kFilterAfi, 1, 0));
  EXPECT_FALSE(Matches("red", kFilterSafi, 0, 1));
  EXPECT_FALSE(Matches("red", kFilterAfi | kFilterSafi, 1, 1));
}

TEST_F(RequestFilter, BothAfiAndSafiMustBeOfOneTable) {
  AddVrfWithTables("red", 1, 2);
  EXPECT_TRUE(Matches("red", kFilterAfi | kFilterSafi, 1, 1));
  EXPECT_TRUE(Matches("red", kFilterAfi | kFilterSafi, 2, 2));
  EXPECT_FALSE(Matches("red", kFilterAfi | kFilterSafi, 1, 2));
  EXPECT_FALSE(Matches("red", kFilterAfi | kFilterSafi, 2, 1));
  EXPECT_THAT(Prints(), ElementsAre("VRF record found with afi = IPv4 & safi = Unicast",
                                    "VRF record found with afi = IPv6 & safi = Multicast"));
}

TEST_F(RequestFilter, AfiAloneMatchesEveryTableOfIt) {
  AddVrfWithTables("red", 3, 0);
  EXPECT_TRUE(Matches("red", kFilterAfi, 1, 9));
  EXPECT_FALSE(Matches("red", kFilterAfi, 2, 9));
  // The walk continues after the first hit.
  EXPECT_THAT(Prints(),
              ElementsAre("VRF record found with afi = IPv4 ", "VRF record found with afi = IPv4 "));
}

TEST_F(RequestFilter, SafiAloneMatchesByCommonBits) {
  AddVrfWithTables("red", 1, 2);
  EXPECT_TRUE(Matches("red", kFilterSafi, 9, 3));
  EXPECT_THAT(Prints(), ElementsAre("VRF record found with safi = Unicast ",
                                    "VRF record found with safi = Multicast "));
  EXPECT_FALSE(Matches("red", kFilterSafi, 9, 4));
  DeleteVrf("red");
  AddVrfWithTables("red", 2, 0);
  EXPECT_TRUE(Matches("red", kFilterSafi, 0, 3)) << "one of the two is enough";
  EXPECT_FALSE(Matches("red", kFilterSafi, 0, 1));
}

TEST_F(RequestFilter, CombinedSafiOf3EqualsNoTablesSafi) {
  AddVrfWithTables("red", 3, 0);
  EXPECT_FALSE(Matches("red", kFilterAfi | kFilterSafi, 1, 3));
}

TEST_F(RequestFilter, VrfOfTheMembershipServiceIsInTheDatabase) {
  AddVrf("red");
  Connect();
  OnlyArea(PROV);
  const VrfNode* node = vrf_in_database("red");
  ASSERT_NE(node, nullptr);
  EXPECT_STREQ(node->vrf_rec->vrf_name, "red");
  EXPECT_THAT(Prints(), ElementsAre("Found VRF red"));
}

TEST_F(RequestFilter, VrfThatOnlyTheRecordServiceKnowsIsNotInTheDatabase) {
  AddVrf("red");
  Run();
  ASSERT_NE(vtab_get_vrf_record_by_vrf_name("red"), nullptr);
  OnlyArea(PROV);
  EXPECT_EQ(vrf_in_database("red"), nullptr);
  EXPECT_THAT(Prints(), ElementsAre());
}

TEST_F(RequestFilter, VrfWhoseNodeHasNoRecordIsNotInTheDatabase) {
  {
    const MplsVpnLock lock("test", ERR);
    if (!lock) FAIL();
    ASSERT_NE(mpls_vpn_mib_create_vrf_wavl_node("red", nullptr), nullptr);
  }
  EXPECT_EQ(vrf_in_database("red"), nullptr);
  EXPECT_FALSE(Printed("Found VRF red"));
}

TEST_F(RequestFilter, SearchForAVrfIsExact) {
  AddVrf("red");
  Connect();
  EXPECT_EQ(vrf_in_database("rec"), nullptr);
  EXPECT_EQ(vrf_in_database("re"), nullptr);
}

}  // namespace
