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

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/thread_safety.h"

class MPLS_CAPABILITY("mutex") MplsVpnMutex;
extern MplsVpnMutex mpls_vpn_mutex;

// True with the mutex held. False, after the print "Error (%s): pthread mutex lock failed" (the caller's
// name, under `area`) and an error trace record, when it could not be taken: kStatusDeadlock because this
// thread holds it, or what the fault point "pthread_mutex_lock" says; `why`, if not null, receives that
// status. A mutex whose owner died is made consistent and taken; when that fails (fault point
// "pthread_mutex_consistent") the process aborts.
[[nodiscard]] bool mpls_vpn_mutex_lock(const char* function, MplsVpnDebugArea area, Status* why = nullptr)
    MPLS_TRY_ACQUIRE(true, mpls_vpn_mutex);

// A failure (fault point "pthread_mutex_unlock": the mutex stays held) prints
// "Error (%s): pthread mutex unlock failed" and is traced; the caller continues.
void mpls_vpn_mutex_unlock(const char* function, MplsVpnDebugArea area) MPLS_RELEASE(mpls_vpn_mutex);
