// The show handlers: the record of a VRF as a whole, its interfaces, and the record of an invalid VRF. Tables
// have a file of their own.
#include "mpls/vpn/mib/src/vrf/show_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

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
  text_replace(&AttributesOf("red")->description, "customer");
  const auto show = Shown("red");
  EXPECT_STREQ(show->VRFName, "red");
  EXPECT_STREQ(show->VRFDescription, "customer");
  EXPECT_STREQ(show->RouteDistinguisher, "65000:100");
  EXPECT_EQ(show->isBigVrf, 1U);
  EXPECT_THAT(InterfacesOf(*show.operator->()), ElementsAre("ge0"));
  EXPECT_THAT(TablesOf(*show.operator->()), ElementsAre("1/1 - -", "2/1 - -"));
}

TEST_F(VrfShow, HandlerPrintsWhetherTheFormIsStructured) {
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

TEST_F(VrfShow, ForwardReferenceAnswersNoSuchRow) {
  NameVrf("later");
  Connect();
  HoldInDatabase("later", vtab_get_vrf_record_by_vrf_name("later"));
  EXPECT_EQ(Show("later"), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Ignoring VRF FWD REF later"));
}

TEST_F(VrfShow, MissingRouteDistinguisherIsFetched) {
  ServeVrf("red", 0, "65000:100");
  text_replace(&AttributesOf("red")->rd, nullptr);
  const auto show = Shown("red");
  EXPECT_STREQ(show->RouteDistinguisher, "65000:100");
  EXPECT_EQ(show->isBigVrf, 0U);
}

TEST_F(VrfShow, MissingRecordIsReportedAndFillsNothing) {
  OnlyArea(ERR);
  ShowInSteps filling;
  EXPECT_TRUE(fill_show_vrf_parcel(&filling, nullptr, 0, 0, false, nullptr));
  EXPECT_THAT(Prints(), ElementsAre("NULL arguments in fill_show_vrf_parcel"));
  EXPECT_EQ(filling.show.VRFName, nullptr);
  EXPECT_EQ(Traced("mpls_vpn/error").size(), 1U);
}

TEST_F(VrfShow, HandlerPrintsWhatItDoes) {
  AddVrf("red", 0, "65000:1");
  AddRouteTarget("red", kRtImport, "1:1");
  Connect();
  OnlyArea(PROV);
  ASSERT_EQ(Show("red"), kStatusOk);
  EXPECT_THAT(
      Prints(),
      ElementsAre("Entering function mpls_vpn_mib_prov_get_vrf_show with vrfName = red, is_xml: FALSE",
                  "Found VRF red", "Found VRF red", "add_tables table count: 4", "Found VRF red",
                  "Adding table red.ipv4.unicast, afi = 1, safi = 1", "Entering function fill_show_rt_parcel",
                  "Found VRF red", "Adding table red.ipv6.unicast, afi = 2, safi = 1"));
  ASSERT_EQ(Show("red", kStructured), kStatusOk);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering function mpls_vpn_mib_prov_get_vrf_show with vrfName = red, is_xml: TRUE",
                          "Found VRF red", "Found VRF red", "Entering function mpls_vpn_mib_prov_xml_filter",
                          "Found VRF red", "Entering function mpls_vpn_mib_prov_xml_filter_route_info",
                          "Found VRF red", "Entering function mpls_vpn_mib_prov_xml_filter_route_info",
                          "mpls_vpn_mib_prov_xml_filter: xml table count: 1, afi_index: 1",
                          "add_tables table count: 1", "Adding table for specific afi = IPv4",
                          "Found VRF red", "Adding table red.ipv4.unicast, afi = IPv4, safi = Unicast",
                          "Entering function fill_show_rt_parcel", "Found VRF red"));
}

TEST_F(VrfShow, NameIsUsedLiterallyInEveryForm) {
  AddVrf("a/b");
  AddInterface("ge0", "x/y");
  Connect();
  for (const std::uint32_t form : {kPlain, kWithFamilies, kStructured, kStructuredWithFamilies}) {
    EXPECT_EQ(Show("a/b", form), kStatusOk) << form;
    EXPECT_EQ(Show("a%2Fb", form), kStatusNoSuchRow) << form;
    EXPECT_EQ(ShowInvalid("x/y", form), kStatusOk) << form;
    EXPECT_EQ(ShowInvalid("x%2Fy", form), kStatusNoSuchRow) << form;
  }
}

TEST_F(VrfShow, TextWithoutMemoryIsLeftOutAndTheRequestSucceeds) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  AddRouteTarget("red", kRtImport, "1:1");
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->description, "customer");
  text_replace(&attributes->rd, "65000:1");
  text_replace(&attributes->import_route_policy[0], "in4");
  text_replace(&attributes->export_route_policy[0], "out4");
  const struct {
    const char* function;
    const char* shown;
  } copies[] = {{"fill_show_vrf_parcel", "red - 65000:1, ge0, 1/1 in4 out4 1:1(1), 2/1 - -"},
                {"fill_show_vrf_parcel", "red customer -, ge0, 1/1 in4 out4 1:1(1), 2/1 - -"},
                {"add_ifs", "red customer 65000:1, (null), 1/1 in4 out4 1:1(1), 2/1 - -"},
                {"fill_show_rt_parcel", "red customer 65000:1, ge0, 1/1 in4 out4 -(1), 2/1 - -"},
                {"fill_table_parcel", "red customer 65000:1, ge0, 1/1 - out4 1:1(1), 2/1 - -"},
                {"fill_table_parcel", "red customer 65000:1, ge0, 1/1 in4 - 1:1(1), 2/1 - -"}};
  std::uint32_t copy = 1;  // the name's
  for (const auto& [function, shown] : copies) {
    const ScopedFault fault("text_copy", kStatusNoMemory, ++copy);
    ASSERT_EQ(Show("red"), kStatusOk) << copy;
    EXPECT_EQ(ShownInFull(), shown) << copy;
    ExpectNoCopyReported(function);
  }
}

