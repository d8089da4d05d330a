// The two modules, loaded as the daemon loads them.
#include "route_modules/forwardmib.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/router/model/route_access.h"
#include "platform/router/model/route_test_support.h"

namespace {

using router::Family;
using router::MakeRoute;
using router::Route;
using router::RouteType;
using ::testing::ElementsAre;

constexpr std::uint32_t kTable = 10;

class Module {
 public:
  explicit Module(const std::string& file)
      : handle_(dlopen((std::string(MPLS_BUILD_LIB_DIR "/mib/") + file).c_str(), RTLD_LAZY)) {
    if (handle_ == nullptr) ADD_FAILURE() << dlerror();
  }
  ~Module() {
    if (handle_ != nullptr) dlclose(handle_);
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  template <typename Function>
  Function Symbol(const char* name) const {
    void* symbol = dlsym(handle_, name);
    EXPECT_NE(symbol, nullptr) << name;
    return reinterpret_cast<Function>(symbol);
  }

 private:
  void* handle_;
};

std::uint32_t MaskOf(unsigned prefix_length) {
  return prefix_length == 0 ? 0 : htonl(~0U << (32 - prefix_length));
}

std::uint32_t Number(const std::string& address) {
  std::uint32_t number = 0;
  EXPECT_EQ(inet_pton(AF_INET, address.c_str(), &number), 1) << address;
  return number;
}

std::string Text4(std::uint32_t number) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, &number, text, sizeof text);
}

router::RouteAddress Octets(const std::string& address) {
  return router::MakeAddress(address).octets;
}

router::RouteAddress Mask6(unsigned prefix_length) {
  router::RouteAddress mask{};
  for (unsigned bit = 0; bit < prefix_length; ++bit) {
    mask[bit / 8] = static_cast<std::uint8_t>(mask[bit / 8] | 0x80U >> bit % 8);
  }
  return mask;
}

class ForwardModules : public ::testing::Test {
 protected:
  ForwardModules() {
    router::Vrf red;
    red.name = "red";
    red.id = red.ipv4_table = red.ipv6_table = kTable;
    EXPECT_EQ(router_.create_vrf(red), kStatusOk);
    router::route_access_attach(&router_);
  }
  ~ForwardModules() override { router::route_access_attach(nullptr); }

  void Put(Family family, const Route& route) {
    ASSERT_EQ(router_.routes().put({family, kTable}, route), kStatusOk);
  }
  void Put(const std::string& prefix, const std::string& next_hop = "") {
    const Family family = prefix.find(':') == std::string::npos ? Family::kIpv4 : Family::kIpv6;
    Put(family, MakeRoute(prefix, next_hop));
  }

  // "PREFIX via HOP", without " via" for a zero next hop; empty for none.
  std::string Read(std::uint32_t kind, const std::string& destination, std::uint32_t mask,
                   const std::string& next_hop = "0.0.0.0", std::uint32_t table = kTable) {
    ForwardmibIpv4Route* route = find4_(0, kind, table, 0, Number(destination), mask, 0, Number(next_hop));
    if (route == nullptr) return "";
    const int length = __builtin_popcount(route->mask);
    std::string text = Text4(route->destination) + "/" + std::to_string(length);
    if (route->next_hop != 0) text += " via " + Text4(route->next_hop);
    forwardmib_release_oid(route->route_info);
    forwardmib_release_route(route);
    return text;
  }
  std::string Exact(const std::string& destination, unsigned length,
                    const std::string& next_hop = "0.0.0.0") {
    return Read(kForwardmibExact, destination, MaskOf(length), next_hop);
  }
  std::string Next(const std::string& destination, unsigned length, const std::string& next_hop = "0.0.0.0") {
    return Read(kForwardmibNext, destination, MaskOf(length), next_hop);
  }

