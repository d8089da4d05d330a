#include "cli/vrf/vrf_origins.h"

#include "cli/output/record.h"
#include "cli/show/tables.h"
#include "platform/config/owners.h"
#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

using vrf_config::Direction;
using vrf_config::Family;

}  // namespace

std::string model_rd_owner(const Session& session, kvtree::Client& client) {
  const kvtree::NodesResult found = client.nodes(vpn_events::kRdOwnerPath, 1);
  if (found.status) throw request_failure(session, found.status);
  return found.nodes.empty() ? std::string() : found.nodes.front().value.text;
}

std::string owner_of_model_rd(const Session& session, kvtree::Client& client, const std::string& vrf,
                              const std::string& rd) {
  const std::string path = provider_path("vrf", vrf);
  const kvtree::GetResult result = client.get(path);
  if (result.status) return {};  // the failure to be reported is that of the words
  const Record<mpls_vpn_mib_vrf> row(session, path, kMibVrfParcel, result.record);
  const std::string shown = text_or_empty(row->rd);
  const bool is_meant = rd.empty() || vrf_config::parse_target(rd) == vrf_config::parse_target(shown);
  return shown.empty() || !is_meant ? std::string() : model_rd_owner(session, client);
}

VrfOrigins::VrfOrigins(const std::string& vrf, std::span<const kvtree::Node> nodes,
                       const std::string& model_rd_owner)
    : vrf_(vrf), model_rd_owner_(model_rd_owner) {
  const std::string vni_path = vrf_config::vni(vrf_, 0).path;
  for (const kvtree::Node& node : nodes) {
    if (node.path == vni_path) vni_ = node.value.number;
    const auto target = vrf_config::target_path_of(node.path);
    has_evpn_targets_ |= target && target->family == Family::kEvpn && target->direction.has_value();
    owners_[node.path] = node.owner;
  }
}

std::string VrfOrigins::of(const std::string& path) const {
  const auto found = owners_.find(path);
  return found == owners_.end() ? std::string() : std::string(vrf_config::origin(found->second));
}

std::string VrfOrigins::of_description() const {
  return of(vrf_config::description(vrf_, {}).path);
}

std::string VrfOrigins::of_rd(const std::string& rd) const {
  if (rd.empty()) return {};
  for (const std::string& path : vrf_config::rd_paths(vrf_)) {
    std::string origin = of(path);
    if (!origin.empty()) return origin;
  }
  return std::string(vrf_config::origin(model_rd_owner_));
}

std::string VrfOrigins::of_target(std::uint32_t afi, Direction direction, const std::string& target) const {
  const auto parsed = vrf_config::parse_target(target);
  return parsed ? of(vrf_config::route_target(vrf_, Family{afi}, direction, *parsed).path) : std::string();
}

std::string VrfOrigins::of_policy(std::uint32_t afi, Direction direction) const {
  return of(vrf_config::route_policy(vrf_, Family{afi}, direction, {}).path);
}

std::string VrfOrigins::of_threshold(std::uint32_t afi) const {
  return of(vrf_config::route_threshold(vrf_, Family{afi}, 0, 0).path);
}

std::string VrfOrigins::of_vni() const {
  return of(vrf_config::vni(vrf_, 0).path);
}

std::string with_origin(const std::string& value, const std::string& origin) {
  return origin.empty() ? value : value + " (" + origin + ")";
}

}  // namespace cli
