// The daemon's eight trace buffers and its one way to report failures.
//
// The table describes each buffer to the trace facility and owns it once it is open. Buffers are opened in
// table order; an entry whose index is not its position ends the opening. When all buffers are open, the
// index of entry 0 becomes their number, which is how a second call finds that there is nothing to do.
//
// Threads: opened on the main thread before the second thread starts; written from both.
// Limits: a buffer is a ring; old records are overwritten.
#include "mpls/vpn/mib/src/support/trace.h"

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

MplsVpnTraceEntry mpls_vpn_ltrace_buffer_tbl[kMplsVpnTraceAreas] = {
    {kTraceProv, "mpls_vpn/prov", 4096, 0, 0, 0, nullptr},
    {kTraceInit, "mpls_vpn/init", 1024, 0, 0, 0, nullptr},
    {kTraceVmap, "mpls_vpn/vmap", 8192, 0, 0, 0, nullptr},
    {kTraceVtab, "mpls_vpn/vtab", 8192, 0x58000, 0, 0, nullptr},
    {kTraceChkpt, "mpls_vpn/chkpt", 8192, 0, 0, 0, nullptr},
    {kTraceRib, "mpls_vpn/rib", 1024, 0, 0, 0, nullptr},
    {kTraceError, "mpls_vpn/error", 8192, 0, 0, 0, nullptr},
    {kTraceDbase, "mpls_vpn/dbase", 4096, 0, 0, 0, nullptr},
};

namespace {

void close_first(unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    trace_close(mpls_vpn_ltrace_buffer_tbl[i].buffer);
    mpls_vpn_ltrace_buffer_tbl[i].buffer = nullptr;
  }
}

Status open_entry(MplsVpnTraceEntry* entry) {
  return trace_open(entry->name, entry->size, entry->further, entry->reserved1, entry->reserved2,
                    &entry->buffer);
}

Status open_all() {
  unsigned opened = 0;
  while (opened < kMplsVpnTraceAreas && mpls_vpn_ltrace_buffer_tbl[opened].index == opened) {
    const Status rc = open_entry(&mpls_vpn_ltrace_buffer_tbl[opened]);
    if (rc != kStatusOk) {
      mpls_vpn_ltrace_buffer_tbl[opened].buffer = nullptr;
      close_first(opened);
      return rc;
    }
    ++opened;
  }
  mpls_vpn_ltrace_buffer_tbl[0].index = opened;
  return kStatusOk;
}

}  // namespace

Status mpls_vpn_trace_init() {
  const bool open_already = mpls_vpn_ltrace_buffer_tbl[0].index != 0;
  const Status rc = open_already ? kStatusOk : open_all();
  mpls_vpn_trace(kTraceInit, rc, "trace buffers: %s", err_text(rc));
  return rc;
}

void mpls_vpn_trace_end() {
  close_first(kMplsVpnTraceAreas);
  mpls_vpn_ltrace_buffer_tbl[0].index = 0;
}

void mpls_vpn_error(const char* function, const char* what, Status status) {
  mpls_vpn_debug(ERR, "Error in %s: %s: %s", function, what, err_text(status));
  mpls_vpn_trace(kTraceError, status, "%s: %s", function, what);
}

Status mpls_vpn_checked(const char* function, const char* what, Status status) {
  if (status != kStatusOk) mpls_vpn_error(function, what, status);
  return status;
}
