#include "mpls/vpn/mib/src/records/registration.h"

Status mpls_vpn_parcel_register_set(const char* set_name, const ParcelDescription* const* set,
                                    std::size_t count) {
  ParcelBatch* batch = nullptr;
  const Status opened = parcel_batch_open(set_name, &batch);
  if (opened != kStatusOk) return opened;
  for (std::size_t i = 0; i < count; ++i) {
    const Status rc = parcel_register(batch, set[i]);
    if (rc != kStatusOk) {
      parcel_batch_abort(batch);
      return rc;
    }
  }
  return parcel_batch_close(batch);
}
