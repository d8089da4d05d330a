// The kernel source under failures: overruns, disturbed and failing dumps, sockets that fail, messages that
// are not the kernel's. No change may be lost, and no forged message may be accepted.
#include <linux/rtnetlink.h>

#include "sources/kernel/kernel_source.h"
#include "sources/kernel/live_kernel_test_support.h"
#include "sources/kernel/netlink/socket.h"

namespace kernel {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

std::string ManyChanges(int rounds) {
  std::string lines;
  for (int round = 0; round < rounds; ++round) {
    const std::string number = std::to_string(round);
    lines +=
        "addr add 10." + std::to_string(round / 250) + "." + std::to_string(round % 250) + ".1/24 dev v0\n";
    lines += "link set v1 alias round" + number + "\n";
    lines += "link set v1 up\nlink set v1 down\n";
  }
  return lines + "link set v1 name renamed\nlink add w0 type veth peer name w1\nlink del w0\n";
}

TEST_F(LiveKernel, OverrunLosesNothingAndLaterChangesAreFollowed) {
  AddVeth("v0", "v1");
  AddVeth("x0", "x1");
  Start({.receive_buffer = 4096});
  Batch(ManyChanges(400) + "link del x0\n");
  Settle();
  EXPECT_GE(source_->counters().losses, 1U);
  EXPECT_EQ(Find("x0"), nullptr);
  ASSERT_NE(Find("v0"), nullptr);
  EXPECT_EQ(Find("v0")->addresses.size(), 400U);
  EXPECT_NE(Find("renamed"), nullptr);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
  listener_.TakeLines();
  Ip("link set renamed name back");
  EXPECT_THAT(SettledLines(), ElementsAre("renamed renamed to back"));
}

TEST_F(LiveKernel, ChangesWhileTheLoopRunsAreFollowedThroughEveryOverrun) {
  AddVeth("v0", "v1");
  Start({.receive_buffer = 4096, .batch = 4});
  for (int burst = 0; burst < 10; ++burst) {
    std::string lines;
    for (int each = 0; each < 100; ++each) {
      const std::string address =
          "10." + std::to_string(burst) + "." + std::to_string(each) + ".1/24 dev v0\n";
      lines += "addr add " + address + (each % 3 == 0 ? "addr del " + address : "");
    }
    Batch(lines);
    event_run_pending(manager_);
    clock_.advance(kSettle);
    event_run_pending(manager_);
  }
  Settle();
  EXPECT_GE(source_->counters().losses, 2U);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, ManyLinksAreReadInBoundedSteps) {
  AddManyVeths(300);
  Start({.batch = 8});  // one datagram of a dump per iteration
  EXPECT_EQ(model_.interface_count(), 601U);
  const std::uint64_t dumps = source_->counters().dumps;
  clock_.advance(30 * kNanosecondsPerSecond);
  unsigned iterations = 0;
  while (source_->counters().dumps == dumps) {
    ASSERT_TRUE(RunOnce());
    ++iterations;
  }
  EXPECT_GT(iterations, 10U);
  EXPECT_THAT(SettledLines(), IsEmpty());
}

class LiveDump : public LiveKernel {
 protected:
  void ChangeLinksDuringADump(const KernelSourceSettings& settings) {
    AddManyVeths(300);
    Start(settings);
    clock_.advance(30 * kNanosecondsPerSecond);
    for (int iteration = 0; iteration < 3; ++iteration) ASSERT_TRUE(RunOnce());
    ASSERT_FALSE(source_->settled());
    Batch(
        "link del a0\nlink set a1 name z1\nlink add n0 type veth peer name n1\n"
        "addr add 10.0.0.1/24 dev a299\n");
    Settle();
  }
};

TEST_F(LiveDump, EventsMeanwhileAreNotLost) {
  ChangeLinksDuringADump({.batch = 8});
  EXPECT_EQ(Find("a0"), nullptr);
  EXPECT_NE(Find("n0"), nullptr);
  EXPECT_EQ(AddressesOf("a299"), "10.0.0.1/24");
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, LossesCauseDumpsAtTheRetryIntervalOnly) {
  AddVeth("v0", "v1");
  Start();
  const std::uint64_t before = source_->counters().dumps;
  for (int loss = 0; loss < 20; ++loss) {
    const ScopedFault fault("netlink_receive", ENOBUFS, 1, 1);
    Ip("link set v0 alias loss" + std::to_string(loss));
    Ip("link set v1 mtu " + std::to_string(1400 + loss));
    event_run_pending(manager_);
  }
  EXPECT_EQ(source_->counters().losses, 20U);
  EXPECT_EQ(source_->counters().dumps, before + 1);
  Settle();
  EXPECT_LE(source_->counters().dumps, before + 2);
  EXPECT_EQ(DescriptionOf("v0"), "loss19");
}

TEST_F(LiveKernel, MalformedAnnouncementLosesNoLink) {
  Start();
  const ScopedFault fault("netlink_malformed", EBADMSG, 1, 1);
  AddVeth("v0", "v1");
  event_run_pending(manager_);
  Settle();
  EXPECT_NE(Find("v0"), nullptr);
  EXPECT_NE(Find("v1"), nullptr);
  EXPECT_EQ(source_->counters().malformed, 1U);
  EXPECT_EQ(source_->counters().losses, 1U);
}

TEST_F(LiveKernel, MalformedMessageOfADumpIsCounted) {
  AddVeth("v0", "v1");
  const ScopedFault fault("netlink_malformed", EBADMSG, 1, 1);
  Start();
  EXPECT_EQ(source_->counters().malformed, 1U);
}

TEST_F(LiveKernel, LinkThatEveryDumpShowsMalformedStays) {
  AddVeth("v0", "v1");
  Start();
  const ScopedFault fault("netlink_malformed", EBADMSG, 1, 0);
  for (int dumps = 0; dumps < 7; ++dumps) {
    clock_.advance(30 * kNanosecondsPerSecond);
    EXPECT_THAT(SettledLines(), IsEmpty());
  }
}

TEST_F(LiveKernel, LinkDeletedInAnOverrunIsRemovedAlthoughDumpsAreMalformed) {
  AddVeth("v0", "v1");
  Start();
  {
    const ScopedFault loss("netlink_receive", ENOBUFS, 1, 1);
    Ip("link del v0");
    event_run_pending(manager_);
  }
  const ScopedFault fault("netlink_malformed", EBADMSG, 1, 0);
  const std::uint64_t before = source_->counters().dumps;
  for (int turn = 0; turn < 20; ++turn) {
    clock_.advance(100 * kNanosecondsPerMillisecond);
    Settle();
  }
  EXPECT_EQ(Find("v0"), nullptr);
  EXPECT_LE(source_->counters().dumps - before, 6U);
}

TEST_F(LiveKernel, DisturbedDumpIsRepeatedAndRemovesNothing) {
  AddVeth("v0", "v1");
  Start();
  const std::uint64_t before = source_->counters().dumps;
  fault_arm("netlink_dump_disturbed", EINTR, 1, 1);
  clock_.advance(30 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  fault_disarm_all();
  EXPECT_EQ(source_->counters().disturbed_dumps, 1U);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(source_->counters().dumps, before + 2);
  EXPECT_EQ(source_->counters().disturbed_dumps, 1U);
}

TEST_F(LiveKernel, LinksMissingInADisturbedDumpStay) {
  AddVeth("v0", "v1");
  Start();
  const std::uint64_t before = source_->counters().dumps;
  fault_arm("netlink_dump_gap", EINTR, 1, 1);  // the first datagram, with the first links
  clock_.advance(30 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  EXPECT_GE(fault_reached("netlink_dump_gap"), 1U);
  fault_disarm_all();
  EXPECT_EQ(source_->counters().disturbed_dumps, 1U);
  EXPECT_EQ(source_->counters().dumps, before + 1);
  EXPECT_THAT(SettledLines(), IsEmpty());
  clock_.advance(100 * kNanosecondsPerMillisecond);
  EXPECT_THAT(SettledLines(), IsEmpty());  // after the next dump, too
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, LoadRepeatsADisturbedDump) {
  const ScopedFault fault("netlink_dump_disturbed", EINTR, 1, 2);
  ASSERT_EQ(Load(), kStatusOk) << error_;
  EXPECT_EQ(source_->counters().dumps, 3U);
  EXPECT_EQ(source_->counters().disturbed_dumps, 2U);
  EXPECT_NE(Find("lo"), nullptr);
}

TEST_F(LiveKernel, LoadThatIsAlwaysDisturbedUsesWhatItReadAndRepeatsSoon) {
  fault_arm("netlink_dump_disturbed", EINTR, 1, 0);
  ASSERT_EQ(Load(), kStatusOk) << error_;
  fault_disarm_all();
  EXPECT_NE(Find("lo"), nullptr);
  ASSERT_EQ(source_->start(manager_), kStatusOk);
  const std::uint64_t before = source_->counters().dumps;
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(source_->counters().dumps, before + 1);
}

TEST_F(LiveKernel, FactsHaveTheLastAnswerAndWhyThereIsNoLaterOne) {
  Start();
  const process_status::SourceFact first = source_->facts().at(0);
  EXPECT_EQ(first.name, "kernel");
  EXPECT_NE(first.version, "");
  EXPECT_TRUE(first.is_up);
  EXPECT_EQ(first.last_answer, clock_stamp() / kNanosecondsPerSecond);
  {
    const ScopedFault fault("netlink_request", EMFILE, 1, 0);
    clock_.advance(30 * kNanosecondsPerSecond);
    event_run_pending(manager_);
    const process_status::SourceFact failed = source_->facts().at(0);
    EXPECT_FALSE(failed.is_up);
    EXPECT_EQ(failed.problem, "reading links and addresses: Too many open files");
    EXPECT_EQ(failed.last_answer, first.last_answer);
  }
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_TRUE(source_->facts().at(0).is_up);
  EXPECT_GE(source_->facts()[0].last_answer, first.last_answer + 30);
}

TEST_F(LiveKernel, FactsHaveWhyRoutesAreNotRead) {
  const ScopedFault fault("netlink_route_dump_receive", EMFILE, 1, 0);
  ASSERT_EQ(Load(), kStatusOk) << error_;
  ASSERT_EQ(source_->start(manager_), kStatusOk);
  for (int step = 0; step < 100 && source_->facts().at(0).is_up; ++step) {
    clock_.advance(10 * kNanosecondsPerMillisecond);
    event_run_pending(manager_);
  }
  EXPECT_THAT(source_->facts().at(0).problem, MatchesRegex("routes: reading .*: Too many open files"));
  fault_disarm_all();
  clock_.advance(kNanosecondsPerSecond);
  Settle();
  EXPECT_EQ(source_->facts().at(0).problem, "");
  EXPECT_TRUE(source_->facts()[0].is_up);
}

TEST_F(LiveKernel, FailedDumpIsRetried) {
  AddVeth("v0", "v1");
  Start();
  Ip("link set v0 alias text");
  for (const char* step : {"netlink_open", "netlink_request", "event_fd_add"}) {
    fault_arm(step, EMFILE, 1, 1);
    clock_.advance(30 * kNanosecondsPerSecond);
    event_run_pending(manager_);
    EXPECT_EQ(fault_reached(step), 1U) << step;
    fault_disarm_all();
  }
  EXPECT_EQ(source_->counters().failures, 3U);
  EXPECT_EQ(DescriptionOf("v0"), "");
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_EQ(DescriptionOf("v0"), "text");
}

TEST_F(LiveKernel, FailedSocketIsReplacedWithoutALoss) {
  AddVeth("v0", "v1");
  Start();
  fault_arm("netlink_receive", EIO, 1, 1);
  Ip("link set v0 name v9");
  event_run_pending(manager_);
  fault_disarm_all();
  EXPECT_EQ(source_->counters().failures, 1U);
  fault_arm("netlink_join", EACCES, 2, 1);  // the first attempt fails
  clock_.advance(100 * kNanosecondsPerMillisecond);
  event_run_pending(manager_);
  EXPECT_EQ(source_->counters().failures, 2U);
  fault_disarm_all();
  clock_.advance(100 * kNanosecondsPerMillisecond);
  Settle();
  EXPECT_NE(Find("v9"), nullptr);
  Ip("link set v9 name v8");
  Settle();
  EXPECT_NE(Find("v8"), nullptr);
}

class LiveKernelLoad : public LiveKernel, public ::testing::WithParamInterface<const char*> {};

TEST_P(LiveKernelLoad, FailureIsReportedAndLeavesTheModelUnchanged) {
  fault_arm(GetParam(), EMFILE, 1, 1);
  EXPECT_EQ(Load(), static_cast<Status>(EMFILE));
  fault_disarm_all();
  EXPECT_THAT(error_, AllOf(HasSubstr("rtnetlink"), HasSubstr(err_text(EMFILE))));
  EXPECT_EQ(model_.interface_count(), 0U);
  EXPECT_EQ(source_->load(&error_), kStatusOk) << error_;
  EXPECT_EQ(model_.interface_count(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Steps, LiveKernelLoad,
                         ::testing::Values("netlink_open", "netlink_join", "netlink_request",
                                           "netlink_receive"),
                         [](const auto& step) { return std::string(step.param); });

TEST_F(LiveKernel, StartThatFailsIsReported) {
  ASSERT_EQ(Load(), kStatusOk) << error_;
  const ScopedFault fault("event_fd_add", EMFILE);
  EXPECT_EQ(source_->start(manager_), static_cast<Status>(EMFILE));
}

TEST_F(LiveKernel, SourceDestroyedDuringADumpHasNoFurtherEffect) {
  Start();
  clock_.advance(30 * kNanosecondsPerSecond);
  {
    const ScopedFault fault("netlink_receive", EAGAIN, 1, 0);  // the answer never arrives
    ASSERT_TRUE(RunOnce());
    EXPECT_FALSE(source_->settled());
    source_.reset();
  }
  Ip("link add v0 type veth peer name v1");
  clock_.advance(60 * kNanosecondsPerSecond);
  event_run_pending(manager_);
  EXPECT_THAT(listener_.TakeLines(), IsEmpty());
}

TEST_F(LiveDump, EventsBeyondTheLogCountAsALoss) {
  ChangeLinksDuringADump({.batch = 8, .log = 5});
  EXPECT_GE(source_->counters().losses, 1U);
  ExpectModelEqualsKernel();
}

TEST_F(LiveKernel, FailingDumpsDelayTheModelByABoundOnly) {
  AddVeth("v0", "v1");
  Start();
  fault_arm("netlink_receive", ENOBUFS, 1, 1);
  fault_arm("netlink_request", EIO, 1, 0);
  Ip("link set v0 name v9");
  unsigned periods = 0;
  for (; Find("v9") == nullptr && periods < 100; ++periods) {
    event_run_pending(manager_);
    clock_.advance(kSettle);
  }
  fault_disarm_all();
  EXPECT_GT(periods, 2U);  // it waits for the dump
  EXPECT_LE(periods, 13U);
}

TEST_F(LiveKernel, LoadGivesUpWhenTheKernelDoesNotAnswer) {
  fault_arm("netlink_receive", EAGAIN, 1, 0);
  fault_arm("netlink_poll", ETIMEDOUT, 3, 1);
  EXPECT_EQ(Load(), kStatusTimedOut);
  EXPECT_EQ(error_, "rtnetlink dump: the kernel does not answer");
  EXPECT_EQ(fault_reached("netlink_poll"), 3U);
  fault_disarm_all();
  EXPECT_EQ(model_.interface_count(), 0U);
}

}  // namespace
}  // namespace kernel
