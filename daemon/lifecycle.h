// The process towards its service manager and its operator: state, watchdog, end and reload.
#pragma once

#include <memory>
#include <vector>

#include "daemon/metrics/exporter.h"
#include "daemon/settings.h"
#include "daemon/sources.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

namespace daemon_host {

struct Host {
  router::Router model;
  Settings settings;
  Sources sources;                            // the model's own, then those that only write configuration
  std::vector<const EventManager*> managers;  // of the process, the main one first
  std::unique_ptr<daemon_metrics::Exporter> metrics{};  // null: off
};

// Follows signals (signals.h), and keeps the service manager informed. `host` lives as long as the process.
[[nodiscard]] Status follow_service_manager(EventManager* manager, const Host* host);

}  // namespace daemon_host