  ForwardmibIpv6Route* Find6(std::uint32_t kind, const std::string& destination, unsigned length,
                             const std::string& next_hop = "::") {
    return find6_(0, kind, kTable, 0, Octets(destination).data(), Mask6(length).data(), 0,
                  Octets(next_hop).data());
  }
  static void Release(ForwardmibIpv6Route* route) {
    forwardmib_release_octets(route->destination);
    forwardmib_release_octets(route->next_hop);
    forwardmib_release_route(route);
  }
  std::string Text6(ForwardmibIpv6Route* route) {
    if (route == nullptr) return "";
    router::RouteKey key;
    std::copy_n(route->destination->octets, route->destination->length, key.destination.begin());
    std::copy_n(route->next_hop->octets, route->next_hop->length, key.next_hop.begin());
    key.prefix_length = static_cast<std::uint8_t>(route->prefix_length);
    Release(route);
    return router::Text(Family::kIpv6, key);
  }
  std::string Next6(const std::string& destination, unsigned length, const std::string& next_hop = "::") {
    return Text6(Find6(kForwardmibNext, destination, length, next_hop));
  }
  std::string Exact6(const std::string& destination, unsigned length, const std::string& next_hop = "::") {
    return Text6(Find6(kForwardmibExact, destination, length, next_hop));
  }

  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
  router::Router router_;
  Module ipv4_{"libipv4_forwardmib.dll"};
  Module ipv6_{"libipv6_forwardmib.dll"};
  ForwardmibFindIpv4Route find4_ = ipv4_.Symbol<ForwardmibFindIpv4Route>(kForwardmibFindRouteSymbol);
  ForwardmibFindIpv6Route find6_ = ipv6_.Symbol<ForwardmibFindIpv6Route>(kForwardmibFindRouteSymbol);
  ForwardmibTotalActiveRoutes total4_ =
      ipv4_.Symbol<ForwardmibTotalActiveRoutes>(kForwardmibTotalActiveRoutesSymbol);
  ForwardmibTotalActiveRoutes total6_ =
      ipv6_.Symbol<ForwardmibTotalActiveRoutes>(kForwardmibTotalActiveRoutesSymbol);
};

TEST_F(ForwardModules, ExactReadAnswersTheRowOfTheKeyOnly) {
  Put("10.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Exact("10.0.0.0", 8, "192.0.2.1"), "10.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Exact("10.0.0.0", 8, "192.0.2.2"), "");
  EXPECT_EQ(Exact("10.0.0.0", 9, "192.0.2.1"), "");
  EXPECT_EQ(Exact("11.0.0.0", 8, "192.0.2.1"), "");
  EXPECT_EQ(Read(kForwardmibExact, "10.0.0.0", MaskOf(8), "192.0.2.1", 11), "");
}

TEST_F(ForwardModules, NextReadWalksTheTableInTheOrderOfTheMib) {
  Put("10.0.0.0/24");
  Put("10.0.0.0/8", "192.0.2.1");
  Put("10.0.0.0/8", "10.0.0.1");
  Put("200.0.0.0/8");
  EXPECT_EQ(Next("0.0.0.0", 0), "10.0.0.0/8 via 10.0.0.1");
  EXPECT_EQ(Next("10.0.0.0", 8, "10.0.0.1"), "10.0.0.0/8 via 192.0.2.1");
  EXPECT_EQ(Next("10.0.0.0", 8, "192.0.2.1"), "10.0.0.0/24");
  EXPECT_EQ(Next("10.0.0.0", 24), "200.0.0.0/8");
  EXPECT_EQ(Next("200.0.0.0", 8), "");
}

TEST_F(ForwardModules, NextReadOfTheAllZeroKeyAnswersTheAllZeroRow) {
  Route guard = MakeRoute("0.0.0.0/0");
  guard.type = RouteType::kReject;
  Put(Family::kIpv4, guard);
  Put("10.0.0.0/8");
  EXPECT_EQ(Next("0.0.0.0", 0), "0.0.0.0/0");
  EXPECT_EQ(Next("0.0.0.0", 0, "0.0.0.1"), "10.0.0.0/8");
}

TEST_F(ForwardModules, NextReadOfADefaultRouteWithANextHopContinues) {
  Put("0.0.0.0/0", "192.0.2.1");
  Put("10.0.0.0/8");
  EXPECT_EQ(Next("0.0.0.0", 0), "0.0.0.0/0 via 192.0.2.1");
  EXPECT_EQ(Next("0.0.0.0", 0, "192.0.2.1"), "10.0.0.0/8");
}

TEST_F(ForwardModules, NextReadPastAllNextHopsOfAPrefixAnswersTheFollowingPrefix) {
  Put("10.0.0.0/8", "192.0.2.1");
  Put("10.0.0.0/8", "192.0.2.2");
  Put("11.0.0.0/8", "192.0.2.1");
  EXPECT_EQ(Next("10.0.0.0", 8, "255.255.255.255"), "11.0.0.0/8 via 192.0.2.1");
}

TEST_F(ForwardModules, MaskThatIsNotAPrefixMaskHasNoRows) {
  Put("0.0.0.0/0", "192.0.2.1");
  Put("10.0.0.0/8");
  EXPECT_EQ(Read(kForwardmibNext, "0.0.0.0", Number("255.0.255.0")), "");
  EXPECT_EQ(Read(kForwardmibNext, "0.0.0.0", Number("0.255.255.255")), "");
  router::RouteAddress mask = Mask6(64);
  mask[15] = 1;
  Put("2001:db8::/32");
  EXPECT_EQ(find6_(0, kForwardmibNext, kTable, 0, Octets("::").data(), mask.data(), 0, Octets("::").data()),
            nullptr);
}

