// Routes of a real kernel: existing ones, changes, changes that the kernel does not announce, VRFs that are
// created and deleted, next-hop objects.
#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "platform/router/model/router_test_support.h"
#include "sources/kernel/routes/live/live_routes_test_support.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LiveRoutes, ExistingRoutesAreReadAfterTheStart) {
  Batch(
      "route add unreachable default metric 4278198272 table 10\n"
      "route add 192.168.1.0/24 via 10.0.0.2 metric 50 proto bgp table 10\n"
      "route add 192.168.2.0/24 dev w0 table 10\n"
      "route add blackhole 192.168.3.0/24 table 10\n"
      "route add 192.168.4.0/24 table 10 nexthop via 10.0.0.2 nexthop via 10.1.0.2\n"
      "route add local 192.168.5.1/32 dev v0 table 10\n"
      "route add 2001:db8:1::/48 via 2001:db8:10::2 table 10\n"
      "route add blackhole 2001:db8:2::/48 table 10\n"
      "route add fe80::/64 dev v0 table 10\n"
      "route add 192.168.9.0/24 via 10.0.0.2 table 20\n");
  StartWithRed();
  EXPECT_THAT(Rows(),
              ElementsAre("0.0.0.0/0", "192.168.1.0/24 via 10.0.0.2", "192.168.2.0/24", "192.168.3.0/24",
                          "192.168.4.0/24 via 10.0.0.2", "192.168.4.0/24 via 10.1.0.2"));
  EXPECT_THAT(Rows(kRed6), ElementsAre("2001:db8:1::/48 via 2001:db8:10::2", "2001:db8:2::/48"));
  const router::Route row = Row("192.168.1.0/24", "10.0.0.2");
  EXPECT_EQ(row.interface_index, if_nametoindex("v0"));
  EXPECT_EQ(row.protocol, router::RouteProtocol::kBgp);
  EXPECT_EQ(row.metrics[0], 50);
  EXPECT_EQ(model_.routes().total(), 8U);
}

TEST_F(LiveRoutes, AddedReplacedAndDeletedRoutesAreFollowed) {
  StartWithRed();
  EXPECT_THAT(Rows(), IsEmpty());
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  AddRoute("2001:db8:1::/48 via 2001:db8:10::2 table 10");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_THAT(Rows(kRed6), ElementsAre("2001:db8:1::/48 via 2001:db8:10::2"));
  Ip("route replace 192.168.1.0/24 via 10.1.0.2 table 10");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.1.0.2"));
  Ip("route del 192.168.1.0/24 table 10");
  Ip("-6 route del 2001:db8:1::/48 table 10");
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_THAT(Rows(kRed6), IsEmpty());
}

struct ClosePipe {
  void operator()(FILE* pipe) const { pclose(pipe); }
};

// Newer versions of ip(8) print an object.
std::string encapsulation_of(const nlohmann::json& route) {
  if (!route.contains("encap")) return {};
  const nlohmann::json& encapsulation = route["encap"];
  return encapsulation.is_object() ? encapsulation["encap_type"] : encapsulation;
}

// A table's routes as ip(8) prints them, in the form of Described().
std::vector<std::string> SaidByIp(const std::string& family) {
  const std::unique_ptr<FILE, ClosePipe> pipe(
      popen(("ip -j -d " + family + " route show table 10").c_str(), "r"));
  std::vector<std::string> lines;
  for (const auto& route : nlohmann::json::parse(pipe.get())) {
    const bool is_remote =
        route.contains("gateway") || route.contains("via") || encapsulation_of(route) == "seg6";
    const std::string gateway = route.value("gateway", "");
    lines.push_back(route["dst"].get<std::string>() + (gateway.empty() ? "" : " via " + gateway) + " dev " +
                    route["dev"].get<std::string>() + (is_remote ? " remote" : " local"));
  }
  std::ranges::sort(lines);
  return lines;
}

