// VRF events, the accesses of callbacks, and how long a deleted record lives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/service.h"
#include "platform/router/vtab/test_support.h"

namespace vtab {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct VrfAccess {
  VtabVrfRecord* record = nullptr;
  std::uint32_t event = 0;
  std::uint32_t unused = 0;
  Status Begin(const char* name) { return vtab_lock_begin_access_vrf_record(name, &record, &event, &unused); }
  Status End() const { return vtab_unlock_end_access_vrf_record(record); }
};

struct IfAccess {
  VtabIfRecord* record = nullptr;
  std::uint32_t ipv4 = 0;
  std::uint32_t ipv6 = 0;
  std::uint32_t unused[2] = {};
  Status Begin(const char* name, const char* vrf) {
    return vtab_lock_begin_access_if_record(name, vrf, &record, &ipv4, &ipv6, &unused[0], &unused[1]);
  }
  Status End(const char* vrf) const { return vtab_unlock_end_access_if_record(vrf, record); }
};

TEST_F(Records, RecordsThatExistAtTheRegistrationAreNotReported) {
  AddVrf("red", 10);
  ASSERT_EQ(vtab_init("test", manager_.get(), 0, sizeof(TestAttributes), 1, 3), kStatusOk);
  ASSERT_EQ(vtab_specify_vrf_callback(&NoteVrf), kStatusOk);
  AddVrf("blue", 20);
  ASSERT_EQ(vtab_reg_vrf_attributes("all", 3, 0x87, "default", 1), kStatusOk);
  AddVrf("tan", 30);
  EXPECT_THAT(Delivered(), ElementsAre("vrf tan 30 event 1"));
}

TEST_F(Records, CreationChangeAndDeletionAreReported) {
  StartClient();
  AddVrf("red", 10);
  EXPECT_THAT(Calls(), IsEmpty()) << "before the loop ran";
  Run();
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.ipv4_table = 7;
  ChangeVrf(vrf);
  vrf.description = "no part of the record";
  ChangeVrf(vrf);
  Run();
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 1", "vrf red 10 event 3", "vrf red 10 event 2"));
}

TEST_F(Records, ForwardReferencesAreReportedAsCreatedUpdatedAndDeleted) {
  StartClient();
  Reference("red");
  Run();
  AddVrf("red", 10);
  Run();
  DeleteVrf("red");
  Run();
  Unreference("red");
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 0 event 1", "vrf red 10 event 3", "vrf red 0 event 3",
                                       "vrf red 0 event 2"));
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, RecordThatTheClientMadeIsReportedWhenItIsComplete) {
  StartClient();
  ASSERT_NE(vtab_create_vrf_record("red"), nullptr);
  Reference("red");
  EXPECT_THAT(Delivered(), IsEmpty());
  AddVrf("red", 10);
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 3"));
}

TEST_F(Records, DeletedRecordIsFoundByNoLookUpBeforeItsCallback) {
  AddVrf("red", 10, 1010);
  StartClient();
  VtabVrfRecord* record = Find("red");
  AttributesOf(record)->number = 42;
  DeleteVrf("red");
  EXPECT_EQ(Find("red"), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_vrf_id(10), nullptr);
  EXPECT_EQ(vtab_get_vrf_record_by_table_id(1010), nullptr);
  EXPECT_THAT(VrfWalk(), ElementsAre("default=1"));
  EXPECT_THAT(TableWalk("red"), IsEmpty());
  EXPECT_EQ(AttributesOf(record)->number, 42U) << "but it is not freed yet";
  EXPECT_EQ(removed_count(), 1U);
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 2"));
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, VrfDeletedAndCreatedAgainBeforeTheCallbacksHasTwoRecords) {
  AddVrf("red", 10);
  StartClient();
  VtabVrfRecord* former = Find("red");
  AttributesOf(former)->number = 42;
  DeleteVrf("red");
  AddVrf("red", 11);
  VtabVrfRecord* now = Find("red");
  EXPECT_NE(now, former);
  EXPECT_EQ(AttributesOf(now)->number, 0U);
  EXPECT_EQ(AttributesOf(former)->number, 42U);
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 2", "vrf red 11 event 1"));
  EXPECT_EQ(removed_count(), 0U);
  EXPECT_EQ(Find("red"), now);
}

TEST_F(Records, EventsOfARecordAreAllDeliveredBeforeItIsFreed) {
  StartClient();
  AddVrf("red", 10);
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.ipv4_table = 7;
  ChangeVrf(vrf);
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 1", "vrf red 10 event 3", "vrf red 10 event 2"));
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, RecordIsFreedAtOnceWithoutAClient) {
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, AccessOutsideACallbackTakesTheOldestEvent) {
  StartClient();
  AddVrf("red", 10);
  DeleteVrf("red");
  VrfAccess access;
  ASSERT_EQ(access.Begin("red"), kStatusOk);
  EXPECT_EQ(access.event, kVtabEventCreate);
  ASSERT_EQ(access.End(), kStatusOk);
  EXPECT_EQ(access.End(), kStatusInvalid);
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 2"));
}

