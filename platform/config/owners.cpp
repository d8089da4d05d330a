#include "platform/config/owners.h"

#include <algorithm>
#include <array>

#include "platform/config/vrf_config.h"

namespace vrf_config {

std::string_view origin(std::string_view owner) {
  const auto found =
      std::ranges::find(kOwners, owner, [](const Owner& each) { return each.registered.name; });
  return found == kOwners.end() ? std::string_view() : found->origin;
}

Status register_configuration() {
  std::array<KvConfigOwner, kOwners.size()> owners;
  std::ranges::transform(kOwners, owners.begin(), &Owner::registered);
  if (const Status status = kvtree_config_register_owners(owners)) return status;
  kvtree_config_register_counted_scopes(counted_scopes());
  return kStatusOk;
}

}  // namespace vrf_config
