// Who sets configuration on this router: the owners that the data store knows, and their names for users.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/store/configuration/configuration.h"

inline constexpr std::string_view kConfigOwnerCli = "cli";    // operators: the command line
inline constexpr std::string_view kConfigOwnerFile = "file";  // the router file
inline constexpr std::string_view kConfigOwnerFrr = "frr";    // the configuration of the routing suite
inline constexpr std::string_view kConfigOwnerFrrDerived = "frr-derived";  // what the suite derives itself
inline constexpr std::string_view kConfigOwnerKernel = "kernel";           // what the kernel reports

namespace vrf_config {

struct Owner {
  KvConfigOwner registered;
  std::string_view origin;  // of its values, in the words that users read
};

// Highest precedence first. A new owner takes the next free number, whatever its precedence.
inline constexpr auto kOwners = std::to_array<Owner>({
    {{kConfigOwnerCli, 0}, "operator"},
    {{kConfigOwnerFile, 1}, "router file"},
    {{kConfigOwnerFrr, 2}, "configured"},
    {{kConfigOwnerFrrDerived, 4}, "derived"},
    {{kConfigOwnerKernel, 3}, "kernel"},
});
static_assert(kOwners.size() <= kMaxConfigOwners);

// The origin of an owner's values. Empty for an unknown owner.
std::string_view origin(std::string_view owner);

// Registers the owners and the counted scopes with the data store: call before its configuration is opened or
// changed.
[[nodiscard]] Status register_configuration();

}  // namespace vrf_config

// The names of the owners, highest precedence first.
inline constexpr auto kConfigOwners = [] {
  std::array<std::string_view, vrf_config::kOwners.size()> names;
  std::ranges::transform(vrf_config::kOwners, names.begin(),
                         [](const vrf_config::Owner& owner) { return owner.registered.name; });
  return names;
}();
