// BGP VPN library: route distinguishers of VRFs and their change callback, route targets from path keys, and
// the AS number display format (RFC 4364 sections 4.2 and 4.3.1, RFC 5396). Main thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/kvtree.h"

// The router model with the route distinguishers of VRFs for which none is configured (vrf_config.h); null
// detaches it. Called once by the process.
void bgp_vpn_attach(router::Router* model);

// How AS numbers are shown (RFC 5396): 4200000000 as "4200000000" or, in asdot and asdot+, as "64086.59904".
// An AS number below 65536 has the same text in every format, so that two route targets (or distinguishers)
// that differ only in type have different texts: "65000:100" has two octets, "0.65000:100" has four. Here
// asdot+ differs from asdot only by its name.
enum class BgpAsnFormat : std::uint32_t { kAsplain = 0, kAsdot = 1, kAsdotPlus = 2 };
// The effective format; asplain while none is followed.
BgpAsnFormat bgp_util_asn_format_get();
// Follows the configured AS number format (vrf_config::as_format) on this manager: asplain when none is
// configured or when the text is invalid, which is logged. A format that is already configured is effective
// on return and not notified, so call this before subscribing to route targets. A change takes effect on the
// manager's loop: every effective route target whose text changes is notified to its subscribers there as
// deleted, in the old format, and set, in the new one; then the RD callback gets the new text of every RD
// whose text changes. When the route targets cannot be notified, the format is unchanged and the failure is
// logged. kStatusInvalid for null, kStatusExists when already followed; on a failure of the data store the
// format is not followed. Fault point "bgp_util_asn_format_init_notify".
[[nodiscard]] Status bgp_util_asn_format_init_notify(EventManager* manager);
// A route distinguisher with its AS number in the format. An RD with an IPv4 address, and a text that is not
// an RD, is returned unchanged.
std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format);

// The VRF's RD as terminated text ("65000:100"), in the effective format: the one that is configured for its
// lowest address family that has one, whether or not the VRF exists, else that of the router model.
// kStatusNoSuchRow when there is neither, kStatusInvalid when it does not fit, kStatusUnavailable without a
// model. Fault point "bgp_vpn_rd_get".
[[nodiscard]] Status bgp_vpn_rd_get(const char* vrf_name, char* text, std::size_t size);
// `set` is non-zero for a set, 0 for a deletion (`rd` is null then). The RDs that exist (as by
// bgp_vpn_rd_get) are reported before the call returns; every change and the RD of every created VRF are
// reported on the manager's loop. VRFs that only configuration names are included. kStatusExists when there
// is a callback; the data store's failures. Fault point "bgp_vpn_rd_register_cb".
using BgpVpnRdCallback = void (*)(std::uint32_t set, const char* vrf_name, const char* rd);
[[nodiscard]] Status bgp_vpn_rd_register_cb(EventManager* manager, BgpVpnRdCallback callback);
// Removes the callback, drops its pending reports and stops following the format. For tests that start the
// daemon again.
void bgp_vpn_rd_unregister_cb();

// The route target of a configuration path, as terminated text of less than `size` octets in the effective
// format ("65000:100", "10.0.0.1:5", "4200000000:30"; "0.65000:100" for a small AS number in four octets),
// with its AFI and SAFI. During the notifications of a format change it is the format of the current
// notification. Arguments of the path:
//
//   1, 2  AFI and SAFI
//   3     type: 0 two-octet AS, 1 IPv4 address, 2 four-octet AS (RFC 4364 section 4.2)
//   4, 5  upper and lower 16 bits of the AS number; the upper ones are 0 for type 0
//   6     number assigned by the AS: of 32 bits for type 0, of 16 bits for type 2
//   7, 8  the address, and the number of 16 bits assigned by its owner
//   9     ignored
//
// Only the arguments of the type are required. kStatusArgumentMissing without them; kStatusInvalid for
// another type, or for a number or text that does not fit. On a failure nothing is written. Fault point
// "bgp_vpn_extract_rt".
[[nodiscard]] Status bgp_vpn_extract_rt(const RequestArgs* args, std::uint32_t size, char* text,
                                        std::uint32_t* afi, std::uint32_t* safi);
