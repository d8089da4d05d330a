// Row indexes: from the instance part of an OID, valid or not, to the first row that can follow it, and to
// the key of a request to the daemon.
//
// An index is stored as its sub-identifiers. Their numerical order is the order of the MIB and, because the
// length precedes a name, also the daemon's order of names: shorter first, then by octets (RFC 2578 section
// 7.7, RFC 4382 section 6).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "agent/oid/oid.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace tables {

inline constexpr std::uint32_t kMaxNameLength = 31;  // MplsL3VpnName: SIZE (0..31)

// Octets of an address of this InetAddressType; 0 for a type without addresses.
inline constexpr std::uint32_t address_size(std::uint32_t type) {
  return type == kInetAddressIpv4 ? 4 : type == kInetAddressIpv6 ? 16 : 0;
}

enum class PartKind : std::uint8_t {
  kName,          // a length of 0 to 31, then as many octets; the daemon's names have no zero octet
  kNumber,        // one sub-identifier from lowest to highest
  kAddressType,   // ipv4 or ipv6: the address family of all later parts
  kNextHopType,   // unknown, or the family
  kAddress,       // an address of the type before it: its length, then its octets
  kPrefixLength,  // up to the family's number of bits
};

struct IndexPart {
  PartKind kind = PartKind::kNumber;
  std::uint32_t lowest = 0;
  std::uint32_t highest = 0xffffffff;
};

// The parts of an index in INDEX clause order. The array must remain live.
using IndexShape = std::span<const IndexPart>;

// The smallest index of this shape that is not before `instance` (after it, with `after`). The instance may
// be truncated, too long, or contain invalid numbers. False when no index follows.
[[nodiscard]] bool first_index(IndexShape shape, oid::View instance, bool after, oid::Oid* index);

// True when the instance is exactly one index of this shape.
[[nodiscard]] bool is_index(IndexShape shape, oid::View instance);

// The path components of an index of names and numbers, each after a '/': "/RED/7" for 3.82.69.68.7.
// REQUIRES: is_index(shape, index), and no part of another kind.
std::string index_path(IndexShape shape, oid::View index);

}  // namespace tables
