// Rows of the interface table, read exactly and by "next".
#include "mpls/vpn/mib/src/interface/entry.h"

#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "mpls/vpn/mib/src/provider/request.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr std::uint32_t kExact = 0;
constexpr std::uint32_t kNext = 1;

class InterfaceRow : public DaemonTest {
 protected:
  Status Read(const NameAndNumber& arguments) {
    Run();
    ClearPrints();
    return mpls_vpn_mib_prov_get_interface(reply_.Place(), arguments.Block());
  }
  Status Read(std::uint32_t form, const char* name, std::uint32_t index) {
    return Read(NameAndNumber(form).Name(name).Number(index));
  }
  // The row of the last Read(), as "VRF/index".
  std::string Key() {
    const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply_.Get());
    return std::string(row->vrfName) + "/" + std::to_string(row->ifConfIndex);
  }
  // An interface of a VRF that has a complete record but is not in the VRF database.
  void AddInterfaceOfUnknownVrf() {
    AddVrf("red");
    Run();
    CreateIf("red", 7, "ge0", 900);
  }
  Reply reply_;
};

TEST_F(InterfaceRow, AbsentArgumentIsRefused) {
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(NameAndNumber(kNext).Number(1)), 0x40818800U);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 0 not present in mpls_vpn_mib_prov_get_interface"));
  EXPECT_EQ(reply_.Get().data, nullptr);
  EXPECT_EQ(Read(NameAndNumber(kExact).Name("red")), kStatusArgumentMissing);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 1 not present in mpls_vpn_mib_prov_get_interface"));
  ExpectErrorTraced("mpls_vpn_mib_prov_get_interface: argument 1", kStatusArgumentMissing);
}

TEST_F(InterfaceRow, NextReadAnswersTheFirstKeyThatIsNotSmallerShorterNamesFirst) {
  for (const char* vrf : {"vrf10", "vrf9", "red"}) {
    AddVrf(vrf);
    AddInterface(std::string("of-") + vrf, vrf);
  }
  Connect();
  ASSERT_EQ(Read(kNext, "red", 3), kStatusOk);
  EXPECT_EQ(Key(), "red/3") << "the key itself";
  ASSERT_EQ(Read(kNext, "red", 4), kStatusOk);
  EXPECT_EQ(Key(), "vrf9/2");
  ASSERT_EQ(Read(kNext, "vrf9", 3), kStatusOk);
  EXPECT_EQ(Key(), "vrf10/1");
}

TEST_F(InterfaceRow, NextReadPastEveryEntryAnswersNoSuchRow) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(kNext, "zzzz", 0), kStatusNoSuchRow);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_interface with "
                                    "<vrf name = zzzz, if_index = 0>",
                                    "No Interface found"));
}

TEST_F(InterfaceRow, NextReadSkipsInterfacesOfVrfsThatDoNotExist) {
  AddVrf("reds");
  AddInterface("ge0", "far");
  AddInterface("ge1", "reds");
  Connect();
  ASSERT_EQ(Read(kNext, "", 0), kStatusOk);
  EXPECT_EQ(Key(), "reds/2");
}

TEST_F(InterfaceRow, ExactReadOfInterfaceInKnownVrfAnswersNoSuchRow) {
  AddVrf("red");
  AddInterface("ge0", "red");
  Connect();
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(kExact, "red", 1), kStatusNoSuchRow);
  EXPECT_THAT(
      Prints(),
      ElementsAre("Entering function mpls_vpn_mib_prov_get_interface with <vrf name = red, if_index = 1>",
                  "Found VRF red"));
}

TEST_F(InterfaceRow, ExactReadInVrfThatTheDatabaseDoesNotHoldAnswers) {
  AddInterfaceOfUnknownVrf();
  ASSERT_EQ(Read(kExact, "red", 7), kStatusOk);
  EXPECT_EQ(Key(), "red/7");
}

TEST_F(InterfaceRow, EveryFormButNextIsReadExactly) {
  AddInterfaceOfUnknownVrf();
  for (const std::uint32_t form : {kExact, 2U, 3U}) {
    EXPECT_EQ(Read(form, "red", 6), kStatusNoSuchRow) << form;
    EXPECT_TRUE(Printed("No Interface found")) << form;
    EXPECT_EQ(Read(form, "red", 7), kStatusOk) << form;
  }
}

