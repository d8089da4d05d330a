// The daemon as the record service's client: registration, records by name, time stamps, callbacks.
#include "mpls/vpn/mib/src/attributes/record_service.h"

#include <cstddef>
#include <type_traits>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_test_support.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"
#include "platform/router/vtab/service.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class RecordServiceRegistration : public VrfRecords {
 protected:
  Status RegisterAgain() {
    vtab_attach(&router_);
    ClearPrints();
    return mpls_vpn_mib_vtab_init(manager_);
  }
};

}  // namespace

TEST(VrfAttributes, FieldsAreInTheirOrder) {
  using Attr = mpls_vpn_vrf_attr;
  static_assert(std::is_standard_layout_v<Attr> && std::is_trivial_v<Attr>);
  const std::size_t offsets[] = {offsetof(Attr, rd),
                                 offsetof(Attr, description),
                                 offsetof(Attr, creation_time),
                                 offsetof(Attr, conf_last_changed_time),
                                 offsetof(Attr, protocol_count),
                                 offsetof(Attr, chkpt_objid),
                                 offsetof(Attr, high_thresh),
                                 offsetof(Attr, mid_thresh),
                                 offsetof(Attr, import_route_policy),
                                 offsetof(Attr, export_route_policy),
                                 offsetof(Attr, curr_num_routes),
                                 offsetof(Attr, high_thresh_exceeded),
                                 offsetof(Attr, is_big_vrf),
                                 offsetof(Attr, flowspec_import_route_policy),
                                 offsetof(Attr, flowspec_export_route_policy)};
  EXPECT_EQ(offsets[0], 0U);
  for (std::size_t field = 1; field < std::size(offsets); ++field)
    EXPECT_LT(offsets[field - 1], offsets[field]);
}

TEST_F(RecordServiceRegistration, PrintsItsBeginAndEnd) {
  OnlyArea(START);
  EXPECT_EQ(RegisterAgain(), kStatusOk);
  EXPECT_THAT(Prints(), ElementsAre("Initializing VTAB...", "VTAB init done."));
  EXPECT_THAT(Traced("mpls_vpn/init"), Contains("VTAB init done."));
}

TEST_F(RecordServiceRegistration, HandsOverItsNumbersAsTheyAreAgreed) {
  const vtab::Client& client = vtab::service().client;
  EXPECT_EQ(client.name, "mpls_vpn_mib");
  EXPECT_EQ(client.manager, manager_);
  EXPECT_EQ(client.attribute_size, sizeof(mpls_vpn_vrf_attr));
  EXPECT_THAT(client.init_numbers, ElementsAre(0U, 1U, 3U));
  EXPECT_THAT(client.vrf_texts, ElementsAre("all", "default"));
  EXPECT_THAT(client.vrf_numbers, ElementsAre(3U, 0x87U, 1U));
  EXPECT_THAT(client.if_texts, ElementsAre("all-if", "all", "default"));
  EXPECT_THAT(client.if_numbers, ElementsAre(3U, 1U, 0x221U, 0U));
}

TEST_F(RecordServiceRegistration, FirstStepThatFailsEndsItWithItsCode) {
  const struct {
    const char* point;
    const char* text;
  } steps[] = {
      {"vtab_init", "Failed to initialize VTAB"},
      {"vtab_specify_if_callback", "Failed to register interface callback"},
      {"vtab_specify_vrf_callback", "Failed to register VRF callback"},
      {"vtab_reg_vrf_attributes", "Failed to register VRF attributes"},
      {"vtab_reg_if_attributes", "Failed to register if attributes"},
  };
  for (std::size_t step = 0; step < std::size(steps); ++step) {
    if (step + 1 < std::size(steps)) fault_arm(steps[step + 1].point, kStatusAccess, 1, 0);
    fault_arm(steps[step].point, kStatusIo, 1, 0);
    EXPECT_EQ(RegisterAgain(), kStatusIo);
    EXPECT_THAT(Prints(), ElementsAre("Initializing VTAB...",
                                      Failure("mpls_vpn_mib_vtab_init", steps[step].text, kStatusIo)));
    ExpectErrorTraced(std::string("mpls_vpn_mib_vtab_init: ") + steps[step].text, kStatusIo);
    if (step + 1 < std::size(steps)) {
      EXPECT_EQ(fault_reached(steps[step + 1].point), 0U) << "a later step was attempted";
    }
    fault_disarm_all();
  }
}

