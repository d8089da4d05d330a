// What announcements make of the routes of a prefix. The announcements and the lists are those that
// kernels 6.1 and 6.18 were seen to have after "ip route" commands.
#include "sources/kernel/route_state/route_list.h"

#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include "sources/kernel/route_state/route_messages_test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint16_t kAdd = NLM_F_CREATE | NLM_F_EXCL;
constexpr std::uint16_t kAppend = NLM_F_CREATE | NLM_F_APPEND;
constexpr std::uint16_t kPrepend = NLM_F_CREATE;
constexpr std::uint16_t kReplace = NLM_F_REPLACE;

class RouteListTest : public ::testing::Test {
 protected:
  static KernelRoute Parsed(const RouteMessage& message) {
    return OnlyEvent<RouteSeen>(ParseRoutes(Encode(message))).route;
  }
  // Over a gateway of its own, or over the interface only.
  static RouteMessage Ipv4(const std::string& gateway, std::optional<std::uint32_t> priority = {}) {
    return {.priority = priority, .hop = {.interface_index = 5, .gateway = gateway}};
  }
  static RouteMessage Ipv6(const std::string& gateway, std::uint32_t interface_index = 5) {
    return {.prefix = "2001:db8::/32",
            .priority = 1024,
            .hop = {.interface_index = interface_index, .gateway = gateway}};
  }
  static RouteMessage Ipv6Paths(const std::vector<std::string>& gateways) {
    RouteMessage message{.prefix = "2001:db8::/32", .priority = 1024};
    for (const std::string& each : gateways) message.hops.push_back({.interface_index = 5, .gateway = each});
    return message;
  }
  bool Announce(const RouteMessage& message, std::uint16_t flags) {
    return announce(Parsed(message), flags, &list_);
  }
  void Withdraw(const RouteMessage& message) { withdraw(Parsed(message), &list_); }
  // "2,3" for the last octets of the gateways of each route, 0 for none.
  std::vector<std::string> Gateways() const {
    std::vector<std::string> routes;
    for (const KernelRoute& route : list_) {
      std::string text;
      for (const RoutePath& path : route.paths) {
        const std::size_t last = route.family == router::Family::kIpv4 ? 3 : 15;
        text += (text.empty() ? "" : ",") + std::to_string(path.gateway[last]);
      }
      routes.push_back(route.type == RTN_UNICAST ? text : "discards");
    }
    return routes;
  }
  RouteList list_;
};

TEST_F(RouteListTest, Ipv4RoutesOfAPriorityAreInTheOrderOfTheKernel) {
  EXPECT_TRUE(Announce(Ipv4("10.0.0.2"), kAdd));
  EXPECT_TRUE(Announce(Ipv4("10.0.0.3"), kAppend));
  EXPECT_TRUE(Announce(Ipv4("10.0.0.4"), kPrepend));
  EXPECT_TRUE(Announce(Ipv4("10.0.0.5", 5), kAdd));
  EXPECT_TRUE(Announce({.type = RTN_BLACKHOLE}, kAppend));
  EXPECT_THAT(Gateways(), ElementsAre("4", "2", "3", "discards", "5"));
}

TEST_F(RouteListTest, Ipv4ReplacementReplacesTheFirstOfItsPriority) {
  Announce(Ipv4("10.0.0.2"), kAdd);
  Announce(Ipv4("10.0.0.3"), kAppend);
  Announce(Ipv4("10.0.0.5", 5), kAdd);
  EXPECT_TRUE(Announce(Ipv4("10.0.0.9"), kReplace));
  EXPECT_THAT(Gateways(), ElementsAre("9", "3", "5"));
  EXPECT_TRUE(Announce(Ipv4("10.0.0.8", 5), kReplace));
  EXPECT_THAT(Gateways(), ElementsAre("9", "3", "8"));
}

TEST_F(RouteListTest, DeletedIpv4RouteIsTheEqualOne) {
  Announce(Ipv4("10.0.0.2"), kAdd);
  Announce(Ipv4("10.0.0.3"), kAppend);
  Withdraw(Ipv4("10.0.0.3", 5));
  Withdraw(Ipv4("10.0.0.4"));
  EXPECT_THAT(Gateways(), ElementsAre("2", "3"));
  Withdraw(Ipv4("10.0.0.2"));
  EXPECT_THAT(Gateways(), ElementsAre("3"));
}

// Two routes that differ in their metrics only are two routes.
TEST_F(RouteListTest, Ipv4RoutesThatDifferInWhatIsNotShownAreDistinct) {
  RouteMessage narrow = Ipv4("10.0.0.7");
  narrow.scope = RT_SCOPE_LINK;
  Announce(Ipv4("10.0.0.7"), kAdd);
  Announce(narrow, kAppend);
  EXPECT_EQ(list_.size(), 2U);
  Withdraw(narrow);
  EXPECT_EQ(list_.size(), 1U);
}

TEST_F(RouteListTest, RepeatedAnnouncementChangesNothing) {
  Announce(Ipv4("10.0.0.2"), kAdd);
  Announce(Ipv4("10.0.0.3"), kAppend);
  Announce(Ipv4("10.0.0.3"), kAppend);
  Announce(Ipv4("10.0.0.2"), kPrepend);
  EXPECT_THAT(Gateways(), ElementsAre("2", "3"));
}

