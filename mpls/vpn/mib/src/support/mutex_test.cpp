// The database mutex: error-checking, robust, and what it says when it fails.
#include "mpls/vpn/mib/src/support/mutex.h"

#include <thread>

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using DatabaseMutex = DaemonTest;

// The two operations without the analysis: these tests take and give back where it would object.
bool Take(const char* function, MplsVpnDebugArea area = ERR,
          Status* why = nullptr) MPLS_NO_THREAD_SAFETY_ANALYSIS {
  return mpls_vpn_mutex_lock(function, area, why);
}
void Give(const char* function, MplsVpnDebugArea area = ERR) MPLS_NO_THREAD_SAFETY_ANALYSIS {
  mpls_vpn_mutex_unlock(function, area);
}

// A thread that ends with the mutex in its hands.
void DieWithTheMutex() {
  std::thread([] { EXPECT_TRUE(Take("DieWithTheMutex")); }).join();
}

}  // namespace

TEST_F(DatabaseMutex, IsTakenAndGivenBackWithoutAWord) {
  for (int turn = 0; turn < 2; ++turn) {
    ASSERT_TRUE(Take("first", ERR));
    Give("first", ERR);
  }
  EXPECT_TRUE(Prints().empty());
}

TEST_F(DatabaseMutex, ThreadThatHoldsItCannotTakeItTwice) {
  ASSERT_TRUE(Take("outer", ERR));
  Status why = kStatusOk;
  EXPECT_FALSE(Take("inner", ERR, &why));
  Give("outer", ERR);
  EXPECT_EQ(why, kStatusDeadlock);
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (inner): pthread mutex lock failed"));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code),
              testing::ElementsAre("Error (inner): pthread mutex lock failed"));
  EXPECT_EQ(code, kStatusDeadlock);
}

TEST_F(DatabaseMutex, OwnerThatDiedLeavesItToTheNext) {
  DieWithTheMutex();
  ASSERT_TRUE(Take("next", ERR));
  Give("next", ERR);
  ASSERT_TRUE(Take("next", ERR));
  Give("next", ERR);
  EXPECT_TRUE(Prints().empty());
}

using DatabaseMutexDeathTest = DaemonTest;

TEST_F(DatabaseMutexDeathTest, StateThatCannotBeMadeConsistentAborts) {
  EXPECT_DEATH(
      {
        DieWithTheMutex();
        fault_arm("pthread_mutex_consistent", kStatusInvalid);
        if (Take("next", ERR)) Give("next", ERR);
      },
      "mpls/vpn/mib/src/mpls_vpn_mutex: [0-9]+ retcode == EOK -- assertion failed");
}

TEST_F(DatabaseMutex, FailedUnlockIsReported) {
  ASSERT_TRUE(Take("holder", ERR));
  {
    const ScopedFault fault("pthread_mutex_unlock", kStatusAccess);
    Give("holder", DBASE);
  }
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (holder): pthread mutex unlock failed"));
  ReleaseMutex();
}

TEST_F(DatabaseMutex, FailureIsPrintedUnderTheAreaThatTheCallerNames) {
  OnlyArea(DBASE);
  const ScopedFault fault("pthread_mutex_lock", kStatusAccess, 1, 2);
  EXPECT_FALSE(Take("quiet", ERR));
  EXPECT_FALSE(Take("loud", DBASE));
  EXPECT_THAT(Prints(), testing::ElementsAre("Error (loud): pthread mutex lock failed"));
}
