// The tables of a show record with route targets and policies; the structured form's choice of tables.
#include "mpls/vpn/mib/src/provider/xml_filter.h"
#include "mpls/vpn/mib/src/vrf/show_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// --- Tables

TEST_F(VrfShow, MulticastTablesAreNotShown) {
  AddVrfWithTables("red", true, true, true);
  Connect();
  EXPECT_THAT(ShownTables("red"), ElementsAre("1/1 - -", "2/1 - -"));
  EXPECT_TRUE(Printed("add_tables table count: 4"));
  EXPECT_TRUE(Printed("Adding table red.ipv4.multicast, afi = 1, safi = 2")) << "printed for every table met";
}

TEST_F(VrfShow, GivenFamilyShowsItsTableOnly) {
  AddVrfWithTables("red", true, true, true, true);
  Connect();
  EXPECT_THAT(FilledTables("red", 2), ElementsAre("2/1 - -"));
  EXPECT_TRUE(Printed("add_tables table count: 1"));
  EXPECT_TRUE(Printed("Adding table for specific afi = IPv6"));
  EXPECT_TRUE(Printed("Adding table red.ipv6.unicast, afi = IPv6, safi = Unicast"));
  EXPECT_FALSE(Printed("Adding table red.ipv4.unicast, afi = IPv4, safi = Unicast"));
  EXPECT_THAT(FilledTables("red", 1), ElementsAre("1/1 - -"));
  EXPECT_TRUE(Printed("Adding table for specific afi = IPv4"));
  EXPECT_THAT(FilledTables("red", 7), IsEmpty());
}

// This platform's record service has no such tables; the record is changed to what another's would be.
TEST_F(VrfShow, TableWhoseRecordIsOneOfFlowRulesIsShown) {
  AddVrfWithTables("red", true, false, false, true);
  Connect();
  MakeLastTableOneOfFlowRules("red");
  AddRouteTarget("red", kRtImport, "7:7", 2, 133);
  EXPECT_THAT(FilledTables("red", 0), ElementsAre("1/1 - -", "2/133 - - 7:7(1)"));
  EXPECT_THAT(FilledTables("red", 2), ElementsAre("2/133 - - 7:7(1)"));
}

// Once by the function and once by its first look at the database.
TEST_F(VrfShow, InterfaceThatCannotBeRepairedIsTriedByTheNamesOfAVrfToo) {
  ServeVrf("red");
  CreateIf("red", 0, nullptr, 0xdead);
  mpls_vpn_debug_flags[DBASE].enabled.store(1);
  ClearPrints();
  ParcelArray interfaces{};
  EXPECT_EQ(add_ifs(&interfaces, "red"), 0U);
  EXPECT_EQ(TimesPrinted("Start cleaning interface database..."), 2U);
}

TEST_F(VrfShow, NoMoreTablesAreTakenThanThereAreSlots) {
  AddVrfWithTables("red", true, true);
  Connect();
  mpls_vpn_vrf show{};
  add_tables(&show.AF, vtab_get_vrf_record_by_vrf_name("red"), 0, 0, 1);
  EXPECT_THAT(TablesOf(show), ElementsAre("1/1 - -"));
  EXPECT_EQ(parcel_free_indirections(&kShowVrfParcel, &show), kStatusOk);
}

TEST_F(VrfShow, MulticastSelectorTakesNoTableOfAGivenFamily) {
  AddVrfWithTables("red", true, true, true);
  Connect();
  EXPECT_THAT(FilledTables("red", 1, 2), IsEmpty());
  EXPECT_THAT(FilledTables("red", 0, 2), ElementsAre("1/1 - -", "2/1 - -")) << "of all families it does not";
}

TEST_F(VrfShow, VrfThatLeavesTheDatabaseShowsNoTables) {
  AddVrf("red");
  EXPECT_THAT(FilledTables("red", 0), IsEmpty());
  EXPECT_THAT(Prints(), Contains("add_tables table count: 4"));
}

TEST_F(VrfShow, TablesWithoutMemoryAreLeftOut) {
  ServeVrf("red");
  const ScopedFault fault("calloc_tagged:Table in VRF", kStatusNoMemory);
  EXPECT_THAT(ShownTables("red"), IsEmpty());
  ExpectNoArrayReported("add_tables");
}

