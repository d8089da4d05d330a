// Debug prints: ten areas, which an operator switches on one by one.
//
// While an area is off, a print costs one load of its enabled word and does not evaluate its arguments. The
// platform writes the enabled words on the "debug and show" thread; every thread reads them without a lock.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/debug/debug.h"
#include "platform/core/evm/evm.h"

// Areas, in the order of the flag blocks. mpls_vpn_debug.cpp lists what each area prints.
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

// Removes the name space. Always 0. Start-up never calls it.
Status mpls_vpn_debug_cleanup();
