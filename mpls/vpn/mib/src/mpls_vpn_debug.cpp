// The debug areas of the daemon and their registration with the platform's debug facility.
//
// The facility registers an array of flag blocks as a whole, so there is one array with one block per area.
// The table below has their command names, in the order of MplsVpnDebugArea.
//
// Ownership: everything is static. Threads: mpls_vpn_debug_init runs once on the main thread. Afterwards the
// thread that serves the debug event manager writes the enabled words, and every thread reads them.
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

#include <array>
#include <cstdio>

#include "platform/core/base/assertion.h"

DebugFlag mpls_vpn_debug_flags[kMplsVpnDebugAreas];
DebugFlag l3vpnmib_debug_flags;

namespace {

constexpr const char* kCommandNames[] = {
    "start",       // start-up
    "prov",        // provider requests and answers
    "vtab",        // record-service registration and callbacks
    "rib",         // route-table lookups
    "dbase",       // interface, VRF and route-target databases
    "cfgmgr",      // commit-history queries
    "checkpoint",  // checkpoint save, delete, restore
    "errors",      // every "Error in %s: %s: %s" print
    "traps",       // trap enabling and generation
    "vmap",        // membership-service connection and events
};
static_assert(std::size(kCommandNames) == kMplsVpnDebugAreas);

constexpr std::uint32_t kDebugFlagKind = 7;
constexpr std::uint32_t kDebugFlagValue = 1;
using NameSpace = std::array<char, 128>;

NameSpace form_name_space() {
  NameSpace name{};
  std::snprintf(name.data(), name.size(), "/debug/%s/", "mpls_vpn");
  return name;
}

}  // namespace

Status mpls_vpn_debug_init(EventManager* evm) {
  if (evm == nullptr) assertion_failed("mpls/vpn/mib/src/mpls_vpn_debug", __LINE__, "evm != NULL");
  for (unsigned area = 0; area < kMplsVpnDebugAreas; ++area) {
    const Status rc = debug_init_event(&mpls_vpn_debug_flags[area], mpls_vpn_debug_flags, area,
                                       kDebugFlagKind, kCommandNames[area], kDebugFlagValue);
    if (rc != kStatusOk) return rc;
  }
  return debug_register(form_name_space().data(), mpls_vpn_debug_flags, kMplsVpnDebugAreas, evm);
}

Status mpls_vpn_debug_cleanup() {
  // A failure means that the name space is not registered, which is the intended state.
  (void)debug_cleanup(form_name_space().data());
  return kStatusOk;
}
