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

constexpr std::array kSourceFields = {
    PARCEL_FIELD(SourceStatus, name),        PARCEL_FIELD(SourceStatus, version),
    PARCEL_FIELD(SourceStatus, problem),     PARCEL_FIELD(SourceStatus, is_up),
    PARCEL_FIELD(SourceStatus, last_answer),
};
constexpr auto kSource = parcel_structure<SourceStatus>(3, kSourceFields);

constexpr std::array kDatabaseFields = {
    PARCEL_FIELD(DatabaseStatus, name),       PARCEL_FIELD(DatabaseStatus, path),
    PARCEL_FIELD(DatabaseStatus, problem),    PARCEL_FIELD(DatabaseStatus, kibibytes),
    PARCEL_FIELD(DatabaseStatus, set_aside),  PARCEL_FIELD(DatabaseStatus, quarantined),
    PARCEL_FIELD(DatabaseStatus, quarantine),
};
constexpr auto kDatabase = parcel_structure<DatabaseStatus>(4, kDatabaseFields);

constexpr std::array kFailureFields = {PARCEL_FIELD(RouteModuleFailure, text)};
constexpr auto kFailure = parcel_structure<RouteModuleFailure>(5, kFailureFields);

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
    PARCEL_FIELD(ProcessStatus, sources, parcel_array_of(kSource)),
    PARCEL_FIELD(ProcessStatus, databases, parcel_array_of(kDatabase)),
    PARCEL_FIELD(ProcessStatus, route_module_failures, parcel_array_of(kFailure)),
    PARCEL_FIELD(ProcessStatus, has_traps),
    PARCEL_FIELD(ProcessStatus, traps_waiting),
    PARCEL_FIELD(ProcessStatus, traps_capacity),
    PARCEL_FIELD(ProcessStatus, traps_lost),
    PARCEL_FIELD(ProcessStatus, traps_subscriber),
    PARCEL_FIELD(ProcessStatus, settings_problem),
    PARCEL_FIELD(ProcessStatus, front_end_version),
    PARCEL_FIELD(ProcessStatus, traps_alone_for),
    PARCEL_FIELD(ProcessStatus, metrics_place),
    PARCEL_FIELD(ProcessStatus, metrics_problem),
};
constexpr auto kStatus = parcel_structure<ProcessStatus>(1, kStatusFields);

}  // namespace

constinit const ParcelDescription kProcessStatusParcel =
    parcel_description<kStatus, kClient, kSource, kDatabase, kFailure>("process_status", 1, 1,
                                                                       "process_status_desc.dll");

}  // namespace process_status
