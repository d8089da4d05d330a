// The show record of a VRF: interfaces, tables, route targets, policies; and the structured form's choice of
// tables.
#include "mpls/vpn/mib/src/mpls_vpn_mib_vrf_show.h"

#include "mpls/vpn/mib/src/mpls_vpn_mib_prov_xml_filter.h"
#include "mpls/vpn/mib/src/mpls_vpn_route_test_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint32_t kPlain = 0;
constexpr std::uint32_t kStructured = 2;

class VrfShow : public RouteTablesTest {
 protected:
  using Handler = Status (*)(KvReply*, const RequestArgs*);
  Status Read(Handler handler, const char* vrf, std::uint32_t form = kPlain) {
    Run();
    ClearPrints();
    return handler(reply_.Place(), Arguments(form, 1).Text(0, vrf).Block());
  }
  Status Show(const char* vrf, std::uint32_t form = kPlain) {
    return Read(mpls_vpn_mib_prov_get_vrf_show, vrf, form);
  }
  Status ShowInvalid(const char* vrf) { return Read(mpls_vpn_mib_prov_get_vrf_invalid, vrf); }
  static std::vector<std::string> InterfacesOf(const mpls_vpn_vrf& show) {
    const auto* entries = static_cast<const mpls_vpn_interfaces*>(show.Interfaces.elements);
    std::vector<std::string> names;
    for (std::uint64_t i = 0; i < show.Interfaces.count; ++i) {
      names.emplace_back(entries[i].InterfaceName == nullptr ? "(null)" : entries[i].InterfaceName);
    }
    return names;
  }
  static std::string OrNone(const char* text) { return text == nullptr ? "-" : text; }
  // "afi/safi import export value(type)...", a table each.
  static std::vector<std::string> TablesOf(const mpls_vpn_vrf& show) {
    const auto* tables = static_cast<const mpls_vpn_afi_safi*>(show.AF.elements);
    std::vector<std::string> texts;
    for (std::uint64_t i = 0; i < show.AF.count; ++i) {
      std::string text = std::to_string(tables[i].AFName) + "/" + std::to_string(tables[i].SAFName) + " " +
                         OrNone(tables[i].ImportRoutePolicy) + " " + OrNone(tables[i].ExportRoutePolicy);
      const auto* targets = static_cast<const mpls_vpn_rt*>(tables[i].RouteTarget.elements);
      for (std::uint64_t j = 0; j < tables[i].RouteTarget.count; ++j) {
        text += " " + OrNone(targets[j].RouteTargetValue) + "(" + std::to_string(targets[j].RouteTargetType) +
                ")";
        EXPECT_EQ(targets[j].AFName, tables[i].AFName);
        EXPECT_EQ(targets[j].SAFName, tables[i].SAFName);
      }
      texts.push_back(text);
    }
    return texts;
  }
  std::vector<std::string> ShownInterfaces() {
    const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
    return InterfacesOf(*show.operator->());
  }
  std::vector<std::string> ShownTables() {
    const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
    return TablesOf(*show.operator->());
  }
  // Fills a record without a request, and takes its tables.
  std::vector<std::string> FilledTables(const char* vrf, std::uint32_t afi_index, std::uint32_t selector = 0,
                                        bool is_xml = false) {
    Run();
    ClearPrints();
    mpls_vpn_vrf show;
    fill_show_vrf_parcel(&show, vtab_get_vrf_record_by_vrf_name(vrf), afi_index, selector, is_xml);
    const std::vector<std::string> tables = TablesOf(show);
    EXPECT_EQ(parcel_free_indirections(&kShowVrfParcel, &show), kStatusOk);
    return tables;
  }
  // What fill_table_parcel makes of a table that the record service does not have.
  std::string Table(const char* vrf, std::uint32_t afi, std::uint32_t safi) {
    VtabTableRecord table{};
    table.afi = afi;
    table.safi = safi;
    mpls_vpn_vrf show{};
    show.AF = {1, std::calloc(1, sizeof(mpls_vpn_afi_safi))};
    fill_table_parcel(static_cast<mpls_vpn_afi_safi*>(show.AF.elements), &table,
                      vtab_get_vrf_record_by_vrf_name(vrf));
    const std::string text = TablesOf(show).front();
    EXPECT_EQ(parcel_free_indirections(&kShowVrfParcel, &show), kStatusOk);
    return text;
  }
  Reply reply_;
};

