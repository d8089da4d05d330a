// Membership clients: connections, the replay of a registration, live changes and their batches.
#include "platform/router/vmap/vmap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/core/base/fault.h"
#include "platform/router/vmap/test_support.h"

namespace vmap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST_F(Membership, RegistrationReplaysVrfsByNameThenInterfacesByHandle) {
  AddInterface("ge0", "default");
  AddInterface("ge1", "red");
  AddInterface("ge2", "vrf10");
  AddVrf("vrf10", 10);
  AddVrf("vrf9", 9, router::kVrfFlagBig);
  Move("ge0", "vrf9");
  Move("ge1", "default");
  Move("ge1", "vrf9");
  Connect();
  EXPECT_THAT(Calls(), ElementsAre("+vrf vrf9 9 flags 2", "+vrf vrf10 10", "+if 1 vrf9 9", "+if 2 vrf9 9",
                                   "+if 3 vrf10 10"));
  EXPECT_EQ(num_results_, 5U);
}

TEST_F(Membership, NothingThatOnlyConcernsTheDefaultVrfIsAnnounced) {
  AddInterface("ge0", "default");
  Connect();
  AddInterface("ge1", "default");
  Rename("ge1", "ge2");
  Remove("ge0");
  router::ChangeVrf(&router_, "default", &router::Vrf::flags, router::kVrfFlagBig);
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Membership, VrfsThatAreOnlyReferencedAreNotAnnounced) {
  ASSERT_EQ(router_.reference_vrf("red"), kStatusOk);
  Connect();
  ASSERT_EQ(router_.reference_vrf("blue"), kStatusOk);
  ASSERT_EQ(router_.unreference_vrf("blue"), kStatusOk);
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Membership, VrfWhoseNameMerelyBeginsWithDefaultIsAnnounced) {
  Connect();
  AddVrf("default1", 5);
  AddInterface("ge0", "default1");
  EXPECT_THAT(Delivered(), ElementsAre("+vrf default1 5", "+if 1 default1 5"));
}

TEST_F(Membership, LiveChangesAreDeliveredByTheLoopInTheirOrder) {
  Connect();
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  EXPECT_THAT(Calls(), IsEmpty()) << "before the loop ran";
  Run();
  Remove("ge0");
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("+vrf red 10", "+if 1 red 10", "-if 1 red 10", "-vrf red 10"));
}

TEST_F(Membership, EventHasTheContentsOfTheTimeOfTheChange) {
  Connect();
  AddInterface("ge0", "red");
  AddVrf("red", 10);
  Run();
  DeleteVrf("red");
  Move("ge0", "blue");
  EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 0", "+vrf red 10", "+if 1 red 10", "-vrf red 10",
                                       "-if 1 red 0", "+if 1 blue 0"));
}

TEST_F(Membership, MoveIsADeleteForTheOldVrfThenAnUpdateForTheNewOne) {
  AddVrf("red", 10);
  AddVrf("blue", 20);
  AddInterface("ge0", "red");
  ConnectQuietly();
  Move("ge0", "blue");
  Run();
  Move("ge0", "default");
  EXPECT_THAT(Delivered(), ElementsAre("-if 1 red 10", "+if 1 blue 20", "-if 1 blue 20"));
}

TEST_F(Membership, MembershipThatEndedBeforeItsDeliveryIsNotAnnounced) {
  AddVrf("red", 10);
  AddVrf("blue", 20);
  AddInterface("ge0", "red");
  ConnectQuietly();
  AddInterface("ge1", "red");
  Remove("ge1");
  Move("ge0", "blue");
  Move("ge0", "red");
  EXPECT_THAT(Delivered(), ElementsAre("-if 1 red 10", "+if 1 red 10"));
}

TEST_F(Membership, MembersAreAnnouncedAgainWhenTheirVrfIsCreatedOrDeleted) {
  AddInterface("ge0", "red");
  AddInterface("ge1", "blue");
  Connect();
  EXPECT_THAT(Calls(), ElementsAre("+if 1 red 0", "+if 2 blue 0"));
  AddVrf("red", 10);
  Run();
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("+vrf red 10", "+if 1 red 10", "-vrf red 10", "+if 1 red 0"));
}

