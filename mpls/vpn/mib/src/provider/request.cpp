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

Status prov_encode_parcel(KvReply* reply, void* record, const ParcelDescription* description) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  const Status rc = parcel_encode(description, record, &data, &length);
  mpls_vpn_checked("prov_encode_parcel", "parcel_encode failed", rc);
  if (rc == kStatusOk) *reply = {kKvKindRecord, data, length, reply->steps};
  prov_release_parcel(record, description, "prov_encode_parcel");
  return rc;
}

void prov_release_parcel(void* record, const ParcelDescription* description, const char* function) {
  mpls_vpn_checked(function, "parcel_free_indirections", parcel_free_indirections(description, record));
}
