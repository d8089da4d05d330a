// The re-issue timer: while it runs, every VRF above its maximum route threshold raises
// mplsL3VpnVrfNumVrfRouteMaxThreshExceeded again each interval (RFC 4382, mplsL3VpnVrfConfRteMxThrshTime).
//
// Main thread only.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

// Creates the timer, stopped. 0, or the errno of the step that failed, after releasing what was created
// before it. Once, at start-up.
[[nodiscard]] Status mpls_vpn_mib_timer_init(EventManager* evm);
// Starts or restarts the timer with an interval in seconds. REQUIRES: the timer exists.
void mpls_vpn_mib_timer_start(std::uint32_t seconds);
void mpls_vpn_mib_timer_stop();
// Releases the timer, complete or partial.
void mpls_vpn_mib_timer_deinit();
// The routine of the asynchronous event that expiry raises.
void mpls_vpn_mib_timer_wakeup();