TEST_F(VrfShow, TableHasTheRouteTargetsOfItsFamilyInOrder) {
  ServeVrf("red");
  AddRouteTarget("red", kRtExport, "1:2");
  AddRouteTarget("red", kRtImport, "1:1");
  AddRouteTarget("red", kRtImport, "1:3", 1, 2);
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  AddRouteTarget("reds", kRtImport, "9:9");
  EXPECT_THAT(ShownTables("red"), ElementsAre("1/1 - - 1:1(1) 1:2(2)", "2/1 - - 6:6(1)"));
  EXPECT_EQ(TimesPrinted("Entering function fill_show_rt_parcel"), 3U);
}

TEST_F(VrfShow, RouteTargetsWithoutMemoryAreLeftOut) {
  ServeVrf("red");
  AddRouteTarget("red", kRtImport, "1:1");
  Run();
  const ScopedFault fault("calloc_tagged:RT in VRF", kStatusNoMemory);
  EXPECT_THAT(ShownTables("red"), ElementsAre("1/1 - -", "2/1 - -"));
  ExpectNoArrayReported("add_rts");
}

TEST_F(VrfShow, RouteTargetWithoutAValueIsReported) {
  RtNode node{};
  node.type = kRtExport;
  node.afi = 2;
  OnlyArea(ERR);
  mpls_vpn_rt entry;
  fill_show_rt_parcel(&entry, &node);
  EXPECT_THAT(Prints(), ElementsAre("In function fill_show_rt_parcel: node->value is NULL"));
  EXPECT_EQ(entry.RouteTargetValue, nullptr);
  EXPECT_EQ(entry.RouteTargetType, 2U);
  EXPECT_EQ(entry.AFName, 2U);
}

TEST_F(VrfShow, UnicastTablesHaveTheirFamilysPolicies) {
  ServeVrf("red");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->import_route_policy[0], "in4");
  text_replace(&attributes->export_route_policy[0], "out4");
  text_replace(&attributes->import_route_policy[1], "in6");
  text_replace(&attributes->export_route_policy[1], "out6");
  EXPECT_THAT(ShownTables("red"), ElementsAre("1/1 in4 out4", "2/1 in6 out6"));
  EXPECT_EQ(Table("red", 1, 2), "1/2 in4 out4") << "of every SAFI but that of flow rules";
  EXPECT_EQ(Table("red", 2, 2), "2/2 in6 out6");
  EXPECT_EQ(Table("red", 3, 1), "3/1 - -");
}

TEST_F(VrfShow, Ipv4FlowRuleTableHasItsOwnPolicies) {
  ServeVrf("red");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->flowspec_import_route_policy[0], "flow-in");
  text_replace(&attributes->flowspec_export_route_policy[0], "flow-out");
  EXPECT_EQ(Table("red", 1, 133), "1/133 flow-in flow-out");
  EXPECT_EQ(Table("red", 3, 133), "3/133 - -");
}

TEST_F(VrfShow, Ipv6FlowRulePoliciesAreShownOnlyBesideUnicastOnes) {
  ServeVrf("red");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->flowspec_import_route_policy[1], "flow-in");
  text_replace(&attributes->flowspec_export_route_policy[1], "flow-out");
  EXPECT_EQ(Table("red", 2, 133), "2/133 - -");
  text_replace(&attributes->import_route_policy[1], "in6");
  EXPECT_EQ(Table("red", 2, 133), "2/133 flow-in -");
  text_replace(&attributes->export_route_policy[1], "out6");
  EXPECT_EQ(Table("red", 2, 133), "2/133 flow-in flow-out");
}

// --- The structured form

TEST_F(VrfShow, StructuredFormWithoutPoliciesAndRouteTargetsHasNoTables) {
  ServeVrf("red");
  EXPECT_THAT(ShownTables("red", kStructured), IsEmpty());
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 0, afi_index: 0"));
  EXPECT_FALSE(Printed("add_tables table count: 4"));
}

