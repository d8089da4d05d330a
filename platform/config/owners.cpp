#include "platform/config/owners.h"

#include <algorithm>

#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

struct Owner {
  KvConfigOwner registered;
  std::string_view origin;
};

// A new owner takes the next free number, whatever its precedence.
constexpr std::array<Owner, kConfigOwners.size()> kOwners = {{
    {{kConfigOwnerCli, 0}, "operator"},
    {{kConfigOwnerFile, 1}, "router file"},
    {{kConfigOwnerFrr, 2}, "configured"},
    {{kConfigOwnerFrrDerived, 4}, "derived"},
    {{kConfigOwnerKernel, 3}, "kernel"},
}};

constexpr bool are_in_order() {
  return std::ranges::equal(kOwners, kConfigOwners, {},
                            [](const Owner& owner) { return owner.registered.name; });
}
static_assert(are_in_order() && kOwners.size() <= kMaxConfigOwners);

}  // namespace

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
