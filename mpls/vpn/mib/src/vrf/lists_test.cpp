// Lists and datalists of VRFs, valid and invalid.
#include "mpls/vpn/mib/src/vrf/lists.h"

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "mpls/vpn/mib/src/vrf/lists_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

TEST_F(VrfLists, WithoutANameAllVrfsAreListedInOrder) {
  AddVrfs({"zz", "c", "a"});
  for (const std::uint32_t form : {kName, kNameAfiSafi, kEncodedName, kEncodedNameAfiSafi}) {
    EXPECT_THAT(List(Unnamed(form)), ElementsAre("a", "c", "zz")) << form;
    EXPECT_THAT(Datalist(Unnamed(form)), ElementsAre("a", "c", "zz")) << form;
  }
}

TEST_F(VrfLists, NamedListBeginsAtTheVrfAndNamedDatalistAfterIt) {
  AddVrfs({"a", "b", "c"});
  EXPECT_THAT(List(Named(kName, "b")), ElementsAre("b", "c"));
  EXPECT_THAT(Datalist(Named(kName, "b")), ElementsAre("c"));
  EXPECT_THAT(List(Named(kEncodedName, "b")), ElementsAre("b", "c"));
  EXPECT_THAT(Datalist(Named(kEncodedName, "b")), ElementsAre("c"));
}

TEST_F(VrfLists, AbsentNameBeginsADatalistAfterItAndNoList) {
  AddVrfs({"a", "c"});
  EXPECT_THAT(List(Named(kName, "b")), IsEmpty());
  EXPECT_THAT(Datalist(Named(kName, "b")), ElementsAre("c"));
  EXPECT_THAT(Datalist(Named(kName, std::string(64, 'a').c_str())), IsEmpty());
  EXPECT_THAT(Datalist(Named(kName, "")), ElementsAre("a", "c"));
}

TEST_F(VrfLists, FormWithFamiliesAndANameIsThatVrfAlone) {
  AddVrfs({"a", "b", "c"});
  for (const std::uint32_t form : {kNameAfiSafi, kEncodedNameAfiSafi}) {
    EXPECT_THAT(List(Named(form, "b")), ElementsAre("b"));
    EXPECT_THAT(Datalist(Named(form, "b").Number(1, 1).Number(2, 1)), ElementsAre("b"));
    EXPECT_THAT(Datalist(Named(form, "x")), IsEmpty());
  }
}

TEST_F(VrfLists, NamedVrfThatFailsTheFilterEndsTheWalk) {
  AddVrfWithTables("a", true, true);
  AddVrfWithTables("b", true, false);
  AddVrfWithTables("c", true, true);
  EXPECT_THAT(List(Named(kNameAfiSafi, "b").Number(1, 2)), IsEmpty());
  EXPECT_THAT(Datalist(Named(kNameAfiSafi, "b").Number(1, 2)), IsEmpty());
  EXPECT_FALSE(Printed("VRF does not match AFI SAFI filter"));
}

TEST_F(VrfLists, UnnamedWalkContinuesPastVrfsThatFailTheFilter) {
  AddVrfWithTables("a", true, true);
  AddVrfWithTables("b", true, false);
  AddVrfWithTables("c", true, true);
  EXPECT_THAT(List(Unnamed(kNameAfiSafi).Number(1, 2)), ElementsAre("a", "c"));
  EXPECT_TRUE(Printed("VRF does not match AFI SAFI filter"));
  EXPECT_THAT(Datalist(Unnamed(kNameAfiSafi).Number(1, 2).Number(2, 1)), ElementsAre("a", "c"));
}

TEST_F(VrfLists, UnknownFormIsAnEmptyAnswer) {
  AddVrfs({"a"});
  EXPECT_THAT(List(Named(4, "a")), IsEmpty());
  EXPECT_THAT(Datalist(Unnamed(4)), IsEmpty());
  EXPECT_NE(reply_.datalist, nullptr);
}