TEST_F(RouteListTest, RouteThatExcludesTheListedOnesReplacesThemAndIsReported) {
  Announce(Ipv4("10.0.0.2"), kAdd);
  Announce(Ipv4("10.0.0.3"), kAppend);
  EXPECT_FALSE(Announce(Ipv4("10.0.0.4"), kAdd));
  EXPECT_THAT(Gateways(), ElementsAre("4"));
}

TEST_F(RouteListTest, PathsOfDeletedIpv4RouteMayBeDead) {
  RouteMessage route{.hops = {{.interface_index = 5}, {.interface_index = 6}}};
  Announce(route, kAdd);
  route.hops[0].flags = RTNH_F_DEAD;
  Withdraw(route);
  EXPECT_THAT(list_, IsEmpty());
}

TEST_F(RouteListTest, AppendedIpv6PathIsAnnouncedFirstAndListedLast) {
  Announce(Ipv6("2001:db8::2"), kAdd);
  Announce(Ipv6Paths({"2001:db8::3", "2001:db8::2"}), kAppend);
  Announce(Ipv6Paths({"2001:db8::4", "2001:db8::2", "2001:db8::3"}), kAppend);
  EXPECT_THAT(Gateways(), ElementsAre("2,3,4"));
}

TEST_F(RouteListTest, Ipv6PathsAreDeletedOneByOneOrTogether) {
  Announce(Ipv6Paths({"2001:db8::2", "2001:db8::3", "2001:db8::4"}), kPrepend);
  Withdraw(Ipv6("2001:db8::3"));
  EXPECT_THAT(Gateways(), ElementsAre("2,4"));
  Withdraw(Ipv6Paths({"2001:db8::2", "2001:db8::4"}));
  EXPECT_THAT(list_, IsEmpty());
}

// A single path is announced without its weight, and shown with it when it has company.
TEST_F(RouteListTest, WeightsOfIpv6PathsDoNotMatter) {
  RouteMessage paths = Ipv6Paths({"2001:db8::2", "2001:db8::3"});
  paths.hops[0].weight = 2;
  Announce(Ipv6("2001:db8::2"), kAdd);
  Announce(paths, kAppend);
  ASSERT_EQ(list_.size(), 1U);
  EXPECT_TRUE(looks_same(list_[0], Parsed(paths)));
  Withdraw(Ipv6("2001:db8::3"));
  EXPECT_TRUE(looks_same(list_[0], Parsed(Ipv6("2001:db8::2"))));
}

TEST_F(RouteListTest, WeightsOfIpv4PathsDistinguishRoutes) {
  RouteMessage route{.hops = {{.interface_index = 5}, {.interface_index = 6}}};
  Announce(route, kAdd);
  route.hops[0].weight = 2;
  Announce(route, kAppend);
  EXPECT_EQ(list_.size(), 2U);
}

// The kernel shows the protocol of the first path.
TEST_F(RouteListTest, Ipv6PathsKeepTheirProtocols) {
  RouteMessage first = Ipv6("2001:db8::2");
  first.protocol = RTPROT_BGP;
  Announce(first, kAdd);
  Announce(Ipv6Paths({"2001:db8::3", "2001:db8::2"}), kAppend);
  EXPECT_EQ(list_[0].protocol, RTPROT_BGP);
  Withdraw(first);
  EXPECT_EQ(list_[0].protocol, RTPROT_STATIC);
}

TEST_F(RouteListTest, Ipv6RouteWithoutAGatewayIsARouteOfItsOwn) {
  Announce(Ipv6("2001:db8::2"), kAdd);
  Announce(Ipv6("", 5), kAppend);
  Announce(Ipv6("", 6), kAppend);
  EXPECT_THAT(Gateways(), ElementsAre("2", "0", "0"));
  Withdraw(Ipv6("", 5));
  EXPECT_THAT(Gateways(), ElementsAre("2", "0"));
  EXPECT_EQ(list_[1].paths[0].interface_index, 6U);
}

TEST_F(RouteListTest, Ipv6ReplacementPrefersARouteThatAlsoHasAGateway) {
  Announce(Ipv6("", 5), kAdd);
  Announce(Ipv6Paths({"2001:db8::2", "2001:db8::3"}), kAppend);
  Announce(Ipv6("2001:db8::9"), kReplace);
  EXPECT_THAT(Gateways(), ElementsAre("0", "9"));
  Withdraw(Ipv6("2001:db8::9"));
  Announce(Ipv6("2001:db8::8"), kReplace);
  EXPECT_THAT(Gateways(), ElementsAre("8"));
}

TEST_F(RouteListTest, Ipv6ReplacementOfNothingIsAnAddition) {
  EXPECT_TRUE(Announce(Ipv6Paths({"2001:db8::2", "2001:db8::3"}), kReplace));
  EXPECT_THAT(Gateways(), ElementsAre("2,3"));
}

TEST_F(RouteListTest, RoutesOfNextHopObjectsAreKnownByTheObject) {
  for (const std::uint32_t object : {4U, 5U}) {
    RouteMessage route = Ipv6("");
    route.object = object;
    Announce(route, kAppend);
  }
  ASSERT_EQ(list_.size(), 2U);
  RouteMessage deleted = Ipv6("2001:db8::2");  // the object's path is in the announcement
  deleted.object = 4;
  Withdraw(deleted);
  ASSERT_EQ(list_.size(), 1U);
  EXPECT_EQ(list_[0].next_hop_object, 5U);
}

}  // namespace
}  // namespace kernel
