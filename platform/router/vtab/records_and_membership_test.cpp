// How long a record lives while the membership service has clients too.
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

// A membership client of all VRFs and interfaces, which writes its lines among those of the record events.
class RecordsAndMembership : public Records {
 protected:
  RecordsAndMembership() {
    EXPECT_EQ(vmap_c_lib_init(
                  "test", manager_.get(), [](void*) { return 1; }, &membership_),
              kStatusOk);
  }
  ~RecordsAndMembership() override {
    vmap_c_lib_end(membership_);
    fault_disarm_all();
  }
  void Connect() {
    VmapMemberDatabase* database = nullptr;
    int fd = -1;
    std::uint32_t count = 0;
    ASSERT_EQ(vmap_c_bind(membership_, &fd), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_init(membership_, 2, &database), kStatusOk);
    const auto note_vrf_item = [](VmapMemberDatabase*, VmapEvent kind, const VmapVrfItem* item) {
      Note(std::string(kind == VmapEvent::kUpdate ? "+vrf " : "-vrf ") + item->vrf_name);
      if (kind == VmapEvent::kDelete) removed_at_deletion_ = removed_count();
    };
    const auto note_member = [](VmapMemberDatabase*, VmapEvent kind, const VmapIntfItem* item) {
      Note(std::string(kind == VmapEvent::kUpdate ? "+if in " : "-if in ") + item->vrf_name);
    };
    ASSERT_EQ(vmap_c_mdb_add_intf_all(database, note_member, 40), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_add_vrf_all(database, note_vrf_item), kStatusOk);
    ASSERT_EQ(vmap_c_notif_reg(database, &fd, &count), kStatusOk);
  }
  void LoseMembership() {  // a failure of the service at a change
    fault_arm("vmap_service", kStatusUnavailable, 1, 0);
    AddInterface("trigger", 99, "none");
    Remove("trigger");
    Run();
    Calls();
  }
  VmapClient* membership_ = nullptr;
  static inline std::size_t removed_at_deletion_ = 0;
};

TEST_F(RecordsAndMembership, RecordIsValidUntilALostMembershipClientIsSynchronized) {
  AddVrf("red", 10);
  StartClient();
  Connect();
  VtabVrfRecord* record = Find("red");
  LoseMembership();
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("vrf red 10 event 2"));
  EXPECT_EQ(removed_count(), 1U);
  EXPECT_STREQ(record->vrf_name, "red") << "the membership client may still hold it";
  EXPECT_EQ(Find("red"), nullptr);
  fault_disarm_all();
  Connect();
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(RecordsAndMembership, RecordIsValidWhileTheMembershipCallbackForItsDeletionRuns) {
  AddVrf("red", 10);
  Connect();
  DeleteVrf("red");
  AddVrf("red", 11);
  EXPECT_EQ(removed_count(), 1U) << "the former one, although there is no record client";
  Run();
  EXPECT_EQ(removed_at_deletion_, 1U);
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(RecordsAndMembership, RecordThatWasNotAnnouncedIsFreedWithTheEventsBeforeIt) {
  Connect();
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_EQ(removed_count(), 1U);
  Run();
  EXPECT_EQ(removed_count(), 0U);
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(RecordsAndMembership, RecordIsFreedWhenBothClientsWereNotified) {
  AddVrf("red", 10);
  StartClient();
  Connect();
  DeleteVrf("red");
  EXPECT_EQ(removed_count(), 1U);
  Run();
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(RecordsAndMembership, RecordIsFreedWhenTheLostMembershipClientEnds) {
  AddVrf("red", 10);
  StartClient();
  Connect();
  LoseMembership();
  DeleteVrf("red");
  Run();
  EXPECT_EQ(removed_count(), 1U);
  vmap_c_lib_end(membership_);
  membership_ = nullptr;
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(RecordsAndMembership, VrfCreatedAndDeletedManyTimesLeavesNoRecords) {
  StartClient();
  Connect();
  for (std::uint32_t n = 2; n < 100; ++n) {
    AddVrf("red", n);
    if (n % 3 == 0) Run();
    DeleteVrf("red");
    if (n % 5 == 0) Run();
  }
  Run();
  EXPECT_EQ(removed_count(), 0U);
}

TEST_F(RecordsAndMembership, RecordOfAVrfIsDeletedBeforeItsIdIsAnnouncedForAnother) {
  AddVrf("red", 10);
  StartClient();
  Connect();
  Calls();
  DeleteVrf("red");
  AddVrf("blue", 10);
  AddVrf("red", 11);
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red", "vrf red 10 event 2", "vrf blue 10 event 1", "+vrf blue",
                                       "vrf red 11 event 1", "+vrf red"));
}

TEST_F(RecordsAndMembership, MembersOfADeletedVrfAreAnnouncedAfterTheDeletionOfItsRecord) {
  AddVrf("red", 10);
  AddInterface("ge0", 7, "red");
  StartClient();
  Connect();
  Calls();
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red", "vrf red 10 event 2", "+if in red"));
}

TEST_F(RecordsAndMembership, InterfaceIsDownBeforeItLeavesAndUpAfterItHasJoined) {
  AddUsableInterface("ge0", 7, "red");
  SetLink("ge0", true);
  StartClient();
  Connect();
  Calls();
  Move("ge0", "blue");
  Run();
  Remove("ge0");
  EXPECT_THAT(Delivered(), ElementsAre("if ge0 in red changes 2 2 record ge0", "-if in red", "+if in blue",
                                       "if ge0 in blue changes 1 1 record ge0",
                                       "if ge0 in blue changes 2 2 record ge0", "-if in blue"));
}

TEST_F(RecordsAndMembership, OrderOfTheChangesHoldsOverManyBatches) {
  constexpr std::uint32_t kMany = 300;
  StartClient();
  Connect();
  std::vector<std::string> expected;
  for (std::uint32_t n = 2; n < kMany; ++n) {
    const std::string name = "vrf" + std::to_string(n);
    AddVrf(name, n);
    expected.push_back("vrf " + name + ' ' + std::to_string(n) + " event 1");
    expected.push_back("+vrf " + name);
    if (n % 7 != 0) continue;
    AddInterface("ge" + std::to_string(n), n, name);
    expected.push_back("+if in " + name);
  }
  Run();
  EXPECT_EQ(Calls(), expected);
}

}  // namespace
}  // namespace vtab
