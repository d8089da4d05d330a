// The process around the daemon: settings, the router model with its services, and the source that feeds it.
#pragma once

namespace daemon_host {

// Reads the settings, loads the source into the router model and attaches the services, so that everything
// the router has is there before the daemon registers for it; live changes and the data store's server start
// with the main event manager. Returns 0, or the process's exit status after saying why. Call once, before
// the daemon's own main; the model lives until the process ends.
[[nodiscard]] int start_host();

}  // namespace daemon_host
