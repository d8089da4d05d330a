// Routes of a real kernel under failures: overruns, disturbed and failing readings, sockets that fail, rows
// that the store refuses, VRFs that are deleted during a reading. Steps of readings are bounded.
#include <filesystem>
#include <iterator>

#include "sources/kernel/routes/live/live_routes_test_support.h"

namespace kernel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The change of blue follows the overrun, so its event does not arrive.
TEST_F(LiveRoutes, OverrunOfRouteEventsLosesNothing) {
  MakeVrf("blue", 20);
  StartWithRed({.receive_buffer = 4096});
  AddManyRoutes(2000);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 20");
  Ip("route del 11.0.7.0/24 table 10");
  EXPECT_EQ(SettledRows().size(), 1999U);
  EXPECT_EQ(Rows(kBlue4).size(), 1U);
  EXPECT_GE(Counters().losses, 1U);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");  // later events are followed
  EXPECT_EQ(SettledRows().size(), 2000U);
}

TEST_F(LiveRoutes, LinkThatChangesTooOftenCountsAsAnOverrun) {
  AddRoute("192.168.1.0/24 via 10.1.0.2 table 10");
  StartWithRed({.history = 20});
  std::string changes = "route add 192.168.2.0/24 via 10.0.0.2 table 10\n";
  for (int turn = 0; turn < 10; ++turn) changes += "link set v0 down\nlink set v0 up\n";
  Batch(changes);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.1.0.2"));
  EXPECT_GE(Counters().losses, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
  AddRoute("192.168.3.0/24 via 10.1.0.2 table 10");  // later events are followed
  EXPECT_EQ(SettledRows().size(), 2U);
}

// The object changes before the limit is reached, and the walk over its routes follows.
TEST_F(LiveRoutes, NextHopObjectThatChangesBeforeTheHistoryIsCutChangesItsRoutes) {
  ObjectsOnly();
  Batch("nexthop add id 1 via 10.1.0.2 dev w0\nroute add 192.168.1.0/24 nhid 1 table 10\n");
  StartWithRed({.history = 20});
  std::string changes = "nexthop replace id 1 via 10.1.0.3 dev w0\n";
  for (int turn = 0; turn < 10; ++turn) changes += "link set v0 down\nlink set v0 up\n";
  Batch(changes);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.1.0.3"));
  EXPECT_GE(Counters().losses, 1U);
  EXPECT_EQ(Counters().corrections, 0U);
}

// Their release takes several steps. The groups have lower numbers than their members.
TEST_F(LiveRoutes, MemberOfAGroupIsDeletedWhileReadObjectsAreReleased) {
  ObjectsOnly();
  std::string objects;
  for (int each = 1000; each < 9000; ++each)
    objects += "nexthop add id " + std::to_string(each) + " via 10.0.0.2 dev v0\n";
  for (int each = 1; each <= 600; ++each) {
    objects += "nexthop add id " + std::to_string(each) + " group " + std::to_string(8000 + each);
    for (int more = 0; more < 9; ++more) objects += "/" + std::to_string(1000 + (each * 9 + more) % 1000);
    objects += "\n";
  }
  Batch(objects);
  Start();
  int deleted = 0;
  while (deleted < 600 && RunOnce()) Ip("nexthop del id " + std::to_string(8600 - deleted++));
  Settle();
  EXPECT_GT(deleted, 3);
}

TEST_F(LiveRoutes, RoutesDeletedInAnOverrunAreRemoved) {
  AddManyRoutes(2000);
  StartWithRed({.receive_buffer = 4096});
  ASSERT_EQ(Rows().size(), 2000U);
  Ip("route flush table 10");
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_GE(Counters().losses, 1U);
}

TEST_F(LiveRoutes, LargeTableIsReadInBoundedSteps) {
  AddManyRoutes(3000);
  MakeVrf("red", 10);
  Start({.batch = 8});  // one datagram per iteration
  std::size_t largest = 0;
  unsigned iterations = 0;
  for (std::size_t before = 0; Rows().size() < 3000; before = Rows().size(), ++iterations) {
    ASSERT_TRUE(RunOnce());
    largest = std::max(largest, Rows().size() - before);
  }
  EXPECT_LT(largest, 1000U);
  EXPECT_GT(iterations, 5U);
}

TEST_F(LiveRoutes, EventsDuringAReadingOfRoutesAreNotLost) {
  ReadAPartOfManyRoutes();
  ASSERT_LT(Rows().size(), 3000U);
  Batch("route del 11.0.0.0/24 table 10\nroute add 11.0.0.0/25 via 10.0.0.2 table 10\n");
  Settle();
  EXPECT_EQ(Rows().size(), 3000U);
  EXPECT_EQ(Rows().front(), "11.0.0.0/25 via 10.0.0.2");
}

// The reading shows what the last of the announcements left.
TEST_F(LiveRoutes, RouteReplacedDuringTheFirstReadingIsARowOnce) {
  AddRoute("12.0.0.0/24 via 10.0.0.2 table 10");
  ReadAPartOfManyRoutes();
  Batch(
      "route prepend 12.0.0.0/24 via 10.0.0.3 table 10\nroute replace 12.0.0.0/24 via 10.0.0.4 table 10\n"
      "route append 12.0.0.0/24 via 10.0.0.5 table 10\nroute del 12.0.0.0/24 via 10.0.0.4 table 10\n"
      "route del 12.0.0.0/24 via 10.0.0.2 table 10\nroute replace 12.0.0.0/24 via 10.0.0.7 table 10\n");
  Settle();
  Ip("route del 12.0.0.0/24 via 10.0.0.7 table 10");
  EXPECT_EQ(SettledRows().size(), 3000U);
}

TEST_F(LiveRoutes, NextReadingWaitsFourTimesTheDurationOfTheLast) {
  ReadAPartOfManyRoutes();
  clock_.advance(kNanosecondsPerSecond);  // the duration of the reading
  ASSERT_TRUE(RunUntil([this] { return Rows().size() == 3000; }));
  event_run_pending(manager_);
  LoseAnnouncements("route add 192.168.1.0/24 via 10.0.0.2 table 10\n");
  clock_.advance(3 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  EXPECT_EQ(Rows().size(), 3000U);
  EXPECT_FALSE(source_->settled());
  clock_.advance(kNanosecondsPerSecond + kSettle);
  EXPECT_EQ(SettledRows().size(), 3001U);
}

TEST_F(LiveRoutes, ReadingInDoubtIsRepeatedAfterFourTimesItsDuration) {
  AddManyRoutes(3000);
  MakeVrf("red", 10, false);
  const ScopedFault fault("netlink_route_dump_disturbed", EINTR, 2, 1);  // links and objects are read first
  Start({.batch = 8});
  ASSERT_TRUE(RunUntil([this] { return Rows().size() > 300; }));
  clock_.advance(kNanosecondsPerSecond);  // the duration of the reading
  ASSERT_TRUE(RunUntil([this] { return Counters().disturbed_readings == 1; }));
  clock_.advance(3 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  EXPECT_EQ(Counters().tables_read, 1U);
  clock_.advance(kNanosecondsPerSecond + kSettle);
  event_run_pending(manager_);
  EXPECT_EQ(Counters().tables_read, 2U);
}

TEST_F(LiveRoutes, ReadingIsAbandonedWhenTooManyPrefixesAreAnnouncedMeanwhile) {
  AddManyRoutes(3000);
  StartWithRed({.batch = 8, .announced = 100});
  const std::uint64_t before = Counters().tables_read;
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") > 5; }));
  std::string changes;
  for (int each = 0; each < 101; ++each)
    changes += "route del 11.0." + std::to_string(each) + ".0/24 table 10\n";
  Batch(changes);
  ASSERT_TRUE(RunUntil([this] { return Rows().size() == 2899; }));
  event_run_pending(manager_);
  EXPECT_LE(Counters().tables_read, before + 1);  // that of the IPv6 table
  EXPECT_FALSE(source_->settled());
  EXPECT_EQ(SettledRows().size(), 2899U);
  EXPECT_EQ(Counters().tables_read, before + 2);
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutes, DisturbedReadingOfATableRemovesNothingAndIsRepeated) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  LoseAnnouncements("route del 192.168.1.0/24 table 10\nroute add 192.168.2.0/24 via 10.0.0.2 table 10\n");
  const ScopedFault fault("netlink_route_dump_disturbed", EINTR, 2, 1);  // links and objects are read first
  clock_.advance(kSettle);
  event_run_pending(manager_);
  EXPECT_EQ(Rows().size(), 2U);  // added, nothing removed
  EXPECT_EQ(Counters().disturbed_readings, 1U);
  EXPECT_FALSE(source_->settled());
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.2.0/24 via 10.0.0.2"));
}

TEST_F(LiveRoutes, ReadingsThatAreAlwaysDisturbedRemoveInTheEnd) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  LoseAnnouncements("route del 192.168.1.0/24 table 10\n");
  const ScopedFault fault("netlink_route_dump_disturbed", EINTR, 1, 0);
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_EQ(Counters().disturbed_readings, 2 * 4U);  // IPv4 and IPv6
}

class LiveRoutesFailing : public LiveRoutes, public ::testing::WithParamInterface<const char*> {};

TEST_P(LiveRoutesFailing, FailedReadingIsRetriedLater) {
  StartWithRed();
  const std::uint64_t failures = Counters().failures;
  const ScopedFault fault(GetParam(), EMFILE, 1, 3);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 20");
  MakeVrf("blue", 20, false);
  clock_.advance(kSettle);
  event_run_pending(manager_);
  EXPECT_EQ(Counters().failures, failures + 1);  // not three at once
  EXPECT_THAT(Rows(kBlue4), IsEmpty());
  EXPECT_THAT(SettledRows(kBlue4), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().failures, failures + 3);
}

TEST_P(LiveRoutesFailing, ObjectsAreReadInTheEnd) {
  Batch("nexthop add id 1 via 10.0.0.2 dev v0\nroute add 192.168.1.0/24 nhid 1 table 10\n");
  ObjectsOnly();
  const ScopedFault fault(GetParam(), EMFILE, 1, 1);  // the objects are read first
  MakeVrf("red", 10);
  Start();
  event_run_pending(manager_);
  EXPECT_GE(Counters().unresolved, 1U);
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
}

INSTANTIATE_TEST_SUITE_P(Steps, LiveRoutesFailing,
                         ::testing::Values("netlink_route_dump_open", "netlink_route_dump_request",
                                           "netlink_route_dump_receive"),
                         [](const auto& each) { return std::string(each.param); });

TEST_F(LiveRoutes, DisturbedReadingOfObjectsIsRepeated) {
  Batch("nexthop add id 1 via 10.0.0.2 dev v0\nroute add 192.168.1.0/24 nhid 1 table 10\n");
  ObjectsOnly();
  const ScopedFault fault("netlink_route_dump_disturbed", EINTR, 1, 1);
  MakeVrf("red", 10);
  Start();
  event_run_pending(manager_);
  EXPECT_THAT(Rows(), IsEmpty());
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
}

TEST_F(LiveRoutes, ObjectsAreReadAgainSoonWhileTheyAreUnknown) {
  Batch("nexthop add id 1 via 10.0.0.2 dev v0\nroute add 192.168.1.0/24 nhid 1 table 10\n");
  ObjectsOnly();
  const ScopedFault fault("netlink_route_dump_disturbed", EINTR, 1, 1);
  MakeVrf("red", 10);
  Start();
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_disturbed") == 1; }));
  clock_.advance(10 * kNanosecondsPerSecond);  // for which the reading lasts
  event_run_pending(manager_);
  ASSERT_THAT(Rows(), IsEmpty());
  clock_.advance(KernelSourceSettings{}.retry);
  event_run_pending(manager_);
  EXPECT_THAT(Rows(), ElementsAre("192.168.1.0/24 via 10.0.0.2"));
}

// The kernel announces the link only.
TEST_F(LiveRoutes, ObjectsLostWithTheirLinkWhileObjectsAreReadAreNotCorrected) {
  std::string objects;
  for (int id = 1; id <= 3000; ++id)
    objects += "nexthop add id " + std::to_string(id) + " via 10.0.0.2 dev v0\n";
  Batch(objects);
  StartWithRed({.batch = 8});  // one datagram per iteration
  const ScopedFault counted("netlink_route_dump_receive", EMFILE, 1'000'000, 1);
  clock_.advance(KernelSourceSettings{}.route_reread);
  ASSERT_TRUE(RunUntil([] { return fault_reached("netlink_route_dump_receive") == 2; }));
  Ip("link set v0 down");
  Settle();
  EXPECT_EQ(Counters().corrections, 0U);
}

TEST_F(LiveRoutes, FailedEventSocketIsReplacedWithoutALoss) {
  StartWithRed();
  {
    const ScopedFault fault("netlink_route_receive", EBADF, 1, 1);
    AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
    event_run_pending(manager_);
  }
  EXPECT_FALSE(source_->settled());
  const ScopedFault again("netlink_route_open", EMFILE, 1, 2);
  EXPECT_EQ(SettledRows().size(), 1U);
  EXPECT_EQ(Counters().failures, 3U);
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  EXPECT_EQ(SettledRows().size(), 2U);
}

TEST_F(LiveRoutes, StartThatCannotListenForRoutesIsReported) {
  for (const char* point : {"netlink_route_open", "netlink_route_join"}) {
    router::Router model;
    KernelSource source(&model);
    std::string error;
    ASSERT_EQ(source.load(&error), kStatusOk);
    const ScopedFault fault(point, EMFILE);
    EXPECT_EQ(source.start(manager_), static_cast<Status>(EMFILE)) << point;
  }
}

TEST_F(LiveRoutes, RefusedRowIsRetriedAndNothingIsRemovedMeanwhile) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  const ScopedFault fault("route_store_put", ENOMEM, 1, 2);
  AddRoute("192.168.2.0/24 via 10.0.0.2 table 10");
  event_run_pending(manager_);
  clock_.advance(kSettle);
  event_run_pending(manager_);
  EXPECT_EQ(Rows().size(), 1U);
  EXPECT_EQ(SettledRows().size(), 2U);
  EXPECT_EQ(Counters().refused, 2U);
}

