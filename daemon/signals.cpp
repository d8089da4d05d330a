#include "daemon/signals.h"

#include <signal.h>
#include <sys/epoll.h>

#include <cerrno>
#include <optional>

#include "platform/core/proc/signals.h"

namespace daemon_host {

namespace {

constexpr auto kEndSignals = {SIGTERM, SIGINT};
constexpr auto kFollowedSignals = {SIGTERM, SIGINT, SIGHUP};

void take_signal(int fd, const SignalActions& actions) {
  const std::optional<ProcSignal> signal = proc_read_signal(fd);
  if (!signal) return;
  if (signal->number == SIGHUP) return actions.reload(signal->text);
  proc_unblock_signals(kEndSignals);
  actions.end(signal->text);
}

}  // namespace

void block_reload_signal() {
  proc_block_signals({SIGHUP});
}

Status follow_signals(EventManager* manager, const SignalActions& actions) {
  proc_block_signals(kFollowedSignals);
  const int fd = proc_open_signals(kFollowedSignals);
  if (fd < 0) return static_cast<Status>(errno);
  return event_fd_add(manager, fd, EPOLLIN,
                      [actions](int readable, std::uint32_t) { take_signal(readable, actions); });
}

}  // namespace daemon_host
