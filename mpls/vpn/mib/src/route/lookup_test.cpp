// The look-ups of one table, IPv4 and IPv6: how a key is decoded, and what the row shows.
#include <cerrno>
#include <cstring>
#include <utility>

#include "mpls/vpn/mib/src/route/row_test_support.h"

namespace {

using router::Family;
using router::MakeRoute;
using router::Route;
using router::RouteType;
using testing::Contains;
using testing::ElementsAre;

// --- IPv4 look-ups

TEST_F(RouteRow, RouteShowsItsFields) {
  for (const bool is_ipv6 : {false, true}) {
    Route route = is_ipv6 ? MakeRoute("2001:db8::/32", "fe80::1") : MakeRoute("10.1.0.0/16", "192.0.2.1");
    route.interface_index = 7;
    route.protocol = router::RouteProtocol::kBgp;
    route.metrics = {1, 2, 3, 4, 5};
    route.next_hop_as = 65000;
    route.row_status = 2;
    if (is_ipv6) route.labels = {16};
    AddRoute("red", route, is_ipv6 ? Family::kIpv6 : Family::kIpv4);
    PassSeconds(9);
    const std::int32_t type = is_ipv6 ? 2 : 1;
    const auto row = Row({"red", static_cast<std::uint32_t>(type)});
    EXPECT_EQ(RouteText(*row.operator->()),
              is_ipv6 ? "red 2001:db8::/32 via fe80::1" : "red 10.1.0.0/16 via 192.0.2.1");
    EXPECT_EQ(row->destType, type);
    EXPECT_EQ(row->dest.length, is_ipv6 ? 16U : 4U);
    EXPECT_EQ(row->nextHopType, type);
    EXPECT_EQ(row->nextHop.length, is_ipv6 ? 16U : 4U);
    EXPECT_EQ(row->ifIndex, 7);
    EXPECT_EQ(row->type, 4);
    EXPECT_EQ(row->proto, 14);
    EXPECT_EQ(row->age, 9U);
    EXPECT_EQ(row->nextHopAS, is_ipv6 ? 65000U : 0U);
    EXPECT_EQ(row->metric1, 1);
    EXPECT_EQ(row->metric2, 2);
    EXPECT_EQ(row->metric3, 3);
    EXPECT_EQ(row->metric4, 4);
    EXPECT_EQ(row->metric5, is_ipv6 ? 5 : 4) << "its own for IPv6, for IPv4 metric 4 again";
    EXPECT_EQ(row->rowStatus, 2) << "the route's own";
    EXPECT_EQ(Octets(row->xcPointer), "0.") << "the label database is not asked for IPv6";
  }
}

TEST_F(RouteRow, NegativeInterfaceIndexIsShownAsZero) {
  for (const char* prefix : {"10.0.0.0/8", "2001:db8::/32"}) {
    Route route = MakeRoute(prefix);
    route.interface_index = 0x80000000;
    AddRoute("red", route, FamilyOf(prefix));
    EXPECT_EQ(Row({"red", FamilyOf(prefix) == Family::kIpv4 ? 1U : 2U})->ifIndex, 0) << prefix;
  }
}

TEST_F(RouteRow, Ipv4LookupIsPrintedAndTraced) {
  Route route = MakeRoute("10.1.0.0/16", "192.0.2.1");
  route.interface_index = 7;
  AddRoute("red", route);
  OnlyArea(RIB);
  Next({"red", 1, 8, 1, "0a000000", "0"});
  const std::string id = Hex(router_.find_vrf("red")->id);
  const std::vector<std::string> expected = {
      "Looking for ipv4 route with dest = 0a000000, mask = 8, next hop = 0, next hop type: 1",
      "Found route with dest = 10.1.0.0, ifindex = 7, mask = 0xffff0000, nexthop = 192.0.2.1, type = 4, "
      "proto = 1",
      "Invoking LFX with dest = 10.1.0.0, mask = 16, table id = " + id,
      "No XC returned by LSR MIB for this route"};
  EXPECT_THAT(Traced("mpls_vpn/rib"), testing::ElementsAreArray(expected));
  EXPECT_THAT(Prints(), testing::IsSupersetOf(expected));
}

TEST_F(RouteRow, AbsentIpv4RouteIsPrintedAndTraced) {
  OnlyArea(RIB);
  EXPECT_EQ(Next({}), kNone);
  EXPECT_TRUE(Printed("No ipv4 route found"));
  EXPECT_TRUE(Printed("No ipv6 route found"));
  EXPECT_THAT(Traced("mpls_vpn/rib"), Contains("No ipv4 route found"));
  EXPECT_THAT(Traced("mpls_vpn/rib"), Contains("No ipv6 route found"));
}

TEST_F(RouteRow, LocalRouteHasNoNextHop) {
  AddRoute("red", "10.0.0.0/8");
  AddRoute("red", "2001:db8::/32");
  for (const std::uint32_t type : {1U, 2U}) {
    const auto row = Row({"red", type});
    EXPECT_EQ(row->type, 3) << type;
    EXPECT_EQ(row->nextHopType, 0) << type;
    EXPECT_EQ(row->nextHop.length, 0U) << type;
    EXPECT_EQ(row->nextHop.octets, nullptr) << type;
  }
}

TEST_F(RouteRow, RejectedIpv4RouteHasAnAllZeroNextHop) {
  Route route = MakeRoute("0.0.0.0/0");
  route.type = RouteType::kReject;
  AddRoute("red", route);
  const auto row = Row({});
  EXPECT_EQ(row->nextHopType, 1);
  EXPECT_EQ(row->nextHop.length, 4U);
}

TEST_F(RouteRow, OverlongTextIsInNoTableOfItsFamily) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  const RouteKeyText destination = {1, "0a00000000", 0, 1, "0"};
  const RouteKeyText next_hop = {1, "0", 0, 1, "c000020100"};
  mpls_vpn_mib_route row;
  fault_arm("ribmib_find_route", kStatusIo);
  const std::uint32_t table = router_.find_vrf("red")->ipv4_table;
  EXPECT_EQ(mpls_vpn_mib_rib_ipv4_route(&row, table, false, destination), kStatusNoSuchRow);
  EXPECT_EQ(mpls_vpn_mib_rib_ipv4_route(&row, table, false, next_hop), kStatusNoSuchRow);
  EXPECT_EQ(fault_reached("ribmib_find_route"), 0U);
  EXPECT_THAT(Traced("mpls_vpn/rib"), Contains("mpls_vpn_mib_rib_ipv4_route: an address text is too long"));
  const std::string long6(34, '0');
  EXPECT_EQ(mpls_vpn_mib_rib_ipv6_route(&row, table, false, {2, long6.c_str(), 0, 2, "0"}), kStatusNoSuchRow);
  EXPECT_EQ(mpls_vpn_mib_rib_ipv6_route(&row, table, false, {2, "0", 0, 2, long6.c_str()}), kStatusNoSuchRow);
  EXPECT_EQ(fault_reached("ribmib_find_route"), 0U);
  EXPECT_THAT(Traced("mpls_vpn/rib"), Contains("mpls_vpn_mib_rib_ipv6_route: an address text is too long"));
}

