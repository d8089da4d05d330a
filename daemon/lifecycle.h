// The process towards its service manager and its operator: state, watchdog, end and reload.
#pragma once

#include "daemon/host_state.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

namespace daemon_host {

// Follows signals (signals.h), and keeps the service manager informed. `host` lives as long as the process.
[[nodiscard]] Status follow_service_manager(EventManager* manager, Host* host);

}  // namespace daemon_host
