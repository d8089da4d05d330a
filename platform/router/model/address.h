// Addresses and prefixes, and their text.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace router {

enum class Family : std::uint8_t { kIpv4 = 1, kIpv6 = 2 };

struct Address {
  Family family = Family::kIpv4;
  std::uint8_t prefix_length = 0;
  std::array<std::uint8_t, 16> octets{};  // network order; IPv4 uses the first four, the rest are zero
  auto operator<=>(const Address&) const = default;
};

// "10.0.0.1/24" or "2001:db8::1/64" (the length is optional: 32 or 128). False when the text is neither.
bool parse_address(std::string_view text, Address* address);
std::string format_address(const Address& address);
// Network order with a plausible length: at most 32 and no octet but the first four for IPv4, at most 128 for
// IPv6.
bool valid_address(const Address& address);

}  // namespace router
