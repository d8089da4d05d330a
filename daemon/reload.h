// What SIGHUP changes: the settings that can take effect while the daemon serves, and what the sources read.
#pragma once

#include <string>

#include "daemon/host_state.h"

namespace daemon_host {

// Reads the settings again, applies those that need no restart, and has the sources read again; the service
// manager knows of the begin and of the end, which may come later. Each setting that changed is logged, with
// what it needs. Invalid settings change nothing and are logged. `signal` is its name and sender.
void reload(Host* host, const std::string& signal);

}  // namespace daemon_host