TEST_F(VrfLists, NameThatDoesNotDecodeIsARequestWithoutAName) {
  AddVrfs({"a", "b"});
  EXPECT_THAT(Datalist(Named(kEncodedName, "a%2")), ElementsAre("a", "b"));
}

TEST_F(VrfLists, DefaultAndForwardReferencesAndUnknownVrfsAreIgnored) {
  NameVrf("later");
  AddVrf("customers");
  Run();
  ASSERT_NE(vtab_create_vrf_record("noted"), nullptr);
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  EXPECT_THAT(List(Unnamed(kName)), ElementsAre("customers"));
  EXPECT_TRUE(Printed("Ignoring default VRF"));
  EXPECT_TRUE(Printed("Ignoring VRF FWD REF later"));
  EXPECT_THAT(Traced("mpls_vpn/prov"), Not(Contains("Ignoring default VRF")));
  EXPECT_THAT(Traced("mpls_vpn/prov"), Not(Contains("Ignoring VRF FWD REF later")));
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("customers"));
  EXPECT_TRUE(Printed("Ignoring default VRF"));
  EXPECT_THAT(Traced("mpls_vpn/prov"), Contains("Ignoring default VRF"));
  EXPECT_THAT(Traced("mpls_vpn/prov"), Contains("Ignoring VRF FWD REF later"));
  EXPECT_THAT(List(Named(kName, "default")), ElementsAre("customers")) << "the walk continues after it";
}

TEST_F(VrfLists, VrfThatTheDatabaseDoesNotHoldIsIgnored) {
  AddVrf("red");
  Run();
  {
    const MplsVpnLock lock("test", ERR);
    if (!lock) FAIL();
    mpls_vpn_mib_delete_vrf_wavl_node_by_vrf_name("red");
  }
  EXPECT_THAT(List(Unnamed(kName)), IsEmpty());
  EXPECT_TRUE(Printed("Ignoring VRFs not present in DB"));
}

// --- How many

TEST_F(VrfLists, MaximumOfOneYieldsOneNameAndIsReported) {
  AddVrfs({"a", "b"});
  EXPECT_THAT(List(Unnamed(kName), 1), ElementsAre("a"));
  EXPECT_TRUE(Printed("Reached max 1 1"));
  EXPECT_THAT(Datalist(Unnamed(kName), 1), ElementsAre("a"));
  EXPECT_TRUE(Printed("Reached max 1 1"));
}

TEST_F(VrfLists, MaximumOfZeroStillYieldsOneItem) {
  AddVrfs({"a", "b"});
  EXPECT_THAT(List(Unnamed(kName), 0), ElementsAre("a"));
  EXPECT_TRUE(Printed("Reached max 1 0"));
  EXPECT_THAT(Datalist(Unnamed(kName), 0), ElementsAre("a"));
}

TEST_F(VrfLists, DatalistIsFetchedInPieces) {
  for (int i = 0; i < 25; ++i) AddVrf("vrf" + std::to_string(i));
  std::vector<std::string> all;
  std::vector<std::string> piece = Datalist(Unnamed(kName), 10);
  while (!piece.empty()) {
    EXPECT_LE(piece.size(), 10U);
    all.insert(all.end(), piece.begin(), piece.end());
    piece = Datalist(Named(kName, all.back().c_str()), 10);
  }
  EXPECT_THAT(all, testing::ElementsAreArray(List(Unnamed(kName))));
  EXPECT_EQ(all.size(), 25U);
}

// --- What an item holds

TEST_F(VrfLists, DatalistItemIsTheShowRecord) {
  AddVrf("red", 0, "65000:1");
  AddInterface("ge0", "red");
  Run();
  text_replace(&AttributesOf("red")->rd, nullptr);
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("red"));
  EXPECT_EQ(Item(0), "red 1 2");
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:1") << "fetched before the VRF is shown";
}

TEST_F(VrfLists, OnlyTheDatalistCompletesVrfs) {
  AddVrf("red", 0, "65000:1");
  Run();
  ASSERT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_THAT(List(Unnamed(kName)), ElementsAre("red"));
  EXPECT_EQ(AttributesOf("red")->rd, nullptr);
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("red"));
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:1");
}

