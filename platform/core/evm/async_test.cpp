// Tests of asynchronous events: attaching, raising, coalescing, detaching.
#include <cerrno>
#include <memory>
#include <vector>

#include "platform/core/evm/test_manager.h"

namespace {

constexpr std::uint32_t kCode = 128;

TEST_F(EventManagerTest, RaisedAsyncEventRunsInsideDispatchOnly) {
  int runs = 0;
  ASSERT_EQ(event_async_attach(manager, kCode, [&] { ++runs; }), 0);
  event_async_raise(manager, kCode);
  EXPECT_EQ(runs, 0);
  EventContext context = Context();
  ASSERT_EQ(event_wait_for(&context, 0), 0);
  EXPECT_EQ(runs, 0);
  event_dispatch(&context);
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(event_run_pending(manager));
}

TEST_F(EventManagerTest, AsyncRaisesBeforeTheRunCoalesce) {
  int runs = 0;
  ASSERT_EQ(event_async_attach(manager, kCode, [&] { ++runs; }), 0);
  for (int i = 0; i < 1000; ++i) event_async_raise(manager, kCode);
  event_run_pending(manager);
  EXPECT_EQ(runs, 1);
  event_async_raise(manager, kCode);
  event_run_pending(manager);
  EXPECT_EQ(runs, 2);
}

TEST_F(EventManagerTest, AsyncCodesAreApart) {
  std::vector<int> runs;
  ASSERT_EQ(event_async_attach(manager, 1, [&] { runs.push_back(1); }), 0);
  ASSERT_EQ(event_async_attach(manager, 2, [&] { runs.push_back(2); }), 0);
  event_async_raise(manager, 2);
  event_async_raise(manager, 1);
  event_async_raise(manager, 3);
  event_run_pending(manager);
  EXPECT_EQ(runs, (std::vector<int>{2, 1}));
}

TEST_F(EventManagerTest, AsyncCodeInUseIsRefusedWithEexist) {
  int first = 0;
  ASSERT_EQ(event_async_attach(manager, kCode, [&] { ++first; }), 0);
  errno = 0;
  EXPECT_EQ(event_async_attach(manager, kCode, [] { ADD_FAILURE() << "refused"; }), -1);
  EXPECT_EQ(errno, EEXIST);
  event_async_raise(manager, kCode);
  event_run_pending(manager);
  EXPECT_EQ(first, 1);
}

TEST_F(EventManagerTest, AsyncWithoutAHandlerIsRefusedWithEinval) {
  errno = 0;
  EXPECT_EQ(event_async_attach(manager, kCode, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(EventManagerTest, AsyncAttachFaultBecomesErrnoAndAttachesNothing) {
  {
    const ScopedFault fault("event_async_attach", ENOMEM);
    errno = 0;
    EXPECT_EQ(event_async_attach(manager, kCode, [] { ADD_FAILURE() << "not attached"; }), -1);
    EXPECT_EQ(errno, ENOMEM);
  }
  event_async_raise(manager, kCode);
  EXPECT_FALSE(event_run_pending(manager));
  EXPECT_EQ(event_async_attach(manager, kCode, [] {}), 0);
}

TEST_F(EventManagerTest, DetachedAsyncEventDoesNotRunForEarlierRaises) {
  ASSERT_EQ(event_async_attach(manager, kCode, [] { ADD_FAILURE() << "detached"; }), 0);
  event_async_raise(manager, kCode);
  event_async_detach(manager, kCode);
  event_async_detach(manager, kCode);
  event_run_pending(manager);
  event_async_raise(manager, kCode);
  EXPECT_FALSE(event_run_pending(manager));
}

TEST_F(EventManagerTest, LaterAsyncAttachmentDoesNotInheritARaise) {
  int runs = 0;
  ASSERT_EQ(event_async_attach(manager, kCode, [] { ADD_FAILURE() << "detached"; }), 0);
  event_async_raise(manager, kCode);
  event_async_detach(manager, kCode);
  ASSERT_EQ(event_async_attach(manager, kCode, [&] { ++runs; }), 0);
  event_run_pending(manager);
  EXPECT_EQ(runs, 0);
  event_async_raise(manager, kCode);
  event_run_pending(manager);
  EXPECT_EQ(runs, 1);
}

TEST_F(EventManagerTest, AsyncHandlerMayDetachItself) {
  const auto witness = std::make_shared<int>(0);
  ASSERT_EQ(event_async_attach(manager, kCode,
                               [this, witness] {
                                 event_async_detach(manager, kCode);
                                 ++*witness;  // the handler's own captures live while it runs
                               }),
            0);
  event_async_raise(manager, kCode);
  event_run_pending(manager);
  EXPECT_EQ(*witness, 1);
  EXPECT_EQ(witness.use_count(), 1);
}

TEST_F(EventManagerTest, AsyncRaisedByItsOwnHandlerRunsInALaterIteration) {
  int runs = 0;
  ASSERT_EQ(event_async_attach(manager, kCode,
                               [&] {
                                 if (++runs == 1) event_async_raise(manager, kCode);
                               }),
            0);
  event_async_raise(manager, kCode);
  Iterate();
  EXPECT_EQ(runs, 1);
  event_run_pending(manager);
  EXPECT_EQ(runs, 2);
}

}  // namespace
