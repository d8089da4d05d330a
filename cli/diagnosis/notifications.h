// The daemon's notifications by their trap type.
#pragma once

#include <cstdint>
#include <string>

namespace cli {

// "mplsL3VpnVrfUp" (RFC 4382 section 6); a type without a name is "trap 9".
std::string notification_name(std::uint32_t trap_type);

}  // namespace cli
