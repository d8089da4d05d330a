// IP addresses and prefixes: their texts and bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace inet {

// Numbers of IANA: address families (AFI) and subsequent address families (SAFI).
inline constexpr std::uint32_t kIpv4Afi = 1;
inline constexpr std::uint32_t kIpv6Afi = 2;
inline constexpr std::uint32_t kL2VpnAfi = 25;
inline constexpr std::uint32_t kUnicastSafi = 1;
inline constexpr std::uint32_t kMulticastSafi = 2;
inline constexpr std::uint32_t kEvpnSafi = 70;   // RFC 7432, with kL2VpnAfi
inline constexpr std::uint32_t kFlowSafi = 133;  // RFC 8955

enum class Family : std::uint8_t { kIpv4 = kIpv4Afi, kIpv6 = kIpv6Afi };

constexpr unsigned octets_of(Family family) {
  return family == Family::kIpv4 ? 4 : 16;
}
constexpr unsigned bits_of(Family family) {
  return 8 * octets_of(family);
}

using Octets = std::array<std::uint8_t, 16>;  // network order; IPv4 uses the first four, the rest are zero

struct Address {
  Family family = Family::kIpv4;
  Octets octets{};
  bool operator==(const Address&) const = default;
};

// A dotted quad or a text form of RFC 4291 section 2.2, as inet_pton(3) accepts them: no zone, no octal, no
// shortened IPv4. None for any other text.
std::optional<Address> parse_address(std::string_view text);
std::string address_text(const Address& address);  // IPv6 in the shortest form (RFC 5952)

// IPv4 addresses as numbers in host order.
std::optional<std::uint32_t> parse_dotted_quad(std::string_view text);
std::string dotted_quad(std::uint32_t address);

struct Prefix {
  Address address;
  unsigned length = 0;
  bool operator==(const Prefix&) const = default;
};

// A prefix length: one to three digits, at most the bits of the family.
std::optional<unsigned> parse_prefix_length(std::string_view text, Family family);
// "10.1.0.0/16"; none without a length. Host bits are accepted.
std::optional<Prefix> parse_prefix(std::string_view text);
std::string prefix_text(const Prefix& prefix);

// "10.1.2.3/16 has host bits set; did you mean 10.1.0.0/16?", with the prefix as it was typed.
std::string host_bits_error(std::string_view typed, const Prefix& prefix);

// --- Bits. Lengths are at most 128 ---

// Octets whose first `length` bits are set.
constexpr Octets mask_of(std::size_t length) {
  Octets mask{};
  for (std::size_t at = 0; at < length / 8; ++at) mask[at] = 0xff;
  if (length % 8 != 0) mask[length / 8] = static_cast<std::uint8_t>(0xff00U >> (length % 8));
  return mask;
}

// Whether the first `length` bits are equal.
constexpr bool share_prefix(const Octets& left, const Octets& right, std::size_t length) {
  const Octets mask = mask_of(length);
  for (std::size_t at = 0; at < mask.size(); ++at) {
    if (((left[at] ^ right[at]) & mask[at]) != 0) return false;
  }
  return true;
}

// Host bits are those after the first `length`.
constexpr void clear_host_bits(Octets* octets, std::size_t length) {
  const Octets mask = mask_of(length);
  for (std::size_t at = 0; at < mask.size(); ++at) (*octets)[at] &= mask[at];
}
constexpr bool has_host_bits(const Octets& octets, std::size_t length) {
  Octets cleared = octets;
  clear_host_bits(&cleared, length);
  return cleared != octets;
}

}  // namespace inet
