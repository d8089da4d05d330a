#include "agent/service/run.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/proc/proc.h"
#include "platform/core/proc/signals.h"

namespace agent {
namespace {

constexpr auto kSignals = {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2};

std::string describe(SubAgent::Condition condition, const SubAgentOptions& options) {
  const std::string master = "the master agent at " + options.agentx_socket;
  const std::string daemon = "the daemon at " + options.daemon_socket;
  switch (condition) {
    case SubAgent::Condition::kWaitsForDaemon:
      return "waiting for " + daemon;
    case SubAgent::Condition::kWaitsForMaster:
      return "waiting for " + master;
    case SubAgent::Condition::kServes:
      return "registered with " + master;
    case SubAgent::Condition::kLacksDaemon:
      return "registered with " + master + "; waiting for " + daemon;
  }
  return {};
}

// Notifies the service manager of what has changed, and of life as often as it wants.
class ServiceReport {
 public:
  ServiceReport(const SubAgentOptions& options, SubAgent::Condition condition)
      : options_(&options), reported_(condition) {
    proc_status(describe(condition, options));
  }

  // Milliseconds; -1 for any time.
  int longest_wait() const {
    return interval_ == 0 ? -1 : static_cast<int>(interval_ / kNanosecondsPerMillisecond);
  }
  void update(SubAgent::Condition condition) {
    if (condition != reported_) proc_status(describe(condition, *options_));
    reported_ = condition;
    if (interval_ == 0 || clock_monotonic() < alive_at_) return;
    alive_at_ = clock_monotonic() + interval_;
    proc_watchdog();
  }

 private:
  const SubAgentOptions* options_;
  SubAgent::Condition reported_;
  std::uint64_t interval_ = proc_watchdog_interval();
  std::uint64_t alive_at_ = 0;
};

// True if the signal ends the process.
bool take_signal(int fd, SubAgent* sub_agent) {
  const std::optional<ProcSignal> signal = proc_read_signal(fd);
  if (!signal) return false;
  switch (signal->number) {
    case SIGHUP:
      log_notice("", "%s: connecting again", signal->text.c_str());
      sub_agent->reconnect();
      return false;
    case SIGUSR1:
    case SIGUSR2:
      log_warning("", "%s has no effect; SIGHUP connects again", signal->text.c_str());
      return false;
    default:
      log_notice("", "ended by %s", signal->text.c_str());
      proc_stopping("ended by " + signal->text);
      return true;
  }
}

}  // namespace

int run_as_service(const SubAgentOptions& options) {
  proc_block_signals(kSignals);
  const int signals = proc_open_signals(kSignals);
  if (signals < 0) {
    log_error("mpls_vpn_snmp", "signalfd: %s", std::strerror(errno));
    return EXIT_FAILURE;
  }
  SubAgent sub_agent(options);
  // Ready without snmpd and the daemon: it waits for either, and a unit that starts after it must not.
  if (const Status status = proc_ready()) {
    log_warning("mpls_vpn_snmp", "cannot notify the service manager: %s", err_text(status));
  }
  ServiceReport report(options, sub_agent.condition());
  do {
    report.update(sub_agent.condition());
  } while (!sub_agent.run_once(signals, report.longest_wait()) || !take_signal(signals, &sub_agent));
  sub_agent.shut_down();
  close(signals);
  return EXIT_SUCCESS;
}

}  // namespace agent
