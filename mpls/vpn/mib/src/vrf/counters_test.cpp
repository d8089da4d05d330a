// What is counted for a VRF.
#include "mpls/vpn/mib/src/vrf/counters.h"

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using testing::IsEmpty;
using testing::Not;

class VrfCounters : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    AddVrf("red");
    AddVrf("blue");
    Connect();
  }
  void AddActive(const std::string& name, const std::string& vrf, const std::string& address) {
    AddInterface(name, vrf);
    AddAddress(name, address);
    LinkUp(name);
    Run();
  }
  void ExpectCounts(std::uint32_t associated, std::uint32_t active, const char* skip = nullptr,
                    const char* vrf = "red") {
    std::uint32_t counted_associated = 99;
    std::uint32_t counted_active = 99;
    OnlyArea(DBASE);
    ClearPrints();
    fill_vrf_counters(vrf, skip, &counted_associated, &counted_active);
    EXPECT_EQ(counted_associated, associated);
    EXPECT_EQ(counted_active, active);
  }
};

TEST_F(VrfCounters, VrfWithoutInterfacesAndUnknownVrfHaveNone) {
  AddActive("ge0", "blue", "192.0.2.1/24");
  ExpectCounts(0, 0);
  ExpectCounts(0, 0, nullptr, "nowhere");
}

TEST_F(VrfCounters, EveryInterfaceIsAssociatedAndOnlyActiveOnesAreActive) {
  AddActive("ge0", "red", "192.0.2.1/24");
  AddActive("ge1", "red", "2001:db8::1/64");
  AddInterface("ge2", "red");
  AddActive("ge3", "blue", "192.0.2.5/24");
  Run();
  ExpectCounts(3, 2);
  EXPECT_TRUE(Printed("VTAB have record for interface ge0 in VRF red"));
  EXPECT_TRUE(Printed("VTAB have record for interface ge2 in VRF red"));
  EXPECT_FALSE(Printed("VTAB have record for interface ge3 in VRF blue"));
}

TEST_F(VrfCounters, SkippedInterfaceIsInNeitherCount) {
  AddActive("ge0", "red", "192.0.2.1/24");
  AddActive("ge1", "red", "192.0.2.5/24");
  ExpectCounts(1, 1, "ge0");
  EXPECT_TRUE(Printed("fill_vrf_counters: skip(ge0)"));
  EXPECT_FALSE(Printed("VTAB have record for interface ge0 in VRF red"));
  EXPECT_EQ(Traced("mpls_vpn/dbase").back(), "fill_vrf_counters: skip(ge0)");
}

TEST_F(VrfCounters, NameThatIsNotInTheVrfSkipsNothing) {
  AddActive("ge0", "red", "192.0.2.1/24");
  ExpectCounts(1, 1, "ge7");
}

TEST_F(VrfCounters, InterfaceWithoutARecordIsAssociatedOnly) {
  CreateIf("red", 77, "lost", 0x77);
  ExpectCounts(1, 0);
  EXPECT_TRUE(Printed("VTAB does not have record for interface lost in VRF red"));
  ExpectErrorTraced("VTAB does not have record for interface lost in VRF red", kStatusNoSuchRow);
}

TEST_F(VrfCounters, NamelessInterfaceAfterAnotherIsAssociatedOnly) {
  AddActive("ge0", "red", "192.0.2.1/24");
  CreateIf("red", 77, nullptr, 0x77);
  ExpectCounts(2, 1, "ge1");
  EXPECT_TRUE(Printed("VTAB does not have record for interface (null) in VRF red"));
}

TEST_F(VrfCounters, DirtyDatabaseIsRepairedFirst) {
  const std::uint32_t handle = AddInterface("ge0");
  AddAddress("ge0", "192.0.2.1/24");
  LinkUp("ge0");
  Run();
  CreateIf("red", 0, nullptr, handle);
  ExpectCounts(1, 1);
  EXPECT_EQ(Prints().front(), "Start cleaning interface database...");
}

// Once by the counting and once by its first look at the database.
TEST_F(VrfCounters, InterfaceThatCannotBeRepairedIsTriedByTheCountingToo) {
  CreateIf("red", 0, nullptr, 0xdead);
  ExpectCounts(0, 0);
  EXPECT_EQ(TimesPrinted("Start cleaning interface database..."), 2U);
}

TEST_F(VrfCounters, HeldMutexCountsTheDatabaseUnrepaired) {
  AddActive("ge0", "red", "192.0.2.1/24");
  CreateIf("red", 0, nullptr, 0x99);
  TakeMutex();
  ExpectCounts(1, 1);
  ReleaseMutex();
  EXPECT_TRUE(mpls_vpn_mib_if_dbase_is_dirty());
}

TEST_F(VrfCounters, CountingWritesNoErrorWhenAllRecordsAreThere) {
  AddActive("ge0", "red", "192.0.2.1/24");
  const std::vector<std::string> before = Traced("mpls_vpn/error");
  ExpectCounts(1, 1);
  EXPECT_EQ(Traced("mpls_vpn/error"), before);
  EXPECT_THAT(Prints(), Not(IsEmpty()));
}

}  // namespace