TEST_F(LiveRoutes, InvalidRowIsLeftOut) {
  StartWithRed();
  const ScopedFault fault("route_store_put", kStatusInvalid, 1, 1);
  Batch("route add 192.168.1.0/24 via 10.0.0.2 table 10\nroute add 192.168.2.0/24 via 10.0.0.2 table 10\n");
  EXPECT_THAT(SettledRows(), ElementsAre("192.168.2.0/24 via 10.0.0.2"));
  EXPECT_EQ(Counters().disturbed_readings, 0U);
}

TEST_F(LiveRoutes, RowOfARouteThatBecomesInvalidIsRemoved) {
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  StartWithRed();
  const ScopedFault fault("route_store_put", kStatusInvalid, 1, 1);
  Ip("route replace 192.168.1.0/24 via 10.0.0.2 proto bgp table 10");
  EXPECT_THAT(SettledRows(), IsEmpty());
}

TEST_F(LiveRoutes, VrfDeletedDuringItsReadingIsNotReadFurther) {
  MakeVrf("blue", 20);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 20");
  ReadAPartOfManyRoutes();
  DeleteVrf("red");
  EXPECT_THAT(SettledRows(), IsEmpty());
  EXPECT_EQ(Rows(kBlue4).size(), 1U);
  EXPECT_EQ(Counters().refused, 0U);  // the reading has ended
}