TEST_F(VrfRecords, EachMessageIsPrintedUnderItsArea) {
  const auto create = [] {
    const ScopedFault fault("vtab_create_vrf_record", kStatusIo);
    EXPECT_EQ(get_vrf_record("green"), nullptr);
  };
  ExpectUnder(VTAB, "Create VTAB record for VRF green", create);
  ExpectUnder(ERR, "vtab_create_vrf_record() returned NULL record", create);
  ExpectUnder(ERR, "VRF Callback vrf_rec is NULL!!!", [] { EXPECT_EQ(vrf_cb("red"), kStatusOk); });
  AddVrf("red");
  ExpectUnder(CFGMGR, "Updated timestamp to: " + std::to_string(Now()),
              [] { update_vrf_last_changed("red"); });
}

TEST_F(VrfRecords, CreationHoldsTheLockUnderItsName) {
  ASSERT_EQ(vtab_lock_dbase("test"), kStatusOk);
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_vrf_record("green"), nullptr);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("get_vrf_record asks for the lock that test holds"));
  EXPECT_EQ(vtab_unlock_dbase(), kStatusOk);
}

TEST_F(VrfRecords, RecordOfAVrfThatExistsIsFound) {
  AddVrf("red");
  EXPECT_EQ(get_vrf_record("red"), vtab_get_vrf_record_by_vrf_name("red"));
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(VrfRecords, RecordOfAnUnknownVrfIsMadeAsAForwardReference) {
  const VtabVrfRecord* record = get_vrf_record("green");
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->vrf_id, 0U);
  EXPECT_THAT(Prints(), ElementsAre("Create VTAB record for VRF green"));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("create record of VRF green"));
  EXPECT_EQ(get_vrf_record("green"), record);
}

TEST_F(VrfRecords, LockFailureGivesNoRecord) {
  const ScopedFault fault("vtab_lock_dbase", kStatusIo);
  EXPECT_EQ(get_vrf_record("green"), nullptr);
  EXPECT_THAT(Prints(), ElementsAre(Failure("get_vrf_record", "Unable to lock VTAB database", kStatusIo)));
  ExpectErrorTraced("get_vrf_record: Unable to lock VTAB database", kStatusIo);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("green"), nullptr);
}

TEST_F(VrfRecords, UnlockFailureGivesNoRecordButTheNextCallFindsTheCreatedOne) {
  WithFault("vtab_unlock_dbase", kStatusIo, [&] { EXPECT_EQ(get_vrf_record("green"), nullptr); });
  EXPECT_THAT(Prints(), ElementsAre("Create VTAB record for VRF green",
                                    Failure("get_vrf_record", "Unable to unlock VTAB database", kStatusIo)));
  ExpectErrorTraced("get_vrf_record: Unable to unlock VTAB database", kStatusIo);
  ClearPrints();
  EXPECT_NE(get_vrf_record("green"), nullptr);
  EXPECT_THAT(Prints(), IsEmpty());
}

TEST_F(VrfRecords, CreationFailureGivesNoRecord) {
  const ScopedFault fault("vtab_create_vrf_record", kStatusIo);
  EXPECT_EQ(get_vrf_record("green"), nullptr);
  EXPECT_EQ(Prints().back(), "vtab_create_vrf_record() returned NULL record");
  ExpectErrorTraced("vtab_create_vrf_record() returned NULL record", kStatusNoVrfRecord);
}

TEST_F(VrfRecords, TimestampIsThePlatformClockInSeconds) {
  AddVrf("red");
  PassMilliseconds(42'900);  // rounded down
  OnlyArea(CFGMGR);
  mpls_vpn_vrf_attr* attributes = AttributesOf("red");
  update_timestamp(get_vrf_record("red"), &attributes->conf_last_changed_time);
  EXPECT_EQ(attributes->conf_last_changed_time, kStartSeconds + 42);
  EXPECT_EQ(attributes->creation_time, 0U);
  EXPECT_THAT(Prints(), ElementsAre("Updated timestamp to: " + std::to_string(kStartSeconds + 42)));
  EXPECT_THAT(Traced("mpls_vpn/vtab"), Contains("VRF red changed"));
}

TEST_F(VrfRecords, ConfigurationScanOfAFirstRunStampsToo) {
  ASSERT_EQ(mpls_vpn_mib_chkpt_first_run(), 1U);
  AddVrf("red");
  backend_scan_in_progress = 1;
  update_vrf_last_changed("red");
  backend_scan_in_progress = 0;
  EXPECT_EQ(AttributesOf("red")->conf_last_changed_time, Now());
}

TEST_F(VrfRecords, LastChangedTimeOfAnUnknownVrfMakesNoRecord) {
  update_vrf_last_changed("green");
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_name("green"), nullptr);
  EXPECT_THAT(Prints(), IsEmpty());
}
