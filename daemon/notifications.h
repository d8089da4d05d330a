// The daemon's notifications on their way to SNMP: the queue in which they wait for its front end, and their
// history.
#pragma once

#include <optional>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/store/status/facts.h"

namespace daemon_host {

// Before the daemon raises any. Logs a failure, with which they would not survive a restart.
[[nodiscard]] Status retain_notifications();
// Those that wait for the front end; none before they are retained.
std::optional<process_status::TrapsFact> waiting_notifications();
// The files of the queue and of the history.
std::vector<process_status::DatabaseFact> notification_files();
// On the manager that serves the data store. A failure is logged.
void list_notifications(EventManager* manager);

}  // namespace daemon_host
