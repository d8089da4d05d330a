// What the families of metrics read, and where one continues. Only for this folder.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "daemon/metrics/route_totals.h"
#include "platform/router/model/router.h"

namespace daemon_metrics {

// What the families are read from. All of it outlives the scrapes.
struct Facts {
  const router::Router* model;
  const RouteTotals* routes;
  std::string version;
  std::function<std::optional<std::uint64_t>()> corrections;  // as in platform/store/status/status.h
  bool with_interfaces;
};

// Where a family that was begun continues.
struct Position {
  std::string vrf;              // the next one, or one before it
  std::uint32_t interface = 0;  // the handle of the last one
};

}  // namespace daemon_metrics