TEST_F(LiveRoutes, VrfCreatedAgainDuringItsReadingIsReadFromTheBeginning) {
  ReadAPartOfManyRoutes();
  DeleteVrf("red");
  MakeVrf("red", 10);
  EXPECT_EQ(SettledRows().size(), 3000U);
}

TEST_F(LiveRoutes, VrfDeletedDuringTheSweepIsNotSweptFurther) {
  AddManyRoutes(16000);  // four steps
  StartWithRed({.batch = 512});
  ASSERT_EQ(model_.routes().total(), 16000U);
  Ip("route flush table 10");
  event_run_pending(manager_);
  clock_.advance(kSettle);
  ASSERT_TRUE(RunUntil([this] { return model_.routes().total() < 16000; }));
  ASSERT_GT(model_.routes().total(), 0U);
  DeleteVrf("red");
  MakeVrf("red", 10);
  AddRoute("192.168.1.0/24 via 10.0.0.2 table 10");
  EXPECT_EQ(SettledRows().size(), 1U);
}

// The walk over the routes of the link overtakes the sweep.
TEST_F(LiveRoutes, LinkThatFailsDuringTheSweepKeepsNoDeletedRoute) {
  AddManyRoutes(16000);  // 16 steps
  AddRoute("12.0.0.0/24 table 10 nexthop via 10.0.0.2 dev v0 nexthop via 10.1.0.2 dev w0");
  StartWithRed({.batch = 512});
  LoseAnnouncements("route del 11.0.0.0/24 table 10\nroute del 12.0.0.0/24 table 10\n");
  clock_.advance(kSettle);
  ASSERT_TRUE(RunUntil([this] { return model_.routes().total() == 16001; }));
  ASSERT_EQ(Rows().back(), "12.0.0.0/24 via 10.1.0.2");
  Ip("link set w0 down");
  ASSERT_TRUE(RunOnce());
  clock_.advance(kSettle);
  EXPECT_EQ(SettledRows().size(), 15999U);
  EXPECT_EQ(Rows().back(), "11.63.249.0/24 via 10.0.0.2");
}

TEST_F(LiveRoutes, SourceDestroyedDuringAReadingOfRoutesClosesItsSockets) {
  const std::ptrdiff_t before = OpenDescriptors();
  ReadAPartOfManyRoutes();
  source_.reset();
  EXPECT_EQ(OpenDescriptors(), before);
  event_run_pending(manager_);
  EXPECT_LT(Rows().size(), 3000U);
}

}  // namespace
}  // namespace kernel