TEST_F(ForwardModules, EveryPrefixLengthIsReadBack) {
  for (unsigned length = 0; length <= 32; ++length) {
    const std::string prefix = "0.0.0.0/" + std::to_string(length);
    Put(prefix, "192.0.2.1");
    EXPECT_EQ(Exact("0.0.0.0", length, "192.0.2.1"), prefix + " via 192.0.2.1");
  }
  for (unsigned length = 0; length <= 128; ++length) {
    const std::string prefix = "::/" + std::to_string(length);
    Put(prefix, "fe80::1");
    EXPECT_EQ(Exact6("::", length, "fe80::1"), prefix + " via fe80::1");
  }
}

TEST_F(ForwardModules, OtherKindsOfReadHaveNoRows) {
  Put("10.0.0.0/8");
  EXPECT_EQ(Read(165, "10.0.0.0", MaskOf(8)), "");
  EXPECT_EQ(Read(0, "10.0.0.0", MaskOf(8)), "");
  EXPECT_EQ(Exact("10.0.0.0", 8), "10.0.0.0/8");
}

TEST_F(ForwardModules, Ipv4RouteCarriesEveryField) {
  Route route = MakeRoute("10.1.0.0/16", "192.0.2.1");
  route.interface_index = 7;
  route.type = RouteType::kBlackhole;
  route.protocol = router::RouteProtocol::kBgp;
  route.row_status = 2;
  route.metrics = {11, 12, 13, 14, -1};
  Put(Family::kIpv4, route);
  clock_.advance(90 * kNanosecondsPerSecond);
  ForwardmibIpv4Route* row =
      find4_(0, kForwardmibNext, kTable, 0, Number("10.0.0.0"), MaskOf(8), 0, Number("0.0.0.0"));
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->destination, Number("10.1.0.0"));
  EXPECT_EQ(row->mask, Number("255.255.0.0"));
  EXPECT_EQ(row->next_hop, Number("192.0.2.1"));
  EXPECT_EQ(row->if_index, 7);
  EXPECT_EQ(row->type, 5U);
  EXPECT_EQ(row->protocol, 14U);
  EXPECT_EQ(row->age, 90U);
  ASSERT_NE(row->route_info, nullptr);
  EXPECT_EQ(row->route_info->length, 2U);
  EXPECT_THAT(row->route_info->ids, ElementsAre(0, 0));
  EXPECT_THAT(
      (std::vector<std::int32_t>{row->metric1, row->metric2, row->metric3, row->metric4, row->metric5}),
      ElementsAre(11, 12, 13, 14, -1));
  EXPECT_EQ(row->row_status, 2U);
  forwardmib_release_oid(row->route_info);
  forwardmib_release_route(row);
}

TEST_F(ForwardModules, Ipv6RouteCarriesEveryField) {
  Route route = MakeRoute("2001:db8::/32", "2001:db8::9");
  route.interface_index = 7;
  route.protocol = router::RouteProtocol::kOspf;
  route.row_status = 3;
  route.metrics = {11, 12, 13, 14, 15};
  route.next_hop_as = 65001;
  Put(Family::kIpv6, route);
  clock_.advance(5 * kNanosecondsPerSecond);
  ForwardmibIpv6Route* row = Find6(kForwardmibExact, "2001:db8::", 32, "2001:db8::9");
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->destination->length, 16U);
  EXPECT_EQ(row->next_hop->length, 16U);
  EXPECT_EQ(row->prefix_length, 32U);
  EXPECT_EQ(row->if_index, 7);
  EXPECT_EQ(row->type, 4U);
  EXPECT_EQ(row->protocol, 13U);
  EXPECT_EQ(row->age, 5U);
  EXPECT_EQ(row->next_hop_as, 65001U);
  EXPECT_THAT(
      (std::vector<std::int32_t>{row->metric1, row->metric2, row->metric3, row->metric4, row->metric5}),
      ElementsAre(11, 12, 13, 14, 15));
  EXPECT_EQ(row->row_status, 3U);
  EXPECT_EQ(Text6(row), "2001:db8::/32 via 2001:db8::9");
}

