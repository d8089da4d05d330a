// A get handler fills a record with heap copies of texts and passes it on; it must not use the record
// afterwards. The reply, that is the data store, owns the encoded buffer. Main thread.
#include "mpls/vpn/mib/src/provider/answer.h"

#include "mpls/vpn/mib/src/support/trace.h"

void prov_release_parcel(void* record, const ParcelDescription* description, const char* function) {
  const Status rc = parcel_free_indirections(description, record);
  if (rc != kStatusOk) mpls_vpn_error(function, "parcel_free_indirections", rc);
}

Status prov_encode_parcel(KvReply* reply, void* record, const ParcelDescription* description) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  const Status rc = parcel_encode(description, record, &data, &length);
  if (rc == kStatusOk) {
    *reply = {kKvKindRecord, data, length};
  } else {
    mpls_vpn_error("prov_encode_parcel", "parcel_encode failed", rc);
  }
  prov_release_parcel(record, description, "prov_encode_parcel");
  return rc;
}
