// Start-up of the process, before the daemon's own:
//
//   1. Fault points from the environment, for tests of whole processes.
//   2. The run and the state directory, created when missing and closed to other users. A daemon that serves
//      there already ends this one.
//   3. platform.yaml; an error ends the process with status 78.
//   4. The stored configuration of all owners, which is replayed to subscribers, and the queue in which traps
//      wait for the SNMP sub-agent.
//   5. The first load of the source into the router model and, where it differs, into the configuration. A
//      failure ends the process: a daemon with an empty model makes management systems delete every VRF. The
//      status is 78 for an invalid file, which a later start would refuse, too.
//      Configuration of a source that is not in use is removed, or it would be effective for ever.
//   6. The services get the model.
//   7. The output gate: no answer leaves for a client before the checkpoint is on disk.
//   8. When the daemon creates its main event manager: the data store's server and the source start on it,
//      the route modules are loaded, the VRFs that configuration names are referenced in the model (before
//      the daemon reads their configuration), the routing tables are watched, and changes of RDs and route
//      targets are reported; metrics are served; signals are followed, and the service manager is notified of
//      the state.
//
// Everything here runs on the main thread. The model and the source live until the process ends.
#include "daemon/host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "daemon/lifecycle.h"
#include "daemon/notifications.h"
#include "daemon/record_types.h"
#include "daemon/route_modules.h"
#include "daemon/settings.h"
#include "daemon/signals.h"
#include "daemon/sources.h"
#include "mpls/vpn/mib/src/route/modules.h"
#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/base/memory.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/evm.h"
#include "platform/core/files/directories.h"
#include "platform/core/files/lock_file.h"
#include "platform/core/files/private_files.h"
#include "platform/core/wire/peer.h"
#include "platform/router/interface_states/interface_states.h"
#include "platform/router/model/router.h"
#include "platform/router/route_watch/route_watch.h"
#include "platform/router/services/services.h"
#include "platform/store/status/status.h"
#include "platform/store/tree/kvtree.h"