// No IPv4 table has it, so a next read continues with the first IPv6 route, as after the last IPv4 one; an
// exact read finds nothing.
TEST_F(RouteRow, RequestWithAnOverlongIpv4TextContinuesWithIpv6) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  const Key destination = {"red", 1, 0, 1, "0a00000000", "0"};
  ASSERT_EQ(Read(kNextRead, destination), kStatusOk);
  const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply_.Get());
  EXPECT_EQ(row->destType, 2);
  EXPECT_EQ(Read(kExactRead, destination), kStatusNoSuchRow);
}

TEST_F(RouteRow, TextThatIsNotHexadecimalIsAnErrorAndNoSuchRow) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  OnlyArea(ERR);
  mpls_vpn_mib_route row;
  const std::uint32_t table = router_.find_vrf("red")->ipv4_table;
  for (const auto& [dest, hop] : {std::pair("0azz", "0"), std::pair("0a", "zz")}) {
    ClearPrints();
    EXPECT_EQ(mpls_vpn_mib_rib_ipv4_route(&row, table, false, {1, dest, 0, 1, hop}), kStatusNoSuchRow);
    EXPECT_EQ(mpls_vpn_mib_rib_ipv6_route(&row, table, false, {2, dest, 0, 2, hop}), kStatusNoSuchRow);
    EXPECT_THAT(Prints(), ElementsAre("Error in mpls_vpn_mib_rib_ipv4_route: sscanf",
                                      "Error in mpls_vpn_mib_rib_ipv6_route: sscanf"));
    Status code = kStatusOk;
    EXPECT_EQ(LastTraced(2, &code), Prints());
    EXPECT_EQ(code, kStatusInvalid);
  }
}