TEST_F(Membership, VrfDeletedBeforeItsDeliveryIsNotAnnounced) {
  AddInterface("ge0", "red");
  ConnectQuietly();
  AddVrf("red", 10);
  DeleteVrf("red");
  AddVrf("red", 11);
  EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 10", "+if 1 red 0", "+vrf red 11", "+if 1 red 11"));
  DeleteVrf("red");
  AddVrf("red", 12);
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 11", "+if 1 red 0", "+if 1 red 12", "+if 1 red 0"));
}

TEST_F(Membership, RenamedInterfaceIsAnnouncedAgainOtherChangesAreNot) {
  AddInterface("ge0", "red");
  ConnectQuietly();
  router::Interface interface = *router_.find_interface_by_name("ge0");
  interface.up = true;
  ASSERT_EQ(router_.change_interface(interface), kStatusOk);
  EXPECT_THAT(Delivered(), IsEmpty());
  interface.index = 99;
  ASSERT_EQ(router_.change_interface(interface), kStatusOk);
  Rename("ge0", "ge9");
  EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 0", "+if 1 red 0"));
}

TEST_F(Membership, RenamedInterfaceLeavesFirstWhenItsFormerNameIsInUse) {
  static std::vector<std::string> asked;
  asked.clear();
  vmap_on_rename([](const char* vrf_name, const char* if_name) {
    asked.push_back(std::string(if_name) + " in " + vrf_name);
    return std::string(if_name) == "ge0";
  });
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  ConnectQuietly();
  Rename("ge0", "ge1");
  EXPECT_THAT(Delivered(), ElementsAre("-if 1 red 10", "+if 1 red 10"));
  Rename("ge1", "ge0");
  EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 10"));
  Rename("ge0", "aside");
  Rename("aside", "ge0");
  EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 10", "+if 1 red 10")) << "it has its former name again";
  EXPECT_THAT(asked, ElementsAre("ge0 in red", "ge1 in red"));
  vmap_on_rename(nullptr);
}

TEST_F(Membership, InterfaceThatGetsASubscribersNameLeavesFirst) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  ConnectQuietly();
  for (const char* name : {"ge0.ip7", "x.pppoe", "be1.ipsub.3"}) {
    Rename("ge0", name);
    EXPECT_THAT(Delivered(), ElementsAre("-if 1 red 10", "+if 1 red 10")) << name;
    Rename(name, "other.ip");
    EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 10")) << name;
    Rename("other.ip", "ge0");
    EXPECT_THAT(Delivered(), ElementsAre("+if 1 red 10")) << name;
  }
}

// A client treats a second creation as a new VRF.
TEST_F(Membership, ChangedDetailsOfAVrfAreNotAnnounced) {
  AddVrf("red", 10);
  ConnectQuietly();
  router::Vrf vrf = *router_.find_vrf("red");
  vrf.description = "other";
  vrf.ipv4_table = 7;
  ASSERT_EQ(router_.change_vrf(vrf), kStatusOk);
  SetFlags("red", router::kVrfFlagBig);
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Membership, CreationHasTheFlagsOfTheTimeOfItsDelivery) {
  Connect();
  AddVrf("red", 10);
  SetFlags("red", router::kVrfFlagBig);
  EXPECT_THAT(Delivered(), ElementsAre("+vrf red 10 flags 2"));
}

TEST_F(Membership, VrfThatClientsMustIgnoreIsDeletedAndCreatedForThem) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  ConnectQuietly();
  SetFlags("red", 0x8);
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 10", "+vrf red 10 flags 8"));
  SetFlags("red", 0);
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 10 flags 8", "+vrf red 10"));
  SetFlags("red", 0x8);
  SetFlags("red", 0);
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 10", "+vrf red 10", "-vrf red 10", "+vrf red 10"));
}

TEST_F(Membership, DeletionHasTheFlagsThatWereDeliveredLast) {
  AddVrf("red", 10);
  AddVrf("blue", 20, 0x8);
  ConnectQuietly();
  SetFlags("red", router::kVrfFlagBig);
  DeleteVrf("red");
  DeleteVrf("blue");
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 10", "-vrf blue 20 flags 8"));
}

TEST_F(Membership, VrfIgnoredAndDeletedBeforeTheDeliveryIsDeletedForItsClients) {
  AddVrf("red", 10);
  ConnectQuietly();
  SetFlags("red", 0x8);
  DeleteVrf("red");
  EXPECT_THAT(Delivered(), ElementsAre("-vrf red 10"));
}

