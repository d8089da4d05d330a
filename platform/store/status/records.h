// The record of the state of the daemon's process: a contract with every process that decodes it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/parcel/parcel.h"

namespace process_status {

// The provider, and what it answers.
inline constexpr char kProviderPath[] = "/oper/process/";
inline constexpr char kItemName[] = "status";

// A client of the data store. Numbers beyond 32 bits are the largest one.
struct ClientStatus {
  std::uint32_t id;
  std::uint32_t user;  // numeric, as is the process: the daemon does not ask the name service
  std::uint32_t process;
  char* role;
  std::uint32_t age;  // seconds
  std::uint32_t requests;
  std::uint32_t requests_per_second;  // of the last seconds
  std::uint32_t loop_milliseconds;    // that its requests took
  std::uint32_t queued;               // octets that it has not read yet
};
static_assert(sizeof(ClientStatus) == 48);

// What the process learns about the router from (facts.h). Texts may be empty.
struct SourceStatus {
  char* name;
  char* version;
  char* problem;
  std::uint32_t is_up;
  std::uint32_t last_answer;  // 0: none
};
static_assert(sizeof(SourceStatus) == 32);

struct DatabaseStatus {
  char* name;
  char* path;
  char* problem;
  std::uint32_t kibibytes;    // with its log
  std::uint32_t set_aside;    // files that were renamed because they could not be used
  std::uint32_t quarantined;  // rows that could not be used
  char* quarantine;           // the tables that have them
};
static_assert(sizeof(DatabaseStatus) == 48);

struct RouteModuleFailure {
  char* text;
};
static_assert(sizeof(RouteModuleFailure) == 8);

// How settings_problem begins if only a restart helps.
inline constexpr char kRestartForSettings[] = "restart the daemon for the changed ";

// Times of day are seconds since 1970. An iteration of the event loop is long from kLongIteration
// (platform/core/evm/evm.h).
struct ProcessStatus {
  char* version;
  char* source;
  std::uint32_t uptime;  // seconds
  std::uint32_t long_iterations;
  std::uint32_t longest_iteration;       // milliseconds
  std::uint32_t longest_iteration_time;  // 0: none was long
  ParcelArray clients;                   // of ClientStatus
  std::uint32_t is_corrected;            // 1: the source corrects the model when it finds a difference
  std::uint32_t corrections;             // ... that many times so far
  std::uint32_t has_messages;            // 1: the source receives messages
  std::uint32_t malformed;               // ... so many malformed ones so far
  ParcelArray sources;                   // of SourceStatus
  ParcelArray databases;                 // of DatabaseStatus
  ParcelArray route_module_failures;     // of RouteModuleFailure; empty: both modules are loaded
  std::uint32_t has_traps;               // 1: traps are retained for the SNMP front end
  std::uint32_t traps_waiting;
  std::uint32_t traps_capacity;
  std::uint32_t traps_lost;        // of which the front end does not know yet
  std::uint32_t traps_subscriber;  // the id of the front end among the clients; 0: none
  char* settings_problem;          // why the settings in the file are not those in effect; empty if they are
  char* front_end_version;         // empty: none is connected, or it does not state it
  std::uint32_t traps_alone_for;   // seconds without a front end; 0 with one
  char* metrics_place;             // where metrics are served; empty: they are off
  char* metrics_problem;           // why they are not served there; empty if they are
};
static_assert(sizeof(ProcessStatus) == 176);

extern const ParcelDescription kProcessStatusParcel;

}  // namespace process_status