TEST_F(LiveRoutes, RoutesWithSegmentsAreRemoteWithTheirNextHopAndNoLabel) {
  if (!TryIp("-6 route add 2001:db8:1::/48 encap seg6 mode encap segs fd00::1 dev v0 table 10"))
    GTEST_SKIP() << "SKIPPED: this kernel has no segment routing (CONFIG_IPV6_SEG6_LWTUNNEL)";
  Batch(
      "route add 2001:db8:2::/48 encap seg6 mode encap segs fd00::1,fd00::2 via 2001:db8:10::2 table 10\n"
      "route add 2001:db8:3::/48 encap seg6 mode inline segs fd00::1 via 2001:db8:11::2 table 10\n"
      "route add fd00:1::/64 encap seg6local action End.DT6 table 10 dev v0 table 10\n"
      "route add 10.7.0.0/16 encap seg6 mode encap segs fd00::1 via 10.0.0.2 table 10\n"
      "route add 10.8.0.0/16 encap seg6 mode encap segs fd00::1 via inet6 2001:db8:10::2 dev v0 table 10\n"
      "route add 10.9.0.0/16 encap seg6 mode encap segs fd00::1 dev v0 table 10\n"
      "route add 10.10.0.0/16 dev v0 table 10\n");
  StartWithRed();
  ASSERT_EQ(SaidByIp("-4").size(), 4U);
  ASSERT_EQ(SaidByIp("-6").size(), 4U);
  EXPECT_EQ(Described(kRed4), SaidByIp("-4"));
  EXPECT_EQ(Described(kRed6), SaidByIp("-6"));
}

TEST_F(LiveRoutes, AnnouncementsAreAppliedAtOnceAndNothingIsRead) {
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  AddManyRoutes(500);
  event_run_pending(manager_);
  EXPECT_EQ(Rows().size(), 500U);
  Ip("route flush table 10");
  event_run_pending(manager_);
  EXPECT_THAT(Rows(), IsEmpty());
  EXPECT_EQ(Counters().tables_read, before);
}

// The kernel's dump has such a route before, and the other routes of its prefix after those of longer
// prefixes.
TEST_F(LiveRoutes, RouteForAPrefixOfSourcesIsReadWithTheOthersOfItsPrefix) {
  if (!TryIp("-6 route add prohibit default from 2001:db8:f::/48 table 10"))
    GTEST_SKIP() << "SKIPPED: this kernel has no routes by source (CONFIG_IPV6_SUBTREES)";
  Batch(
      "route add 2001:db8:1::/48 via 2001:db8:10::2 table 10\n"
      "route add ::/0 via 2001:db8:10::2 table 10\n");
  StartWithRed();
  const std::vector<std::string> rows = Rows(kRed6);
  EXPECT_THAT(rows, ElementsAre("::/0", "::/0 via 2001:db8:10::2", "2001:db8:1::/48 via 2001:db8:10::2"));
  clock_.advance(600 * kNanosecondsPerSecond);
  EXPECT_EQ(SettledRows(kRed6), rows);
  EXPECT_EQ(Counters().corrections, 0U);
}

// The routes that the kernel did not announce count as corrections.
TEST_F(LiveRoutes, ReadingAtTheIntervalCorrectsAndCounts) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  AddRoute("192.168.3.0/24 via 10.1.0.2 table 10");
  Ip("link set v1 down");
  StartWithRed();
  ASSERT_TRUE(EventuallyTrue([this] { return !IsUp("v0"); }));
  ASSERT_EQ(Rows().size(), 3U);
  ASSERT_EQ(Shell("sysctl -qw net.ipv4.conf.v0.ignore_routes_with_linkdown=1"), 0);
  EXPECT_EQ(SettledRows().size(), 3U);
  clock_.advance(600 * kNanosecondsPerSecond);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.3.0/24 via 10.1.0.2"));
  EXPECT_EQ(Counters().corrections, 2U);
  const process_status::CorrectionFact of_objects{process_status::kNextHopObjects, ""};
  const process_status::CorrectionFact of_red{"10", "ipv4", 2};
  EXPECT_THAT(source_->corrections_by_table(), ElementsAre(of_objects, of_red));
  ASSERT_EQ(model_.delete_vrf("red"), kStatusOk);
  EXPECT_THAT(source_->corrections_by_table(), ElementsAre(of_objects)) << "the table is closed";
}

TEST_F(LiveRoutes, OtherTablesAreIgnored) {
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 77");
  AddRoute("192.168.2.0/24 via 10.0.0.2");
  Settle();
  EXPECT_EQ(Counters().tables_read, before);
  EXPECT_EQ(model_.routes().total(), 0U);
}

