// What the process has around the daemon. It lives as long as the process.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "daemon/metrics/exporter.h"
#include "daemon/settings.h"
#include "daemon/sources.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

namespace daemon_host {

struct Host {
  router::Router model;
  Settings settings;                          // those in effect
  Sources sources;                            // the model's own, then those that only write configuration
  std::vector<const EventManager*> managers;  // of the process, the main one first
  std::unique_ptr<daemon_metrics::Exporter> metrics{};  // null until the main manager exists
  std::string settings_problem{};  // why the settings in the file are not those in effect; empty if they are
  std::size_t reloading = 0;       // sources that have yet to end a reload
};

}  // namespace daemon_host
