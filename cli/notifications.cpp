// See notifications.h.
#include "cli/notifications.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace cli {

namespace {

struct Notification {
  const char* name;
  std::string_view item;
};

// By trap type.
constexpr std::array<Notification, 6> kNotifications = {{
    {"mplsL3VpnVrfUp", "vrf-up"},
    {"mplsL3VpnVrfDown", "vrf-down"},
    {"mplsL3VpnVrfRouteMidThreshExceeded", "mid-thresh-exc"},
    {"mplsL3VpnVrfNumVrfRouteMaxThreshExceeded", "max-thresh-exc"},
    {"mplsL3VpnNumVrfSecIllglLblThrshExcd", "ilg-lbl-exc"},
    {"mplsL3VpnNumVrfRouteMaxThreshCleared", "max-thresh-clr"},
}};
constexpr std::string_view kAll = "all";

}  // namespace

std::string notification_name(std::uint32_t trap_type) {
  if (trap_type < kNotifications.size()) return kNotifications[trap_type].name;
  return fmt::format("trap {}", trap_type);
}

bool is_trap_switch(const std::string& item) {
  return item == kAll || std::any_of(kNotifications.begin(), kNotifications.end(),
                                     [&](const Notification& each) { return each.item == item; });
}

std::string trap_items() {
  std::string items;
  for (const Notification& each : kNotifications) items.append(each.item).append(", ");
  return items.append(kAll).append(" and ").append(kReissueTime);
}

}  // namespace cli
