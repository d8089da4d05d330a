// The database mutex: error-checking, robust, and what it says when it fails.
#include "mpls/vpn/mib/src/mpls_vpn_mutex.h"

#include <thread>

#include "mpls/vpn/mib/src/mpls_vpn_test_fixture.h"

namespace {

using DatabaseMutex = DaemonTest;

// A thread that ends with the mutex in its hands.
void DieWithTheMutex() {
  std::thread([]() MPLS_NO_THREAD_SAFETY_ANALYSIS {
    EXPECT_TRUE(mpls_vpn_mutex_lock("DieWithTheMutex", ERR));
  }).join();
}

}  // namespace

TEST_F(DatabaseMutex, IsTakenAndGivenBackWithoutAWord) {
  for (int turn = 0; turn < 2; ++turn) {
    ASSERT_TRUE(mpls_vpn_mutex_lock("first", ERR));
    mpls_vpn_mutex_unlock("first", ERR);
  }
  EXPECT_TRUE(Prints().empty());
}

TEST_F(DatabaseMutex, ThreadThatHoldsItCannotTakeItTwice) {
  ASSERT_TRUE(mpls_vpn_mutex_lock("outer", ERR));
  Status why = kStatusOk;
  const auto take_again = [&]() MPLS_NO_THREAD_SAFETY_ANALYSIS {
    return mpls_vpn_mutex_lock("inner", ERR, &why);
  };
  EXPECT_FALSE(take_again());
  mpls_vpn_mutex_unlock("outer", ERR);
  EXPECT_EQ(why, kStatusDeadlock);
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (inner): pthread mutex lock failed"));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code),
              testing::ElementsAre("Error (inner): pthread mutex lock failed"));
  EXPECT_EQ(code, kStatusDeadlock);
}

TEST_F(DatabaseMutex, AnotherThreadWaitsUntilItIsGivenBack) {
  ASSERT_TRUE(mpls_vpn_mutex_lock("main", ERR));
  int order = 0;
  int taken_as = 0;
  std::thread other([&] {
    if (!mpls_vpn_mutex_lock("other", ERR)) return;
    taken_as = ++order;
    mpls_vpn_mutex_unlock("other", ERR);
  });
  ++order;
  mpls_vpn_mutex_unlock("main", ERR);
  other.join();
  EXPECT_EQ(taken_as, 2);
}

TEST_F(DatabaseMutex, OwnerThatDiedLeavesItToTheNext) {
  DieWithTheMutex();
  ASSERT_TRUE(mpls_vpn_mutex_lock("next", ERR));
  mpls_vpn_mutex_unlock("next", ERR);
  ASSERT_TRUE(mpls_vpn_mutex_lock("next", ERR));
  mpls_vpn_mutex_unlock("next", ERR);
  EXPECT_TRUE(Prints().empty());
}

using DatabaseMutexDeathTest = DaemonTest;

TEST_F(DatabaseMutexDeathTest, StateThatCannotBeMadeConsistentAborts) {
  EXPECT_DEATH(
      {
        DieWithTheMutex();
        fault_arm("pthread_mutex_consistent", kStatusInvalid);
        if (mpls_vpn_mutex_lock("next", ERR)) mpls_vpn_mutex_unlock("next", ERR);
      },
      "mpls/vpn/mib/src/mpls_vpn_mutex: [0-9]+ retcode == EOK -- assertion failed");
}

TEST_F(DatabaseMutex, FailedUnlockIsReported) {
  ASSERT_TRUE(mpls_vpn_mutex_lock("holder", ERR));
  {
    const ScopedFault fault("pthread_mutex_unlock", kStatusAccess);
    mpls_vpn_mutex_unlock("holder", DBASE);
  }
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (holder): pthread mutex unlock failed"));
  const auto give_back = []() MPLS_NO_THREAD_SAFETY_ANALYSIS { mpls_vpn_mutex_unlock("holder", ERR); };
  give_back();
}

TEST_F(DatabaseMutex, FailureIsPrintedUnderTheAreaThatTheCallerNames) {
  OnlyArea(DBASE);
  const ScopedFault fault("pthread_mutex_lock", kStatusAccess, 1, 2);
  EXPECT_FALSE(mpls_vpn_mutex_lock("quiet", ERR));
  EXPECT_FALSE(mpls_vpn_mutex_lock("loud", DBASE));
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (loud): pthread mutex lock failed"));
}