TEST_F(VrfLists, VrfIsCompletedBeforeItIsFiltered) {
  AddVrf("red", 0, "65000:1");
  EXPECT_THAT(Datalist(Unnamed(kNameAfiSafi).Number(1, 7)), IsEmpty());
  EXPECT_STREQ(AttributesOf("red")->rd, "65000:1");
}

TEST_F(VrfLists, DatalistShowsTheTablesOfTheFilter) {
  AddVrfWithTables("red", true, true, true);
  Datalist(Named(kNameAfiSafi, "red").Number(1, 1));
  EXPECT_EQ(Item(0), "red 0 1");
  EXPECT_TRUE(Printed("mpls_vpn_prov_datalist_vrf: is_xml FALSE"));
  Datalist(Named(kNameAfiSafi, "red").Number(1, 1).Number(2, 2));
  EXPECT_EQ(Item(0), "red 0 0") << "the VRF matches by its multicast table, which is not shown";
}

TEST_F(VrfLists, StructuredDatalistChoosesTablesAndEncodesKeys) {
  AddVrf("a/b");
  AddRouteTarget("a/b", kRtImport, "1:1");
  EXPECT_THAT(Datalist(Unnamed(kEncodedName)), ElementsAre("a%2Fb"));
  EXPECT_EQ(Item(0), "a/b 0 1");
  EXPECT_TRUE(Printed("mpls_vpn_prov_datalist_vrf: is_xml TRUE"));
  EXPECT_THAT(Datalist(Named(kEncodedNameAfiSafi, "a%2Fb").Number(1, 2)), ElementsAre("a%2Fb"));
  EXPECT_EQ(Item(0), "a/b 0 0");
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("a/b"));
  EXPECT_THAT(List(Unnamed(kEncodedName)), ElementsAre("a/b")) << "the list has no structured form";
}

TEST_F(VrfLists, HandlersAnnounceThemselves) {
  OnlyArea(PROV);
  List(Unnamed(kName));
  EXPECT_EQ(Prints().front(), "Entering mpls_vpn_prov_list_vrf");
  Datalist(Unnamed(kName));
  EXPECT_EQ(Prints().front(), "Entering mpls_vpn_prov_datalist_vrf");
  ListInvalid(Unnamed(kName));
  EXPECT_EQ(Prints().front(), "Entering mpls_vpn_prov_list_vrf_invalid");
  DatalistInvalid(Unnamed(kName));
  EXPECT_EQ(Prints().front(), "Entering mpls_vpn_prov_datalist_vrf_invalid");
}

// --- Failures

TEST_F(VrfLists, ListThatCannotBeMadeFailsTheRequest) {
  OnlyArea(ERR);
  const struct {
    Handler handler;
    const char* point;
    const char* said;
  } creations[] = {
      {mpls_vpn_prov_list_vrf, "kvtree_list_create", "mpls_vpn_prov_list_vrf: List creation failed"},
      {mpls_vpn_prov_datalist_vrf, "kvtree_datalist_create",
       "mpls_vpn_prov_datalist_vrf: Datalist creation failed"},
      {mpls_vpn_prov_list_vrf_invalid, "kvtree_list_create",
       "mpls_vpn_prov_list_vrf_invalid: List creation failed"},
      {mpls_vpn_prov_datalist_vrf_invalid, "kvtree_datalist_create",
       "mpls_vpn_prov_datalist_vrf_invalid: Datalist creation failed"},
  };
  for (const auto& creation : creations) {
    const ScopedFault fault(creation.point, kStatusIo);
    EXPECT_EQ(Ask(creation.handler, Unnamed(kName)), kStatusIo);
    EXPECT_THAT(Prints(), ElementsAre("Error in " + std::string(creation.said) + ": Input/output error"));
    ExpectErrorTraced(creation.said, kStatusIo);
  }
}