TEST_F(LiveRoutes, UnchangedRowKeepsItsAge) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  clock_.advance(100 * kNanosecondsPerSecond);
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  Settle();
  clock_.advance(10 * kNanosecondsPerSecond);
  EXPECT_EQ(AgeOf("192.168.1.0/24", "10.0.0.2"), 110U);
  EXPECT_EQ(AgeOf("192.168.2.0/24", "10.0.0.2"), 10U);
  Ip("route replace 192.168.1.0/24 via 10.0.0.2 proto bgp table 10");
  Settle();
  EXPECT_EQ(AgeOf("192.168.1.0/24", "10.0.0.2"), 0U);
}

// Two routes to one prefix through one next hop are one row: the better one.
TEST_F(LiveRoutes, RouteOfTheLowerMetricIsTheRowAndKeepsItsAge) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 metric 20 table 10");
  AddRoute("192.168.1.0/24 via 10.0.0.2 metric 10 table 10");
  StartWithRed();
  EXPECT_THAT(Rows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Row("192.168.1.0/24", "10.0.0.2").metrics[0], 10);
  clock_.advance(5 * kNanosecondsPerSecond);
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  Settle();
  EXPECT_EQ(AgeOf("192.168.1.0/24", "10.0.0.2"), 5U);
  Ip("route del 192.168.1.0/24 via 10.0.0.2 metric 10 table 10");
  Settle();
  EXPECT_EQ(Row("192.168.1.0/24", "10.0.0.2").metrics[0], 20);
}

TEST_F(LiveRoutes, RoutesOfALinkThatIsSetDownAreRemoved) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  AddRoute("192.168.2.0/24 via 10.1.0.2 table 10");
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  Ip("link set v0 down");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.2.0/24 via 10.1.0.2"));
  EXPECT_EQ(Counters().tables_read, before);
}

// The link's operational state does not change, only its flags.
TEST_F(LiveRoutes, RoutesOfALinkWithoutCarrierThatIsSetDownAreRemoved) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  Ip("link set v1 down");
  StartWithRed();
  ASSERT_THAT(Rows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  ASSERT_TRUE(EventuallyTrue([this] { return !IsUp("v0"); }));
  Ip("link set v0 down");
  EXPECT_THAT(SettledRows(), IsEmpty());
}

TEST_F(LiveRoutes, PathWithoutCarrierIsRemovedIfTheKernelIgnoresIt) {
  ASSERT_EQ(Shell("sysctl -qw net.ipv4.conf.all.ignore_routes_with_linkdown=1 "
                  "net.ipv4.conf.v0.ignore_routes_with_linkdown=1"),
            0);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  ASSERT_EQ(Rows().size(), 1U);
  Ip("link set v1 down");
  EXPECT_TRUE(
      EventuallyTrue([this] { return Rows().empty(); }));  // the kernel updates the carrier in the background
  Ip("link set v1 up");
  EXPECT_TRUE(EventuallyTrue([this] { return Rows().size() == 1; }));
}

// The kernel deletes such a route with its link, and does not announce that.
TEST_F(LiveRoutes, RouteWithAnIgnoredPathIsDeletedWhenItsLinkIsSetDown) {
  ASSERT_EQ(Shell("sysctl -qw net.ipv4.conf.v0.ignore_routes_with_linkdown=1"), 0);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  Ip("link set v1 down");
  ASSERT_TRUE(EventuallyTrue([this] { return SettledRows().empty(); }));
  Batch("link set v0 down\nlink set v0 up\nlink set v1 up\n");
  AddRoute("192.168.1.0/24 via 10.0.0.2 dev v0 onlink table 10");
  EXPECT_TRUE(EventuallyTrue([this] { return SettledRows().size() == 1; }));
  EXPECT_EQ(Counters().corrections, 0U);
}