TEST_F(RouteRow, ShortTextLeavesTheLastOctetsZero) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Exact({"red", 1, 8, 1, "0a", "c0000201"}), "red 10.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, PrefixLengthThatNoAddressHasOrdersAfterTheLongestPrefix) {
  AddRoute("red", "10.0.0.0/32", "192.0.2.1");
  AddRoute("red", "10.0.0.1/32", "192.0.2.1");
  EXPECT_EQ(Exact({"red", 1, 33, 1, "0a000000", "c0000201"}), kNone);
  EXPECT_EQ(Next({"red", 1, 33, 1, "0a000000", "0"}), "red 10.0.0.1/32 via 192.0.2.1");
  EXPECT_EQ(Next({"red", 1, 0xffffffff, 1, "0a000000", "0"}), "red 10.0.0.1/32 via 192.0.2.1");
  AddRoute("red", "2001:db8::1/128", "fe80::1");
  EXPECT_EQ(Exact({"red", 2, 129, 2, "20010db8000000000000000000000001", "0"}), kNone);
  EXPECT_EQ(Next({"red", 2, 129, 2, "20010db8", "0"}), "red 2001:db8::1/128 via fe80::1");
}

TEST_F(RouteRow, NextReadWithoutNextHopTypePassesOverTheOtherPathsOfThePrefix) {
  AddRoute("red", "10.0.0.0/8");
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "11.0.0.0/8", "192.0.2.1");
  OnlyArea(RIB);
  EXPECT_EQ(Next({"red", 1, 8, 0, "0a000000", "0"}), "red 11.0.0.0/8 via 192.0.2.1");
  EXPECT_TRUE(
      Printed("Looking for ipv4 non-remote route with dest = 0a000000, mask = 8, next hop = "
              "255.255.255.255, next hop type: 0"));
  EXPECT_EQ(Next({"red", 1, 8, 1, "0a000000", "0"}), "red 10.0.0.0/8 via 192.0.2.1");
}

TEST_F(RouteRow, OtherReadsWithoutNextHopTypeDoNotPassOver) {
  AddRoute("red", "0.0.0.0/0", "192.0.2.1");
  AddRoute("red", "0.0.0.0/8", "192.0.2.1");
  AddRoute("red", "10.0.0.0/8");
  EXPECT_EQ(Next({"red", 1, 0, 0, "00000000", "0"}), "red 0.0.0.0/0 via 192.0.2.1") << "prefix length 0";
  EXPECT_EQ(Next({"red", 1, 8, 0, "0", "0"}), "red 0.0.0.0/8 via 192.0.2.1") << "no destination";
  EXPECT_EQ(Exact({"red", 1, 8, 0, "0a000000", "0"}), "red 10.0.0.0/8") << "exact";
}

TEST_F(RouteRow, LabelledRouteShowsItsCrossConnect) {
  Route route = MakeRoute("10.0.0.0/8", "192.0.2.1");
  route.labels = {16};
  AddRoute("red", route);
  const auto row = Row({});
  std::uint8_t index[kLfxIndexMax];
  std::size_t length = 0;
  const std::uint8_t octets[] = {10, 0, 0, 0};
  LfxRequest request = {kLfxIpv4Route, router_.find_vrf("red")->ipv4_table, 0, 8};
  std::memcpy(&request.destination, octets, sizeof octets);
  ASSERT_EQ(lfx_c_lsr_xc_idx(index, sizeof index, &length, &request), kStatusOk);
  EXPECT_GT(length, 1U);
  EXPECT_EQ(Octets(row->xcPointer), Octets({length, index}));
}

