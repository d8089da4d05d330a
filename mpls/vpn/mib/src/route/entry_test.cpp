// Rows of the route table: arguments, VRFs and tables. lookup_test.cpp covers the content of a row.
#include "mpls/vpn/mib/src/route/row_test_support.h"

namespace {

using router::MakeRoute;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;

// --- The request

TEST_F(RouteRow, FirstMissingArgumentIsRefused) {
  for (unsigned missing = 0; missing < 6; ++missing) {
    Arguments arguments(kNextRead, 6);
    for (const unsigned text : {0U, 4U, 5U}) {
      if (text < missing) arguments.Text(text, "0");
    }
    for (const unsigned number : {1U, 2U, 3U}) {
      if (number < missing) arguments.Number(number, 1);
    }
    OnlyArea(ERR);
    ClearPrints();
    EXPECT_EQ(mpls_vpn_mib_prov_get_route(reply_.Place(), arguments.Block()), 0x40818800U);
    EXPECT_THAT(Prints(), ElementsAre("BGEN arg " + std::to_string(missing) +
                                      " not present in mpls_vpn_mib_prov_get_route"));
  }
}

TEST_F(RouteRow, RequestIsPrintedInFull) {
  OnlyArea(PROV);
  Next({"red", 1, 24, 0, "0a000000", "c0000201"});
  EXPECT_THAT(Prints(),
              ElementsAre("Entering function mpls_vpn_mib_prov_get_route",
                          "AFTER BGEN vrfName=red, destType=1, mask=24, nextHopType=0, dest=0a000000, "
                          "nextHop=c0000201, exact_search=FALSE"));
  Exact({});
  EXPECT_TRUE(
      Printed("AFTER BGEN vrfName=red, destType=1, mask=0, nextHopType=1, dest=0, nextHop=0, "
              "exact_search=TRUE"));
}

TEST_F(RouteRow, StructuredFormsReadExactly) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Answer(3, {}), kNone);
  EXPECT_EQ(Answer(2, {"red", 1, 8, 1, "0a000000", "c0000201"}), "red 10.0.0.0/8 via 192.0.2.1");
}

// --- VRFs and tables

TEST_F(RouteRow, NextReadOfDestinationZeroIsTheFirstIpv4Route) {
  AddRoute("red", "2001:db8::/32");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "9.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({}), "red 9.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, NextReadPastTheLastIpv4RouteContinuesWithTheFirstIpv6Route) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "c0000201"}), "red 2001:db8::/32 via fe80::1");
  EXPECT_TRUE(Printed("Looking for an IPv6 route"));
  // A route that is the first only to a key without any of destination, length and next hop.
  AddRoute("red", "::/0", "::1");
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "c0000201"}), "red ::/0 via ::1");
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "ff000000"}), "red ::/0 via ::1");
}

TEST_F(RouteRow, NextReadPastTheVrfsLastRouteContinuesWithTheNextVrfsFirst) {
  AddVrf("blue");
  AddVrf("reds");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("reds", "9.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "c0000201"}), "reds 9.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Next({"reds", 1, 8, 1, "09000000", "c0000201"}), kNone);
  AddRoute("reds", "0.0.0.0/0", "10.0.0.1");
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "c0000201"}), "reds 0.0.0.0/0 via 10.0.0.1");
}

TEST_F(RouteRow, NextReadPassesOverVrfsWithoutRoutes) {
  AddVrf("blue");
  AddVrf("zebra");
  AddRoute("zebra", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({"blue"}), "zebra 10.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, NextReadOfAnAbsentVrfIsTheFollowingOne) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({"a"}), "red 10.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Next({"a", 1, 8, 1, "0a000000", "c0000201"}), kNone) << "with the key as it was given";
  EXPECT_EQ(Next({"zzzz"}), kNone);
}

TEST_F(RouteRow, ExactReadNeedsTheVrf) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Exact({"red", 1, 8, 1, "0a000000", "c0000201"}), "red 10.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Exact({"re", 1, 8, 1, "0a000000", "c0000201"}), kNone);
}

TEST_F(RouteRow, ExactReadDoesNotGoToTheNextVrf) {
  AddVrf("reds");
  AddRoute("reds", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Exact({"red", 1, 8, 1, "0a000000", "c0000201"}), kNone);
}

TEST_F(RouteRow, ExactReadOfAnAbsentIpv4RouteIsNotTheIpv6DefaultRoute) {
  AddRoute("red", "::/0");
  EXPECT_EQ(Exact({"red", 1, 8, 1, "0a000000", "c0000201"}), kNone);
  EXPECT_EQ(Exact({"red", 2, 0, 0, "0", "0"}), "red ::/0");
}

TEST_F(RouteRow, VrfWithoutARecordAnswersNoSuchRow) {
  HoldInDatabase("odd", nullptr);
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({"odd"}), kNone);
}

TEST_F(RouteRow, VrfWithoutARecordEndsTheSearchOfTheFollowingVrfs) {
  AddVrf("a");
  Run();
  HoldInDatabase("b", nullptr);
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({"a"}), kNone) << "rows after it look like rows in it";
  EXPECT_EQ(Next({"c"}), "red 10.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, EmptyVrfNameIsTheStartOfTheTable) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next({""}), "red 10.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Next({"", 1, 0, 1, "", ""}), "red 10.0.0.0/8 via 192.0.2.1") << "nor need there be an address";
  EXPECT_EQ(Exact({""}), kNone);
}

