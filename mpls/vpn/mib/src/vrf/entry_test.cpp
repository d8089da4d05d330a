// Rows of the VRF table.
#include "mpls/vpn/mib/src/vrf/entry.h"

#include <cstddef>
#include <cstring>

#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/core/base/memory.h"

namespace {

using testing::ElementsAre;

constexpr std::uint32_t kExact = 0;
constexpr std::uint32_t kNext = 1;

class VrfRow : public RouteTablesTest {
 protected:
  Status Read(std::uint32_t form, const char* vrf) {
    Run();
    ClearPrints();
    return mpls_vpn_mib_prov_get_vrf(reply_.Place(), Arguments(form, 1).Text(0, vrf).Block());
  }
  // Of a VRF that has one.
  Decoded<mpls_vpn_mib_vrf> Row(const char* vrf) {
    EXPECT_EQ(Read(kExact, vrf), kStatusOk);
    return {kMibVrfParcel, reply_.Get()};
  }
  // The row's name, or "none".
  std::string Answer(std::uint32_t form, const char* vrf) {
    const Status rc = Read(form, vrf);
    if (rc != kStatusOk) return rc == kStatusNoSuchRow ? "none" : err_text(rc);
    const Decoded<mpls_vpn_mib_vrf> row(kMibVrfParcel, reply_.Get());
    return row->name;
  }
  Reply reply_;
};

TEST_F(VrfRow, MissingNameIsRefused) {
  OnlyArea(ERR);
  EXPECT_EQ(mpls_vpn_mib_prov_get_vrf(reply_.Place(), Arguments(kNext, 1).Block()), 0x40818800U);
  EXPECT_THAT(Prints(), ElementsAre("BGEN arg 0 not present in mpls_vpn_mib_prov_get_vrf"));
}

TEST_F(VrfRow, ExactReadIsExact) {
  ServeVrf("red");
  EXPECT_EQ(Answer(kExact, "red"), "red");
  EXPECT_EQ(Answer(2, "red"), "red");
  EXPECT_EQ(Answer(kExact, "re"), "none");
  EXPECT_EQ(Answer(3, "re"), "none");
}

TEST_F(VrfRow, NextReadIsTheFirstNameNotSmallerShorterNamesFirst) {
  AddVrf("vrf10");
  AddVrf("vrf9");
  Connect();
  EXPECT_EQ(Answer(kNext, ""), "vrf9");
  EXPECT_EQ(Answer(kNext, "vrf9"), "vrf9");
  EXPECT_EQ(Answer(kNext, "vrfa"), "vrf10");
  EXPECT_EQ(Answer(kNext, "vrf11"), "none");
}

TEST_F(VrfRow, NextReadPassesOverForwardReferencesAndDefault) {
  NameVrf("later");
  AddVrf("zebra1");
  Connect();
  HoldInDatabase("later", vtab_get_vrf_record_by_vrf_name("later"));
  EXPECT_EQ(Answer(kNext, ""), "zebra1");
  AddVrf("default1");
  Run();
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  EXPECT_EQ(Answer(kNext, "zebra1"), "zebra1");
  EXPECT_EQ(Answer(kNext, "default"), "default1");
}

TEST_F(VrfRow, ExactReadAnswersForwardReferencesAndDefaultWhileTheyAreInTheDatabase) {
  NameVrf("later");
  Connect();
  EXPECT_EQ(Answer(kExact, "later"), "none");
  HoldInDatabase("later", vtab_get_vrf_record_by_vrf_name("later"));
  HoldInDatabase("default", vtab_get_vrf_record_by_vrf_name("default"));
  EXPECT_EQ(Answer(kExact, "later"), "later");
  EXPECT_EQ(Answer(kExact, "default"), "default");
}

TEST_F(VrfRow, NodeWithoutARecordAnswersNoSuchRow) {
  NameVrf("nod");
  AddVrf("zebra");
  Connect();
  HoldInDatabase("nod", vtab_get_vrf_record_by_vrf_name("nod"));
  HoldInDatabase("odd", nullptr);
  EXPECT_EQ(Answer(kExact, "odd"), "none");
  EXPECT_EQ(Answer(kNext, "odd"), "none");
  EXPECT_EQ(Answer(kNext, "nod"), "none") << "nor does a walk step over it from the forward reference";
}

TEST_F(VrfRow, HandlerPrintsWhatItDoes) {
  ServeVrf("red");
  OnlyArea(PROV);
  Read(kExact, "red");
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_vrf with vrfName = red",
                                    "Found VRF red", "Entering function fill_vrf_parcel"));
}