TEST_F(RouteRow, LabelDatabaseThatFailsCostsThePointerOnly) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  OnlyArea(ERR);
  const ScopedFault fault("lfx_c_lsr_xc_idx", kStatusIo);
  ASSERT_EQ(Read(kNextRead, {}), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Error in mpls_vpn_mib_rib_ipv4_route: LSR XC lookup failure: "
                                    "Input/output error"));
  ExpectErrorTraced("mpls_vpn_mib_rib_ipv4_route: LSR XC lookup failure", kStatusIo);
  const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply_.Get());
  EXPECT_EQ(Octets(row->xcPointer), "0.");
}

TEST_F(RouteRow, PointerWithoutMemoryLeavesTheRow) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  OnlyArea(ERR);
  for (const std::uint32_t type : {1U, 2U}) {
    const ScopedFault fault("calloc_tagged:XC Pointer", kStatusNoMemory);
    ASSERT_EQ(Read(kNextRead, {"red", type, 0, type}), kStatusOk);
    EXPECT_THAT(Prints(), ElementsAre("Error in mpls_vpn_mib_rib_ipv" + std::to_string(2 + 2 * type) +
                                      "_route: Could not allocate XC pointer: " + err_text(kStatusNoMemory)));
    const Decoded<mpls_vpn_mib_route> row(kMibRouteParcel, reply_.Get());
    EXPECT_EQ(row->xcPointer.count, 0U);
  }
}

TEST_F(RouteRow, AddressWithoutMemoryAnswersNoMemory) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  OnlyArea(ERR);
  for (const char* point : {"calloc_tagged:route dest", "calloc_tagged:route next hop"}) {
    for (const std::uint32_t type : {1U, 2U}) {
      const ScopedFault fault(point, kStatusNoMemory);
      EXPECT_EQ(Read(kNextRead, {"red", type, 0, type}), 12U);
      EXPECT_THAT(Prints(), ElementsAre("Cannot allocate memory in function mpls_vpn_mib_rib_ipv" +
                                        std::to_string(2 + 2 * type) + "_route"));
      ExpectErrorTraced(Prints().back(), kStatusNoMemory);
    }
  }
}

TEST_F(RouteRow, ModuleWithoutMemoryAnswersNoMemory) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  OnlyArea(ERR);
  const struct {
    std::uint32_t allocations;
    Key key;
    const char* function;
  } families[] = {
      {2, {"red", 1, 8, 1, "0a000000", "c0000201"}, "mpls_vpn_mib_rib_ipv4_route"},
      {3, {"red", 2, 32, 2, "20010db8", "fe800000000000000000000000000001"}, "mpls_vpn_mib_rib_ipv6_route"}};
  for (const auto& [allocations, key, function] : families) {
    const Key start = {"red", key.dest_type, 0, key.hop_type};
    for (std::uint32_t first = 1; first <= allocations; ++first) {
      for (const bool exact : {false, true}) {
        const ScopedFault fault("calloc_tagged:forwardmib", kStatusNoMemory, first);
        EXPECT_EQ(Read(exact ? kExactRead : kNextRead, exact ? key : start), 12U) << function << first;
        EXPECT_THAT(Prints(), ElementsAre("Cannot allocate memory in function " + std::string(function)));
        ExpectErrorTraced(Prints().back(), kStatusNoMemory);
      }
    }
  }
}

TEST_F(RouteRow, OldErrorNumberIsNotTakenForTheModules) {
  ASSERT_TRUE(mpls_vpn_mib_rib_ipv4_route_load_dll() && mpls_vpn_mib_rib_ipv6_route_load_dll());
  mpls_vpn_mib_route row;
  const std::uint32_t table = router_.find_vrf("red")->id;
  errno = ENOMEM;
  EXPECT_EQ(mpls_vpn_mib_rib_ipv4_route(&row, table, false, {1, "0", 0, 1, "0"}), kStatusNoSuchRow);
  errno = ENOMEM;
  EXPECT_EQ(mpls_vpn_mib_rib_ipv6_route(&row, table, false, {2, "0", 0, 2, "0"}), kStatusNoSuchRow);
}

