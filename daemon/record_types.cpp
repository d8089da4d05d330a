#include "daemon/record_types.h"

#include "platform/core/base/log.h"
#include "platform/core/parcel/parcel.h"
#include "platform/router/interface_states/records.h"
#include "platform/router/route_watch/records.h"
#include "platform/store/history/records.h"
#include "platform/store/status/records.h"

namespace daemon_host {

namespace {

constexpr const ParcelDescription* kServiceRecords[] = {
    &interface_states::kInterfaceStateParcel, &notification_history::kLatestNotificationsParcel,
    &process_status::kProcessStatusParcel, &route_watch::kWatchedVrfParcel};

Status register_all() {
  ParcelBatch* batch = nullptr;
  if (const Status status = parcel_batch_open("services", &batch)) return status;
  for (const ParcelDescription* description : kServiceRecords) {
    const Status status = parcel_register(batch, description);
    if (status == kStatusOk) continue;
    parcel_batch_abort(batch);
    return status;
  }
  return parcel_batch_close(batch);
}

}  // namespace

void register_record_types() {
  const Status status = register_all();
  if (status == kStatusOk || status == kStatusDefinitionChanged) return;  // of the release before
  log_warning("mpls_vpn_mib", "\"mplsvpn get\" cannot print the records of services: %s", err_text(status));
}

}  // namespace daemon_host