TEST_F(VrfShow, StructuredFormWithAnIpv4PolicyHasTheIpv4Table) {
  AddVrfWithTables("red", true, true, true);
  Connect();
  text_replace(&AttributesOf("red")->import_route_policy[0], "in4");
  EXPECT_THAT(ShownTables("red", kStructured), ElementsAre("1/1 in4 -"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 1, afi_index: 1"));
  EXPECT_TRUE(Printed("add_tables table count: 1"));
}

TEST_F(VrfShow, StructuredFormWithAnIpv6PolicyHasTheIpv6Table) {
  ServeVrf("red");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->import_route_policy[1], "in6");
  EXPECT_THAT(ShownTables("red", kStructured), ElementsAre("2/1 in6 -"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 1, afi_index: 2"));
  text_replace(&attributes->import_route_policy[1], nullptr);
  text_replace(&attributes->export_route_policy[1], "out6");
  EXPECT_THAT(ShownTables("red", kStructured), ElementsAre("2/1 - out6"));
}

TEST_F(VrfShow, StructuredFormDoesNotCountFlowRulePolicies) {
  ServeVrf("red");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  for (unsigned family = 0; family < kMplsVpnFamilies; ++family) {
    text_replace(&attributes->flowspec_import_route_policy[family], "flow-in");
    text_replace(&attributes->flowspec_export_route_policy[family], "flow-out");
  }
  EXPECT_THAT(ShownTables("red", kStructured), IsEmpty());
}

TEST_F(VrfShow, OnlyFormTwoIsStructured) {
  ServeVrf("red");
  for (const std::uint32_t form : {kPlain, kWithFamilies, kStructuredWithFamilies}) {
    EXPECT_THAT(ShownTables("red", form), ElementsAre("1/1 - -", "2/1 - -")) << form;
    EXPECT_TRUE(
        Printed("Entering function mpls_vpn_mib_prov_get_vrf_show with vrfName = red, is_xml: FALSE"));
  }
}

TEST_F(VrfShow, StructuredFormWithBothFamiliesHasAllTables) {
  ServeVrf("red");
  text_replace(&AttributesOf("red")->export_route_policy[0], "out4");
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  EXPECT_THAT(ShownTables("red", kStructured), ElementsAre("1/1 - out4", "2/1 - - 6:6(1)"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 2, afi_index: 0"));
  EXPECT_TRUE(Printed("add_tables table count: 4"));
}

TEST_F(VrfShow, StructuredFormOfAGivenFamilyConsidersItsTableOnly) {
  ServeVrf("red");
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  EXPECT_THAT(FilledTables("red", 2, 0, true), ElementsAre("2/1 - - 6:6(1)"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 1, afi_index: 2"));
  EXPECT_THAT(FilledTables("red", 1, 0, true), IsEmpty());
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 0, afi_index: 1"));
}

TEST_F(VrfShow, NonUnicastTablesDoNotUseUpTheTwo) {
  AddVrfWithTables("red", true, true, true, true);
  Connect();
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  AddRouteTarget("red", kRtImport, "4:4", 1, 2);
  EXPECT_THAT(FilledTables("red", 0, 0, true), ElementsAre("2/1 - - 6:6(1)"));
  EXPECT_EQ(TimesPrinted("Entering function mpls_vpn_mib_prov_xml_filter_route_info"), 2U);
}

TEST_F(VrfShow, StructuredFormNeedsTheVrfInTheDatabase) {
  AddVrf("red");
  AddRouteTarget("red", kRtImport, "1:1");
  EXPECT_THAT(FilledTables("red", 0, 0, true), IsEmpty());
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 0, afi_index: 0"));
}

TEST_F(VrfShow, RouteInformationNeedsBothRecords) {
  AddVrf("red");
  Run();
  VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name("red");
  const VtabTableRecord* table = vtab_get_first_table_record_by_vrf_name("red");
  AddRouteTarget("red", kRtImport, "1:1");
  std::uint32_t afi = 9;
  EXPECT_FALSE(mpls_vpn_mib_prov_xml_filter_route_info(nullptr, table, &afi));
  EXPECT_FALSE(mpls_vpn_mib_prov_xml_filter_route_info(record, nullptr, &afi));
  EXPECT_EQ(afi, 9U);
  EXPECT_TRUE(mpls_vpn_mib_prov_xml_filter_route_info(record, table, &afi));
  EXPECT_EQ(afi, 1U);
  VtabTableRecord other = *table;
  other.afi = 3;
  EXPECT_FALSE(mpls_vpn_mib_prov_xml_filter_route_info(record, &other, &afi));
}

}  // namespace
