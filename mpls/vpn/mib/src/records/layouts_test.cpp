// The records' layouts as numbers, their schemas against their layouts, and the registration of the sets.
#include "mpls/vpn/mib/src/records/layouts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/router/rib_threshold/records.h"

// --wrap in the build file puts these in the place of the registry's, which records neither the order nor the
// batches that were given up.
Status real_register(ParcelBatch* batch, const ParcelDescription* description) __asm__(
    "__real__Z15parcel_registerP11ParcelBatchPK17ParcelDescription");
Status noted_register(ParcelBatch* batch, const ParcelDescription* description) __asm__(
    "__wrap__Z15parcel_registerP11ParcelBatchPK17ParcelDescription");
void real_abort(ParcelBatch* batch) __asm__("__real__Z18parcel_batch_abortP11ParcelBatch");
void noted_abort(ParcelBatch* batch) __asm__("__wrap__Z18parcel_batch_abortP11ParcelBatch");

namespace {

std::vector<std::string> registered_types;
unsigned aborted_batches = 0;

}  // namespace

Status noted_register(ParcelBatch* batch, const ParcelDescription* description) {
  registered_types.emplace_back(description->type_name);
  return real_register(batch, description);
}

void noted_abort(ParcelBatch* batch) {
  ++aborted_batches;
  real_abort(batch);
}

