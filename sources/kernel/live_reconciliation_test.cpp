// Links that are added in steps, and changes meanwhile.
#include <linux/rtnetlink.h>

#include "sources/kernel/kernel_source.h"
#include "sources/kernel/live_kernel_test_support.h"
#include "sources/kernel/netlink/socket.h"

namespace kernel {
namespace {

class LiveReconciliation : public LiveKernel {
 protected:
  // The model has some of 100 pairs of links when it returns.
  void BeginToAddPairs() {
    Start({.reconcile_step = 10});
    AddManyVeths(100);
    while (model_.interface_count() < 20) Step();
  }
  // 100 pairs of links are being read and the model has none of them when it returns.
  void BeginToReadPairs() {
    Start({.reconcile_step = 1});
    AddManyVeths(100);
    for (int i = 0; i < 300; ++i) Step();
    ASSERT_EQ(model_.interface_count(), 1U);
  }
  void Step() {
    event_timer_start(manager_, 0, [] {});
    clock_.advance(kSettle);
    ASSERT_TRUE(RunOnce());
  }
};

TEST_F(LiveReconciliation, ManyLinksAreAddedInStepsBetweenOtherWork) {
  BeginToAddPairs();
  unsigned iterations = 0;
  for (; model_.interface_count() < 201; ++iterations) Step();
  EXPECT_GE(iterations, 10U);
  Settle();
  ExpectModelEqualsKernel();
}

TEST_F(LiveReconciliation, LinksThatChangeMeanwhileAreFollowed) {
  BeginToAddPairs();
  Batch("link del a99\nlink set a98 name z98\nlink del a0\nlink add n0 type veth peer name n1\n");
  Settle();
  EXPECT_EQ(Find("a0"), nullptr);
  EXPECT_NE(Find("z98"), nullptr);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveReconciliation, LinksThatChangeWhileTheyAreReadAreFollowed) {
  BeginToReadPairs();
  for (int i = 0; i < 10; ++i) {
    const std::string number = std::to_string(90 + i);
    Batch("link set a" + number + " name z\nlink set b" + number + " name a" + number +
          "\nlink set z name b" + number + "\nlink del a" + std::to_string(i) + "\n");
    for (int step = 0; step < 20; ++step) Step();
  }
  ASSERT_EQ(model_.interface_count(), 1U) << "the links are still being read";
  Settle();
  EXPECT_EQ(Find("a0"), nullptr);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveReconciliation, LoadWhileLinksAreReadCompletesIt) {
  BeginToReadPairs();
  Batch("link set a98 name z98\nlink del a0\n");
  for (int step = 0; step < 20; ++step) Step();
  ASSERT_EQ(source_->load(&error_), kStatusOk) << error_;
  ExpectModelEqualsKernel();
}

TEST_F(LiveReconciliation, LinksThatChangeWhileADumpIsAdoptedAreFollowed) {
  AddManyVeths(100);
  Start({.reconcile_step = 1});
  Settle();
  const std::uint64_t dumps = source_->counters().dumps;
  clock_.advance(30 * kNanosecondsPerSecond);
  while (source_->counters().dumps == dumps) Step();
  for (int i = 0; i < 10; ++i) {
    const std::string number = std::to_string(90 + i);
    Batch("link set a" + number + " name z\nlink set b" + number + " name a" + number +
          "\nlink set z name b" + number + "\nlink del a" + std::to_string(i) + "\n");
    for (int step = 0; step < 20; ++step) Step();
  }
  EXPECT_NE(Find("a0"), nullptr) << "the dump is still being adopted";
  Settle();
  EXPECT_EQ(Find("a0"), nullptr);
  ExpectModelEqualsKernel();
  EXPECT_EQ(source_->counters().refused, 0U);
}

TEST_F(LiveReconciliation, LoadMeanwhileCompletesIt) {
  BeginToAddPairs();
  ASSERT_EQ(source_->load(&error_), kStatusOk) << error_;
  ExpectModelEqualsKernel();
}

TEST_F(LiveReconciliation, SourceMayBeDestroyedMeanwhile) {
  BeginToAddPairs();
  const std::size_t interfaces = model_.interface_count();
  source_.reset();
  event_run_pending(manager_);
  EXPECT_EQ(model_.interface_count(), interfaces);
}

}  // namespace
}  // namespace kernel
