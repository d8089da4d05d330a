// What the IPv4 and the IPv6 route look-ups share. Not for other files.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"

inline constexpr char kNoAddressText[] = "0";
inline constexpr std::uint32_t kRouteTypeLocal = 3;  // inetCidrRouteType (RFC 4292): without next hop

// The text as prints show it, and as it is read: null is the empty text.
const char* route_text(const char* text);

// Reads digit pairs into `octets` (all zero before): at most as many as the text has; "0" and the empty text
// read none. False, reported under the function's name, when a pair is none. REQUIRES: the text has no more
// than 2 * size characters.
bool route_read_address(const char* text, std::uint8_t* octets, const char* function);

// Sets the first `length` bits of `size` zeroed octets. REQUIRES: length <= 8 * size.
void route_set_mask(std::uint8_t* octets, std::size_t size, std::uint32_t length);

// A key with a prefix length that no address has: no row has it. False for an exact read; a next read goes on
// behind the longest prefix of the destination, the length becomes that one's and the next hop the greatest.
bool route_fit_length(bool exact, std::size_t size, std::uint32_t* prefix_length, std::uint8_t* next_hop);

// *field becomes a heap copy of the octets; of none, empty. False without memory.
[[nodiscard]] bool route_copy_octets(ParcelOctets* field, const std::uint8_t* octets, std::size_t length,
                                     const char* tag);
// Why a module gave no route, from the errno it left: kStatusNoMemory, reported under the function's name, or
// kStatusNoSuchRow. To a walk these differ: after "no such row" it goes on behind the table.
Status route_refuse_unanswered(int module_errno, const char* function);
// Frees what the look-up put into the row and clears it; reported under the function's name. kStatusNoMemory.
Status route_refuse_unfilled(mpls_vpn_mib_route* row, const char* function);

// The cross-connect's index, or a single octet 0 for none (length 0). Without memory the pointer stays empty,
// which is reported.
void route_set_xc_pointer(mpls_vpn_mib_route* row, const std::uint8_t* index, std::size_t length,
                          const char* function);
