// The connection to the membership service: the event manager opens it and opens it again when it is lost. It
// subscribes to all VRFs and all interfaces; each notification becomes a call of membership.h.
//
// Threads: the thread of the event manager given at registration, the main one.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/vmap/vmap.h"

// Flags of interface items that this daemon ignores.
inline constexpr std::uint32_t kVmapIntfFlagsIgnore = 0x2 | 0x4;

// Opens the connection and replays what exists before it returns. 0 also when the service is not there yet:
// the event manager keeps trying. Else the code of the step that failed. Once, at start-up.
[[nodiscard]] Status mpls_vpn_mib_vmap_register_for_notification(EventManager* evm);
// Closes it for good. For tests that start the daemon again.
void mpls_vpn_mib_vmap_end();

// The event manager's handlers. `client` is the VmapClient. The service owns the descriptor.
int connection_manager_open_handler(void* client, EventManager* evm);
Status connection_manager_close_handler(void* client);

// The service's callbacks.
void vrf_reg_cb_func(VmapMemberDatabase* database, VmapEvent event, const VmapVrfItem* item);
void intf_reg_cb_func(VmapMemberDatabase* database, VmapEvent event, const VmapIntfItem* item);
