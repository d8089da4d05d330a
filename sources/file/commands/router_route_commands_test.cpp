// Routes are added, replaced, removed and shown by command.
#include "platform/core/base/clock.h"
#include "platform/router/model/route_test_support.h"
#include "sources/file/commands/router_commands_test_support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr router::RouteTableId kRed{router::Family::kIpv4, 10};
constexpr router::RouteTableId kRed6{router::Family::kIpv6, 10};

class RouteCommands : public RouterCommands {
 protected:
  RouteCommands() {
    Do("add-vrf red id 10");
    Do("add-interface ge1 index 11");
  }
  std::vector<std::string> Rows(router::RouteTableId table = kRed) {
    return router::Walk(router_.routes(), table);
  }

  ManualClock clock_{1'700'000'000 * kNanosecondsPerSecond};
};

TEST_F(RouteCommands, PathIsAddedAndReported) {
  Do("add-route red 10.1.0.0/16 via 192.0.2.1");
  EXPECT_EQ(text_, "route 10.1.0.0/16 via 192.0.2.1 is in VRF red");
  Do("add-route red 2001:db8::/32 interface ge1");
  EXPECT_EQ(text_, "route 2001:db8::/32 is in VRF red");
  EXPECT_THAT(Rows(), ElementsAre("10.1.0.0/16 via 192.0.2.1"));
  EXPECT_THAT(Rows(kRed6), ElementsAre("2001:db8::/32"));
}

TEST_F(RouteCommands, EveryWordIsAccepted) {
  Do("add-route red 10.1.0.0/16 via 192.0.2.1 interface ge1 type other protocol ospf metric 20 label 1002 "
     "label 16");
  clock_.advance(12 * kNanosecondsPerSecond);
  Do("show red");
  EXPECT_EQ(text_,
            "vrf red id 10 ipv4-table 10 ipv6-table 10\n"
            "route 10.1.0.0/16 via 192.0.2.1 interface ge1 other ospf metric 20 label 1002 label 16 age 12");
}

TEST_F(RouteCommands, TypeAndProtocolFollowFromTheOtherWords) {
  Do("add-route red 10.1.0.0/16 via 192.0.2.1");
  Do("add-route red 10.2.0.0/16 interface ge1");
  Do("add-route red 10.3.0.0/16 type reject");
  Do("show red");
  EXPECT_THAT(text_, HasSubstr("route 10.1.0.0/16 via 192.0.2.1 remote static age 0"));
  EXPECT_THAT(text_, HasSubstr("route 10.2.0.0/16 interface ge1 local local age 0"));
  EXPECT_THAT(text_, EndsWith("route 10.3.0.0/16 reject static age 0"));
}

TEST_F(RouteCommands, ManyRoutesAreShownInPart) {
  for (int number = 0; number < 1003; ++number) {
    Do("add-route red 10." + std::to_string(number / 250) + "." + std::to_string(number % 250) +
       ".0/24 type other");
  }
  Do("show red");
  EXPECT_THAT(text_, EndsWith("\n... and 3 more routes"));
}

TEST_F(RouteCommands, PathOfTheSameNextHopIsReplaced) {
  Do("add-route red 10.1.0.0/16 via 192.0.2.1 metric 1");
  Do("add-route red 10.1.0.0/16 via 192.0.2.1 metric 2");
  router::Route route;
  ASSERT_TRUE(router_.routes().find_first(kRed, &route));
  EXPECT_EQ(route.metrics[0], 2);
  EXPECT_EQ(Rows().size(), 1U);
}

TEST_F(RouteCommands, PathIsRemoved) {
  Do("add-route red 10.1.0.0/16 via 192.0.2.1");
  Do("add-route red 10.1.0.0/16 via 192.0.2.2");
  Do("delete-route red 10.1.0.0/16 via 192.0.2.1");
  EXPECT_EQ(text_, "route 10.1.0.0/16 via 192.0.2.1 removed from VRF red");
  EXPECT_THAT(Rows(), ElementsAre("10.1.0.0/16 via 192.0.2.2"));
  EXPECT_EQ(Say("delete-route red 10.1.0.0/16"), kStatusNoSuchRow);
}

TEST_F(RouteCommands, ObserversAreNotifiedOfEachChange) {
  struct Listener : router::Observer {
    void routes_changed(router::RouteTableId) override { ++changes; }
    int changes = 0;
  } listener;
  router_.observe(router::ObserverRank::kOther, &listener);
  Do("add-route red 10.1.0.0/16 via 192.0.2.1");
  Do("delete-route red 10.1.0.0/16 via 192.0.2.1");
  EXPECT_EQ(listener.changes, 2);
  router_.stop_observing(&listener);
}

TEST_F(RouteCommands, InvalidRoutesAreRefused) {
  const auto refusal = [&](const std::string& words) {
    EXPECT_NE(Say("add-route " + words), kStatusOk);
    return text_;
  };
  EXPECT_EQ(refusal("blue 10.1.0.0/16 type other"), "VRF blue does not exist");
  EXPECT_EQ(refusal("red 10.1.0.0 type other"), "\"10.1.0.0\" is not a prefix");
  EXPECT_EQ(refusal("red 10.1.0.0/16"), "a route needs a next hop (via), an interface or a type");
  EXPECT_EQ(refusal("red 10.1.0.0/16 via fe80::1"), "\"fe80::1\" is not a valid via");
  EXPECT_EQ(refusal("red 10.1.0.0/16 via 0.0.0.0"), "\"0.0.0.0\" is not a valid via");
  EXPECT_EQ(refusal("red 10.1.0.0/16 interface ge9"), "there is no interface \"ge9\"");
  EXPECT_EQ(refusal("red 10.1.0.0/16 type throw"), "\"throw\" is not a valid type");
  EXPECT_EQ(refusal("red 10.1.0.0/16 type other protocol babel"), "\"babel\" is not a valid protocol");
  EXPECT_EQ(refusal("red 10.1.0.0/16 type other metric -1"), "\"-1\" is not a valid metric");
  EXPECT_EQ(refusal("red 10.1.0.0/16 via 192.0.2.1 label 1048576"), "\"1048576\" is not a valid label");
  EXPECT_EQ(refusal("red 10.1.0.1/16 type other"),
            "10.1.0.1/16 has host bits set; did you mean 10.1.0.0/16?");
  EXPECT_TRUE(Rows().empty());
}

TEST_F(RouteCommands, StoreThatFailsIsReported) {
  const ScopedFault fault("route_store_put", kStatusNoMemory);
  EXPECT_EQ(Say("add-route red 10.1.0.0/16 type other"), kStatusNoMemory);
  EXPECT_EQ(text_, "refused: Cannot allocate memory");
}

}  // namespace