TEST_F(RouteRow, NextReadPastTheLastIpv6RouteContinuesWithTheNextVrfsFirstIpv4Route) {
  AddVrf("reds");
  AddVrf("redss");
  AddVrf("redsss");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  AddRoute("reds", "10.0.0.0/8", "192.0.2.1");
  AddRoute("redss", "10.0.0.0/8", "192.0.2.1");
  AddRoute("redss", "2001:db8::/32", "fe80::1");
  const Key last = {"red", 2, 32, 2, "20010db8", "fe800000000000000000000000000001"};
  EXPECT_EQ(Next(last), "reds 10.0.0.0/8 via 192.0.2.1");
  RemoveRoute("reds", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next(last), "redss 10.0.0.0/8 via 192.0.2.1");
  RemoveRoute("redss", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next(last), "redss 2001:db8::/32 via fe80::1");
}

TEST_F(RouteRow, EitherIpv6TypeIsForTheNamedVrfOnly) {
  AddVrf("reds");
  AddRoute("reds", "10.0.0.0/8", "192.0.2.1");
  AddRoute("reds", "2001:db8::/32", "fe80::1");
  for (const std::uint32_t type : {2U, 4U}) {
    EXPECT_EQ(Next({"red", type, 32, 1, "20010db8", "0"}), "reds 10.0.0.0/8 via 192.0.2.1");
    EXPECT_EQ(Next({"red", 1, 32, type, "20010db8", "0"}), "reds 10.0.0.0/8 via 192.0.2.1");
  }
}

TEST_F(RouteRow, TablesOfAFamilyAreTriedInOrderWithTheSameKey) {
  AddVrfWithTables("four", true, true, true, true);
  AddRoute("four", "10.0.0.0/8", "192.0.2.1");
  AddMulticastRoute("four", "9.0.0.0/8", "192.0.2.1");
  AddMulticastRoute("four", "11.0.0.0/8", "192.0.2.1");
  AddRoute("four", "2001:db8::/32", "fe80::1");
  AddMulticastRoute("four", "2001:db7::/32", "fe80::1");
  AddMulticastRoute("four", "2001:db9::/32", "fe80::1");
  EXPECT_EQ(Next({"four"}), "four 10.0.0.0/8 via 192.0.2.1") << "the first table's, not the smallest";
  EXPECT_EQ(Next({"four", 1, 8, 1, "0a000000", "c0000201"}), "four 11.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Exact({"four", 1, 8, 1, "09000000", "c0000201"}), "four 9.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Next({"four", 1, 8, 1, "0b000000", "c0000201"}), "four 2001:db8::/32 via fe80::1");
  EXPECT_EQ(Next({"four", 2, 32, 2, "20010db8", "fe800000000000000000000000000001"}),
            "four 2001:db9::/32 via fe80::1");
}

TEST_F(RouteRow, MulticastTablesArePrintedAsSuch) {
  AddVrfWithTables("four", true, true, true, true);
  OnlyArea(RIB);
  Next({"four"});
  const router::Vrf* four = router_.find_vrf("four");
  EXPECT_TRUE(Printed("AFI = IPv4, SAFI = Multicast, Tbl name = four.ipv4.multicast, Tbl ID = " +
                      Hex(four->ipv4_multicast_table)));
  EXPECT_TRUE(Printed("AFI:IPv6, SAFI = Multicast, Tbl name = four.ipv6.multicast, Tbl ID = " +
                      Hex(four->ipv6_multicast_table)));
}

TEST_F(RouteRow, FailedEncodingIsAnswered) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_EQ(Read(kNextRead, {}), kStatusMessageTooLarge);
  EXPECT_EQ(reply_.Get().data, nullptr);
}

TEST_F(RouteRow, EitherIpv6TypeReadsTheIpv6TablesAlone) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  for (const std::uint32_t type : {2U, 4U}) {
    EXPECT_EQ(Next({"red", type, 0, 1}), "red 2001:db8::/32 via fe80::1");
    EXPECT_EQ(Next({"red", 1, 0, type}), "red 2001:db8::/32 via fe80::1");
  }
  EXPECT_THAT(Prints(), Not(Contains(StartsWith("Looking for ipv4 route"))));
  EXPECT_EQ(Next({"red", 3, 0, 0}), "red 10.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, TablesArePrintedAsTheyAreTried) {
  OnlyArea(RIB);
  const std::string id = Hex(router_.find_vrf("red")->id);
  Next({});
  EXPECT_THAT(Prints(), Contains("Looking for routes in VRF red"));
  EXPECT_THAT(Prints(), Contains("AFI = IPv4, SAFI = Unicast, Tbl name = red.ipv4.unicast, Tbl ID = " + id));
  EXPECT_THAT(Prints(), Contains("AFI:IPv6, SAFI = Unicast, Tbl name = red.ipv6.unicast, Tbl ID = " + id));
}

// --- Modules

TEST_F(RouteRow, MissingModuleAnswersNoSuchRow) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", run_directory().c_str(), 1), 0);
  EXPECT_EQ(Next({}), kNone);
  EXPECT_TRUE(Printed("mpls_vpn_mib_rib_ipv4_route: Load ipv4 RIB dll failed"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_rib_ipv6_route: Load ipv6 RIB dll failed"));
}

}  // namespace
