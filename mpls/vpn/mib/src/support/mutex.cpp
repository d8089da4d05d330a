// A pthread mutex that is robust and error-checking, created before main runs and never destroyed. The
// analysis does not know pthread calls, so it skips the definitions here; their declarations state what they
// acquire and release.
#include "mpls/vpn/mib/src/support/mutex.h"

#include <cerrno>

#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/base/assertion.h"
#include "platform/core/base/fault.h"

namespace {

Status checked(const char* fault_point, int (*operation)(pthread_mutex_t*), pthread_mutex_t* mutex) {
  if (const Status rc = fault_check(fault_point)) return rc;
  return static_cast<Status>(operation(mutex));
}

}  // namespace

MplsVpnMutex mpls_vpn_mutex;

MplsVpnMutex::MplsVpnMutex() {
  pthread_mutexattr_t attributes;
  int retcode = pthread_mutexattr_init(&attributes);
  if (retcode == 0) retcode = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  if (retcode == 0) retcode = pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  if (retcode == 0) retcode = pthread_mutex_init(&mutex_, &attributes);
  if (retcode != 0) assertion_failed("mpls/vpn/mib/src/mpls_vpn_mutex", __LINE__, "retcode == EOK");
  pthread_mutexattr_destroy(&attributes);
}

Status MplsVpnMutex::lock() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  const Status rc = checked("pthread_mutex_lock", pthread_mutex_lock, &mutex_);
  if (rc != EOWNERDEAD) return rc;
  // Each change leaves the databases consistent before its next step, so what the dead owner left is usable.
  const Status retcode = checked("pthread_mutex_consistent", pthread_mutex_consistent, &mutex_);
  if (retcode != kStatusOk) {
    assertion_failed("mpls/vpn/mib/src/mpls_vpn_mutex", __LINE__, "retcode == EOK");
  }
  return kStatusOk;
}

Status MplsVpnMutex::unlock() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  return checked("pthread_mutex_unlock", pthread_mutex_unlock, &mutex_);
}

MplsVpnLock::MplsVpnLock(const char* function, MplsVpnDebugArea area) MPLS_NO_THREAD_SAFETY_ANALYSIS
    : function_(function),
      area_(area),
      status_(mpls_vpn_mutex.lock()) {
  if (status_ == kStatusOk) return;
  mpls_vpn_report_failure(area_, status_, "Error (%s): pthread mutex lock failed", function_);
}

MplsVpnLock::~MplsVpnLock() MPLS_NO_THREAD_SAFETY_ANALYSIS {
  if (status_ != kStatusOk) return;
  const Status rc = mpls_vpn_mutex.unlock();
  if (rc == kStatusOk) return;
  mpls_vpn_report_failure(area_, rc, "Error (%s): pthread mutex unlock failed", function_);
}
