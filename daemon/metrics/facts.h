// What the families of metrics read, and where one continues. Only for this folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "daemon/metrics/route_totals.h"
#include "platform/core/metrics/text_format.h"
#include "platform/router/model/router.h"
#include "platform/store/status/facts.h"

namespace daemon_metrics {

// What the families are read from. All of it outlives the scrapes.
struct Facts {
  const router::Router* model;
  const RouteTotals* routes;
  std::string version;
  std::function<std::vector<process_status::CorrectionFact>()> corrections;
  bool with_interfaces;
};

// How much one part of a scrape may still hold and visit.
struct Room {
  std::size_t octets;  // of the text
  std::size_t rows;    // VRFs and interfaces, with samples or without
  bool is_left(const metrics::Samples& samples) const { return samples.size() < octets && rows > 0; }
};

// Where a family that was begun continues.
struct Position {
  std::string vrf;              // the next one, or one before it
  std::uint32_t interface = 0;  // the handle of the last one
};

}  // namespace daemon_metrics
