// Membership clients whose connection drops and comes back: ghosts, and the records that must not be
// released.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/router/vmap/test_support.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Reconnection : public Membership {
 protected:
  ~Reconnection() override { vmap_on_vrf_deletion_told(nullptr); }
  void StopService() { vmap_service_stop(); }
  void StartService() { vmap_service_start(); }
  void Reconnect() {
    StartService();
    Unbind();
    Connect();
  }
};

TEST_F(Reconnection, StoppedServiceHangsUpTellsTheLibraryAndRefusesNewConnections) {
  Connect();
  StopService();
  EXPECT_TRUE(HasHungUp());
  EXPECT_THAT(Told(), ElementsAre("dropped"));
  Unbind();
  EXPECT_EQ(vmap_c_bind(client_, &fd_), kStatusUnavailable);
  StartService();
  Connect();
  EXPECT_FALSE(HasHungUp());
}

TEST_F(Reconnection, DroppedConnectionServesNoOperation) {
  Connect();
  StopService();
  EXPECT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusNotConnected);
  EXPECT_EQ(vmap_c_notif_reg(database_, &fd_, &num_results_), kStatusNotConnected);
}

TEST_F(Reconnection, ClientMayBindAgainWithoutUnbinding) {
  Connect();
  StopService();
  StartService();
  Connect();
  AddVrf("red", 10);
  Run();
  EXPECT_THAT(Told(), ElementsAre("dropped", "+vrf red 10"));
}

TEST_F(Reconnection, UnchangedRouterIsAnnouncedAgainWithoutDeletions) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  Connect();
  StopService();
  Told();
  Reconnect();
  EXPECT_THAT(Told(), ElementsAre("+vrf red 10", "+if 1 red 10"));
}

TEST_F(Reconnection, WhatWentMeanwhileIsAnnouncedAsDeletedBeforeWhatExists) {
  AddVrf("red", 10);
  AddVrf("blue", 20);
  AddVrf("tan", 30);
  for (const char* name : {"ge0", "ge1", "ge2"}) AddInterface(name, "red");
  Connect();
  StopService();
  Remove("ge2");
  Move("ge1", "blue");
  Move("ge0", "default");
  DeleteVrf("red");
  DeleteVrf("tan");
  Told();
  Reconnect();
  EXPECT_THAT(Told(), ElementsAre("-if 1 red 0", "-if 2 red 0", "-if 3 red 0", "-vrf red 10", "-vrf tan 30",
                                  "+vrf blue 20", "+if 2 blue 20"));
  EXPECT_EQ(num_results_, 7U);
}

TEST_F(Reconnection, VrfThatWentMeanwhileIsDeletedWithTheFlagsThatWereToldLast) {
  AddVrf("red", 10, 0x8);
  Connect();
  StopService();
  DeleteVrf("red");
  Told();
  Reconnect();
  EXPECT_THAT(Told(), ElementsAre("-vrf red 10 flags 8"));
}

TEST_F(Reconnection, GhostIsAnnouncedOnce) {
  AddVrf("red", 10);
  Connect();
  StopService();
  DeleteVrf("red");
  Reconnect();
  StopService();
  Told();
  Reconnect();
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(Reconnection, VrfDeletedAndCreatedAgainMeanwhileIsAnnouncedAsDeletedFirst) {
  AddVrf("red", 10);
  Connect();
  StopService();
  DeleteVrf("red");
  AddVrf("red", 10);
  Told();
  Reconnect();
  EXPECT_THAT(Told(), ElementsAre("-vrf red 10", "+vrf red 10"));
}

TEST_F(Reconnection, ChangesUndeliveredWhenTheConnectionDroppedAreMadeUpFor) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  Connect();
  Told();
  Move("ge0", "blue");
  DeleteVrf("red");
  AddVrf("tan", 30);
  StopService();
  Run();
  EXPECT_THAT(Told(), ElementsAre("dropped"));
  Reconnect();
  EXPECT_THAT(Told(), ElementsAre("-if 1 red 0", "-vrf red 10", "+vrf tan 30", "+if 1 blue 0"));
}

