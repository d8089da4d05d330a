// Addresses and prefixes of records and of the command line.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/core/address/address.h"
#include "platform/core/parcel/parcel.h"

namespace cli {

// A prefix without host bits, or an address.
struct Prefix {
  inet::Prefix prefix;
  bool is_address = false;  // written without a length

  // InetAddressType (RFC 4001).
  std::int32_t type() const { return static_cast<std::int32_t>(prefix.address.family); }
  // 4 or 16.
  std::span<const std::uint8_t> octets() const {
    return std::span(prefix.address.octets).first(inet::octets_of(prefix.address.family));
  }
  // The prefix of this length that contains the address.
  Prefix shortened(std::uint32_t to_length) const;
};
// "10.0.0.0/8", "2001:db8::/32", or an address. Failure(kExitUsage) with the error.
Prefix parse_prefix(const std::string& text);

std::span<const std::uint8_t> octets_of(const ParcelOctets& octets);
// 4 or 16 octets; others are shown as hexadecimal digits, none as "".
std::string address_text(std::span<const std::uint8_t> octets);
std::string hexadecimal(std::span<const std::uint8_t> octets);
// The digits of an MplsIndexType; none for a single 0, the value of a missing entry (RFC 3813).
std::string mpls_index_text(std::span<const std::uint8_t> octets);

}  // namespace cli
