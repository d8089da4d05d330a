// The database mutex: one process-wide lock around every change of the interface and VRF databases and of the
// interface nodes' counters.
//
// Robust: when a thread dies with it, the next one can take it. Error-checking: a thread that holds it and
// locks it again gets an error instead of a deadlock. Look-ups inside a join rely on that: their repair pass
// fails to lock and leaves the databases unchanged.
//
// Lock order: the record service's per-record access first, then this mutex.
//
// Readers on the main thread do not take it, because every writer runs on that thread too. A function that
// changes a database is declared MPLS_REQUIRES(mpls_vpn_mutex), and clang checks its callers.
#pragma once

#include <pthread.h>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/thread_safety.h"

// The mutex itself. Code takes it with MplsVpnLock; only tests call lock() and unlock().
class MPLS_CAPABILITY("mutex") MplsVpnMutex {
 public:
  MplsVpnMutex();
  MplsVpnMutex(const MplsVpnMutex&) = delete;
  MplsVpnMutex& operator=(const MplsVpnMutex&) = delete;

  // kStatusDeadlock when this thread holds it, or the code of the fault point "pthread_mutex_lock". A mutex
  // whose owner died is made consistent and taken; when that fails (fault point "pthread_mutex_consistent")
  // the process aborts.
  [[nodiscard]] Status lock() MPLS_TRY_ACQUIRE(false);
  // On failure (fault point "pthread_mutex_unlock") the mutex remains held.
  [[nodiscard]] Status unlock() MPLS_RELEASE();

 private:
  pthread_mutex_t mutex_;
};

extern MplsVpnMutex mpls_vpn_mutex;

// Holds the mutex for its scope:
//
//   const MplsVpnLock lock(__func__, ERR);
//   if (!lock) return;
//
// A failure prints "Error (%s): pthread mutex lock failed" or "Error (%s): pthread mutex unlock failed" (the
// name `function`, under `area`) and writes an error trace record. A failed unlock is only reported.
class MPLS_SCOPED_CAPABILITY MplsVpnLock {
 public:
  MplsVpnLock(const char* function, MplsVpnDebugArea area) MPLS_EXCLUDES(mpls_vpn_mutex);
  ~MplsVpnLock() MPLS_RELEASE();
  MplsVpnLock(const MplsVpnLock&) = delete;
  MplsVpnLock& operator=(const MplsVpnLock&) = delete;

  // True when the mutex is held.
  explicit operator bool() const MPLS_TRY_ACQUIRE(true) { return status_ == kStatusOk; }
  // Why it is not held.
  Status status() const { return status_; }

 private:
  const char* function_;
  MplsVpnDebugArea area_;
  Status status_;
};
