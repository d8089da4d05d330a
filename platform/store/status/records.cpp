// The field tables of the process's state. Constant data.
#include "platform/store/status/records.h"

#include <array>

#include "platform/core/parcel/description.h"

namespace process_status {

namespace {

constexpr std::array kClientFields = {
    PARCEL_FIELD(ClientStatus, id),
    PARCEL_FIELD(ClientStatus, user),
    PARCEL_FIELD(ClientStatus, process),
    PARCEL_FIELD(ClientStatus, role),
    PARCEL_FIELD(ClientStatus, age),
    PARCEL_FIELD(ClientStatus, requests),
    PARCEL_FIELD(ClientStatus, requests_per_second),
    PARCEL_FIELD(ClientStatus, loop_milliseconds),
    PARCEL_FIELD(ClientStatus, queued),
};
constexpr auto kClient = parcel_structure<ClientStatus>(2, kClientFields);

constexpr std::array kStatusFields = {
    PARCEL_FIELD(ProcessStatus, version),
    PARCEL_FIELD(ProcessStatus, source),
    PARCEL_FIELD(ProcessStatus, uptime),
    PARCEL_FIELD(ProcessStatus, long_iterations),
    PARCEL_FIELD(ProcessStatus, longest_iteration),
    PARCEL_FIELD(ProcessStatus, longest_iteration_time),
    PARCEL_FIELD(ProcessStatus, clients, parcel_array_of(kClient)),
    PARCEL_FIELD(ProcessStatus, is_corrected),
    PARCEL_FIELD(ProcessStatus, corrections),
    PARCEL_FIELD(ProcessStatus, has_messages),
    PARCEL_FIELD(ProcessStatus, malformed),
};
constexpr auto kStatus = parcel_structure<ProcessStatus>(1, kStatusFields);

}  // namespace

constinit const ParcelDescription kProcessStatusParcel =
    parcel_description<kStatus, kClient>("process_status", 1, 1, "process_status_desc.dll");

}  // namespace process_status
