// Addresses and prefixes, and their text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core/address/address.h"

namespace router {

using inet::Family;

struct Address {
  Family family = Family::kIpv4;
  std::uint8_t prefix_length = 0;
  inet::Octets octets{};
  auto operator<=>(const Address&) const = default;
};

// "10.0.0.1/24" or "2001:db8::1/64" (the length is optional: 32 or 128). False when the text is neither.
bool parse_address(std::string_view text, Address* address);
std::string format_address(const Address& address);
// Network order with a plausible length: at most 32 and no octet but the first four for IPv4, at most 128 for
// IPv6.
bool valid_address(const Address& address);

}  // namespace router