TEST_F(VrfRow, OneActiveInterfaceOfTwoMakesTheVrfUp) {
  ServeVrf("red");
  AddActiveInterface("ge0", "red");
  AddInterface("ge1", "red");
  for (const bool is_up : {true, false}) {
    const auto row = Row("red");
    EXPECT_EQ(row->operStatus, is_up ? 1 : 2);
    EXPECT_EQ(row->adminStatus, row->operStatus);
    EXPECT_EQ(row->activeInterfaces, is_up ? 1U : 0U);
    EXPECT_EQ(row->associatedInterfaces, 2U);
    LinkDown("ge0");
  }
}

TEST_F(VrfRow, ShowsTheAttributes) {
  ServeVrf("red", 0, "65000:100");
  ASSERT_EQ(Read(kExact, "red"), kStatusOk) << "fetches the route distinguisher, which stamps a time";
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  text_replace(&attributes->description, "customer");
  text_replace(&attributes->import_route_policy[0], "in");
  attributes->creation_time = 11;
  attributes->conf_last_changed_time = 12;
  attributes->mid_thresh = 13;
  attributes->high_thresh = 14;
  attributes->curr_num_routes = 99;
  const auto row = Row("red");
  EXPECT_STREQ(row->name, "red");
  EXPECT_STREQ(row->description, "customer");
  EXPECT_STREQ(row->rd, "65000:100");
  EXPECT_EQ(row->creationTime, 11U);
  EXPECT_EQ(row->confLastChanged, 12U);
  EXPECT_EQ(row->midThresh, 13U);
  EXPECT_EQ(row->highThresh, 14U);
  EXPECT_EQ(row->import_route_policy, nullptr);
  EXPECT_EQ(row->export_route_policy, nullptr);
  EXPECT_EQ(row->rowStatus, 1);
  EXPECT_EQ(row->storageType, 5);
  EXPECT_EQ(row->illegalLabelViolations, 0U);
  EXPECT_EQ(row->discontinuityTime, 0U);
  EXPECT_EQ(row->routesAdded, 0U);
  EXPECT_EQ(row->routesDeleted, 0U);
  EXPECT_EQ(row->currNumRoutes, 0U);
  EXPECT_EQ(row->routesDropped, 0U);
  EXPECT_EQ(row->discTime, 0U);
}

// The time of the last change is that of the moment in which the daemon learned the route distinguisher.
TEST_F(VrfRow, OnlyTheReadThatFindsTheRouteDistinguisherMovesTheLastChange) {
  AddVrf("red", 0, "65000:100");
  AddVrf("blue");
  Connect();
  for (const char* vrf : {"red", "blue"}) AttributesOf(vrf)->conf_last_changed_time = 12;
  PassSeconds(5);
  EXPECT_STREQ(Row("red")->rd, "65000:100") << "fetched before the row is shown";
  ASSERT_EQ(Read(kExact, "blue"), kStatusOk);
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, kStartSeconds + 5);
  EXPECT_EQ(AttributesOf("blue")->conf_last_changed_time, 12U) << "it has none";
  PassSeconds(5);
  for (const std::uint32_t form : {kExact, kNext}) {
    ASSERT_EQ(Read(form, "red"), kStatusOk);
    ASSERT_EQ(Read(form, "blue"), kStatusOk);
  }
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, kStartSeconds + 5);
  EXPECT_EQ(AttributesOf("blue")->conf_last_changed_time, 12U);
}

