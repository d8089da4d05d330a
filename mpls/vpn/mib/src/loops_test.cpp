// One iteration of each event loop.
#include <cerrno>

#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"
#include "mpls/vpn/mib/src/start_test_support.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "mpls/vpn/mib/src/traps/reissue_timer.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Loops : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    context_ = {manager_, buffer_, sizeof buffer_, 0};
    event_post(manager_, [this] { ++dispatched_; });
  }
  std::vector<TraceEntry> Errors() const {
    std::vector<TraceEntry> entries;
    EXPECT_EQ(trace_read(run_directory(), "mpls_vpn/error", &entries), kStatusOk);
    return entries;
  }
  char buffer_[128];
  EventContext context_{};
  int dispatched_ = 0;
};

TEST_F(Loops, MainDispatchesWhatItWaitedFor) {
  main_event_step(&context_);
  EXPECT_EQ(dispatched_, 1);
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(Loops, MainPrintsAndTracesEveryInterruptedWait) {
  const ScopedFault fault("event_wait", EINTR, 1, 2);
  main_event_step(&context_);
  main_event_step(&context_);
  const char line[] = "main_event_loop: Main thread has errno set to Interrupted system call";
  EXPECT_THAT(Prints(), ElementsAre(line, line));
  ASSERT_EQ(Errors().size(), 2U);
  EXPECT_EQ(Errors()[1].code, static_cast<Status>(EINTR));
  EXPECT_EQ(dispatched_, 0);
  main_event_step(&context_);
  EXPECT_EQ(dispatched_, 1);
}

TEST_F(Loops, MainTreatsNoErrorSpecially) {
  const ScopedFault fault("event_wait", EAGAIN);
  main_event_step(&context_);
  EXPECT_THAT(Prints(),
              ElementsAre("main_event_loop: Main thread has errno set to Resource temporarily unavailable"));
  ASSERT_EQ(Errors().size(), 1U);
  EXPECT_EQ(Errors()[0].code, static_cast<Status>(EAGAIN));
  EXPECT_EQ(dispatched_, 0);
}

TEST_F(Loops, DebugAndShowDispatchesWhatItWaitedFor) {
  debug_show_step(&context_);
  EXPECT_EQ(dispatched_, 1);
}

TEST_F(Loops, DebugAndShowWaitsAgainSilentlyWhenInterrupted) {
  for (const Status error : {static_cast<Status>(EINTR), static_cast<Status>(EAGAIN)}) {
    const ScopedFault fault("event_wait", error);
    debug_show_step(&context_);
    EXPECT_EQ(fault_reached("event_wait"), 1U);
  }
  EXPECT_THAT(Prints(), IsEmpty());
  EXPECT_THAT(Errors(), IsEmpty());
  EXPECT_EQ(dispatched_, 0);
}

TEST_F(Loops, DebugAndShowPrintsAndTracesOtherFailures) {
  const ScopedFault fault("event_wait", EIO);
  debug_show_step(&context_);
  EXPECT_THAT(Prints(),
              ElementsAre("debug_show_thread: Debug and Show thread has errno set to Input/output error"));
  ASSERT_EQ(Errors().size(), 1U);
  EXPECT_EQ(Errors()[0].code, kStatusIo);
  EXPECT_EQ(dispatched_, 0);
}

TEST_F(Loops, DebugAndShowDispatchesAFailureWithoutAnError) {
  event_wait_fails_without_an_error = true;
  debug_show_step(&context_);
  event_wait_fails_without_an_error = false;
  EXPECT_EQ(dispatched_, 1);
  EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(Loops, FailedWaitIsTracedAlsoWhileErrorsAreOff) {
  OnlyArea(START);
  const ScopedFault fault("event_wait", EIO, 1, 2);
  main_event_step(&context_);
  debug_show_step(&context_);
  EXPECT_THAT(Prints(), IsEmpty());
  ASSERT_EQ(Errors().size(), 2U);
  EXPECT_EQ(Errors()[1].code, kStatusIo);
}

TEST_F(Loops, StartUpTablesHoldTheirFunctionsInOrder) {
  EXPECT_EQ(server_init[0], mpls_vpn_mib_vrf_dbase_init);
  EXPECT_EQ(server_init[1], mpls_vpn_mib_if_dbase_init);
  EXPECT_EQ(server_init[2], mpls_vpn_mib_rt_dbase_init);
  EXPECT_EQ(server_init[3], nullptr);
  EXPECT_EQ(server_init_evm[0], mpls_vpn_mib_chkpt_init);
  EXPECT_EQ(server_init_evm[1], mpls_vpn_mib_timer_init);
  EXPECT_EQ(server_init_evm[2], mpls_vpn_mib_vtab_init);
  EXPECT_EQ(server_init_evm[3], nullptr);
}

}  // namespace
