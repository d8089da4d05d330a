// The database mutex: error-checking and robust; the reports of its failures.
#include "mpls/vpn/mib/src/support/mutex.h"

#include <thread>

#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

namespace {

using DatabaseMutex = DaemonTest;
using testing::ElementsAre;

// The analysis is off where a test takes the mutex twice or leaves it locked.
bool CanTake(const char* function, MplsVpnDebugArea area = ERR, Status* why = nullptr) {
  const MplsVpnLock lock(function, area);
  if (why != nullptr) *why = lock.status();
  return static_cast<bool>(lock);
}

void DieWithTheMutex() {
  std::thread([]() MPLS_NO_THREAD_SAFETY_ANALYSIS { EXPECT_EQ(mpls_vpn_mutex.lock(), kStatusOk); }).join();
}

}  // namespace

TEST_F(DatabaseMutex, IsTakenAndReleasedWithoutAPrint) {
  EXPECT_TRUE(CanTake("first"));
  EXPECT_TRUE(CanTake("second"));
  EXPECT_TRUE(Prints().empty());
}

TEST_F(DatabaseMutex, ThreadThatHoldsItCannotTakeItTwice) {
  TakeMutex();
  Status why = kStatusOk;
  EXPECT_FALSE(CanTake("inner", ERR, &why));
  ReleaseMutex();
  EXPECT_EQ(why, kStatusDeadlock);
  EXPECT_THAT(Prints(), ElementsAre("Error (inner): pthread mutex lock failed"));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), ElementsAre("Error (inner): pthread mutex lock failed"));
  EXPECT_EQ(code, kStatusDeadlock);
}

TEST_F(DatabaseMutex, OfADeadOwnerIsTakenByTheNext) {
  DieWithTheMutex();
  EXPECT_TRUE(CanTake("next"));
  EXPECT_TRUE(CanTake("next"));
  EXPECT_TRUE(Prints().empty());
}

using DatabaseMutexDeathTest = DaemonTest;

TEST_F(DatabaseMutexDeathTest, StateThatCannotBeMadeConsistentAborts) {
  EXPECT_DEATH(
      {
        DieWithTheMutex();
        fault_arm("pthread_mutex_consistent", kStatusInvalid);
        (void)CanTake("next");
      },
      "mpls/vpn/mib/src/mpls_vpn_mutex: [0-9]+ retcode == EOK -- assertion failed");
}

TEST_F(DatabaseMutex, FailedUnlockIsReported) {
  WithFault("pthread_mutex_unlock", kStatusAccess, [&] { EXPECT_TRUE(CanTake("holder", DBASE)); });
  EXPECT_THAT(Prints(), ElementsAre("Error (holder): pthread mutex unlock failed"));
  Status code = kStatusOk;
  EXPECT_THAT(Traced("mpls_vpn/error", &code), ElementsAre("Error (holder): pthread mutex unlock failed"));
  EXPECT_EQ(code, kStatusAccess);
  EXPECT_FALSE(CanTake("next")) << "the mutex is still held";
  ReleaseMutex();
}

TEST_F(DatabaseMutex, FailureIsPrintedUnderTheAreaThatTheCallerNames) {
  OnlyArea(DBASE);
  const ScopedFault fault("pthread_mutex_lock", kStatusAccess, 1, 2);
  EXPECT_FALSE(CanTake("quiet", ERR));
  EXPECT_FALSE(CanTake("loud", DBASE));
  EXPECT_THAT(Prints(), ElementsAre("Error (loud): pthread mutex lock failed"));
}
