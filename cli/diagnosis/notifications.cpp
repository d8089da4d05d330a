#include "cli/diagnosis/notifications.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

namespace cli {

namespace {

// By trap type.
constexpr std::array<std::string_view, 6> kNotifications = {{
    "mplsL3VpnVrfUp",
    "mplsL3VpnVrfDown",
    "mplsL3VpnVrfRouteMidThreshExceeded",
    "mplsL3VpnVrfNumVrfRouteMaxThreshExceeded",
    "mplsL3VpnNumVrfSecIllglLblThrshExcd",
    "mplsL3VpnNumVrfRouteMaxThreshCleared",
}};

}  // namespace

std::string notification_name(std::uint32_t trap_type) {
  if (trap_type < kNotifications.size()) return std::string(kNotifications.at(trap_type));
  return fmt::format("trap {}", trap_type);
}

}  // namespace cli
