#include "mpls/vpn/mib/src/provider/request.h"

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/core/base/memory.h"

Status prov_check_arguments(const RequestArgs* args, unsigned count, const char* handler) {
  for (unsigned argument = 0; argument < count; ++argument) {
    if (!kvtree_absent(args, argument)) continue;
    mpls_vpn_debug(ERR, "BGEN arg %d not present in %s", static_cast<int>(argument), handler);
    mpls_vpn_trace(kTraceError, kStatusArgumentMissing, "%s: argument %u", handler, argument);
    return kStatusArgumentMissing;
  }
  return kStatusOk;
}

bool prov_copy_text(char** field, const char* text, const char* function) {
  *field = text_copy(text);
  if (*field != nullptr || text == nullptr) return true;
  mpls_vpn_error(function, "text_copy failed", kStatusNoMemory);
  return false;
}

void prov_copy_inner_text(char** field, const char* text, const char* function) {
  (void)prov_copy_text(field, text, function);  // reported; the field stays empty
}
