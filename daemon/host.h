// The process around the daemon: settings, the router model with its services, and the source that feeds it.
#pragma once

namespace daemon_host {

// Exit status of a process that starting again does not help, EX_CONFIG of sysexits.h: settings or router
// file are invalid, or a database is of a later release.
inline constexpr int kNeedsOperator = 78;

// Reads the settings, loads the source into the router model and attaches the services, so that the model is
// complete before the daemon registers. Live changes and the data store's server start with the main event
// manager. Returns 0, or the exit status of the process after logging the reason. Call it once, before the
// daemon's own main.
[[nodiscard]] int start_host();

}  // namespace daemon_host