// --- The show handler

TEST_F(VrfShow, MissingNameIsRefused) {
  OnlyArea(ERR);
  EXPECT_EQ(mpls_vpn_mib_prov_get_vrf_show(reply_.Place(), Arguments(kPlain, 1).Block()), 0x40818800U);
  EXPECT_EQ(mpls_vpn_mib_prov_get_vrf_invalid(reply_.Place(), Arguments(kPlain, 1).Block()), 0x40818800U);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 0 not present in mpls_vpn_mib_prov_get_vrf_show",
                                    "BGEN arg 0 not present in mpls_vpn_mib_prov_get_vrf_invalid"));
}

TEST_F(VrfShow, ShowsTheVrf) {
  AddVrf("red", kVrfFlagBigVrf, "65000:100");
  AddInterface("ge0", "red");
  Connect();
  Run();
  text_replace(&AttributesOf("red")->description, "customer");
  ASSERT_EQ(Show("red"), kStatusOk);
  const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
  EXPECT_STREQ(show->VRFName, "red");
  EXPECT_STREQ(show->VRFDescription, "customer");
  EXPECT_STREQ(show->RouteDistinguisher, "65000:100");
  EXPECT_EQ(show->isBigVrf, 1U);
  EXPECT_THAT(InterfacesOf(*show.operator->()), ElementsAre("ge0"));
  EXPECT_THAT(TablesOf(*show.operator->()), ElementsAre("1/1 - -", "2/1 - -"));
}

TEST_F(VrfShow, HandlerTellsWhetherTheFormIsStructured) {
  Connect();
  OnlyArea(PROV);
  EXPECT_EQ(Show("red"), kStatusNoSuchRow);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_vrf_show with vrfName = red, "
                                    "is_xml: FALSE",
                                    "Ignoring VRFs not present in DB"));
  Show("red", kStructured);
  EXPECT_TRUE(Printed("Entering function mpls_vpn_mib_prov_get_vrf_show with vrfName = red, is_xml: TRUE"));
}

TEST_F(VrfShow, VrfThatTheRecordServiceDoesNotKnowHasAStatusOfItsOwn) {
  Connect();
  VtabVrfRecord record{};
  HoldInDatabase("lost", &record);
  EXPECT_EQ(Show("lost"), 0x40828600U);
  EXPECT_TRUE(Printed("No VRF found"));
}

TEST_F(VrfShow, ForwardReferenceIsNoSuchRow) {
  NameVrf("later");
  Connect();
  HoldInDatabase("later", vtab_get_vrf_record_by_vrf_name("later"));
  EXPECT_EQ(Show("later"), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Ignoring VRF FWD REF later"));
}

TEST_F(VrfShow, MissingRouteDistinguisherIsFetched) {
  AddVrf("red", 0, "65000:100");
  Connect();
  Run();
  text_replace(&AttributesOf("red")->rd, nullptr);
  ASSERT_EQ(Show("red"), kStatusOk);
  const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
  EXPECT_STREQ(show->RouteDistinguisher, "65000:100");
}

TEST_F(VrfShow, MissingRecordIsToldAndFillsNothing) {
  OnlyArea(ERR);
  mpls_vpn_vrf show;
  fill_show_vrf_parcel(&show, nullptr, 0, 0, false);
  EXPECT_THAT(Prints(), ElementsAre("NULL arguments in fill_show_vrf_parcel"));
  EXPECT_EQ(show.VRFName, nullptr);
  EXPECT_EQ(Traced("mpls_vpn/error").size(), 1U);
}

// --- Interfaces

TEST_F(VrfShow, InterfacesAreInTheDatabasesOrderWithSlashesForUnderscores) {
  AddVrf("red");
  AddVrf("blue");
  AddInterface("ge0_0_1", "red");
  AddInterface("ge7", "blue");
  AddInterface("ge0_0_0", "red");
  Connect();
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), ElementsAre("ge0/0/1", "ge0/0/0"));
}

TEST_F(VrfShow, LongestInterfaceNameFits) {
  AddVrf("red");
  AddInterface(std::string(63, '_'), "red");
  Connect();
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), ElementsAre(std::string(63, '/')));
}

