// Who sets configuration on this router: the owners that the data store knows, and their names for users.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/store/configuration/config.h"

inline constexpr std::string_view kConfigOwnerCli = "cli";    // operators: the command line
inline constexpr std::string_view kConfigOwnerFile = "file";  // the router file
inline constexpr std::string_view kConfigOwnerFrr = "frr";    // the configuration of the routing suite
inline constexpr std::string_view kConfigOwnerFrrDerived = "frr-derived";  // what the suite derives itself
inline constexpr std::string_view kConfigOwnerKernel = "kernel";           // what the kernel reports
// Highest precedence first.
inline constexpr std::array<std::string_view, 5> kConfigOwners = {
    kConfigOwnerCli, kConfigOwnerFile, kConfigOwnerFrr, kConfigOwnerFrrDerived, kConfigOwnerKernel};

namespace vrf_config {

// The origin of an owner's values in the words that users read. Empty for an unknown owner.
std::string_view origin(std::string_view owner);

// Registers the owners and the counted scopes with the data store: call before its configuration is opened or
// changed.
[[nodiscard]] Status register_configuration();

}  // namespace vrf_config