TEST_F(InterfaceRow, ExactReadWithAnEmptyNameFindsNothing) {
  AddInterfaceOfUnknownVrf();
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(kExact, "", 7), kStatusNoSuchRow);
  EXPECT_THAT(
      Prints(),
      ElementsAre("Entering function mpls_vpn_mib_prov_get_interface with <vrf name = , if_index = 7>",
                  "No Interface found"));
}

TEST_F(InterfaceRow, VrfWhoseNameBeginsWithDefaultIsAVrfLikeAnyOther) {
  AddVrf("default1");
  Run();
  CreateIf("default1", 7, "ge0", 900);
  ASSERT_EQ(Read(kExact, "default1", 7), kStatusOk);
  EXPECT_EQ(Key(), "default1/7");
}

TEST_F(InterfaceRow, RowWithoutMemoryForATextIsNotAnswered) {
  AddInterfaceOfUnknownVrf();
  for (const std::uint32_t text : {1U, 2U}) {  // its name, its VRF's
    const ScopedFault fault("text_copy", kStatusNoMemory, text);
    EXPECT_EQ(Read(kNext, "red", 7), kStatusNoMemory) << text;
    EXPECT_EQ(reply_.Get().data, nullptr) << text;
    EXPECT_TRUE(Printed(Failure("fill_interface_parcel", "text_copy failed", kStatusNoMemory))) << text;
  }
  ExpectErrorTraced("fill_interface_parcel: text_copy failed", kStatusNoMemory);
}

TEST_F(InterfaceRow, FailedEncodingIsReturned) {
  AddInterfaceOfUnknownVrf();
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_EQ(Read(kNext, "red", 7), kStatusMessageTooLarge);
  EXPECT_EQ(reply_.Get().data, nullptr);
}

TEST_F(InterfaceRow, ExactReadInDefaultAnswersNoSuchRowWithoutAPrint) {
  AddInterface("ge0");
  Connect();
  CreateIf("default", 7, "ge0", 900);
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(kExact, "default", 7), kStatusNoSuchRow);
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_interface with "
                                    "<vrf name = default, if_index = 7>"));
}

TEST_F(InterfaceRow, ExactReadInAVrfWithoutARecordAnswersNoSuchRow) {
  CreateIf("far", 7, "ge0", 900);
  ExpectUnder(PROV, "Interface is in an invalid VRF",
              [this] { EXPECT_EQ(Read(kExact, "far", 7), kStatusNoSuchRow); });
  ExpectErrorTraced("mpls_vpn_mib_prov_get_interface: interface 7 is in an invalid VRF", kStatusNoSuchRow);
}

TEST_F(InterfaceRow, ExactReadInAForwardReferenceAnswersNoSuchRow) {
  NameVrf("later");
  Run();
  ASSERT_NE(vtab_get_vrf_record_by_vrf_name("later"), nullptr);
  CreateIf("later", 7, "ge0", 900);
  EXPECT_EQ(Read(kExact, "later", 7), kStatusNoSuchRow);
  EXPECT_TRUE(Printed("Interface is in an invalid VRF"));
}

TEST_F(InterfaceRow, HasTheInterfaceAndTheConstants) {
  AddInterfaceOfUnknownVrf();
  ASSERT_EQ(Read(kExact, "red", 7), kStatusOk);
  const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply_.Get());
  EXPECT_STREQ(row->name, "ge0");
  EXPECT_EQ(row->ifConfIndex, 7);
  EXPECT_EQ(row->vpnClassification, 2);
  EXPECT_EQ(row->protocol, 0);
  EXPECT_EQ(row->storageType, 5);
  EXPECT_EQ(row->rowStatus, 1);
  EXPECT_STREQ(row->vrfName, "red");
  EXPECT_TRUE(Printed("Entering function fill_interface_parcel"));
}

class RowFilling : public DaemonTest {
 protected:
  ~RowFilling() override { Release(); }
  void Fill(const IfNode& node) {
    Release();
    EXPECT_EQ(fill_interface_parcel(&row_, &node), kStatusOk);
  }
  void Release() { EXPECT_EQ(parcel_free_indirections(&kMibInterfaceParcel, &row_), kStatusOk); }
  mpls_vpn_mib_interface row_{};
};

