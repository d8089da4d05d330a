// Notifications of MPLS-L3VPN-STD-MIB (RFC 4382, section 6): their switches, and sending one.
//
// Main thread only. No failure is told to the caller: each is printed under ERR and traced.
#pragma once

#include <cstdint>

#include "platform/kvtree/kvtree.h"

// An item below "/cfg/gl/snmp/enable/traps/l3vpnmib/" appeared, was set or went away. The presence of a
// switch's item turns it on, whatever its value; the value of "notif-reissue-time" is seconds (signed 32
// bits), and anything but a positive number ends the re-issuing.
void traps_notify(const KvNotifyInfo* info);

// Sends one notification to whoever watches the provider: a trap record (mpls_vpn_parcel.h), encoded, under
// the item name "trap_msg". Without a provider connection it is dropped. The switches are not looked at. What
// a notification does not carry is 0. trap_type is a row of the notifications (mpls_vpn_mib_trap_info.h).
void generate_trap_notification(std::uint32_t trap_type, const char* vrf_name, std::uint32_t if_conf_index,
                                std::int32_t vrf_oper_status, std::int32_t if_conf_row_status,
                                std::uint32_t mid_thresh, std::uint32_t high_thresh,
                                std::uint32_t curr_num_routes, std::uint32_t illegal_label_violations);