TEST_F(ForwardModules, LocalRouteHasNoNextHop) {
  Put("10.0.0.0/8");
  Put("2001:db8::/32");
  ForwardmibIpv4Route* row4 =
      find4_(0, kForwardmibExact, kTable, 0, Number("10.0.0.0"), MaskOf(8), 0, Number("0.0.0.0"));
  ASSERT_NE(row4, nullptr);
  EXPECT_EQ(row4->type, 3U);
  EXPECT_EQ(row4->next_hop, 0U);
  forwardmib_release_oid(row4->route_info);
  forwardmib_release_route(row4);
  ForwardmibIpv6Route* row6 = Find6(kForwardmibExact, "2001:db8::", 32);
  ASSERT_NE(row6, nullptr);
  EXPECT_EQ(row6->type, 3U);
  EXPECT_EQ(row6->next_hop->length, 0U);
  Release(row6);
}

TEST_F(ForwardModules, Ipv6WalkFollowsTheOrderOfOctets) {
  Put("2001:db8::/32", "fe80::1");
  Put("2001:db8::/32");
  Put("fe80::/64");
  Route guard = MakeRoute("::/0");
  guard.type = RouteType::kReject;
  Put(Family::kIpv6, guard);
  EXPECT_EQ(Next6("::", 0), "::/0");
  EXPECT_EQ(Next6("::", 0, "::1"), "2001:db8::/32");
  EXPECT_EQ(Next6("2001:db8::", 32), "2001:db8::/32 via fe80::1");
  EXPECT_EQ(Next6("2001:db8::", 32, "fe80::1"), "fe80::/64");
  EXPECT_EQ(Next6("fe80::", 64), "");
}

TEST_F(ForwardModules, TotalIsTheCountOfTheTable) {
  EXPECT_EQ(total4_(kTable), 0U);
  Put("10.0.0.0/8", "192.0.2.1");
  Put("10.0.0.0/8", "192.0.2.2");
  Put("2001:db8::/32");
  EXPECT_EQ(total4_(kTable), 2U);
  EXPECT_EQ(total6_(kTable), 1U);
  EXPECT_EQ(total4_(99), 0U);
}

TEST_F(ForwardModules, WithoutAModelThereAreNoRoutes) {
  Put("10.0.0.0/8");
  router::route_access_attach(nullptr);
  EXPECT_EQ(Exact("10.0.0.0", 8), "");
  EXPECT_EQ(Next("0.0.0.0", 0), "");
  EXPECT_EQ(total4_(kTable), 0U);
}

TEST_F(ForwardModules, FaultPointEndsAReadWithoutARow) {
  Put("10.0.0.0/8");
  const ScopedFault fault("ribmib_find_route", kStatusIo, 1, 2);
  EXPECT_EQ(Exact("10.0.0.0", 8), "");
  EXPECT_EQ(Next("0.0.0.0", 0), "");
  EXPECT_EQ(Exact("10.0.0.0", 8), "10.0.0.0/8");
}

TEST_F(ForwardModules, MemoryExhaustionAtAnyAllocationAnswersNoRow) {
  Put("10.0.0.0/8");
  Put("2001:db8::/32", "fe80::1");
  for (std::uint32_t first = 1; first <= 2; ++first) {
    const ScopedFault fault("calloc_tagged:forwardmib", kStatusNoMemory, first);
    errno = 0;
    EXPECT_EQ(Exact("10.0.0.0", 8), "") << first;
    EXPECT_EQ(errno, ENOMEM) << first;
  }
  for (std::uint32_t first = 1; first <= 3; ++first) {
    const ScopedFault fault("calloc_tagged:forwardmib", kStatusNoMemory, first);
    errno = 0;
    EXPECT_EQ(Exact6("2001:db8::", 32, "fe80::1"), "") << first;
    EXPECT_EQ(errno, ENOMEM) << first;
  }
  EXPECT_EQ(Exact("10.0.0.0", 8), "10.0.0.0/8");
}

TEST_F(ForwardModules, RowThatIsNotThereIsNoError) {
  errno = 0;
  EXPECT_EQ(Exact("10.0.0.0", 8), "");
  EXPECT_EQ(Next("0.0.0.0", 0), "");
  EXPECT_EQ(Exact6("2001:db8::", 32, "fe80::1"), "");
  EXPECT_EQ(errno, 0);
}

TEST_F(ForwardModules, ProcessServesOneVersionOfItsTable) {
  ASSERT_NE(mpls_vpn_mib_route_access(router::kRouteAccessVersion), nullptr);
  EXPECT_EQ(mpls_vpn_mib_route_access(router::kRouteAccessVersion)->version, router::kRouteAccessVersion);
  EXPECT_EQ(mpls_vpn_mib_route_access(router::kRouteAccessVersion + 1), nullptr);
  EXPECT_EQ(mpls_vpn_mib_route_access(0), nullptr);
}

}  // namespace