// The link's first address makes the kernel use its paths again, unless it ignores them.
TEST_F(LiveRoutes, IgnoredPathRemainsUnusedWhenItsLinkHasAnAddressAgain) {
  ASSERT_EQ(Shell("sysctl -qw net.ipv4.conf.v0.ignore_routes_with_linkdown=1"), 0);
  AddRoute("192.168.1.0/24 table 10 nexthop via 10.0.0.2 dev v0 nexthop via 10.1.0.2 dev w0");
  StartWithRed();
  ASSERT_EQ(Rows().size(), 2U);
  Ip("link set v1 down");
  ASSERT_TRUE(EventuallyTrue([this] { return Rows().size() == 1; }));
  Ip("addr del 10.0.0.1/24 dev v0");
  Settle();
  Ip("addr add 10.0.0.1/24 dev v0");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.1.0.2"));
  Ip("link set v1 up");
  EXPECT_TRUE(EventuallyTrue([this] { return Rows().size() == 2; }));
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutes, EveryTableIsReadAgainAtIntervals) {
  StartWithRed({.route_reread = 600 * kNanosecondsPerSecond});
  const std::uint64_t before = Counters().tables_read;
  clock_.advance(400 * kNanosecondsPerSecond);
  Settle();
  EXPECT_EQ(Counters().tables_read, before);
  for (int step = 0; step < 16; ++step) {
    clock_.advance(40 * kNanosecondsPerSecond);
    Settle();
  }
  EXPECT_GE(Counters().tables_read, before + 2);  // IPv4 and IPv6
  EXPECT_LE(Counters().tables_read, before + 4);
}

TEST_F(LiveRoutes, CreatedVrfIsReadAndADeletedOneLosesItsRoutes) {
  AddRoute("unreachable default table 20");
  StartWithRed();
  EXPECT_THAT(Rows(kBlue4), IsEmpty());
  MakeVrf("blue", 20);
  EXPECT_THAT(SettledRows(kBlue4), ElementsAre("0.0.0.0/0"));
  DeleteVrf("blue");
  EXPECT_EQ(model_.routes().total(), 0U);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 20");  // no VRF has the table now
  EXPECT_THAT(SettledRows(kBlue4), IsEmpty());
}

TEST_F(LiveRoutes, VrfThatChangesItsTableHasTheRoutesOfTheOther) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 20");
  StartWithRed();
  router::ChangeVrf(&model_, "red", &router::Vrf::ipv4_table, 20U);
  EXPECT_THAT(SettledRows(kBlue4), ElementsAre("192.168.2.0/24 via 10.0.0.2"));
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(LiveRoutes, TablesThatDependOnALinkAreFoundInSteps) {
  constexpr std::uint32_t kVrfs = 200;
  constexpr std::uint32_t kTablesOfAStep = 20;
  AddRoute("11.0.0.0/24 via 10.0.0.2 table 10");
  for (std::uint32_t number = 0; number < kVrfs; ++number)
    MakeVrf("vrf" + std::to_string(number), 1000 + number);
  StartWithRed();
  ASSERT_EQ(Rows().size(), 1U);
  Ip("link set v0 down");
  clock_.tick(reconcile::kStepTime / kTablesOfAStep);
  unsigned iterations = 0;
  for (unsigned waits = 0; !(Rows().empty() && source_->settled()) && waits < 1000; ++waits) {
    if (RunOnce(0)) {
      ++iterations;
    } else {
      clock_.advance(kSettle);
    }
  }
  clock_.tick(0);
  EXPECT_TRUE(Rows().empty());
  EXPECT_GE(iterations, 2 * kVrfs / kTablesOfAStep);
}

TEST_F(LiveRoutes, PathOverALinkWhoseIpv6IsDisabledIsRemovedAndAddedAgain) {
  static constexpr router::RouteTableId kRed6{router::Family::kIpv6, 10};
  Ip("-6 route add 2001:db8:a::/48 table 10 nexthop via 2001:db8:10::2 dev v0 nexthop via 2001:db8:11::2 dev "
     "w0");
  StartWithRed();
  ASSERT_EQ(Rows(kRed6).size(), 2U);
  ASSERT_EQ(Shell("sysctl -qw net.ipv6.conf.w0.disable_ipv6=1"), 0);
  EXPECT_THAT(SettledRows(kRed6), ElementsAre("2001:db8:a::/48 via 2001:db8:10::2"));
  ASSERT_EQ(Shell("sysctl -qw net.ipv6.conf.w0.disable_ipv6=0"), 0);
  EXPECT_TRUE(EventuallyTrue([this] { return Rows(kRed6).size() == 2; }));  // its address is verified first
}

}  // namespace
}  // namespace kernel
