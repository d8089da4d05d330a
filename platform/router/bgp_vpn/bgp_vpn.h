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
// takes it away. Called once by the process.
void bgp_vpn_attach(router::Router* model);

// How AS numbers are shown (RFC 5396): 4200000000 as "4200000000" or, in asdot and asdot+, as "64086.59904".
// A smaller one than 65536 reads the same in every format, so that no two route targets (or distinguishers)
// that differ in type alone have one text: "65000:100" has it in two octets, "0.65000:100" in four. Here
// asdot+ differs from asdot in its name only.
enum class BgpAsnFormat : std::uint32_t { kAsplain = 0, kAsdot = 1, kAsdotPlus = 2 };
// The format that is wanted, which a configured one overrules when that changes. It takes effect at once
// while nobody asked for notifications. Else it does on the manager's loop: every route target in force that
// reads differently is told to its subscribers there (kvtree_config_retell_each) as deleted, in the old
// format, and set, in the new one; then the RD callback is told the new text of every RD that reads
// differently. Nothing changes when the route targets cannot be told, which is logged.
void bgp_util_asn_format_set(BgpAsnFormat format);
// The format in force.
BgpAsnFormat bgp_util_asn_format_get();
// Keeps the AS number format up to date on this manager: it is what the configuration has as
// vrf_config::as_format, and asplain without one, or for one of another text, which is logged. What is
// configured already is in force when this returns, and nobody is told of it: call it before subscribing to
// route targets. kStatusInvalid for null, kStatusExists while it is kept up to date; the data store's
// failures, after which the format is as it was and nothing is followed. Fault point
// "bgp_util_asn_format_init_notify".
[[nodiscard]] Status bgp_util_asn_format_init_notify(EventManager* manager);
// A route distinguisher with its AS number in the format. An RD with an IPv4 address, and a text that is no
// RD, is given back as it stands.
std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format);

// The VRF's RD as terminated text ("65000:100"), in the format in force: the one that is configured for its
// lowest address family that has one, whether or not the VRF exists, else that of the router model.
// kStatusNoSuchRow when there is neither, kStatusInvalid when it does not fit, kStatusUnavailable without a
// model. Fault point "bgp_vpn_rd_get".
[[nodiscard]] Status bgp_vpn_rd_get(const char* vrf_name, char* text, std::size_t size);
// `set` is non-zero for a set, 0 for a deletion (`rd` is null then). What bgp_vpn_rd_get answers at the
// registration is told before the registering call returns; every change of it, and what it is for a VRF that
// is created, on the manager's loop. VRFs that are only named by configuration count as well. kStatusExists
// when there is a callback; the data store's failures. Fault point "bgp_vpn_rd_register_cb".
using BgpVpnRdCallback = void (*)(std::uint32_t set, const char* vrf_name, const char* rd);
[[nodiscard]] Status bgp_vpn_rd_register_cb(EventManager* manager, BgpVpnRdCallback callback);
// Ends the callback, what it was still to be told, and the following of the format; a format that was still
// waiting is in force. For tests that start the
// daemon again.
void bgp_vpn_rd_unregister_cb();

// The route target of a configuration path, as terminated text of less than `size` octets in the format in
// force ("65000:100", "10.0.0.1:5", "4200000000:30"; "0.65000:100" for a small AS number in four octets),
// with its AFI and SAFI. While a change of the format is told, that is the one that belongs to the
// notification under way. Arguments of the path:
//
//   1, 2  AFI and SAFI
//   3     type: 0 two-octet AS, 1 IPv4 address, 2 four-octet AS (RFC 4364 section 4.2)
//   4, 5  upper and lower 16 bits of the AS number; the upper ones are 0 for type 0
//   6     number assigned by the AS: of 32 bits for type 0, of 16 bits for type 2
//   7, 8  the address, and the number of 16 bits assigned by its owner
//   9     not looked at
//
// Only what the type needs has to be there. kStatusArgumentMissing when it is not; kStatusInvalid for another
// type, a number that does not fit, or a text that does not. Nothing is changed then. Fault point
// "bgp_vpn_extract_rt".
[[nodiscard]] Status bgp_vpn_extract_rt(const RequestArgs* args, std::uint32_t size, char* text,
                                        std::uint32_t* afi, std::uint32_t* safi);
