// Start-up, in a fixed order.
//
// Each step returns 0 or the exit status; the first that fails ends the process. Until the trace buffers are
// open and the second thread serves the debug flags, failures are posted as error messages; afterwards they
// are printed under ERR and traced. The process reports readiness once the databases and the record-service
// registration exist, before it registers as provider: a service that waits for the daemon does not wait for
// the replay of the configuration.
//
// Threads: "main" runs every handler. "debug and show" serves the debug flags, so that an operator can switch
// them while a handler is busy. Two real-time signals are blocked before the second thread is created, which
// inherits the mask. There is no orderly shutdown: the loops run until the process is killed, and the
// checkpoint on disk is always current.
#include "mpls/vpn/mib/src/mpls_vpn_mib_start.h"

#include <pthread.h>
#include <signal.h>
#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/provider.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "mpls/vpn/mib/src/support/errmsg.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/traps/reissue_timer.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/core/base/assertion.h"
#include "platform/core/base/fault.h"
#include "platform/core/proc/proc.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"

const ServerInit server_init[] = {mpls_vpn_mib_vrf_dbase_init, mpls_vpn_mib_if_dbase_init,
                                  mpls_vpn_mib_rt_dbase_init, nullptr};
const ServerInitEvm server_init_evm[] = {mpls_vpn_mib_chkpt_init, mpls_vpn_mib_timer_init,
                                         mpls_vpn_mib_vtab_init, nullptr};

namespace {

constexpr int kStartFailed = 1;
constexpr std::uint32_t kManagerFlags = 0x70000004;
constexpr char kSourceName[] = "mpls/vpn/mib/src/mpls_vpn_mib_start";

EventManager* main_evm = nullptr;
EventManager* debug_evm = nullptr;

// --- Log and event managers

void open_system_log(const char* program) {
  // Process id, console on failure, and the log opened at once, a separate bit on this system.
  constexpr int kOptions = 19 | LOG_NDELAY;
  constexpr int kFacility = 24;
  static_assert((kOptions & (LOG_PID | LOG_CONS)) == (LOG_PID | LOG_CONS) && kFacility == LOG_DAEMON);
  const char* slash = std::strrchr(program, '/');
  errmsg_open(slash == nullptr ? program : slash + 1, kOptions, kFacility);
}

int create_event_managers() {
  main_evm = event_manager_create("/dev/mpls/vpn/main", kManagerFlags);
  if (main_evm == nullptr) {
    // The first text is an argument of the message: its conversion is logged literally.
    mpls_vpn_errmsg_init("error in event_manager_create for main_evm: %s\n",
                         err_text(static_cast<Status>(errno)));
    return kStartFailed;
  }
  debug_evm = event_manager_create("/dev/mpls/vpn/debug", kManagerFlags);
  if (debug_evm == nullptr) {
    mpls_vpn_errmsg_init("Event Manager creation failed for", " debug and show exiting...");
    return kStartFailed;
  }
  return 0;
}

int open_trace_buffers() {
  if (mpls_vpn_trace_init() == kStatusOk) return 0;
  errmsg_post(&ERR_TRACE_INIT);
  return kStartFailed;
}

// --- The second thread

int checked_sigaddset(sigset_t* set, int signal_number) {
  const Status injected = fault_check("sigaddset");
  return injected != kStatusOk ? static_cast<int>(injected) : sigaddset(set, signal_number);
}

int checked_sigmask(const sigset_t* set) {
  const Status injected = fault_check("pthread_sigmask");
  return injected != kStatusOk ? static_cast<int>(injected) : pthread_sigmask(SIG_BLOCK, set, nullptr);
}

void block_signals() {
  sigset_t set;
  sigemptyset(&set);
  int rc = checked_sigaddset(&set, SIGRTMIN + 6);
  if (rc != 0) assertion_failed(kSourceName, __LINE__, "rc == 0");
  rc = checked_sigaddset(&set, SIGRTMIN + 10);
  if (rc != 0) assertion_failed(kSourceName, __LINE__, "rc ==0");
  rc = checked_sigmask(&set);
  if (rc != 0) assertion_failed(kSourceName, __LINE__, "rc == 0");
}

Status create_debug_show_thread() {
  const Status injected = fault_check("pthread_create");
  if (injected != kStatusOk) return injected;
  pthread_t thread;
  return static_cast<Status>(pthread_create(&thread, nullptr, debug_show_thread, debug_evm));
}

void post_traced(const char* what, Status rc) {
  mpls_vpn_errmsg_init(what, err_text(rc));
  mpls_vpn_trace(kTraceError, rc, "main: %s", what);
}

int start_debug_show() {
  block_signals();
  const Status rc = create_debug_show_thread();
  if (rc == kStatusOk) return 0;
  post_traced("Failed to create the show and debug thread", rc);
  post_traced("Debug and show initialization failed exiting...", rc);
  return kStartFailed;
}

int register_debug_flags() {
  const Status rc = mpls_vpn_debug_init(debug_evm);
  if (rc == kStatusOk) return 0;
  post_traced("Debug initialization failed exiting...", rc);
  return kStartFailed;
}

// --- Databases, readiness, provider

int check_step(const char* what, Status rc) {
  return mpls_vpn_checked("main", what, rc) == kStatusOk ? 0 : kStartFailed;
}

// The display format is a convenience: without it AS numbers are shown in the format that is the default.
int follow_asn_format() {
  mpls_vpn_checked("main", "bgp_util_asn_format_init_notify", bgp_util_asn_format_init_notify(main_evm));
  return 0;
}

int run_server_init() {
  for (const ServerInit* init = server_init; *init != nullptr; ++init) {
    if (check_step("error in server_init", (*init)()) != 0) return kStartFailed;
  }
  return 0;
}

int run_server_init_evm() {
  for (const ServerInitEvm* init = server_init_evm; *init != nullptr; ++init) {
    if (check_step("error in server_init_evm", (*init)(main_evm)) != 0) return kStartFailed;
  }
  return 0;
}

int signal_readiness() {
  return check_step("proc_ready", proc_ready());
}

int register_provider() {
  return check_step("error in PROV", mpls_vpn_mib_prov_init(main_evm));
}

// The system keeps the low octet of an exit status. A code without one must not look like success.
int exit_status_of(Status rc) {
  return (rc & 0xff) == 0 ? kStartFailed : static_cast<int>(rc);
}

// The only step whose own code is the exit status.
int restore_checkpoint() {
  if (mpls_vpn_mib_chkpt_first_run() != 0) return 0;
  const Status rc = mpls_vpn_mib_chkpt_restore();
  if (rc != kStatusOk) {
    mpls_vpn_error("main", "mpls_vpn_mib_chkpt_restore", rc);
    return exit_status_of(rc);
  }
  mpls_vpn_mib_chkpt_save_missing();
  return 0;
}

using StartStep = int (*)();
constexpr StartStep kStartSteps[] = {
    create_event_managers, open_trace_buffers,  start_debug_show, register_debug_flags, follow_asn_format,
    run_server_init,       run_server_init_evm, signal_readiness, register_provider,    restore_checkpoint,
};

// --- Loops

void report_wait_failure(int error) {
  mpls_vpn_debug(ERR, "%s: Debug and Show thread has errno set to %s", "debug_show_thread",
                 err_text(static_cast<Status>(error)));
  mpls_vpn_trace(kTraceError, static_cast<Status>(error), "debug_show_thread: event_wait");
}

}  // namespace

