// Attributes that only few routes have: further metrics, a next-hop AS, labels. Routes with equal attributes
// share one set.
//
// A route's row has the number of its set. Sets are reference-counted: the number of a set that no row refers
// to is reused. Number 0 is the empty set and is not counted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/router/model/route_store.h"

namespace router {

struct RouteAttributes {
  std::array<std::int32_t, 4> further_metrics{kMetricUnused, kMetricUnused, kMetricUnused, kMetricUnused};
  std::uint32_t next_hop_as = 0;
  std::vector<std::uint32_t> labels;
  auto operator<=>(const RouteAttributes&) const = default;
};

class RouteAttributeSets {
 public:
  // The number of an equal set, which this call holds once more.
  std::uint32_t hold(const RouteAttributes& attributes);
  void release(std::uint32_t number);
  // REQUIRES: the number is held (or 0). Valid until the last release of the number.
  const RouteAttributes& operator[](std::uint32_t number) const;
  std::size_t size() const { return numbers_.size(); }  // without number 0

 private:
  struct Slot {
    const RouteAttributes* attributes = nullptr;  // in numbers_; null while the slot is free
    std::uint32_t holders = 0;
  };
  std::map<RouteAttributes, std::uint32_t> numbers_;
  std::vector<Slot> slots_;            // of number n at n - 1
  std::vector<std::uint32_t> unused_;  // free numbers
};

}  // namespace router
