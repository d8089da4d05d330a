// /metrics for Prometheus on the daemon's main event manager, if and where the settings want it. What it
// counts continues while it is not served.
#pragma once

#include <functional>
#include <memory>
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
  // The version of the daemon, and Facts::corrections. Not served until apply().
  Exporter(router::Router* model, EventManager* manager, std::string version,
           std::function<std::vector<process_status::CorrectionFact>()> corrections);
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // Closes the former place and its clients, then opens the new one.
  void apply(const MetricsSettings& settings);
  // Whether it is to be served and the place is not available yet.
  bool is_waiting() const { return endpoint_ != nullptr && !endpoint_->is_open(); }
  process_status::MetricsFact fact() const;

 private:
  RouteTotals routes_;
  Facts facts_;
  EventManager* manager_;
  std::unique_ptr<http::Endpoint> endpoint_;  // null: off
};

}  // namespace daemon_metrics