TEST_F(VrfLists, ItemThatCannotBeAddedIsLeftOutAndNotCounted) {
  AddVrfs({"a", "b"});
  Run();
  OnlyArea(ERR);
  fault_arm("kvtree_list_add", kStatusNoMemory);
  EXPECT_THAT(List(Unnamed(kName), 1), ElementsAre("b"));
  EXPECT_THAT(Prints(),
              ElementsAre(Failure("mpls_vpn_prov_list_vrf", "List item add failed", kStatusNoMemory)));
  fault_arm("kvtree_datalist_add", kStatusNoMemory);
  EXPECT_THAT(Datalist(Unnamed(kName), 1), ElementsAre("b"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_prov_datalist_vrf", "Datalist item add failed",
                                            kStatusNoMemory)));
  ExpectErrorTraced("mpls_vpn_prov_datalist_vrf: Datalist item add failed", kStatusNoMemory);
}

TEST_F(VrfLists, RecordThatCannotBeEncodedIsLeftOut) {
  AddVrfs({"a", "b"});
  Run();
  OnlyArea(ERR);
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("b"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_prov_datalist_vrf", "Parcel encode failed",
                                            kStatusMessageTooLarge)));
  ExpectErrorTraced("mpls_vpn_prov_datalist_vrf: Parcel encode failed", kStatusMessageTooLarge);
}

TEST_F(VrfLists, KeyThatCannotBeEncodedLeavesTheVrfOut) {
  AddVrfs({"a", "b"});
  Run();
  OnlyArea(ERR);
  const ScopedFault fault("kvtree_string_encode", kStatusNoMemory);
  EXPECT_THAT(Datalist(Unnamed(kEncodedName)), ElementsAre("b"));
  const std::string said = "String encode failed in mpls_vpn_prov_datalist_vrf for VRF a; rc = " +
                           std::string(err_text(kStatusNoMemory));
  EXPECT_THAT(Prints(), ElementsAre(said));
  ExpectErrorTraced(said, kStatusNoMemory);
}

TEST_F(VrfLists, NamedVrfThatIsLeftOutDoesNotEndTheWalk) {
  NameVrf("a");
  AddVrfs({"b", "c"});
  for (const std::uint32_t form : {kNameAfiSafi, kEncodedNameAfiSafi}) {
    EXPECT_THAT(List(Named(form, "a")), ElementsAre("b")) << form;
    EXPECT_THAT(Datalist(Named(form, "a")), ElementsAre("b")) << form;
  }
}

TEST_F(VrfLists, NamedVrfWhoseItemFailsDoesNotEndTheWalk) {
  AddVrfs({"a", "b", "c"});
  for (const std::uint32_t form : {kNameAfiSafi, kEncodedNameAfiSafi}) {
    fault_arm("kvtree_list_add", kStatusNoMemory);
    EXPECT_THAT(List(Named(form, "a")), ElementsAre("b")) << form;
    for (const char* point : {"kvtree_datalist_add", "parcel_encode"}) {
      const ScopedFault fault(point, kStatusNoMemory);
      EXPECT_THAT(Datalist(Named(form, "a")), ElementsAre("b")) << form << point;
    }
  }
}

TEST_F(VrfLists, RecordWithoutMemoryForItsNameIsLeftOut) {
  AddVrfs({"a", "b"});
  AddInterface("ge0", "far");
  AddInterface("ge1", "away");
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("a", "b")) << "which completes the two";
  OnlyArea(ERR);
  fault_arm("text_copy", kStatusNoMemory);
  EXPECT_THAT(Datalist(Unnamed(kName)), ElementsAre("b"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("fill_show_vrf_parcel", "text_copy failed", kStatusNoMemory)));
  fault_arm("text_copy", kStatusNoMemory);
  EXPECT_THAT(DatalistInvalid(Unnamed(kName)), ElementsAre("away"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("fill_vrf_invalid_parcel", "text_copy failed", kStatusNoMemory)));
}

// --- Invalid VRFs