TEST_F(Reconnection, NewClientInheritsNoGhosts) {
  AddVrf("red", 10);
  Connect();
  DeleteVrf("red");
  EndClient();
  Told();
  ASSERT_EQ(vmap_c_lib_init("next", manager_.get(), &NoteDrop, &client_), kStatusOk);
  Connect();
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(Reconnection, TakingTheModelAwayDropsConnectionsAndANewOneIsReplayed) {
  AddVrf("red", 10);
  Connect();
  vmap_attach(nullptr);
  EXPECT_TRUE(HasHungUp());
  router::Router next;
  vmap_attach(&next);
  Told();
  Unbind();
  Connect();
  EXPECT_THAT(Told(), ElementsAre("-vrf red 10"));
  vmap_attach(&router_);
}

// --- records that the client may still use ---

std::vector<std::string> told_names;

class Debt : public Reconnection {
 protected:
  Debt() {
    told_names.clear();
    vmap_on_vrf_deletion_told([](const char* name) {
      told_names.push_back(std::string(name) + (vmap_owes_vrf_deletion(name) ? " owed" : " free"));
    });
  }
};

TEST_F(Debt, DeletionIsOwedFromTheChangeUntilTheCallbackReturned) {
  AddVrf("red", 10);
  Connect();
  EXPECT_FALSE(vmap_owes_vrf_deletion("red")) << "it exists";
  DeleteVrf("red");
  EXPECT_TRUE(vmap_owes_vrf_deletion("red"));
  Run();
  EXPECT_FALSE(vmap_owes_vrf_deletion("red"));
  EXPECT_THAT(told_names, ElementsAre("red free"));
}

TEST_F(Debt, DeletionIsStillOwedWhileItsCallbackRuns) {
  AddVrf("red", 10);
  Bind();
  ASSERT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusOk);
  static bool was_owed;
  was_owed = false;
  ASSERT_EQ(vmap_c_mdb_add_vrf_all(database_,
                                   [](VmapMemberDatabase*, VmapEvent, const VmapVrfItem* item) {
                                     was_owed = vmap_owes_vrf_deletion(item->vrf_name);
                                   }),
            kStatusOk);
  ASSERT_EQ(vmap_c_notif_reg(database_, &fd_, &num_results_), kStatusOk);
  EXPECT_FALSE(was_owed);
  DeleteVrf("red");
  Run();
  EXPECT_TRUE(was_owed);
}

TEST_F(Debt, NothingIsOwedToAClientThatWasNeverTold) {
  AddVrf("red", 10);
  DeleteVrf("red");
  Connect();
  AddVrf("red", 10);
  DeleteVrf("red");
  EXPECT_FALSE(vmap_owes_vrf_deletion("red")) << "the creation waits in the queue";
}

TEST_F(Debt, DeletionIsOwedWhileTheConnectionIsDown) {
  AddVrf("red", 10);
  Connect();
  StopService();
  DeleteVrf("red");
  EXPECT_TRUE(vmap_owes_vrf_deletion("red"));
  Reconnect();
  EXPECT_FALSE(vmap_owes_vrf_deletion("red"));
}

TEST_F(Debt, VrfCreatedAgainStillOwesTheDeletionOfTheFormerOne) {
  AddVrf("red", 10);
  Connect();
  DeleteVrf("red");
  AddVrf("red", 10);
  EXPECT_TRUE(vmap_owes_vrf_deletion("red"));
  Run();
  EXPECT_FALSE(vmap_owes_vrf_deletion("red"));
}

TEST_F(Debt, EndedClientIsOwedNothing) {
  AddVrf("red", 10);
  Connect();
  DeleteVrf("red");
  EndClient();
  EXPECT_FALSE(vmap_owes_vrf_deletion("red"));
  EXPECT_THAT(told_names, ElementsAre("red free"));
}

}  // namespace
}  // namespace vmap
