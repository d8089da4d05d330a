// Addresses and prefixes as texts, as octets and as keys in paths.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/core/parcel/parcel.h"

namespace cli {

// InetAddressType (RFC 4001).
inline constexpr std::int32_t kIpv4 = 1;
inline constexpr std::int32_t kIpv6 = 2;

struct Prefix {
  std::int32_t type = kIpv4;
  std::vector<std::uint8_t> octets;  // 4 or 16; none beyond the length
  std::uint32_t length = 0;          // bits
  bool is_address = false;           // it was written without a length

  std::uint32_t bits() const { return static_cast<std::uint32_t>(octets.size()) * 8; }
  // The prefix of this length that holds the address.
  Prefix shortened(std::uint32_t to_length) const;
};

// "10.0.0.0/8", "2001:db8::/32", or an address. Failure(kExitUsage) that says what is wrong.
Prefix parse_prefix(const std::string& text);

std::span<const std::uint8_t> octets_of(const ParcelOctets& octets);
// 4 or 16 octets; others are shown as hexadecimal digits, none as "".
std::string address_text(std::span<const std::uint8_t> octets);
std::string hexadecimal(std::span<const std::uint8_t> octets);

}  // namespace cli
