// When an interface counts as active.
#include "mpls/vpn/mib/src/interface/active.h"

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using testing::ElementsAre;

class ActiveInterface : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    AddVrf("red");
    AddInterface("ge0", "red");
  }
  bool IsActive() {
    Run();
    const VtabIfRecord* record = vtab_get_if_record("ge0");
    EXPECT_NE(record, nullptr);
    OnlyArea(DBASE);
    ClearPrints();
    return record != nullptr && interface_is_active(record);
  }
  // As IsActive(), with protocol states that are not the addresses'.
  bool IsActiveWithStates(std::uint8_t ipv4_state, std::uint8_t ipv6_state) {
    Run();
    auto* record = const_cast<VtabIfRecord*>(vtab_get_if_record("ge0"));
    record->ipv4_state = ipv4_state;
    record->ipv6_state = ipv6_state;
    return IsActive();
  }
};

TEST_F(ActiveInterface, UpWithAnIpv4AddressIsActive) {
  LinkUp("ge0");
  AddAddress("ge0", "192.0.2.1/24");
  EXPECT_TRUE(IsActive());
  EXPECT_THAT(Prints(), ElementsAre("red/ge0: IPv4=UP/ADDR"));
}

TEST_F(ActiveInterface, UpWithOnlyAnIpv6AddressIsActive) {
  LinkUp("ge0");
  AddAddress("ge0", "2001:db8::1/64");
  EXPECT_TRUE(IsActive());
  EXPECT_THAT(Prints(), ElementsAre("red/ge0: IPv4=DN/NOADDR", "red/ge0: IPv6=UP/ADDR"));
}

TEST_F(ActiveInterface, DownWithAnIpv4AddressIsNotActive) {
  AddAddress("ge0", "192.0.2.1/24");
  EXPECT_FALSE(IsActive());
  EXPECT_THAT(Prints(), ElementsAre("red/ge0: IPv4=DN/ADDR", "red/ge0: IPv6=DN/NOADDR"));
}

TEST_F(ActiveInterface, UpWithoutAddressesIsNotActive) {
  EXPECT_FALSE(IsActiveWithStates(kVtabStateUp, kVtabStateUp));
  EXPECT_THAT(Prints(), ElementsAre("red/ge0: IPv4=UP/NOADDR", "red/ge0: IPv6=UP/NOADDR"));
}

TEST_F(ActiveInterface, AllZeroAddressesAreNone) {
  LinkUp("ge0");
  AddAddress("ge0", "0.0.0.0/0");
  AddAddress("ge0", "::/0");
  EXPECT_FALSE(IsActive());
}

TEST_F(ActiveInterface, OnlyTheFirstIpv6AddressIsLookedAt) {
  LinkUp("ge0");
  AddAddress("ge0", "::/0");
  AddAddress("ge0", "2001:db8::1/64");
  EXPECT_FALSE(IsActive());
}

TEST_F(ActiveInterface, AnyWordOfAnIpv6AddressMakesItAnAddress) {
  LinkUp("ge0");
  for (const char* address : {"1::/128", "0:0:1::/128", "::1:0:0/128", "::1/128"}) {
    SetOnlyAddress("ge0", address);
    EXPECT_TRUE(IsActive()) << address;
  }
}

TEST_F(ActiveInterface, Ipv4AddressWithIpv4DownAndNoIpv6AddressIsNotActive) {
  AddAddress("ge0", "192.0.2.1/24");
  EXPECT_FALSE(IsActiveWithStates(2, kVtabStateUp));
  EXPECT_TRUE(IsActiveWithStates(kVtabStateUp, 2));
}

TEST_F(ActiveInterface, Ipv6DecidesWhenIpv4IsDown) {
  AddAddress("ge0", "192.0.2.1/24");
  AddAddress("ge0", "2001:db8::1/64");
  EXPECT_TRUE(IsActiveWithStates(2, kVtabStateUp));
  EXPECT_FALSE(IsActiveWithStates(2, 4));
}

TEST_F(ActiveInterface, FailingAddressLookUpCountsAsNoAddress) {
  LinkUp("ge0");
  AddAddress("ge0", "192.0.2.1/24");
  Run();
  const ScopedFault fault("vtab_get_if_primary_ipv4_address", kStatusIo);
  EXPECT_FALSE(IsActive());
}

}  // namespace
