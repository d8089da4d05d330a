// The memory of an interface, from the router model to the databases. A router has 100,000 of them.
#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>
#include <string>

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

constexpr unsigned kInterfacesOfVrf = 10;

std::size_t octets_in_use() {
  return mallinfo2().uordblks;
}

// Not so with a sanitizer's allocator.
bool are_allocations_counted() {
  const std::size_t before = octets_in_use();
  const auto probe = std::make_unique<std::string>(100'000, 'x');  // too large for the caches
  return octets_in_use() >= before + probe->size();
}

class InterfaceMemory : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
    Connect();
  }
  // Up, with these addresses.
  void AddInterfaces(unsigned first, unsigned count, const router::AddressList& addresses) {
    for (unsigned number = first; number < first + count; ++number) {
      router::Interface interface;
      interface.name = "ge" + std::to_string(number);
      interface.index = number + 1;
      interface.vrf = "vrf" + std::to_string(number / kInterfacesOfVrf);
      interface.up = true;
      interface.addresses = addresses.values();  // not the list of the other interfaces
      ASSERT_EQ(router_.add_interface(interface), kStatusOk);
      if (number % 64 == 0) Run();
    }
    Run();
  }
  void ExpectAtMost500Octets(const router::AddressList& addresses) {
    if (!are_allocations_counted()) GTEST_SKIP() << "this allocator does not count what is in use";
    constexpr unsigned kFirst = 1000;
    constexpr unsigned kMore = 10'000;
    for (unsigned vrf = 0; vrf < (kFirst + kMore) / kInterfacesOfVrf; ++vrf) {
      AddVrf("vrf" + std::to_string(vrf));
    }
    AddInterfaces(0, kFirst, addresses);
    const std::size_t before = octets_in_use();
    AddInterfaces(kFirst, kMore, addresses);
    EXPECT_LE((octets_in_use() - before) / kMore, 500U);
    EXPECT_EQ(wavl_size(mpls_vpn_mib_if_tree(), kIfByVrf), kFirst + kMore) << "all are in the database";
  }
};

TEST_F(InterfaceMemory, IsAtMost500OctetsWithAnIpv4Address) {
  ExpectAtMost500Octets({AddressOf("192.0.2.1/30")});
}

TEST_F(InterfaceMemory, IsAtMost500OctetsWithAnAddressOfEachFamily) {
  ExpectAtMost500Octets({AddressOf("192.0.2.1/30"), AddressOf("2001:db8::1/64")});
}

}  // namespace
