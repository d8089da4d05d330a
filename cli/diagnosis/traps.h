// The daemon's traps, as "watch" and "show traps" show them.
#pragma once

#include <string>

#include "cli/output/json_list.h"
#include "cli/session.h"
#include "mpls/vpn/mib/src/records/trap.h"

namespace cli {

// The MIB's name of the notification with this trap type, and its object identifier: empty if unknown.
std::string trap_name(std::uint32_t type);
std::string trap_oid(std::uint32_t type);
// What the type is about, such as "interface 7 vrf up".
std::string trap_details(const mpls_vpn_mib_trap& trap);
// The notification, its object identifier and all members of the record.
Json trap_json(const mpls_vpn_mib_trap& trap);

// Prints one line, unless the trap is of another VRF than this one; an empty name is every VRF. Whether it
// did. Failure for a record of another kind.
bool print_trap(const Session& session, const kvtree::NotificationResult& notification,
                const std::string& vrf);

}  // namespace cli
