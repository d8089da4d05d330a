// The daemon's registration with the data store: provider of "/oper/mpls_vpn/gl/", subscriber of the
// configuration that it tracks.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

// Registers provider, subscriptions, membership client and record descriptions. What exists already is
// replayed to the handlers before this returns, with backend_scan_in_progress set. 0, or the code of the
// first registration that failed; those before it stay. kStatusUnavailable when the data store's library
// cannot be read. Once, on the main thread, after every database exists.
[[nodiscard]] Status mpls_vpn_mib_prov_init(EventManager* evm);

// Unbinds everything and resets the check for the library. For tests that start the daemon again.
void mpls_vpn_mib_prov_end();
