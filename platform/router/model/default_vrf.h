#pragma once

#include <string_view>

namespace router {

// The routing context of interfaces in no VRF. It is not a VPN and in no table.
inline constexpr std::string_view kDefaultVrf = "default";

}  // namespace router
