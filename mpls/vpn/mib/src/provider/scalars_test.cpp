// What the scalars count.
#include "mpls/vpn/mib/src/provider/scalars.h"

#include "mpls/vpn/mib/src/provider/provider_test_support.h"
#include "mpls/vpn/mib/src/traps/info.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

class Scalars : public DaemonTest {
 protected:
  void TearDown() override {
    mpls_vpn_mib_trap_info[kTrapAll].enabled = 0;
    notif_reissue_time = 0;
    DaemonTest::TearDown();
  }
  void AddActiveInterface(const std::string& name, const std::string& vrf) {
    AddInterface(name, vrf);
    AddAddress(name, "192.0.2.1/24");
    LinkUp(name);
  }
  // Adds the VRF to the VRF database, without the membership service.
  void HoldInDatabase(const char* vrf) {
    VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf);
    ASSERT_NE(record, nullptr) << vrf;
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL() << vrf;
    const VrfNode* node = mpls_vpn_mib_create_vrf_wavl_node(vrf, record);
    EXPECT_NE(node, nullptr) << vrf;
  }
  mpls_vpn_mib_scalars Read() {
    Run();
    ClearPrints();
    Reply reply;
    EXPECT_EQ(mpls_vpn_mib_prov_get_scalars(reply.Place(), nullptr), kStatusOk);
    mpls_vpn_mib_scalars scalars{};
    EXPECT_EQ(parcel_decode(&kMibScalarsParcel, reply.Get().data, reply.Get().length, &scalars), kStatusOk);
    return scalars;
  }
};

TEST_F(Scalars, OfAnEmptyRouterAreZero) {
  Connect();
  const mpls_vpn_mib_scalars scalars = Read();
  EXPECT_EQ(scalars.configuredVrfs, 0U);
  EXPECT_EQ(scalars.activeVrfs, 0U);
  EXPECT_EQ(scalars.connectedInterfaces, 0U);
  EXPECT_EQ(scalars.notificationEnable, 0);
  EXPECT_EQ(scalars.maxThresholdNotifTime, 0U);
  EXPECT_EQ(scalars.illegalLabelsThreshold, 0U);
}

TEST_F(Scalars, HandlerAndFillingAnnounceThemselves) {
  Connect();
  Run();
  OnlyArea(PROV);
  Read();
  EXPECT_THAT(Prints(), ElementsAre("Entering function mpls_vpn_mib_prov_get_scalars",
                                    "Entering function fill_scalars_parcel"));
}

TEST_F(Scalars, DefaultVrfAndForwardReferencesAreNotConfiguredEvenWhenTheDatabaseHoldsThem) {
  NameVrf("later");
  Connect();
  for (const char* vrf : {"default", "later"}) {
    ASSERT_NE(vtab_get_vrf_record_by_vrf_name(vrf), nullptr) << vrf;
    EXPECT_EQ(Read().configuredVrfs, 0U);
    HoldInDatabase(vrf);
    EXPECT_EQ(Read().configuredVrfs, 0U);
  }
}

TEST_F(Scalars, VrfsThatTheMembershipServiceAnnouncedAreConfigured) {
  AddVrf("red");
  AddVrf("default1");
  EXPECT_EQ(Read().configuredVrfs, 0U) << "only the record service knows them";
  Connect();
  EXPECT_EQ(Read().configuredVrfs, 2U);
  DeleteVrf("red");
  EXPECT_EQ(Read().configuredVrfs, 1U);
}

TEST_F(Scalars, VrfIsActiveOnceByAnyOfItsInterfaces) {
  for (const char* vrf : {"red", "blue", "gray"}) AddVrf(vrf);
  AddInterface("ge0", "red");
  AddActiveInterface("ge1", "red");
  AddActiveInterface("ge2", "red");
  AddActiveInterface("ge3", "blue");
  AddInterface("ge4", "gray");
  Connect();
  const mpls_vpn_mib_scalars scalars = Read();
  EXPECT_EQ(scalars.activeVrfs, 2U);
  EXPECT_EQ(scalars.connectedInterfaces, 5U);
}

