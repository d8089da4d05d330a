// Debug prints: ten areas that an operator switches on one by one, and the convention by which all code
// prints.
//
// A print names its area and costs one load of that area's enabled word while the area is off; its arguments
// are not evaluated then. The platform changes an enabled word on the "debug and show" thread; it is read
// without a lock from every thread.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/debug/debug.h"
#include "platform/core/evm/evm.h"

// Areas, in the order of the flag blocks. What each governs stands beside its command name in
// mpls_vpn_debug.cpp.
enum MplsVpnDebugArea : unsigned { START, PROV, VTAB, RIB, DBASE, CFGMGR, CHKPT, ERR, TRAPS, VMAP };
inline constexpr unsigned kMplsVpnDebugAreas = 10;

extern DebugFlag mpls_vpn_debug_flags[kMplsVpnDebugAreas];

// The octet-string conversions' own flag. It is in no name space: only a debugger or a test enables it.
extern DebugFlag l3vpnmib_debug_flags;

// mpls_vpn_debug(DBASE, "Found VRF %s", name): prints while the area is on.
#define mpls_vpn_debug(area, ...)                            \
  do {                                                       \
    if (debug_enabled(mpls_vpn_debug_flags[area])) {         \
      debug_printf(mpls_vpn_debug_flags[area], __VA_ARGS__); \
    }                                                        \
  } while (false)

// Prepares the ten flags and registers them under "/debug/mpls_vpn/" on this event manager. 0, or the code of
// the platform call that failed first. REQUIRES: evm is not null (the process aborts).
[[nodiscard]] Status mpls_vpn_debug_init(EventManager* evm);

// Takes the name space away again. Always 0. Start-up never calls it.
Status mpls_vpn_debug_cleanup();
