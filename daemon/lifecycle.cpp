#include "daemon/lifecycle.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "daemon/reload.h"
#include "daemon/signals.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/files/directories.h"
#include "platform/core/proc/proc.h"
#include "platform/router/route_watch/route_watch.h"
#include "platform/store/tree/kvtree.h"

namespace daemon_host {

namespace {

constexpr std::uint64_t kStateInterval = 5 * kNanosecondsPerSecond;

std::string count_of(std::size_t count, const char* one) {
  return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string state_of(const Host& host) {
  std::string text = count_of(host.model.vrf_count(), "VRF") + " and " +
                     count_of(host.model.interface_count(), "interface") + " from " +
                     host.sources.front()->describe();
  for (const auto& source : host.sources) {
    if (const std::string state = source->state(); !state.empty()) text += "; " + state;
  }
  return text;
}

void report_state_regularly(EventManager* manager, const Host* host, const std::string& former) {
  const std::string state = state_of(*host);
  if (state != former) proc_status(state);
  event_timer_start(manager, kStateInterval, [=] { report_state_regularly(manager, host, state); });
}

// A loop that has not come here for longer than the interval is stuck. It never waits for the disk.
void feed_watchdog_regularly(EventManager* manager, std::uint64_t interval) {
  proc_watchdog();
  event_timer_start(manager, interval, [=] { feed_watchdog_regularly(manager, interval); });
}

// What is under way is finished: commits of clients, and what the checkpoint and the queue of traps write on
// threads. Clients that have no answer yet lose the connection.
[[noreturn]] void end_process(EventManager* manager, const Host& host, const std::string& signal) {
  log_notice("mpls_vpn_mib", "ended by %s", signal.c_str());
  proc_stopping("ended by " + signal);
  kvtree_stop_serving(manager);
  route_watch_write_states();
  if (const Status status = chkpt_flush()) {
    log_error("mpls_vpn_mib", "the checkpoint was not written before the end: %s", err_text(status));
  }
  for (const EventManager* each : host.managers) event_manager_remove_socket(each);
  event_run_directory_unlock();
  std::fflush(nullptr);
  _exit(0);  // no destructor may run: the debug thread does
}

}  // namespace

Status follow_service_manager(EventManager* manager, Host* host) {
  SignalActions actions;
  actions.end = [=](const std::string& signal) { end_process(manager, *host, signal); };
  actions.reload = [=](const std::string& signal) { reload(host, signal); };
  if (const Status status = follow_signals(manager, actions)) return status;
  if (const std::uint64_t interval = proc_watchdog_interval()) feed_watchdog_regularly(manager, interval);
  report_state_regularly(manager, host, "");
  return kStatusOk;
}

}  // namespace daemon_host