TEST_F(VrfShow, OverlongNameIsCutAndAMissingOneIsEmpty) {
  AddVrf("red");
  Connect();
  Run();
  CreateIf("red", 7, std::string(90, 'x').c_str(), 0x700);
  CreateIf("red", 8, nullptr, 0x800);
  ParcelArray interfaces;
  EXPECT_EQ(add_ifs(&interfaces, "red"), 2U);
  mpls_vpn_vrf show{};
  show.Interfaces = interfaces;
  EXPECT_THAT(InterfacesOf(show), ElementsAre(std::string(63, 'x'), ""));
  EXPECT_EQ(parcel_free_indirections(&kShowVrfParcel, &show), kStatusOk);
}

TEST_F(VrfShow, InterfacesWithoutMemoryAreLeftOut) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  Run();
  const ScopedFault fault("calloc_tagged:If in VRF", kStatusNoMemory);
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), IsEmpty());
  EXPECT_TRUE(Printed("Cannot allocate memory in function add_ifs"));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), Contains("Cannot allocate memory in function add_ifs"));
  EXPECT_EQ(code, kStatusNoMemory);
}

TEST_F(VrfShow, DefaultVrfListsTheInterfacesInNoVrfAndHasNoTables) {
  AddVrf("red");
  AddInterface("ge0_1");
  AddInterface("ge0_2", "red");
  AddInterface("lo");
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  ASSERT_EQ(Show("default"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), ElementsAre("ge0/1", "lo"));
  EXPECT_THAT(ShownTables(), IsEmpty());
}

TEST_F(VrfShow, DefaultVrfWithoutInterfacesHasNone) {
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  ASSERT_EQ(Show("default"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), IsEmpty());
}

TEST_F(VrfShow, InterfacesOfDefaultWithoutMemoryAreLeftOut) {
  AddInterface("lo");
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  Run();
  const ScopedFault fault("calloc_tagged:Def if in VRF", kStatusNoMemory);
  ASSERT_EQ(Show("default"), kStatusOk);
  EXPECT_THAT(ShownInterfaces(), IsEmpty());
  EXPECT_TRUE(Printed("Cannot allocate memory in function add_default_vrf_ifs"));
}

// --- Tables

TEST_F(VrfShow, MulticastTablesAreNotShown) {
  AddVrfWithTables("red", true, true, true);
  Connect();
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 - -", "2/1 - -"));
  EXPECT_TRUE(Printed("add_tables table count: 4"));
  EXPECT_TRUE(Printed("Adding table red.ipv4.multicast, afi = 1, safi = 2")) << "told of every table met";
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

TEST_F(VrfShow, NoMoreTablesAreTakenThanThereAreSlots) {
  AddVrfWithTables("red", true, true);
  Connect();
  Run();
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
  AddVrf("red");
  Connect();
  Run();
  const ScopedFault fault("calloc_tagged:Table in VRF", kStatusNoMemory);
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownTables(), IsEmpty());
  EXPECT_TRUE(Printed("Cannot allocate memory in function add_tables"));
}

TEST_F(VrfShow, TableHasTheRouteTargetsOfItsFamilyInOrder) {
  AddVrf("red");
  Connect();
  AddRouteTarget("red", kRtExport, "1:2");
  AddRouteTarget("red", kRtImport, "1:1");
  AddRouteTarget("red", kRtImport, "1:3", 1, 2);
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  AddRouteTarget("reds", kRtImport, "9:9");
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 - - 1:1(1) 1:2(2)", "2/1 - - 6:6(1)"));
  EXPECT_EQ(TimesPrinted("Entering function fill_show_rt_parcel"), 3U);
}

TEST_F(VrfShow, RouteTargetsWithoutMemoryAreLeftOut) {
  AddVrf("red");
  Connect();
  AddRouteTarget("red", kRtImport, "1:1");
  Run();
  const ScopedFault fault("calloc_tagged:RT in VRF", kStatusNoMemory);
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 - -", "2/1 - -"));
  EXPECT_TRUE(Printed("Cannot allocate memory in function add_rts"));
}

TEST_F(VrfShow, RouteTargetWithoutAValueIsTold) {
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
  AddVrf("red");
  Connect();
  Run();
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->import_route_policy[0], "in4");
  text_replace(&attributes->export_route_policy[0], "out4");
  text_replace(&attributes->import_route_policy[1], "in6");
  text_replace(&attributes->export_route_policy[1], "out6");
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 in4 out4", "2/1 in6 out6"));
  EXPECT_EQ(Table("red", 3, 1), "3/1 - -");
}

