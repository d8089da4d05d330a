// Messages of a real kernel, some of which count as malformed: no row is lost.
#include "sources/kernel/routes/live/live_routes_test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kRead = "netlink_route_dump_malformed";

class LiveRoutesMalformed : public LiveRoutes {
 protected:
  // The announcement of the change is malformed.
  void LoseOne(const std::string& change, const char* point = "netlink_route_malformed") {
    const ScopedFault fault(point, EBADMSG, 1, 0);
    Batch(change);
    event_run_pending(manager_);
  }
};

TEST_F(LiveRoutesMalformed, AddedRouteIsARow) {
  StartWithRed();
  LoseOne("route add 192.168.1.0/24 via 10.0.0.2 table 10\n");
  EXPECT_FALSE(source_->settled());
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().malformed, 1U);
  EXPECT_EQ(Counters().losses, 0U);  // only this table is read
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, RowOfADeletedRouteIsRemoved) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  LoseOne("route del 192.168.1.0/24 table 10\n");
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_EQ(Counters().malformed, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, RouteOfAnotherTableIsIgnored) {
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  LoseOne("route add 192.168.1.0/24 via 10.0.0.2 table 30\n");
  Settle();
  EXPECT_EQ(Counters().tables_read, before);
  EXPECT_EQ(Counters().malformed, 0U);
}

TEST_F(LiveRoutesMalformed, RouteAddedDuringTheFirstReadingIsARow) {
  ReadAPartOfManyRoutes();
  LoseOne("route add 11.0.0.0/25 via 10.0.0.2 table 10\n");  // precedes what was read
  EXPECT_EQ(SettledRows().size(), 3001U);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, RouteAddedDuringAVerificationIsARow) {
  AddManyRoutes(3000);
  StartWithRed({.batch = 8});
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") > 5; }));
  LoseOne("route add 11.0.0.0/25 via 10.0.0.2 table 10\n");
  EXPECT_EQ(SettledRows().size(), 3001U);
  EXPECT_EQ(Counters().malformed, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
}

// The reading had shown it, and the next one must not count it as read.
TEST_F(LiveRoutesMalformed, RowOfARouteDeletedDuringAVerificationIsRemoved) {
  AddManyRoutes(3000);
  StartWithRed({.batch = 8});
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") > 5; }));
  LoseOne("route del 11.0.0.0/24 table 10\n");
  EXPECT_EQ(SettledRows().size(), 2999U);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, ChangedNextHopObjectChangesItsRoutes) {
  ObjectsOnly();
  Batch("nexthop add id 1 via 10.0.0.2 dev v0\nroute add 192.168.1.0/24 nhid 1 table 10\n");
  StartWithRed();
  LoseOne("nexthop replace id 1 via 10.1.0.2 dev w0\n");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.1.0.2"));
  EXPECT_EQ(Counters().malformed, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, ChangedLinkCountsAsAnOverrun) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  LoseOne("link set v0 down\n", "netlink_route_link_malformed");
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_GE(Counters().losses, 1U);
}

// The reading is repeated.
TEST_F(LiveRoutesMalformed, RouteInTheFirstReadingIsARow) {
  StartWithRed();
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 20");
  const ScopedFault fault(kRead, EBADMSG, 1, 1);
  MakeVrf("blue", 20, false);
  EXPECT_THAT(SettledRows(kBlue4), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().malformed, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutesMalformed, RouteThatEveryVerificationShowsMalformedRemainsARow) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  const ScopedFault fault(kRead, EBADMSG, 1, 0);
  clock_.advance(KernelSourceSettings{}.route_reread);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().corrections, 0U);
  EXPECT_GE(Counters().malformed, 1U);
  EXPECT_LE(Counters().tables_read - before, 10U);  // five times for each family, not for ever
}

TEST_F(LiveRoutesMalformed, FurtherOnesDoNotPostponeTheReading) {
  StartWithRed();
  const std::uint64_t before = Counters().tables_read;
  for (int each = 0; each < 10; ++each) {
    LoseOne("route add 192.168." + std::to_string(each) + ".0/24 via 10.0.0.2 table 10\n");
    clock_.advance(60 * kNanosecondsPerMillisecond);  // less than `retry`
    event_run_pending(manager_);
  }
  EXPECT_GT(Counters().tables_read, before);
  EXPECT_GE(Rows().size(), 5U);
}

TEST_F(LiveRoutesMalformed, RowsThatTheFirstReadingsShowMalformedAreRemovedInTheEnd) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  MakeVrf("red", 10, false);
  Start();
  Settle();
  LoseAnnouncements("route del 192.168.1.0/24 table 10\n");
  const ScopedFault fault(kRead, EBADMSG, 1, 0);
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  testing::internal::CaptureStderr();
  Settle();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, HasSubstr("while reading IPv4 table 10; its rows remain\n"));
  EXPECT_THAT(log, HasSubstr("while reading IPv4 table 10; rows that it does not show are removed\n"));
  EXPECT_THAT(Rows(), IsEmpty());
}

TEST_F(LiveRoutesMalformed, RouteWhoseTableCannotBeReadCausesAReadingOfAllTables) {
  StartWithRed();
  const ScopedFault unreadable("netlink_route_table_malformed", EBADMSG, 1, 0);
  LoseOne("route add 192.168.1.0/24 via 10.0.0.2 table 10\n");
  EXPECT_GE(Counters().malformed, 1U);  // the kernel may announce routes of other tables meanwhile
  EXPECT_EQ(Counters().losses, Counters().malformed);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().corrections, 0U);
}

// Its walk over the IPv6 table begins again and skips the rest of the prefix.
TEST_F(LiveRoutesMalformed, RowsOfAnIpv6PrefixRemainWhenItsReadingIsDisturbed) {
  constexpr router::RouteTableId kRed6{router::Family::kIpv6, 10};
  constexpr std::size_t kLow = 100;
  constexpr std::size_t kPaths = 1500;
  const auto low = [](const std::string& command) {
    std::string lines;
    for (std::size_t each = 1; each <= kLow; ++each)
      lines += "route " + command + " 2001:db8:a:" + std::to_string(each) +
               "::/64 via 2001:db8:10::2 dev v0 table 10\n";
    return lines;
  };
  std::string paths;
  for (std::size_t each = 1; each <= kPaths; ++each)
    paths += "route add 2001:db8:b::/64 via 2001:db8:10::" + std::to_string(each + 1) + " dev v0 metric " +
             std::to_string(each) + " table 10\n";
  Batch(low("add") + paths);
  StartWithRed({.batch = 8});
  ASSERT_EQ(model_.routes().count(kRed6), kLow + kPaths);
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") > 5; }));
  LoseOne(low("del") + "route add 2001:db8:c::/64 via 2001:db8:10::2 dev v0 table 10\n");
  EXPECT_GE(model_.routes().count(kRed6), kPaths);
  Settle();
  EXPECT_EQ(model_.routes().count(kRed6), kPaths + 1);
}

}  // namespace
}  // namespace kernel
