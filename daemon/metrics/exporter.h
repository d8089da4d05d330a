// /metrics for Prometheus on the daemon's main event manager, as the settings want it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "daemon/metrics/families.h"
#include "daemon/metrics/settings.h"
#include "platform/core/evm/evm.h"
#include "platform/core/http/endpoint.h"

namespace daemon_metrics {

// Serves while it lives. Main thread; the model and the manager outlive it.
class Exporter {
 public:
  // The version of the daemon, and Facts::corrections.
  Exporter(router::Router* model, EventManager* manager, const MetricsSettings& settings, std::string version,
           std::function<std::vector<process_status::CorrectionFact>()> corrections);
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

 private:
  RouteTotals routes_;
  const Facts facts_;
  http::Endpoint endpoint_;
};

}  // namespace daemon_metrics