TEST_F(RowFilling, ProtocolsOfInterfaceAndVrfAreJoined) {
  AddVrf("red");
  Run();
  IfNode* node = CreateIf("red", 7, "ge0", 900);
  node->protocol_count[1] = 1;
  AttributesOf("red")->protocol_count[5] = 2;
  Fill(*node);
  EXPECT_EQ(row_.protocol, 0x44);
}

TEST_F(RowFilling, EachProtocolHasItsBitAndTheLastBitIsNeverSet) {
  const std::uint8_t bits[kMplsVpnProtocols] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02};
  IfNode* node = CreateIf("red", 7, "ge0", 900);
  for (unsigned k = 0; k < kMplsVpnProtocols; ++k) {
    node->protocol_count[k] = 3;
    Fill(*node);
    EXPECT_EQ(row_.protocol, bits[k]) << k;
    node->protocol_count[k] = 0;
  }
}

TEST_F(RowFilling, ProtocolsOfAForwardReferenceCountToo) {
  NameVrf("later");
  Run();
  AttributesOf("later")->protocol_count[5] = 1;
  Fill(*CreateIf("later", 7, "ge0", 900));
  EXPECT_EQ(row_.protocol, 0x04);
}

TEST_F(RowFilling, WithoutAVrfRecordTheInterfacesProtocolsRemain) {
  IfNode* node = CreateIf("far", 7, "ge0", 900);
  node->protocol_count[0] = 1;
  Fill(*node);
  EXPECT_EQ(row_.protocol, 0x80);
}

TEST_F(RowFilling, MissingNamesAreReportedAndStayEmpty) {
  IfNode node{};
  node.if_index = 9;
  OnlyArea(ERR);
  Fill(node);
  EXPECT_EQ(row_.name, nullptr);
  EXPECT_EQ(row_.vrfName, nullptr);
  EXPECT_EQ(row_.ifConfIndex, 9);
  EXPECT_THAT(Prints(), ElementsAre("IF DBase node has empty IF name", "Node has empty VRF name"));
}

class RowEncoding : public RowFilling {
 protected:
  void FillRow() { Fill(*CreateIf("red", 7, "ge0", 900)); }
  Reply reply_;
};

TEST_F(RowEncoding, SpendsTheRecord) {
  FillRow();
  ASSERT_EQ(prov_encode_parcel(reply_.Place(), &row_, &kMibInterfaceParcel), kStatusOk);
  EXPECT_EQ(reply_.Get().kind, 7U);
  EXPECT_EQ(row_.name, nullptr);
  EXPECT_EQ(row_.vrfName, nullptr);
  const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply_.Get());
  EXPECT_STREQ(row->name, "ge0");
}

TEST_F(RowEncoding, FailureLeavesTheReplyAndSpendsTheRecord) {
  FillRow();
  OnlyArea(ERR);
  ClearPrints();
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_EQ(prov_encode_parcel(reply_.Place(), &row_, &kMibInterfaceParcel), kStatusMessageTooLarge);
  EXPECT_EQ(reply_.Get().kind, 0U);
  EXPECT_EQ(reply_.Get().data, nullptr);
  EXPECT_EQ(row_.name, nullptr);
  EXPECT_THAT(Prints(), ElementsAre("Error in prov_encode_parcel: parcel_encode failed: "
                                    "Message exceeds the size bound"));
}

TEST_F(RowEncoding, FailedReleaseIsReportedAndTheAnswerIsSent) {
  FillRow();
  OnlyArea(ERR);
  ClearPrints();
  {
    const ScopedFault fault("parcel_free_indirections", kStatusIo);
    EXPECT_EQ(prov_encode_parcel(reply_.Place(), &row_, &kMibInterfaceParcel), kStatusOk);
  }
  EXPECT_THAT(Prints(), ElementsAre("Error in prov_encode_parcel: parcel_free_indirections: "
                                    "Input/output error"));
  const Decoded<mpls_vpn_mib_interface> row(kMibInterfaceParcel, reply_.Get());
  EXPECT_STREQ(row->vrfName, "red");
}

}  // namespace