TEST_F(VrfLists, InvalidVrfsAreListedWithoutTheValidOnes) {
  AddVrf("red");
  AddInterface("ge0", "red");
  AddInterface("ge1", "far");
  AddInterface("ge2", "away");
  AddInterface("ge3", "far");
  EXPECT_THAT(ListInvalid(Unnamed(kName)), ElementsAre("far", "away"));
  EXPECT_THAT(DatalistInvalid(Unnamed(kName)), ElementsAre("far", "away"));
  EXPECT_TRUE(Printed("First vrf invalid far"));
  EXPECT_EQ(Item(0), "far 2 0");
  EXPECT_EQ(Item(1), "away 1 0");
}

TEST_F(VrfLists, NamedInvalidWalkBeginsAfterTheName) {
  AddInterface("ge1", "far");
  AddInterface("ge2", "away");
  EXPECT_THAT(ListInvalid(Named(kName, "far")), ElementsAre("away"));
  EXPECT_THAT(DatalistInvalid(Named(kName, "far")), ElementsAre("away"));
  EXPECT_TRUE(Printed("Starting from vrf invalid away"));
  EXPECT_THAT(DatalistInvalid(Named(kName, "away")), IsEmpty());
  EXPECT_TRUE(Printed("Starting from vrf invalid (null)"));
}

TEST_F(VrfLists, InvalidWalksStopAtTheMaximum) {
  AddInterface("ge1", "far");
  AddInterface("ge2", "away");
  EXPECT_THAT(ListInvalid(Unnamed(kName), 1), ElementsAre("far"));
  EXPECT_TRUE(Printed("Reached max 1 1"));
  EXPECT_THAT(DatalistInvalid(Unnamed(kName), 0), ElementsAre("far"));
  EXPECT_TRUE(Printed("Reached max 1 0"));
}

TEST_F(VrfLists, NamesOfInvalidVrfsAreNeverEncoded) {
  AddInterface("ge1", "a/b");
  EXPECT_THAT(DatalistInvalid(Unnamed(kEncodedName)), ElementsAre("a/b"));
}

TEST_F(VrfLists, EncodedNameOfAnInvalidVrfIsComparedLiterally) {
  AddInterface("ge1", "a/b");
  AddInterface("ge2", "zzzz");
  EXPECT_THAT(DatalistInvalid(Named(kName, "a/b")), ElementsAre("zzzz"));
  EXPECT_THAT(DatalistInvalid(Named(kEncodedName, "a%2Fb")), IsEmpty()) << "five octets: after both";
  EXPECT_THAT(ListInvalid(Named(kEncodedName, "a%2Fb")), IsEmpty());
  EXPECT_THAT(DatalistInvalid(Named(kEncodedName, "a/b")), ElementsAre("zzzz"));
}

TEST_F(VrfLists, InvalidVrfWhoseInterfacesCannotBeShownIsStillAdded) {
  AddInterface("ge1", "far");
  Run();
  const ScopedFault fault("calloc_tagged:If in VRF", kStatusNoMemory);
  EXPECT_THAT(DatalistInvalid(Unnamed(kName)), ElementsAre("far"));
  EXPECT_EQ(Item(0), "far 0 0");
}

TEST_F(VrfLists, InvalidItemsThatFailAreLeftOut) {
  AddInterface("ge1", "far");
  AddInterface("ge2", "away");
  Run();
  OnlyArea(ERR);
  fault_arm("kvtree_list_add", kStatusNoMemory);
  EXPECT_THAT(ListInvalid(Unnamed(kName), 1), ElementsAre("away"));
  fault_arm("kvtree_datalist_add", kStatusNoMemory);
  EXPECT_THAT(DatalistInvalid(Unnamed(kName), 1), ElementsAre("away"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_prov_datalist_vrf_invalid", "Datalist item add failed",
                                            kStatusNoMemory)));
  fault_disarm_all();
  fault_arm("parcel_encode", kStatusMessageTooLarge);
  EXPECT_THAT(DatalistInvalid(Unnamed(kName)), ElementsAre("away"));
  EXPECT_THAT(Prints(), ElementsAre(Failure("mpls_vpn_prov_datalist_vrf_invalid", "Parcel encode failed",
                                            kStatusMessageTooLarge)));
}

}  // namespace
