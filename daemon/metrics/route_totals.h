// The routes that were added to and removed from the tables of VRFs, as counters that never decrease while
// the VRF exists: to the counts of its present table it adds those of its former ones.
//
// Observes the router model, which must outlive it. Main thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "platform/router/model/router.h"

namespace daemon_metrics {

inline constexpr std::size_t kFamilies = 2;

struct RouteFamily {
  std::string_view label;
  router::Family family;
  std::uint32_t router::Vrf::*table;
};
inline constexpr RouteFamily kRouteFamilies[kFamilies] = {
    {"ipv4", router::Family::kIpv4, &router::Vrf::ipv4_table},
    {"ipv6", router::Family::kIpv6, &router::Vrf::ipv6_table},
};

class RouteTotals : public router::Observer {
 public:
  explicit RouteTotals(router::Router* model);
  ~RouteTotals() override;
  RouteTotals(const RouteTotals&) = delete;
  RouteTotals& operator=(const RouteTotals&) = delete;

  // Of a VRF's unicast table of this family; `family` is an index of kRouteFamilies.
  router::RouteCounts of(const router::Vrf& vrf, std::size_t family) const;

  void vrf_changing(const std::string& name, const router::Vrf* next) override;
  void vrf_deleted(const router::Vrf& vrf) override { former_.erase(vrf.name); }

 private:
  // What is added to the counts of the present table; modulo 2^64, because that table may have been another
  // VRF's before.
  struct Former {
    std::uint64_t added = 0;
    std::uint64_t removed = 0;
    std::uint32_t protocols_seen = 0;
  };
  router::RouteCounts counts(std::uint32_t table, std::size_t family) const;

  router::Router* model_;
  std::map<std::string, std::array<Former, kFamilies>, std::less<>> former_;
};

}  // namespace daemon_metrics
