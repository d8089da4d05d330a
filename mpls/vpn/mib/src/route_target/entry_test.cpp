// Rows of the route-target table, read exactly and by "next".
#include "mpls/vpn/mib/src/route_target/entry.h"

#include "mpls/vpn/mib/src/provider/provider_test_support.h"

namespace {

using testing::ElementsAre;

constexpr std::uint32_t kExact = 0;
constexpr std::uint32_t kNext = 1;

class RtRow : public DaemonTest {
 protected:
  static void Add(const char* vrf, std::int32_t type, const char* value, std::uint32_t afi = 1,
                  std::uint32_t safi = 1) {
    ASSERT_NE(mpls_vpn_mib_create_rt_wavl_node(vrf, type, value, afi, safi), nullptr);
  }
  Status Read(const Arguments& arguments) {
    ClearPrints();
    return mpls_vpn_mib_prov_get_rt(reply_.Place(), arguments.Block());
  }
  Status Read(std::uint32_t form, const char* vrf, std::uint32_t index, std::uint32_t type) {
    return Read(Arguments(form, 3).Text(0, vrf).Number(1, index).Number(2, type));
  }
  // The row of the last Read(), as "VRF/index/type value description".
  std::string Row() {
    const Decoded<mpls_vpn_mib_rt> row(kMibRtParcel, reply_.Get());
    const std::string description = row->description == nullptr ? "none" : row->description;
    return std::string(row->vrfName) + "/" + std::to_string(row->index) + "/" + std::to_string(row->type) +
           " " + row->rt + " " + description;
  }
  Reply reply_;
};

TEST_F(RtRow, FirstMissingArgumentIsRefused) {
  OnlyArea(ERR);
  EXPECT_EQ(Read(Arguments(kNext, 3)), kStatusArgumentMissing);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 0 not present in mpls_vpn_mib_prov_get_rt"));
  EXPECT_EQ(Read(Arguments(kNext, 3).Text(0, "red").Number(2, 1)), kStatusArgumentMissing);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 1 not present in mpls_vpn_mib_prov_get_rt"));
  EXPECT_EQ(Read(Arguments(kExact, 3).Text(0, "red").Number(1, 1)), 0x40818800U);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 2 not present in mpls_vpn_mib_prov_get_rt"));
  ExpectErrorTraced("mpls_vpn_mib_prov_get_rt: argument 2", kStatusArgumentMissing);
}

TEST_F(RtRow, ExactReadNeedsTheNumberAndTheType) {
  Add("red", kRtImport, "1:1");
  Add("red", kRtExport, "1:2");
  ASSERT_EQ(Read(kExact, "red", 2, kRtExport), kStatusOk);
  EXPECT_EQ(Row(), "red/2/2 1:2 IPv4 Unicast");
  EXPECT_EQ(Read(kExact, "red", 2, kRtImport), kStatusNoSuchRow);
}

TEST_F(RtRow, ExactReadOfANumberThatTheVrfDoesNotHaveAnswersNoSuchRow) {
  Add("red", kRtImport, "1:1");
  Add("reds", kRtImport, "1:1");
  OnlyProviderAndErrors();
  EXPECT_EQ(Read(kExact, "red", 2, kRtImport), kStatusNoSuchRow);
  EXPECT_THAT(Prints(),
              ElementsAre("Entering function mpls_vpn_mib_prov_get_rt with vrfName = redaux index = "
                          "2, RT type = 1",
                          "No RT found"));
}

TEST_F(RtRow, NextReadOfNumberZeroIsTheFirstRowUnderNumberOne) {
  Add("red", kRtExport, "1:2");
  ASSERT_EQ(Read(kNext, "red", 0, 3), kStatusOk);
  EXPECT_EQ(Row(), "red/1/2 1:2 IPv4 Unicast");
}

TEST_F(RtRow, NextReadShowsTheNumberThatWasFound) {
  Add("red", kRtImport, "1:1");
  Add("red", kRtExport, "1:2");
  Add("reds", kRtExport, "1:3");
  ASSERT_EQ(Read(kNext, "red", 1, 3), kStatusOk);
  EXPECT_EQ(Row(), "red/2/2 1:2 IPv4 Unicast");
  ASSERT_EQ(Read(kNext, "red", 2, 3), kStatusOk);
  EXPECT_EQ(Row(), "reds/1/2 1:3 IPv4 Unicast");
  EXPECT_EQ(Read(kNext, "reds", 1, 3), kStatusNoSuchRow);
}

TEST_F(RtRow, StructuredFormsReadExactly) {
  Add("red", kRtImport, "1:1");
  EXPECT_EQ(Read(3, "red", 0, 0), kStatusNoSuchRow);
  EXPECT_EQ(Read(2, "red", 1, kRtImport), kStatusOk);
}

TEST_F(RtRow, TypeIsSigned) {
  Add("red", kRtImport, "1:1");
  ASSERT_EQ(Read(kNext, "red", 1, 0xffffffff), kStatusOk);
  EXPECT_EQ(Row(), "red/1/1 1:1 IPv4 Unicast");
}

TEST_F(RtRow, DescriptionNamesTheFamily) {
  Add("a", kRtImport, "1:1", 1, 1);
  Add("b", kRtImport, "1:1", 1, 2);
  Add("c", kRtImport, "1:1", 2, 1);
  Add("d", kRtImport, "1:1", 2, 2);
  Add("e", kRtImport, "1:1", 1, 133);
  Add("f", kRtImport, "1:1", 3, 1);
  const char* const descriptions[] = {"IPv4 Unicast",   "IPv4 Multicast", "IPv6 Unicast",
                                      "IPv6 Multicast", "none",           "none"};
  for (std::size_t i = 0; i < std::size(descriptions); ++i) {
    const std::string vrf(1, static_cast<char>('a' + i));
    ASSERT_EQ(Read(kExact, vrf.c_str(), 1, kRtImport), kStatusOk);
    EXPECT_EQ(Row(), vrf + "/1/1 1:1 " + descriptions[i]);
  }
}

TEST_F(RtRow, HasTheConstants) {
  Add("red", kRtImport, "1:1");
  ASSERT_EQ(Read(kExact, "red", 1, kRtImport), kStatusOk);
  EXPECT_TRUE(Printed("Entering function fill_rt_parcel"));
  const Decoded<mpls_vpn_mib_rt> row(kMibRtParcel, reply_.Get());
  EXPECT_EQ(row->rowStatus, 1);
  EXPECT_EQ(row->storageType, 5);
}

TEST_F(RtRow, MissingTextsAreReportedAndStayEmpty) {
  RtNode node{};
  node.type = kRtExport;
  OnlyArea(ERR);
  ClearPrints();
  mpls_vpn_mib_rt row;
  ASSERT_EQ(fill_rt_parcel(&row, &node, 7), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("In function fill_rt_parcel: node->value is NULL",
                                    "In function fill_rt_parcel: node->vrf_name is NULL"));
  EXPECT_EQ(row.rt, nullptr);
  EXPECT_EQ(row.vrfName, nullptr);
  EXPECT_EQ(row.index, 7U);
}

TEST_F(RtRow, EntryWithoutAValueIsARowAllTheSame) {
  Add("red", kRtImport, "1:1");
  Add("red", kRtExport, nullptr);
  OnlyArea(ERR);
  ASSERT_EQ(Read(kExact, "red", 2, kRtExport), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("In function fill_rt_parcel: node->value is NULL"));
  const Decoded<mpls_vpn_mib_rt> row(kMibRtParcel, reply_.Get());
  EXPECT_EQ(row->rt, nullptr);
  EXPECT_STREQ(row->vrfName, "red");
  EXPECT_STREQ(row->description, "IPv4 Unicast");
}

TEST_F(RtRow, EmptyVrfNameIsTheStartOfTheTable) {
  Add("red", kRtImport, "1:1");
  ASSERT_EQ(Read(kNext, "", 0, 0), kStatusOk);
  EXPECT_EQ(Row(), "red/1/1 1:1 IPv4 Unicast");
  EXPECT_EQ(Read(kExact, "", 1, kRtImport), kStatusNoSuchRow);
}

TEST_F(RtRow, DescriptionThatCannotBeCopiedStaysEmpty) {
  Add("red", kRtImport, "1:1");
  OnlyArea(ERR);
  const ScopedFault fault("text_copy", kStatusNoMemory, 2);
  ASSERT_EQ(Read(kExact, "red", 1, kRtImport), kStatusOk);
  EXPECT_EQ(Row(), "red/1/1 1:1 none");
  EXPECT_THAT(Prints(), ElementsAre(Failure("fill_rt_parcel", "text_copy failed", kStatusNoMemory)));
}

TEST_F(RtRow, NameOrValueThatCannotBeCopiedRefusesTheRow) {
  Add("red", kRtImport, "1:1");
  OnlyArea(ERR);
  for (const std::uint32_t call : {1U, 3U}) {
    const ScopedFault fault("text_copy", kStatusNoMemory, call);
    EXPECT_EQ(Read(kExact, "red", 1, kRtImport), kStatusNoMemory);
    EXPECT_THAT(Prints(), ElementsAre(Failure("fill_rt_parcel", "text_copy failed", kStatusNoMemory)));
    EXPECT_EQ(reply_.Get().data, nullptr);
  }
}

TEST_F(RtRow, FailedEncodingIsAnswered) {
  Add("red", kRtImport, "1:1");
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_EQ(Read(kExact, "red", 1, kRtImport), kStatusMessageTooLarge);
}

}  // namespace
