// The debug areas of the daemon and their registration with the platform's debug facility.
//
// The facility registers an array of flag blocks as a whole, so there is one array with one block per area.
// The command line lists, switches and watches "start", "prov", ... under the name space "/debug/mpls_vpn/".
// The table below gives each block its command name, in the order of MplsVpnDebugArea.
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

struct DebugRow {
  MplsVpnDebugArea area;
  const char* command_name;
  std::uint32_t value;
};

constexpr DebugRow kDebugRows[] = {
    {START, "start", 1},       // start-up
    {PROV, "prov", 1},         // provider requests and answers
    {VTAB, "vtab", 1},         // record-service registration and callbacks
    {RIB, "rib", 1},           // route-table lookups
    {DBASE, "dbase", 1},       // interface, VRF and route-target databases
    {CFGMGR, "cfgmgr", 1},     // commit-history queries
    {CHKPT, "checkpoint", 1},  // checkpoint save, delete, restore
    {ERR, "errors", 1},        // every "Error in %s: %s: %s" print
    {TRAPS, "traps", 1},       // trap enabling and generation
    {VMAP, "vmap", 1},         // membership-service connection and events
};
static_assert(std::size(kDebugRows) == kMplsVpnDebugAreas);

constexpr std::uint32_t kDebugFlagKind = 7;
using NameSpace = std::array<char, 128>;

NameSpace form_name_space() {
  NameSpace name{};
  std::snprintf(name.data(), name.size(), "/debug/%s/", "mpls_vpn");
  return name;
}

}  // namespace

Status mpls_vpn_debug_init(EventManager* evm) {
  if (evm == nullptr) assertion_failed("mpls/vpn/mib/src/mpls_vpn_debug", __LINE__, "evm != NULL");
  for (const DebugRow& row : kDebugRows) {
    const Status rc = debug_init_event(&mpls_vpn_debug_flags[row.area], mpls_vpn_debug_flags, row.area,
                                       kDebugFlagKind, row.command_name, row.value);
    if (rc != kStatusOk) return rc;
  }
  return debug_register(form_name_space().data(), mpls_vpn_debug_flags, kMplsVpnDebugAreas, evm);
}

Status mpls_vpn_debug_cleanup() {
  // A failure means that the name space is not registered, which is the intended state.
  (void)debug_cleanup(form_name_space().data());
  return kStatusOk;
}