TEST_F(Records, AccessWithoutAnEventGivesNoRecord) {
  StartClient();
  AddVrf("red", 10);
  Run();
  VrfAccess access;
  EXPECT_EQ(access.Begin("red"), kStatusOk);
  EXPECT_EQ(access.record, nullptr);
  EXPECT_EQ(access.End(), kStatusInvalid);
  IfAccess interface;
  EXPECT_EQ(interface.Begin("ge0", "red"), kStatusOk);
  EXPECT_EQ(interface.record, nullptr);
  EXPECT_EQ(interface.ipv4, kVtabNoChange);
  EXPECT_EQ(interface.End("red"), kStatusInvalid);
}

TEST_F(Records, EventWhoseAccessFailedIsOverAndItsRecordIsFreed) {
  AddVrf("red", 10);
  StartClient();
  DeleteVrf("red");
  const ScopedFault fault("vtab_lock_begin_access_vrf_record", kStatusIo);
  EXPECT_THAT(Delivered(), ElementsAre("vrf red refused 5"));
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, VrfAccessThatCouldNotBeEndedIsClosedAfterTheCallback) {
  StartClient();
  AddVrf("red", 10);
  DeleteVrf("red");
  {
    const ScopedFault fault("vtab_unlock_end_access_vrf_record", kStatusIo);
    testing::internal::CaptureStderr();
    Run();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("left the access to VRF red open; closed"));
  }
  EXPECT_THAT(Calls(), ElementsAre("vrf red 10 event 1", "vrf red 10 event 2"));
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(Records, InterfaceAccessThatCouldNotBeEndedIsClosedAfterTheCallback) {
  AddUsableInterface("ge0", 7, "red");
  StartClient();
  SetLink("ge0", true);
  SetLink("ge0", false);
  const ScopedFault fault("vtab_unlock_end_access_if_record", kStatusIo);
  testing::internal::CaptureStderr();
  EXPECT_THAT(Delivered(),
              ElementsAre("if ge0 in red changes 1 1 record ge0", "if ge0 in red changes 2 2 record ge0"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr("left the access to interface ge0 open; closed"));
}

TEST_F(Records, FailedInterfaceAccessIsReportedToTheCallback) {
  AddUsableInterface("ge0", 7, "red");
  StartClient();
  SetLink("ge0", true);
  const ScopedFault fault("vtab_lock_begin_access_if_record", kStatusIo);
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 refused 5"));
}

TEST_F(Records, VrfAndInterfaceEventsKeepTheOrderOfTheChanges) {
  AddUsableInterface("ge0", 7, "red");
  StartClient();
  AddVrf("red", 10);
  SetLink("ge0", true);
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 1", "if ge0 in red changes 1 1 record ge0",
                                       "vrf red 10 event 2"));
}

TEST_F(Records, SecondClientIsRefused) {
  StartClient();
  EXPECT_EQ(vtab_init("other", manager_.get(), 0, 8, 1, 3), kStatusExists);
}

TEST_F(Records, RegistrationNeedsAClientAndItsArguments) {
  EXPECT_EQ(vtab_init(nullptr, manager_.get(), 0, 8, 1, 3), kStatusInvalid);
  EXPECT_EQ(vtab_init("test", nullptr, 0, 8, 1, 3), kStatusInvalid);
  EXPECT_EQ(vtab_specify_if_callback(&NoteInterface), kStatusInvalid);
  EXPECT_EQ(vtab_specify_vrf_callback(&NoteVrf), kStatusInvalid);
  EXPECT_EQ(vtab_reg_vrf_attributes("all", 3, 0x87, "default", 1), kStatusInvalid);
  EXPECT_EQ(vtab_reg_if_attributes("all-if", "all", 3, 1, "default", 0x221, 0), kStatusInvalid);
  StartClient();
  EXPECT_EQ(vtab_specify_if_callback(nullptr), kStatusInvalid);
  EXPECT_EQ(vtab_specify_vrf_callback(nullptr), kStatusInvalid);
  EXPECT_EQ(vtab_reg_vrf_attributes(nullptr, 3, 0x87, "default", 1), kStatusInvalid);
  EXPECT_EQ(vtab_reg_if_attributes("all-if", nullptr, 3, 1, "default", 0x221, 0), kStatusInvalid);
}

}  // namespace
}  // namespace vtab
