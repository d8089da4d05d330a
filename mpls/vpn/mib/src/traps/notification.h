// Sending one notification of MPLS-L3VPN-STD-MIB (RFC 4382, section 6).
#pragma once

#include <cstdint>

// Sends one notification to the clients that watch the provider: an encoded trap record
// (mpls/vpn/mib/src/records/layouts.h) under the item name "trap_msg". Drops it without a provider
// connection. Does not test the switches. Fields that the notification does not carry are 0. trap_type is a
// row of the notifications (info.h). Each failure is printed under ERR and traced. Main thread only.
void generate_trap_notification(std::uint32_t trap_type, const char* vrf_name, std::uint32_t if_conf_index,
                                std::int32_t vrf_oper_status, std::int32_t if_conf_row_status,
                                std::uint32_t mid_thresh, std::uint32_t high_thresh,
                                std::uint32_t curr_num_routes, std::uint32_t illegal_label_violations);
