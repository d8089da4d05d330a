// Membership clients whose connection was closed: the next registration announces what is stale and what
// exists.
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
  // The calls before are forgotten.
  void Reconnect() {
    Calls();
    fault_disarm_all();
    Unbind();
    Connect();
  }
};

TEST_F(Reconnection, FailedServiceHangsUpCallsTheLibraryAndRefusesNewConnections) {
  Connect();
  LoseConnection();
  EXPECT_TRUE(HasHungUp());
  EXPECT_THAT(Calls(), ElementsAre("closed"));
  Unbind();
  EXPECT_EQ(vmap_c_bind(client_, &fd_), kStatusUnavailable);
  fault_disarm_all();
  Connect();
  EXPECT_FALSE(HasHungUp());
}

TEST_F(Reconnection, ClosedConnectionServesNoOperation) {
  Connect();
  LoseConnection();
  EXPECT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusNotConnected);
  EXPECT_EQ(vmap_c_notif_reg(database_, &fd_, &num_results_), kStatusNotConnected);
}

TEST_F(Reconnection, ClientMayBindAgainWithoutUnbinding) {
  Connect();
  LoseConnection();
  fault_disarm_all();
  Connect();
  AddVrf("red", 10);
  EXPECT_THAT(Delivered(), ElementsAre("closed", "+vrf red 10"));
}

TEST_F(Reconnection, UnchangedRouterIsAnnouncedAgainWithoutDeletions) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  Connect();
  LoseConnection();
  Reconnect();
  EXPECT_THAT(Calls(), ElementsAre("+vrf red 10", "+if 1 red 10"));
}

TEST_F(Reconnection, StaleItemsAreAnnouncedAsDeletedBeforeWhatExists) {
  AddVrf("red", 10);
  AddVrf("blue", 20);
  AddVrf("tan", 30);
  for (const char* name : {"ge0", "ge1", "ge2"}) AddInterface(name, "red");
  Connect();
  LoseConnection();
  Remove("ge2");
  Move("ge1", "blue");
  Move("ge0", "default");
  DeleteVrf("red");
  DeleteVrf("tan");
  Reconnect();
  EXPECT_THAT(Calls(), ElementsAre("-if 1 red 0", "-if 2 red 0", "-if 3 red 0", "-vrf red 10", "-vrf tan 30",
                                   "+vrf blue 20", "+if 2 blue 20"));
  EXPECT_EQ(num_results_, 7U);
}

TEST_F(Reconnection, StaleVrfIsDeletedWithTheFlagsThatWereDeliveredLast) {
  AddVrf("red", 10, 0x8);
  Connect();
  LoseConnection();
  DeleteVrf("red");
  Reconnect();
  EXPECT_THAT(Calls(), ElementsAre("-vrf red 10 flags 8"));
}

TEST_F(Reconnection, StaleVrfIsDeletedOnce) {
  AddVrf("red", 10);
  Connect();
  LoseConnection();
  DeleteVrf("red");
  Reconnect();
  LoseConnection();
  Reconnect();
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(Reconnection, VrfDeletedAndCreatedAgainMeanwhileIsAnnouncedAsDeletedFirst) {
  AddVrf("red", 10);
  Connect();
  LoseConnection();
  DeleteVrf("red");
  AddVrf("red", 10);
  Reconnect();
  EXPECT_THAT(Calls(), ElementsAre("-vrf red 10", "+vrf red 10"));
}

TEST_F(Reconnection, ChangesPendingWhenTheConnectionWasClosedAreReplayed) {
  AddVrf("red", 10);
  AddInterface("ge0", "red");
  Connect();
  Calls();
  Move("ge0", "blue");
  DeleteVrf("red");
  AddVrf("tan", 30);
  LoseConnection();
  EXPECT_THAT(Delivered(), ElementsAre("closed"));
  Reconnect();
  EXPECT_THAT(Calls(), ElementsAre("-if 1 red 0", "-vrf red 10", "+vrf tan 30", "+if 1 blue 0"));
}

}  // namespace
}  // namespace vmap
