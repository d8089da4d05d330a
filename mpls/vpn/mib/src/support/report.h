// Reports of databases and membership handlers: a print under the area's debug flag and a trace record with
// the same text. Arguments are evaluated twice.
#pragma once

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/trace.h"

// A change or an event: record with code 0 in the trace buffer `buffer`.
#define mpls_vpn_report(area, buffer, ...)          \
  do {                                              \
    mpls_vpn_debug(area, __VA_ARGS__);              \
    mpls_vpn_trace(buffer, kStatusOk, __VA_ARGS__); \
  } while (false)

// A failure whose text is not of the form "Error in %s: %s: %s": record with its code in "mpls_vpn/error".
#define mpls_vpn_report_failure(area, code, ...)      \
  do {                                                \
    mpls_vpn_debug(area, __VA_ARGS__);                \
    mpls_vpn_trace(kTraceError, (code), __VA_ARGS__); \
  } while (false)

// A text as prints show it.
inline const char* mpls_vpn_shown(const char* text) {
  return text == nullptr ? "(null)" : text;
}