TEST_F(VrfShow, Ipv4FlowRuleTableHasItsOwnPolicies) {
  AddVrf("red");
  Connect();
  Run();
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->flowspec_import_route_policy[0], "flow-in");
  text_replace(&attributes->flowspec_export_route_policy[0], "flow-out");
  EXPECT_EQ(Table("red", 1, 133), "1/133 flow-in flow-out");
}

TEST_F(VrfShow, Ipv6FlowRulePoliciesAreShownOnlyBesideUnicastOnes) {
  AddVrf("red");
  Connect();
  Run();
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
  AddVrf("red");
  Connect();
  ASSERT_EQ(Show("red", kStructured), kStatusOk);
  EXPECT_THAT(ShownTables(), IsEmpty());
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 0, afi_index: 0"));
  EXPECT_FALSE(Printed("add_tables table count: 4"));
}

TEST_F(VrfShow, StructuredFormWithAnIpv4PolicyHasTheIpv4Table) {
  AddVrfWithTables("red", true, true, true);
  Connect();
  Run();
  text_replace(&AttributesOf("red")->import_route_policy[0], "in4");
  ASSERT_EQ(Show("red", kStructured), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 in4 -"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 1, afi_index: 1"));
  EXPECT_TRUE(Printed("add_tables table count: 1"));
}

TEST_F(VrfShow, StructuredFormWithBothFamiliesHasAllTables) {
  AddVrf("red");
  Connect();
  Run();
  text_replace(&AttributesOf("red")->export_route_policy[0], "out4");
  AddRouteTarget("red", kRtImport, "6:6", 2, 1);
  ASSERT_EQ(Show("red", kStructured), kStatusOk);
  EXPECT_THAT(ShownTables(), ElementsAre("1/1 - out4", "2/1 - - 6:6(1)"));
  EXPECT_TRUE(Printed("mpls_vpn_mib_prov_xml_filter: xml table count: 2, afi_index: 0"));
  EXPECT_TRUE(Printed("add_tables table count: 4"));
}

TEST_F(VrfShow, StructuredFormOfAGivenFamilyLooksAtItsTableOnly) {
  AddVrf("red");
  Connect();
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

// --- Invalid VRFs

TEST_F(VrfShow, InvalidVrfShowsItsNameAndInterfaces) {
  AddInterface("ge0_1", "far");
  Connect();
  ASSERT_EQ(ShowInvalid("far"), kStatusOk);
  const Decoded<mpls_vpn_vrf> show(kShowVrfParcel, reply_.Get());
  EXPECT_STREQ(show->VRFName, "far");
  EXPECT_EQ(show->RouteDistinguisher, nullptr);
  EXPECT_THAT(InterfacesOf(*show.operator->()), ElementsAre("ge0/1"));
  EXPECT_THAT(TablesOf(*show.operator->()), IsEmpty());
}

TEST_F(VrfShow, ForwardReferenceIsAnInvalidVrf) {
  NameVrf("later");
  AddInterface("ge0", "later");
  Connect();
  EXPECT_EQ(ShowInvalid("later"), kStatusOk);
}

TEST_F(VrfShow, VrfThatExistsIsNotInvalid) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  OnlyArea(PROV);
  EXPECT_EQ(ShowInvalid("red"), kStatusNoSuchRow);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_vrf_invalid with vrfName = red",
                                    "VRF red found, but it is not invalid"));
}

TEST_F(VrfShow, InvalidVrfWithoutInterfacesIsNoSuchRow) {
  Connect();
  EXPECT_EQ(ShowInvalid("far"), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Requested VRF far invalid, but found no ifs"));
}

TEST_F(VrfShow, InvalidRecordNeedsBothArguments) {
  OnlyArea(ERR);
  mpls_vpn_vrf show;
  EXPECT_EQ(fill_vrf_invalid_parcel(&show, nullptr), 0U);
  EXPECT_EQ(fill_vrf_invalid_parcel(nullptr, "far"), 0U);
  EXPECT_EQ(TimesPrinted("NULL arguments in fill_vrf_invalid_parcel"), 2U);
  EXPECT_THAT(Prints(), Not(IsEmpty()));
}

}  // namespace
