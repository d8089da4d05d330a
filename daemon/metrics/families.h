// The metrics: one table of families, in the order in which they are written. docs/metrics.md describes them
// for operators.
//
// Main thread. Nothing here has a pointer into the databases between two calls, so that VRFs and interfaces
// may be added and removed during a scrape.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "daemon/metrics/facts.h"
#include "platform/core/metrics/text_format.h"

namespace daemon_metrics {

struct FamilyRow {
  metrics::Family family;
  // Adds samples from the position on, until there are no more (true) or no room is left.
  bool (*add_some)(const Facts& facts, Position* position, Room* room, metrics::Samples* samples);
};

std::span<const FamilyRow> families();

// The families of one scrape as text, part by part.
class Scrape {
 public:
  explicit Scrape(const Facts* facts) : facts_(facts) {}
  // Appends what there is room for, possibly nothing; false after the last one.
  bool add_part(Room room, std::string* text);

 private:
  const Facts* facts_;
  std::size_t family_ = 0;
  bool has_begun_ = false;  // the family
  Position position_;
};

}  // namespace daemon_metrics