namespace {

using testing::ElementsAre;

const ParcelDescription* const kMibSet[] = {&kMibScalarsParcel, &kMibInterfaceParcel, &kMibVrfParcel,
                                            &kMibRtParcel,      &kMibRouteParcel,     &kMibTrapParcel};
const ParcelDescription* const kShowSet[] = {&kShowRtParcel, &kShowAfiSafiParcel, &kShowInterfacesParcel,
                                             &kShowVrfParcel};
const ParcelDescription* const kRibSet[] = {&rib_threshold::kMidThresholdParcel,
                                            &rib_threshold::kMaximumThresholdParcel};

std::vector<std::uint32_t> offsets_of(const ParcelStructLayout& layout) {
  return {layout.offsets, layout.offsets + layout.offset_count};
}

const ParcelStructLayout& top(const ParcelDescription& description) {
  return description.layout->structures[0];
}

using Offsets = std::vector<std::uint32_t>;

TEST(RecordLayout, RecordsHaveTheStatedSizes) {
  EXPECT_EQ(top(kMibScalarsParcel).size, 24U);
  EXPECT_EQ(top(kMibInterfaceParcel).size, 40U);
  EXPECT_EQ(top(kMibVrfParcel).size, 112U);
  EXPECT_EQ(top(kMibRtParcel).size, 40U);
  EXPECT_EQ(top(kMibRouteParcel).size, 120U);
  EXPECT_EQ(top(kMibTrapParcel).size, 48U);
  EXPECT_EQ(top(kShowVrfParcel).size, 64U);
  EXPECT_EQ(top(kShowAfiSafiParcel).size, 40U);
  EXPECT_EQ(top(kShowRtParcel).size, 24U);
  EXPECT_EQ(top(kShowInterfacesParcel).size, 8U);
  EXPECT_EQ(top(rib_threshold::kMidThresholdParcel).size, 12U);
  EXPECT_EQ(top(rib_threshold::kMaximumThresholdParcel).size, 16U);
}

TEST(RecordLayout, MibRowsHaveTheStatedOffsets) {
  EXPECT_EQ(offsets_of(top(kMibScalarsParcel)), (Offsets{0, 4, 8, 12, 16, 20}));
  EXPECT_EQ(offsets_of(top(kMibInterfaceParcel)), (Offsets{0, 8, 12, 16, 20, 24, 32}));
  EXPECT_EQ(offsets_of(top(kMibVrfParcel)), (Offsets{0,  8,  16, 24, 28, 32, 36, 40, 44, 48,  56,
                                                     64, 68, 72, 76, 80, 84, 88, 92, 96, 100, 104}));
  EXPECT_EQ(offsets_of(top(kMibRtParcel)), (Offsets{0, 4, 8, 16, 24, 28, 32}));
  EXPECT_EQ(offsets_of(top(kMibRouteParcel)),
            (Offsets{0, 8, 16, 24, 28, 32, 40, 48, 52, 56, 60, 64, 68, 72, 76, 80, 84, 88, 96, 104, 112}));
  EXPECT_EQ(offsets_of(top(kMibTrapParcel)), (Offsets{0, 8, 16, 20, 24, 28, 32, 36, 40}));
}

TEST(RecordLayout, ShowAndThresholdRecordsHaveTheStatedOffsets) {
  EXPECT_EQ(offsets_of(top(kShowRtParcel)), (Offsets{0, 8, 16, 20}));
  EXPECT_EQ(offsets_of(top(kShowAfiSafiParcel)), (Offsets{0, 4, 8, 16, 24, 32}));
  EXPECT_EQ(offsets_of(top(kShowInterfacesParcel)), (Offsets{0}));
  EXPECT_EQ(offsets_of(top(kShowVrfParcel)), (Offsets{0, 8, 16, 24, 32, 40, 48, 56}));
  EXPECT_EQ(offsets_of(top(rib_threshold::kMidThresholdParcel)), (Offsets{0, 4, 8}));
  EXPECT_EQ(offsets_of(top(rib_threshold::kMaximumThresholdParcel)), (Offsets{0, 4, 8, 12}));
}

TEST(RecordLayout, NestedStructuresAreListedAfterTheTopOne) {
  ASSERT_EQ(kShowVrfParcel.layout->structure_count, 4U);
  const ParcelStructLayout* structures = kShowVrfParcel.layout->structures;
  EXPECT_EQ((Offsets{structures[0].number, structures[1].number, structures[2].number, structures[3].number}),
            (Offsets{4, 1, 2, 3}));
  ASSERT_EQ(kShowAfiSafiParcel.layout->structure_count, 2U);
  EXPECT_EQ(kShowAfiSafiParcel.layout->structures[1].number, 1U);
}

template <typename Record, std::size_t kColumns, std::size_t kFields>
void expect_columns(const mib::Column<Record> (&columns)[kColumns],
                    const std::array<ParcelField, kFields>& fields) {
  std::set<std::string_view> keys;
  std::set<std::pair<std::vector<std::uint32_t>, std::uint32_t>> objects;
  for (const mib::Column<Record>& column : columns) {
    const std::string_view key = column.key == nullptr ? "" : column.key;
    if (!key.empty()) {
      EXPECT_EQ(std::ranges::count(fields, key, &ParcelField::name), 1) << key;
      EXPECT_TRUE(keys.insert(key).second) << key;
    }
    if (column.number == 0) continue;
    const std::vector<std::uint32_t> entry(column.entry.begin(), column.entry.end());
    EXPECT_TRUE(objects.insert({entry, column.number}).second) << key << " " << column.number;
  }
}

TEST(RecordColumns, KeysAreNamesOfMembersAndObjectsDiffer) {
  expect_columns(mib::kScalarColumns, kMibScalarsFields);
  expect_columns(mib::kInterfaceColumns, kMibInterfaceFields);
  expect_columns(mib::kVrfColumns, kMibVrfFields);
  expect_columns(mib::kRouteTargetColumns, kMibRtFields);
  expect_columns(mib::kRouteColumns, kMibRouteFields);
}

TEST(RecordSchema, StructureNumbersFollowTheOrderOfTheSets) {
  for (std::uint32_t i = 0; i < std::size(kMibSet); ++i) EXPECT_EQ(top(*kMibSet[i]).number, i + 1);
  for (std::uint32_t i = 0; i < std::size(kShowSet); ++i) EXPECT_EQ(top(*kShowSet[i]).number, i + 1);
  for (std::uint32_t i = 0; i < std::size(kRibSet); ++i) EXPECT_EQ(top(*kRibSet[i]).number, i + 1);
}

void expect_identity(const ParcelDescription& description, std::uint32_t version,
                     std::uint32_t reader_version, const std::string& library) {
  EXPECT_EQ(description.format, 1U) << description.type_name;
  EXPECT_EQ(description.version, version) << description.type_name;
  EXPECT_EQ(description.reader_version, reader_version) << description.type_name;
  EXPECT_EQ(description.library, library) << description.type_name;
}

TEST(RecordSchema, SetsCarryTheirVersionsAndLibraries) {
  for (const ParcelDescription* one : kMibSet) {
    expect_identity(*one, 1, 0, "libmpls_vpn_mib_parcel_desc.dll");
  }
  for (const ParcelDescription* one : kShowSet) expect_identity(*one, 2, 1, "libmpls_vpn_parcel_desc.dll");
  for (const ParcelDescription* one : kRibSet) expect_identity(*one, 0, 1, "rib_show_desc.dll");
}

struct SchemaText {
  const ParcelDescription* description;
  const char* annotated;
};

const SchemaText kSchemaTexts[] = {
    {&kMibScalarsParcel,
     "$1={configuredVrfs}D{activeVrfs}D{connectedInterfaces}D{notificationEnable}d{max"
     "ThresholdNotifTime}D{illegalLabelsThreshold}D;"},
    {&kMibInterfaceParcel,
     "$2={name}s{ifConfIndex}d{vpnClassification}d{protocol}C{storageType}d{rowStatus}"
     "d{vrfName}s;"},
    {&kMibVrfParcel,
     "$3={name}s{description}s{rd}s{creationTime}D{operStatus}d{activeInterfaces}D{ass"
     "ociatedInterfaces}D{midThresh}D{highThresh}D{import_route_policy}s{export_route_"
     "policy}s{confLastChanged}D{rowStatus}d{adminStatus}d{storageType}d{illegalLabelV"
     "iolations}D{discontinuityTime}D{routesAdded}D{routesDeleted}D{currNumRoutes}D{ro"
     "utesDropped}D{discTime}D;"},
    {&kMibRtParcel, "$4={index}D{type}d{rt}s{description}s{rowStatus}d{storageType}d{vrfName}s;"},
    {&kMibRouteParcel,
     "$5={destType}d{dest}y{mask}D{nextHopType}d{nextHop}y{ifIndex}d{type}d{proto}d{ag"
     "e}D{nextHopAS}D{metric1}d{metric2}d{metric3}d{metric4}d{metric5}d{xcPointer}24a("
     "C){rowStatus}d{vrfName}s;"},
    {&kMibTrapParcel,
     "$6={trapType}D{vrfName}s{ifConfIndex}d{vrfOperStatus}d{ifConfRowStatus}d{midThre"
     "sh}D{highThresh}D{currNumRoutes}D{illegalLabelViolations}D;"},
    {&kShowRtParcel,
     "$1={RouteTargetType}[mpls_vpn_rt_type]e{RouteTargetValue}s{AFName}[mpls_vpn_afi_"
     "type]e{SAFName}[mpls_vpn_safi_type]e;"},
    {&kShowAfiSafiParcel,
     "$2={AFName}[mpls_vpn_afi_type]e{SAFName}[mpls_vpn_safi_type]e{RouteTarget}a($1){"
     "ImportRoutePolicy}s{ExportRoutePolicy}s;$1={RouteTargetType}[mpls_vpn_rt_type]e{"
     "RouteTargetValue}s{AFName}[mpls_vpn_afi_type]e{SAFName}[mpls_vpn_safi_type]e;"},
    {&kShowInterfacesParcel, "$3={InterfaceName}s;"},
    {&kShowVrfParcel,
     "$4={VRFName}s{VRFDescription}s{RouteDistinguisher}s{Interfaces}a($3){AF}a($2){is"
     "BigVrf}b;$1={RouteTargetType}[mpls_vpn_rt_type]e{RouteTargetValue}s{AFName}[mpls"
     "_vpn_afi_type]e{SAFName}[mpls_vpn_safi_type]e;$2={AFName}[mpls_vpn_afi_type]e{SA"
     "FName}[mpls_vpn_safi_type]e{RouteTarget}a($1){ImportRoutePolicy}s{ExportRoutePol"
     "icy}s;$3={InterfaceName}s;"},
    {&rib_threshold::kMidThresholdParcel,
     "$1={ext_table_id}D{ext_curr_num_routes}D{ext_conf_mid_threshold}D;"},
    {&rib_threshold::kMaximumThresholdParcel,
     "$2={ext_clear}b{ext_table_id}D{ext_curr_num_routes}D{ext_conf_max_threshold}D;"},
};

TEST(RecordSchema, AnnotatedTextsAreTheWireForm) {
  for (const SchemaText& one : kSchemaTexts) {
    EXPECT_STREQ(one.description->annotated_schema, one.annotated) << one.description->type_name;
  }
}

TEST(RecordSchema, CompactTextsOmitTheNames) {
  EXPECT_STREQ(kMibScalarsParcel.compact_schema, "$1=DDDdDD;");
  EXPECT_STREQ(kMibRouteParcel.compact_schema, "$5=dyDdydddDDddddd24a(C)ds;");
  EXPECT_STREQ(kShowVrfParcel.compact_schema, "$4=sssa($3)a($2)b;$1=esee;$2=eea($1)ss;$3=s;");
  EXPECT_STREQ(kShowAfiSafiParcel.compact_schema, "$2=eea($1)ss;$1=esee;");
}

class Registry : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(setenv("MPLS_VPN_MIB_RUN_DIR", directory_.path().c_str(), 1), 0);
    parcel_registry_reset();
    registered_types.clear();
    aborted_batches = 0;
  }
  void TearDown() override {
    fault_disarm_all();
    parcel_registry_reset();
    unsetenv("MPLS_VPN_MIB_RUN_DIR");
  }
  const TemporaryDirectory directory_;
};

