// What signals do to the daemon: SIGTERM and SIGINT end it in order, SIGHUP reloads. SIGUSR1 and
// SIGUSR2, by which other daemons open their logs again, do nothing but name their sender in the log: by
// default they would end the process.
//
// Until the main manager exists, SIGTERM and SIGINT end the process at once: it serves no client yet, and
// what it has written survives that. The others wait.
#pragma once

#include <functional>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

namespace daemon_host {

// They get the signal's name and its sender, for messages.
struct SignalActions {
  std::function<void(const std::string& signal)> end;
  std::function<void(const std::string& signal)> reload;
};

// For the start, before any thread exists.
void block_harmless_signals();
// Calls the actions on the manager's loop. While `end` runs, a second signal ends the process at once. Call
// it on the main thread, before it starts threads that do not block all signals.
[[nodiscard]] Status follow_signals(EventManager* manager, const SignalActions& actions);

}  // namespace daemon_host