TEST_F(VrfShow, RecordWithoutItsNameAnswersNoMemory) {
  AddVrf("red", 0, "65000:1");
  AddInterface("ge0", "red");
  AddInterface("ge1", "far");
  Connect();
  mpls_vpn_mib_vrf_complete_missing(vtab_get_vrf_record_by_vrf_name("red"));
  fault_arm("text_copy", kStatusNoMemory);
  EXPECT_EQ(Show("red"), kStatusNoMemory);
  EXPECT_EQ(reply_.Get().data, nullptr);
  ExpectNoCopyReported("fill_show_vrf_parcel");
  fault_arm("text_copy", kStatusNoMemory);
  EXPECT_EQ(ShowInvalid("far"), kStatusNoMemory);
  EXPECT_EQ(reply_.Get().data, nullptr);
  ExpectNoCopyReported("fill_vrf_invalid_parcel");
}

// --- Interfaces

TEST_F(VrfShow, InterfacesAreInTheDatabasesOrderWithSlashesForUnderscores) {
  AddVrf("red");
  AddVrf("blue");
  AddInterface("ge0_0_1", "red");
  AddInterface("ge7", "blue");
  AddInterface("ge0_0_0", "red");
  Connect();
  EXPECT_THAT(ShownInterfaces("red"), ElementsAre("ge0/0/1", "ge0/0/0"));
}

TEST_F(VrfShow, LongestInterfaceNameFits) {
  AddVrf("red");
  AddInterface(std::string(63, '_'), "red");
  Connect();
  EXPECT_THAT(ShownInterfaces("red"), ElementsAre(std::string(63, '/')));
}

TEST_F(VrfShow, OverlongNameIsCutAndAMissingOneIsEmpty) {
  ServeVrf("red");
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
  const ScopedFault fault("calloc_tagged:If in VRF", kStatusNoMemory);
  EXPECT_THAT(ShownInterfaces("red"), IsEmpty());
  ExpectNoArrayReported("add_ifs");
}

TEST_F(VrfShow, DefaultVrfListsTheInterfacesInNoVrfAndHasNoTables) {
  router::Vrf with_tables = *router_.find_vrf("default");
  with_tables.ipv4_table = with_tables.ipv6_table = 254;
  ASSERT_EQ(router_.change_vrf(with_tables), kStatusOk);
  AddVrf("red");
  AddInterface("ge0_1");
  AddInterface("ge0_2", "red");
  AddInterface("lo");
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  ASSERT_NE(vtab_get_first_table_record_by_vrf_name("default"), nullptr);
  EXPECT_THAT(ShownInterfaces("default"), ElementsAre("ge0/1", "lo"));
  EXPECT_THAT(ShownTables("default"), IsEmpty());
}

TEST_F(VrfShow, DefaultVrfWithoutInterfacesHasNone) {
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  EXPECT_THAT(ShownInterfaces("default"), IsEmpty());
}

TEST_F(VrfShow, InterfacesOfDefaultWithoutMemoryAreLeftOut) {
  AddInterface("lo");
  Connect();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  Run();
  const ScopedFault fault("calloc_tagged:Def if in VRF", kStatusNoMemory);
  EXPECT_THAT(ShownInterfaces("default"), IsEmpty());
  ExpectNoArrayReported("add_default_vrf_ifs");
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

TEST_F(VrfShow, InvalidVrfWithoutInterfacesAnswersNoSuchRow) {
  Connect();
  EXPECT_EQ(ShowInvalid("far"), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Requested VRF far invalid, but found no ifs"));
}

TEST_F(VrfShow, InvalidVrfWhoseInterfacesFindNoMemoryAnswersNoSuchRow) {
  AddInterface("ge0", "far");
  Connect();
  const ScopedFault fault("calloc_tagged:If in VRF", kStatusNoMemory);
  EXPECT_EQ(ShowInvalid("far"), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Requested VRF far invalid, but found no ifs"));
  ExpectNoArrayReported("add_ifs");
}

TEST_F(VrfShow, InterfaceOfAnInvalidVrfWithoutMemoryForItsNameIsShownEmpty) {
  AddInterface("ge0", "far");
  Connect();
  const ScopedFault fault("text_copy", kStatusNoMemory, 2);
  ASSERT_EQ(ShowInvalid("far"), kStatusOk);
  EXPECT_EQ(ShownInFull(), "far - -, (null)");
}

TEST_F(VrfShow, InvalidRecordNeedsBothArguments) {
  OnlyArea(ERR);
  ShowInSteps show;
  EXPECT_TRUE(fill_vrf_invalid_parcel(&show, nullptr, nullptr));
  EXPECT_TRUE(fill_vrf_invalid_parcel(nullptr, "far", nullptr));
  EXPECT_EQ(TimesPrinted("NULL arguments in fill_vrf_invalid_parcel"), 2U);
  EXPECT_THAT(Prints(), Not(IsEmpty()));
}

}  // namespace