TEST_F(VrfRow, ReadsAfterARestartLeaveTheLastChangeOfAVrfWhoseRouteDistinguisherIsKnown) {
  ServeVrf("red", 0, "65000:100");
  ASSERT_EQ(Read(kExact, "red"), kStatusOk);
  PassSeconds(5);
  RestartDaemon();
  text_replace(&AttributesOf("red")->rd, "65000:100");
  ASSERT_EQ(Read(kExact, "red"), kStatusOk);
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, kStartSeconds);
}

TEST_F(VrfRow, RoutesOfBothUnicastTablesAreCounted) {
  AddVrfWithTables("red", true, true);
  AddVrf("blue");
  Connect();
  AddRoute("red", "10.0.0.0/8");
  AddRoute("red", "11.0.0.0/8", "192.0.2.1");
  AddRoute("red", "2001:db8::/32");
  AddRoute("blue", "10.0.0.0/8");
  const auto row = Row("red");
  EXPECT_EQ(row->currNumRoutes, 3U);
}

TEST_F(VrfRow, WithoutTheModulesTheRowIsAnsweredAndCountsNoRoutes) {
  ServeVrf("red");
  AddRoute("red", "10.0.0.0/8");
  ASSERT_EQ(setenv("MPLS_VPN_MIB_LIB_DIR", run_directory().c_str(), 1), 0);
  const auto row = Row("red");
  EXPECT_EQ(row->currNumRoutes, 0U);
}

// A request never fills a row without a record: a node without its record is not a row.
TEST_F(VrfRow, MissingRecordIsReportedAndLeavesARowThatIsEncodedAsCleared) {
  OnlyArea(ERR);
  mpls_vpn_mib_vrf row;
  std::memset(&row, 0x55, sizeof row);
  fill_vrf_parcel(&row, nullptr);
  EXPECT_THAT(Prints(), ElementsAre("NULL arguments in fill_vrf_parcel"));
  const mpls_vpn_mib_vrf cleared{};
  const std::size_t fields = offsetof(mpls_vpn_mib_vrf, discTime) + sizeof row.discTime;  // without padding
  ASSERT_EQ(std::memcmp(&row, &cleared, fields), 0);
  ASSERT_EQ(prov_encode_parcel(reply_.Place(), &row, &kMibVrfParcel), kStatusOk);
  const Decoded<mpls_vpn_mib_vrf> decoded(kMibVrfParcel, reply_.Get());
  EXPECT_EQ(decoded->name, nullptr);
  EXPECT_EQ(decoded->discTime, 0U);
}

TEST_F(VrfRow, NameWithoutMemoryAnswersNoMemory) {
  ServeVrf("red");
  const ScopedFault fault("text_copy", kStatusNoMemory);
  EXPECT_EQ(Read(kExact, "red"), kStatusNoMemory);
  EXPECT_TRUE(Printed(Failure("fill_vrf_parcel", "text_copy failed", kStatusNoMemory)));
}

TEST_F(VrfRow, DescriptionAndRouteDistinguisherWithoutMemoryAreLeftOut) {
  ServeVrf("red");
  text_replace(&AttributesOf("red")->description, "customer");
  text_replace(&AttributesOf("red")->rd, "65000:1");
  OnlyArea(ERR);
  for (const std::uint32_t copy : {2U, 3U}) {
    const ScopedFault fault("text_copy", kStatusNoMemory, copy);
    ASSERT_EQ(Read(kExact, "red"), kStatusOk);
    EXPECT_THAT(Prints(), ElementsAre(Failure("fill_vrf_parcel", "text_copy failed", kStatusNoMemory)));
    const Decoded<mpls_vpn_mib_vrf> row(kMibVrfParcel, reply_.Get());
    EXPECT_EQ(row->description == nullptr, copy == 2);
    EXPECT_EQ(row->rd == nullptr, copy == 3);
  }
}

TEST_F(VrfRow, FailedEncodingIsAnswered) {
  ServeVrf("red");
  const ScopedFault fault("parcel_encode", kStatusMessageTooLarge);
  EXPECT_EQ(Read(kExact, "red"), kStatusMessageTooLarge);
}

}  // namespace