TEST_F(Registry, HasEveryRecordOfASetAfterItsRegistration) {
  ASSERT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
  for (const ParcelDescription* one : kMibSet) EXPECT_EQ(parcel_find(one->type_name), one);
  EXPECT_EQ(parcel_find("mpls_vpn_vrf"), nullptr);
  ASSERT_EQ(mpls_vpn_parcel_register(), kStatusOk);
  for (const ParcelDescription* one : kShowSet) EXPECT_EQ(parcel_find(one->type_name), one);
}

TEST_F(Registry, HasTheThresholdEventsOnlyOnRequest) {
  ASSERT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
  ASSERT_EQ(mpls_vpn_parcel_register(), kStatusOk);
  EXPECT_EQ(parcel_find("rib_prov_maxthresh"), nullptr);
  ASSERT_EQ(rib_show_parcel_register(), kStatusOk);
  for (const ParcelDescription* one : kRibSet) EXPECT_EQ(parcel_find(one->type_name), one);
}

TEST_F(Registry, ReceivesEachSetInItsOrder) {
  ASSERT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
  EXPECT_THAT(registered_types,
              ElementsAre("mpls_vpn_mib_scalars", "mpls_vpn_mib_interface", "mpls_vpn_mib_vrf",
                          "mpls_vpn_mib_rt", "mpls_vpn_mib_route", "mpls_vpn_mib_trap"));
  registered_types.clear();
  ASSERT_EQ(mpls_vpn_parcel_register(), kStatusOk);
  EXPECT_THAT(registered_types,
              ElementsAre("mpls_vpn_rt", "mpls_vpn_afi_safi", "mpls_vpn_interfaces", "mpls_vpn_vrf"));
  registered_types.clear();
  ASSERT_EQ(rib_show_parcel_register(), kStatusOk);
  EXPECT_THAT(registered_types, ElementsAre("rib_prov_midthresh_exceed", "rib_prov_maxthresh"));
  EXPECT_EQ(aborted_batches, 0U);
}

