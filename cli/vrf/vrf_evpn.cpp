// Rows of the route target table have a family only if it is unicast; the others are of EVPN.
#include "cli/vrf/vrf_evpn.h"

#include "cli/show/tables.h"
#include "platform/core/address/address.h"

namespace cli {

EvpnTable::EvpnTable(const Session& session, kvtree::Client& client, const std::string& vrf,
                     const VrfOrigins& origins, const VrfRequest& request) {
  if (request.afi != 0 || request.safi != 0 || !origins.has_evpn_targets()) return;
  walk_rows_of(session, client, kRouteTargetTable, vrf, {[this](const mpls_vpn_mib_rt& row) { take(row); }});
  for (std::size_t at = 0; at < targets_.size(); ++at) targets_[at].RouteTargetValue = texts_[at].data();
  table_ = mpls_vpn_afi_safi{};
  table_->AFName = inet::kL2VpnAfi;
  table_->SAFName = inet::kEvpnSafi;
  table_->RouteTarget = {targets_.size(), targets_.data()};
}

void EvpnTable::take(const mpls_vpn_mib_rt& row) {
  if (!text_or_empty(row.description).empty()) return;
  texts_.emplace_back(text_or_empty(row.rt));
  targets_.push_back({static_cast<std::uint32_t>(row.type), nullptr, 0, 0});
}

std::span<const mpls_vpn_afi_safi> EvpnTable::tables() const {
  return table_ ? std::span(&*table_, 1) : std::span<const mpls_vpn_afi_safi>();
}

}  // namespace cli