TEST_F(RouteRow, NameWithoutMemoryAnswersNoMemory) {
  AddRoute("red", "10.0.0.0/8", "192.0.2.1");
  const ScopedFault fault("text_copy", kStatusNoMemory);
  EXPECT_EQ(Read(kNextRead, {}), kStatusNoMemory);
  EXPECT_TRUE(Printed(Failure("mpls_vpn_mib_find_route_in_vrf", "text_copy failed", kStatusNoMemory)));
}

// --- IPv6 look-ups

TEST_F(RouteRow, ExactIpv6ReadIsOfTheKeyAlone) {
  AddRoute("red", "2001:db8::/32");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  AddRoute("red", "2001:db9::/32", "fe80::1");
  EXPECT_EQ(Exact({"red", 2, 32, 2, "20010db8", "fe800000000000000000000000000001"}),
            "red 2001:db8::/32 via fe80::1");
  EXPECT_EQ(Exact({"red", 2, 32, 0, "20010db8", "0"}), "red 2001:db8::/32");
  EXPECT_EQ(Exact({"red", 2, 32, 2, "20010db8", "fe800000000000000000000000000000"}), kNone);
  EXPECT_EQ(Exact({"red", 2, 31, 2, "20010db8", "fe800000000000000000000000000001"}), kNone);
  EXPECT_EQ(Exact({"red", 2, 32, 2, "20010db7", "fe800000000000000000000000000001"}), kNone);
  EXPECT_EQ(Exact({"red", 2, 32, 0, "20010db9", "0"}), kNone);
}

TEST_F(RouteRow, OtherIpv6ReadsWithoutNextHopTypeDoNotPassOver) {
  AddRoute("red", "::/0", "::5");
  AddRoute("red", "::/8", "::5");
  EXPECT_EQ(Next({"red", 2, 0, 0, "00", "0"}), "red ::/0 via ::5") << "prefix length 0";
  EXPECT_EQ(Next({"red", 2, 8, 0, "0", "0"}), "red ::/8 via ::5") << "no destination";
}

TEST_F(RouteRow, Ipv6LookupIsPrintedAndTraced) {
  Route route = MakeRoute("2001:db8::/32", "fe80::1");
  route.interface_index = 7;
  AddRoute("red", route, Family::kIpv6);
  PassSeconds(9);
  OnlyArea(RIB);
  Next({"red", 2, 16, 2, "2001", "0"});
  const std::string id = Hex(router_.find_vrf("red")->id);
  const std::vector<std::string> expected = {
      "rib_ipv6_route(" + id + ",NEXT,dest type:2, dest:2001, pfxLen:16, next hop type:2, next hop:0)",
      "rib_ipv6_route: found(2,32,2,7,4,1,9)"};
  EXPECT_THAT(Traced("mpls_vpn/rib"), testing::ElementsAreArray(expected));
  EXPECT_THAT(Prints(), testing::IsSupersetOf(expected));
}

TEST_F(RouteRow, AbsentIpv6TextsAreShownAsNull) {
  AddRoute("red", "::/0");
  mpls_vpn_mib_route row;
  ASSERT_EQ(mpls_vpn_mib_rib_ipv6_route(&row, 7, true, {2, nullptr, 0, 0, nullptr}), kStatusNoSuchRow);
  EXPECT_TRUE(
      Printed("rib_ipv6_route(0x7,EXACT,dest type:2, dest:Null, pfxLen:0, next hop type:0, next hop:Null)"));
}

TEST_F(RouteRow, Ipv6NextReadWithoutNextHopTypePassesOverLowNextHops) {
  AddRoute("red", "2001:db8::/32");
  AddRoute("red", "2001:db8::/32", "::5");
  AddRoute("red", "2001:db8::/32", "fe80::1");
  AddRoute("red", "2001:db9::/32", "fe80::1");
  OnlyArea(RIB);
  EXPECT_EQ(Next({"red", 2, 32, 0, "20010db8", "0"}), "red 2001:db8::/32 via fe80::1");
  EXPECT_TRUE(
      Printed("Looking for ipv6 non-remote route with dest = 20010db8, mask = 32, next hop = 1, next "
              "hop type: 0"));
  EXPECT_EQ(Next({"red", 2, 32, 2, "20010db8", "0"}), "red 2001:db8::/32 via ::5");
}

}  // namespace
