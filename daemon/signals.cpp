#include "daemon/signals.h"

#include <signal.h>
#include <sys/epoll.h>

#include <cerrno>
#include <optional>

#include "platform/core/base/log.h"
#include "platform/core/proc/signals.h"

namespace daemon_host {

namespace {

constexpr auto kEndSignals = {SIGTERM, SIGINT};
constexpr auto kHarmlessSignals = {SIGHUP, SIGUSR1, SIGUSR2};  // that do not end it
constexpr auto kFollowedSignals = {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2};

void take_signal(int fd, const SignalActions& actions) {
  const std::optional<ProcSignal> signal = proc_read_signal(fd);
  if (!signal) return;
  switch (signal->number) {
    case SIGHUP:
      return actions.reload(signal->text);
    case SIGUSR1:
    case SIGUSR2:
      return log_warning("mpls_vpn_mib", "%s has no effect; SIGHUP reads the settings and the router file",
                         signal->text.c_str());
    default:
      proc_unblock_signals(kEndSignals);
      actions.end(signal->text);
  }
}

}  // namespace

void block_harmless_signals() {
  proc_block_signals(kHarmlessSignals);
}

Status follow_signals(EventManager* manager, const SignalActions& actions) {
  proc_block_signals(kFollowedSignals);
  const int fd = proc_open_signals(kFollowedSignals);
  if (fd < 0) return static_cast<Status>(errno);
  return event_fd_add(manager, fd, EPOLLIN,
                      [actions](int readable, std::uint32_t) { take_signal(readable, actions); });
}

}  // namespace daemon_host
