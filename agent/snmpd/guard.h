// The boundary to snmpd, which is written in C: an exception that left a function of the module would end it.
// The most likely one is that of a failed allocation, so that nothing is allocated here.
#pragma once

#include <exception>
#include <new>

#include "agent/snmpd/netsnmp.h"
#include "platform/core/base/fault.h"

namespace snmpd {

inline void report_exception(const char* where, const char* what, const char* consequence) noexcept {
  snmp_log(LOG_ERR, "mpls_vpn_snmpd: %s: %s; %s\n", where, what, consequence);
}

// Calls the function. False after an exception, which is logged with the name of the place, a fault point,
// and its consequence.
template <typename Function>
bool guarded(const char* where, const char* consequence, const Function& function) noexcept {
  try {
    if (fault_check(where) != kStatusOk) throw std::bad_alloc();
    function();
    return true;
  } catch (const std::exception& failure) {
    report_exception(where, failure.what(), consequence);
  } catch (...) {
    report_exception(where, "unknown exception", consequence);
  }
  return false;
}

}  // namespace snmpd