void debug_show_step(EventContext* context) {
  const int rc = event_wait(context);
  const int error = rc == 0 ? 0 : errno;
  if (error == 0) {  // also a failure that states no error
    event_dispatch(context);
  } else if (error != EINTR && error != EAGAIN) {
    report_wait_failure(error);
  }
}

void* debug_show_thread(void* arg) {
  proc_name_thread("debug and show");
  char buffer[128];
  EventContext context = {static_cast<EventManager*>(arg), buffer, sizeof buffer, 0};
  for (;;) debug_show_step(&context);
}

void main_event_step(EventContext* context) {
  if (event_wait(context) == 0) {
    event_dispatch(context);
    return;
  }
  const auto error = static_cast<Status>(errno);
  mpls_vpn_debug(ERR, "%s: Main thread has errno set to %s", "main_event_loop", err_text(error));
  mpls_vpn_trace(kTraceError, error, "main_event_loop: event_wait");
}

void main_event_loop() {
  char buffer[1024];
  EventContext context = {main_evm, buffer, sizeof buffer, 0};
  for (;;) main_event_step(&context);
}

int mpls_vpn_mib_main(int /*argc*/, char** argv) {
  proc_name_thread("main");
  open_system_log(argv[0]);
  for (const StartStep step : kStartSteps) {
    const int rc = step();
    if (rc != 0) return rc;
  }
  mpls_vpn_debug(START, "Completed init");
  mpls_vpn_trace(kTraceInit, kStatusOk, "Completed init");
  main_event_loop();
}
