// Trace buffers of the daemon: records that are always written, one buffer per area, and the report of a
// failure. A buffer that is not open drops its records, so any code may write at any time. Any thread.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/trace/trace.h"

// Which buffer; the order of mpls_vpn_ltrace_buffer_tbl.
enum MplsVpnTraceArea : unsigned {
  kTraceProv,   // "mpls_vpn/prov": provider requests
  kTraceInit,   // "mpls_vpn/init": start-up
  kTraceVmap,   // "mpls_vpn/vmap": membership-service events
  kTraceVtab,   // "mpls_vpn/vtab": record-service events
  kTraceChkpt,  // "mpls_vpn/chkpt": checkpoint
  kTraceRib,    // "mpls_vpn/rib": route lookups
  kTraceError,  // "mpls_vpn/error": every traced failure
  kTraceDbase,  // "mpls_vpn/dbase": database changes
};
inline constexpr unsigned kMplsVpnTraceAreas = 8;

// The numbers of records.
inline constexpr std::uint32_t kTraceRecordEvent = 1;    // something happened or succeeded: code 0
inline constexpr std::uint32_t kTraceRecordFailure = 2;  // something failed with this code

struct MplsVpnTraceEntry {
  std::uint32_t index;  // position in the table; in entry 0 the number of buffers once the table is open
  char name[kTraceNameMax + 1];
  std::uint32_t size;  // the four parameters of trace_open
  std::uint32_t further;
  std::uint32_t reserved1;
  std::uint32_t reserved2;
  TraceBuffer* buffer;  // null while closed
};

extern MplsVpnTraceEntry mpls_vpn_ltrace_buffer_tbl[kMplsVpnTraceAreas];

// mpls_vpn_trace(kTraceDbase, 0, "created %s", name): writes a record, independently of the debug flags.
#define mpls_vpn_trace(area, code, ...)                \
  trace_write(mpls_vpn_ltrace_buffer_tbl[area].buffer, \
              (code) == kStatusOk ? kTraceRecordEvent : kTraceRecordFailure, (code), __VA_ARGS__)

// Opens all buffers. 0 (also when they are open already, which opens nothing), or the code of the first that
// failed; none is left open then.
[[nodiscard]] Status mpls_vpn_trace_init();
// Closes all buffers, so that mpls_vpn_trace_init opens them again. For tests that start the daemon again.
void mpls_vpn_trace_end();

// A failure: prints "Error in %s: %s: %s" (function, what failed, the code's text) under ERR, and writes an
// error trace record with the code whether or not ERR is on.
void mpls_vpn_error(const char* function, const char* what, Status status);
// Reports a step that failed; returns its status.
Status mpls_vpn_checked(const char* function, const char* what, Status status);