TEST_F(Scalars, InterfacesOfAVrfThatIsOnlyNamedAreNotConnected) {
  AddVrf("red");
  AddActiveInterface("ge0", "red");
  AddActiveInterface("ge1", "later");
  AddActiveInterface("ge2", "unnamed");
  NameVrf("later");
  Connect();
  ASSERT_NE(vtab_get_vrf_record_by_vrf_name("later"), nullptr);
  ASSERT_EQ(vtab_get_vrf_record_by_vrf_name("unnamed"), nullptr);
  ASSERT_NE(mpls_vpn_mib_get_first_if_of_vrf("later"), nullptr);
  ASSERT_NE(mpls_vpn_mib_get_first_if_of_vrf("unnamed"), nullptr);
  const mpls_vpn_mib_scalars scalars = Read();
  EXPECT_EQ(scalars.connectedInterfaces, 1U);
  EXPECT_EQ(scalars.activeVrfs, 1U);
}

TEST_F(Scalars, InterfacesWithoutARecordOrANameAreConnectedButMakeNothingActive) {
  AddVrf("red");
  Connect();
  CreateIf("red", 77, "absent", 900);
  CreateIf("red", 78, nullptr, 901);
  OnlyArea(DBASE);
  const mpls_vpn_mib_scalars scalars = Read();
  EXPECT_EQ(scalars.connectedInterfaces, 2U);
  EXPECT_EQ(scalars.activeVrfs, 0U);
  EXPECT_TRUE(Printed("VTAB does not have record for interface absent in VRF red"));
  EXPECT_TRUE(Printed("VTAB does not have record for interface (null) in VRF red"));
}

TEST_F(Scalars, RecordOfAnInterfaceIsPrinted) {
  AddVrf("red");
  AddActiveInterface("ge0", "red");
  Connect();
  Read();
  EXPECT_TRUE(Printed("VTAB have record for interface ge0 in VRF red"));
  EXPECT_TRUE(Printed("red/ge0: IPv4=UP/ADDR"));
}

TEST_F(Scalars, InterfaceDatabaseIsRepairedFirst) {
  AddVrf("red");
  const std::uint32_t handle = AddInterface("ge0");
  Connect();
  CreateIf("red", 0, "ge0", handle);
  ASSERT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
  EXPECT_EQ(Read().connectedInterfaces, 1U);
  EXPECT_TRUE(Printed("Start cleaning interface database..."));
  EXPECT_FALSE(mpls_vpn_mib_if_dbase_is_dirty());
}

// Once by the handler and once by its first look at the database.
TEST_F(Scalars, InterfaceThatCannotBeRepairedIsTriedByTheHandlerToo) {
  AddVrf("red");
  Connect();
  CreateIf("red", 0, nullptr, 0xdead);
  EXPECT_EQ(Read().connectedInterfaces, 0U);
  EXPECT_EQ(TimesPrinted("Start cleaning interface database..."), 2U);
}

TEST_F(Scalars, NotificationSettingsAreCopiedUnchanged) {
  Connect();
  mpls_vpn_mib_trap_info[kTrapAll].enabled = 1;
  notif_reissue_time = 300;
  const mpls_vpn_mib_scalars scalars = Read();
  EXPECT_EQ(scalars.notificationEnable, 1);
  EXPECT_EQ(scalars.maxThresholdNotifTime, 300U);
}

TEST_F(Scalars, SwitchOfOneNotificationIsNotTheMasterSwitch) {
  Connect();
  mpls_vpn_mib_trap_info[kTrapVrfUp].enabled = 1;
  EXPECT_EQ(Read().notificationEnable, 0);
  mpls_vpn_mib_trap_info[kTrapVrfUp].enabled = 0;
}

TEST_F(Scalars, FailedEncodingIsPrintedAndReturned) {
  Connect();
  const ScopedFault fault("parcel_encode", kStatusNoMemory);
  Reply reply;
  EXPECT_EQ(mpls_vpn_mib_prov_get_scalars(reply.Place(), nullptr), kStatusNoMemory);
  EXPECT_EQ(reply.Get().data, nullptr);
  EXPECT_THAT(Prints(), Contains(Failure("prov_encode_parcel", "parcel_encode failed", kStatusNoMemory)));
}

}  // namespace