TEST_F(Registry, FailedOpeningIsReturnedAsItIs) {
  const ScopedFault fault("parcel_batch_open", kStatusIo);
  EXPECT_EQ(mpls_vpn_mib_parcel_register(), kStatusIo);
  EXPECT_EQ(aborted_batches, 0U) << "there is no batch to give up";
}

TEST_F(Registry, FailureInTheMiddleLeavesNothingRegistered) {
  {
    const ScopedFault fault("parcel_register", kStatusNoMemory, 3);
    EXPECT_EQ(mpls_vpn_mib_parcel_register(), kStatusNoMemory);
    EXPECT_EQ(fault_reached("parcel_register"), 3U);
  }
  for (const ParcelDescription* one : kMibSet) EXPECT_EQ(parcel_find(one->type_name), nullptr);
  EXPECT_EQ(aborted_batches, 1U);
  EXPECT_EQ(mpls_vpn_mib_parcel_register(), kStatusOk);
}

TEST_F(Registry, FailedClosingIsReturned) {
  const ScopedFault fault("parcel_batch_close", kStatusIo);
  EXPECT_EQ(mpls_vpn_parcel_register(), kStatusIo);
  EXPECT_EQ(aborted_batches, 0U) << "closing releases the batch, whatever it answers";
}

// Registers a "mpls_vpn_mib_scalars" of another version, as an earlier release would have registered.
void register_older_scalars() {
  ParcelDescription older = kMibScalarsParcel;
  older.version = 7;
  ParcelBatch* batch = nullptr;
  ASSERT_EQ(parcel_batch_open("mpls_vpn_mib.parcel", &batch), kStatusOk);
  ASSERT_EQ(parcel_register(batch, &older), kStatusOk);
  ASSERT_EQ(parcel_batch_close(batch), kStatusOk);
  parcel_registry_reset();
}

TEST_F(Registry, AnotherVersionInTheRegistryIsReportedAndReplaced) {
  register_older_scalars();
  EXPECT_EQ(mpls_vpn_mib_parcel_register(), kStatusDefinitionChanged);
  EXPECT_EQ(parcel_find("mpls_vpn_mib_scalars"), &kMibScalarsParcel);
}

}  // namespace