TEST_F(Membership, ClientGetsOnlyWhatItSubscribedTo) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  Bind();
  ASSERT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusOk);
  ASSERT_EQ(vmap_c_mdb_add_vrf_all(database_, &NoteVrf), kStatusOk);
  ASSERT_EQ(vmap_c_notif_reg(database_, &fd_, &num_results_), kStatusOk);
  EXPECT_EQ(num_results_, 1U);
  Remove("ge0");
  AddVrf("blue", 20);
  EXPECT_THAT(Delivered(), ElementsAre("+vrf red 10", "+vrf blue 20"));
}

TEST_F(Membership, EndedClientIsNotNotified) {
  Connect();
  AddVrf("red", 10);
  EndClient();
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Membership, FreedMemberDatabaseIsNotNotified) {
  Connect();
  AddVrf("red", 10);
  vmap_c_mdb_free(database_);
  EXPECT_THAT(Delivered(), IsEmpty());
}

TEST_F(Membership, ThereIsOneOfEachAndTheyAreMadeAndEndedInOrder) {
  EXPECT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusNotConnected);
  EXPECT_EQ(vmap_c_unbind(client_), kStatusNotConnected);
  Connect();
  int other = -1;
  VmapClient* second = nullptr;
  VmapMemberDatabase* database = nullptr;
  EXPECT_EQ(vmap_c_lib_init("second", manager_.get(), &NoteDrop, &second), kStatusExists);
  EXPECT_EQ(vmap_c_bind(client_, &other), kStatusExists);
  EXPECT_EQ(vmap_c_mdb_init(client_, 2, &database), kStatusExists);
  EXPECT_EQ(vmap_c_notif_reg(database_, &other, &num_results_), kStatusExists);
  EXPECT_FALSE(HasHungUp());
  Unbind();
  EXPECT_EQ(vmap_c_unbind(client_), kStatusNotConnected);
}

TEST_F(Membership, BindFailsWithoutAModel) {
  vmap_attach(nullptr);
  EXPECT_EQ(vmap_c_bind(client_, &fd_), kStatusUnavailable);
}

TEST_F(Membership, NullArgumentsAreInvalid) {
  EXPECT_EQ(vmap_c_lib_init(nullptr, manager_.get(), &NoteDrop, &client_), kStatusInvalid);
  EXPECT_EQ(vmap_c_lib_init("test", nullptr, &NoteDrop, &client_), kStatusInvalid);
  EXPECT_EQ(vmap_c_lib_init("test", manager_.get(), nullptr, &client_), kStatusInvalid);
  EXPECT_EQ(vmap_c_lib_init("test", manager_.get(), &NoteDrop, nullptr), kStatusInvalid);
  EXPECT_EQ(vmap_c_bind(nullptr, &fd_), kStatusInvalid);
  EXPECT_EQ(vmap_c_bind(client_, nullptr), kStatusInvalid);
  EXPECT_EQ(vmap_c_unbind(nullptr), kStatusInvalid);
  EXPECT_EQ(vmap_c_mdb_init(nullptr, 2, &database_), kStatusInvalid);
  EXPECT_EQ(vmap_c_mdb_add_intf_all(nullptr, &NoteInterface, 40), kStatusInvalid);
  EXPECT_EQ(vmap_c_mdb_add_vrf_all(nullptr, &NoteVrf), kStatusInvalid);
  EXPECT_EQ(vmap_c_notif_reg(nullptr, &fd_, &num_results_), kStatusInvalid);
}

TEST_F(Membership, TenThousandVrfsWithTenInterfacesEachAreAnnouncedOnce) {
  constexpr std::uint32_t kVrfs = 10'000;
  constexpr std::uint32_t kInterfaces = 100'000;
  for (std::uint32_t n = 0; n < kVrfs; ++n) AddVrf("vrf" + std::to_string(n), n + 2);
  for (std::uint32_t n = 0; n < kInterfaces; ++n) {
    AddInterface("if" + std::to_string(n), "vrf" + std::to_string(n % kVrfs));
  }
  Connect();
  EXPECT_EQ(num_results_, kVrfs + kInterfaces);
  EXPECT_THAT(Calls(), SizeIs(kVrfs + kInterfaces));
  for (std::uint32_t n = 0; n < kVrfs; ++n) Move("if" + std::to_string(n), "vrf0");
  EXPECT_THAT(Delivered(), SizeIs(2 * (kVrfs - 1)));
}

}  // namespace
}  // namespace vmap