namespace daemon_host {

namespace {

constexpr char kMainManager[] = "/dev/mpls/vpn/main";

Host& host() {
  static auto* const instance = new Host;  // never destroyed: services have pointers into it
  return *instance;
}

// Adds sources and loads them.
Status load_sources(AddSources add, const Settings& settings, std::string* error) {
  Sources& sources = host().sources;
  const std::size_t first = sources.size();
  add(&host().model, settings, &sources);
  for (std::size_t at = first; at < sources.size(); ++at) {
    if (const Status status = sources[at]->load(error)) return status;
  }
  return kStatusOk;
}

// Configuration of other kinds of source must not stay effective.
Status load_router(const Settings& settings, std::string* error) {
  for (const SourceKind& kind : source_kinds()) {
    if (&kind == settings.source) continue;
    if (const Status status = kind.remove_configured(error)) return status;
  }
  return load_sources(settings.source->add, settings, error);
}

Status load_configuration_sources(const Settings& settings, std::string* error) {
  for (const ConfigurationSource& source : configuration_sources()) {
    const Status status = source.is_followed(settings) ? load_sources(source.add, settings, error)
                                                       : source.remove_configured(error);
    if (status != kStatusOk) return status;
  }
  return kStatusOk;
}

// Does not return when a source cannot be started: the model would never change.
void start_sources(EventManager* manager) {
  for (const auto& source : host().sources) {
    if (const Status status = source->start(manager)) {
      log_error("mpls_vpn_mib", "cannot follow changes of %s: %s", source->describe().c_str(),
                err_text(status));
      std::exit(1);
    }
  }
}

std::vector<process_status::SourceFact> facts_of_sources() {
  std::vector<process_status::SourceFact> all;
  for (const auto& source : host().sources) std::ranges::move(source->facts(), std::back_inserter(all));
  return all;
}

std::vector<process_status::DatabaseFact> facts_of_databases() {
  const Status failure = chkpt_failure();
  std::vector<process_status::DatabaseFact> facts = {
      {"configuration", state_directory() + "/configuration.db", kvtree_configuration_problem(),
       kvtree_configuration_quarantine()},
      {"checkpoint", state_directory() + "/checkpoint.db", failure ? err_text(failure) : "",
       chkpt_quarantine()}};
  std::ranges::move(notification_files(), std::back_inserter(facts));
  return facts;
}

process_status::MetricsFact facts_of_metrics() {
  const auto& metrics = host().metrics;
  return metrics == nullptr ? process_status::MetricsFact{} : metrics->fact();
}

void provide_status(EventManager* manager) {
  const Source* source = host().sources.front().get();  // lives as long as the process
  const ProcessIdentity identity{.version = MPLS_VERSION,
                                 .source = source->describe(),
                                 .corrections = [source] { return source->corrections(); },
                                 .malformed = [source] { return source->malformed(); },
                                 .sources = facts_of_sources,
                                 .databases = facts_of_databases,
                                 .route_module_failures = mpls_vpn_mib_route_module_failures,
                                 .traps = waiting_notifications,
                                 .settings_problem = [] { return host().settings_problem; },
                                 .metrics = facts_of_metrics};
  if (const Status status = process_status_start(manager, identity)) {
    log_error("mpls_vpn_mib", "\"mplsvpn show status\" is not available: %s", err_text(status));
  }
}

void provide_interface_states(EventManager* manager) {
  if (const Status status = interface_states_start(&host().model, manager))
    log_error("mpls_vpn_mib", "\"mplsvpn show interfaces\" has no states: %s", err_text(status));
}

bool has_read_routes(router::RouteTableId table) {
  return std::ranges::all_of(host().sources,
                             [table](const auto& source) { return source->has_read_routes(table); });
}

void provide_metrics(EventManager* manager) {
  const Source* source = host().sources.front().get();  // lives as long as the process
  host().metrics = std::make_unique<daemon_metrics::Exporter>(
      &host().model, manager, MPLS_VERSION, [source] { return source->corrections_by_table(); });
  host().metrics->apply(host().settings.metrics);
}

// A flood of lines that ends may be followed by none.
void report_floods_regularly(EventManager* manager) {
  log_report_floods();
  event_timer_start(manager, kLogInterval, [manager] { report_floods_regularly(manager); });
}

// A failure here ends the process: it could not serve requests.
void start_on_main_manager(EventManager* manager) {
  host().managers.push_back(manager);
  if (std::string(event_manager_name(manager)) != kMainManager) return;
  if (const Status status = kvtree_serve(manager)) {
    log_error("mpls_vpn_mib", "cannot serve %s: %s", kMainManager, err_text(status));
    std::exit(1);
  }
  provide_status(manager);
  list_notifications(manager);
  provide_interface_states(manager);
  register_record_types();
  report_floods_regularly(manager);
  check_route_modules();
  std::string error;
  route_watch_store_in(state_directory() + "/route_watch");
  route_watch_ask(has_read_routes);
  if (router_services_start(&host().model, manager, &error) != kStatusOk) {
    log_error("mpls_vpn_mib", "%s", error.c_str());
    std::exit(1);
  }
  start_sources(manager);
  provide_metrics(manager);
  if (const Status status = follow_service_manager(manager, &host())) {
    log_error("mpls_vpn_mib", "cannot follow signals: %s", err_text(status));
    std::exit(1);
  }
}

bool arm_faults() {
  const char* faults = std::getenv("MPLS_VPN_MIB_FAULTS");
  if (faults == nullptr || *faults == '\0') return true;
  const Status status = fault_arm_from_text(faults);
  if (status == kStatusOk) {
    log_warning("mpls_vpn_mib", "MPLS_VPN_MIB_FAULTS makes operations fail, for tests: %s", faults);
  } else if (status == kStatusNoHandler) {
    log_warning("mpls_vpn_mib", "MPLS_VPN_MIB_FAULTS is ignored: this program has no fault points");
  } else {
    log_error("mpls_vpn_mib", "MPLS_VPN_MIB_FAULTS does not parse: %s", faults);
    return false;
  }
  return true;
}

bool make_directory(const std::string& directory, mode_t mode, mode_t file_mode) {
  std::error_code failure;
  std::filesystem::create_directories(std::filesystem::path(directory).parent_path(), failure);
  Status status = failure ? static_cast<Status>(failure.value()) : prepare_directory(directory, mode);
  if (status == kStatusOk) status = restrict_files(directory, file_mode);
  if (status == kStatusOk) return true;
  log_error("mpls_vpn_mib", "cannot use %s: %s", directory.c_str(), err_text(status));
  return false;
}

// No file is for other users, whatever the mode with which a library creates it.
bool make_directories() {
  umask(umask(0) | S_IWGRP | S_IWOTH);  // for missing parents
  const bool made = make_directory(run_directory(), kRunDirectoryMode, kRunFileMode) &&
                    make_directory(state_directory(), kStateDirectoryMode, kPrivateFileMode);
  umask(S_IRWXG | S_IRWXO);
  return made;
}

// Without its configuration the daemon would send no traps although the operator enabled them. Returns 0, or
// the exit status.
int prepare_store() {
  if (const Status status = vrf_config::register_configuration()) {
    log_error("mpls_vpn_mib", "cannot register the owners of the configuration: %s", err_text(status));
    return 1;
  }
  const Status opened = kvtree_keep_configuration(state_directory());
  if (opened != kStatusOk) {
    log_error("mpls_vpn_mib", "cannot open the configuration in %s: %s", state_directory().c_str(),
              err_text(opened));
    return opened == kStatusNewerVersion ? kNeedsOperator : 1;
  }
  return retain_notifications() == kStatusOk ? 0 : 1;
}

void warn_of_shared_user() {
  if (!wire::runs_as_overflow_user()) return;
  log_warning("mpls_vpn_mib",
              "the kernel reports every user without an id here as user %u, so only root and the group of "
              "administrators may configure: run the daemon as a user of its own",
              geteuid());
}

int refuse(const std::string& error, int status) {
  log_error("mpls_vpn_mib", "%s", error.c_str());
  return status;
}

// A file that can be checked is invalid until someone changes it.
int refuse_load(Status status, const std::string& error) {
  const bool is_wrong = status == kStatusInvalid && host().settings.source->check != nullptr;
  return refuse(error, is_wrong ? kNeedsOperator : 1);
}

// Two daemons that start together are left to the locks of the databases and of the run directory.
bool is_alone() {
  const std::optional<pid_t> other = event_manager_server(kMainManager);
  if (!other) return true;
  log_error("mpls_vpn_mib",
            "%s runs as the daemon of %s: end it, then start again; a second daemon needs directories of its "
            "own (MPLS_VPN_MIB_RUN_DIR, MPLS_VPN_MIB_STATE_DIR)",
            describe_process(*other).c_str(), run_directory().c_str());
  return false;
}

}  // namespace

int start_host() {
  heap_join_freed_blocks_at_once();
  heap_reuse_freed_buffers();
  log_limit(kLogLines, kLogInterval);
  warn_of_shared_user();
  block_harmless_signals();
  if (!arm_faults() || !make_directories() || !is_alone()) return 1;
  Settings& settings = host().settings;
  std::string error;
  if (!read_settings(config_directory(), &settings, &error)) return refuse(error, kNeedsOperator);
  if (!settings.warning.empty()) log_warning("mpls_vpn_mib", "%s", settings.warning.c_str());
  if (const int status = prepare_store()) return status;
  if (const Status status = load_router(settings, &error)) return refuse_load(status, error);
  if (const Status status = load_configuration_sources(settings, &error)) return refuse_load(status, error);
  heap_return_freed_memory();  // that files were read into, more than the services need
  router_services_attach(&host().model);
  // Clients never see a time that a crash could undo. The store logs a commit that failed and continues.
  chkpt_gate_output();
  event_manager_on_create(start_on_main_manager);
  log_notice("mpls_vpn_mib", "VRFs loaded from %s: %zu, interfaces: %zu",
             host().sources.front()->describe().c_str(), host().model.vrf_count(),
             host().model.interface_count());
  return 0;
}

}  // namespace daemon_host
