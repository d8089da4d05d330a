#include "daemon/metrics/route_totals.h"

namespace daemon_metrics {

RouteTotals::RouteTotals(router::Router* model) : model_(model) {
  model_->observe(router::ObserverRank::kOther, this);
}

RouteTotals::~RouteTotals() {
  model_->stop_observing(this);
}

router::RouteCounts RouteTotals::counts(std::uint32_t table, std::size_t family) const {
  return model_->routes().counts({kRouteFamilies[family].family, table});
}

router::RouteCounts RouteTotals::of(const router::Vrf& vrf, std::size_t family) const {
  router::RouteCounts total = counts(vrf.*kRouteFamilies[family].table, family);
  const auto former = former_.find(vrf.name);
  if (former == former_.end()) return total;
  total.added += former->second[family].added;
  total.removed += former->second[family].removed;
  total.protocols_seen |= former->second[family].protocols_seen;
  return total;
}

void RouteTotals::vrf_changing(const std::string& name, const router::Vrf* next) {
  const router::Vrf* const now = model_->find_vrf(name);
  if (now == nullptr || next == nullptr) return;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const auto table = kRouteFamilies[family].table;
    if (now->*table == next->*table) continue;
    const router::RouteCounts before = of(*now, family);
    const router::RouteCounts after = counts(next->*table, family);
    former_[name][family] = {before.added - after.added, before.removed - after.removed,
                             before.protocols_seen};
  }
}

}  // namespace daemon_metrics
