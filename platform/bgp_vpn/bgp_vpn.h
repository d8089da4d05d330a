// BGP VPN library: route distinguishers of VRFs and their change callback, and the AS number display format
// (RFC 4364 section 4.2, RFC 5396). Main thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/base/status.h"
#include "platform/evm/evm.h"
#include "platform/router/router.h"

void bgp_vpn_attach(router::Router* model);
// Keeps the AS number format up to date on this manager. Fault point "bgp_util_asn_format_init_notify".
[[nodiscard]] Status bgp_util_asn_format_init_notify(EventManager* manager);
// The VRF's RD as terminated text ("65000:100"). kStatusNoSuchRow when it has none, kStatusInvalid when it does
// not fit. Fault point "bgp_vpn_rd_get".
[[nodiscard]] Status bgp_vpn_rd_get(const char* vrf_name, char* text, std::size_t size);
// `set` is non-zero for a set, 0 for a deletion. Called on the manager's loop after a change.
// Fault point "bgp_vpn_rd_register_cb".
using BgpVpnRdCallback = void (*)(std::uint32_t set, const char* vrf_name, const char* rd);
[[nodiscard]] Status bgp_vpn_rd_register_cb(EventManager* manager, BgpVpnRdCallback callback);
void bgp_vpn_rd_unregister_cb();  // for tests
