// The daemon's notifications by their trap type, and the configuration items that switch them.
#pragma once

#include <cstdint>
#include <string>

namespace cli {

inline constexpr char kTrapSwitches[] = "/cfg/gl/snmp/enable/traps/l3vpnmib/";
inline constexpr char kReissueTime[] = "notif-reissue-time";

// "mplsL3VpnVrfUp" (RFC 4382 section 6); a type without a name is "trap 9".
std::string notification_name(std::uint32_t trap_type);
// One of the items that switch traps on: "vrf-up" and the like, or "all".
bool is_trap_switch(const std::string& item);
// "vrf-up, vrf-down, ..., notif-reissue-time"
std::string trap_items();

}  // namespace cli
