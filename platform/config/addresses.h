// Addresses and prefixes as texts. Not for other folders.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/config/vrf_config.h"

namespace vrf_config {

struct Address {
  Family family = Family::kIpv4;
  std::array<std::uint8_t, 16> octets{};  // in network order, the first four of IPv4
};
// None for everything but a dotted quad and the text forms of RFC 4291 section 2.2.
std::optional<Address> parse_address(std::string_view text);
std::string address_text(const Address& address);  // the shortest form (RFC 5952)
std::string dotted_quad(std::uint32_t address);    // host order
std::optional<std::uint32_t> parse_dotted_quad(std::string_view text);

struct Prefix {
  Address address;
  unsigned length = 0;
};
// "10.1.0.0/16"; none without a length, and for one that is longer than the address.
std::optional<Prefix> parse_prefix(std::string_view text);
void clear_host_bits(Prefix* prefix);
bool has_host_bits(const Prefix& prefix);

// A number of digits alone, of at most `most`.
std::optional<std::uint32_t> parse_number(std::string_view text, std::uint32_t most = UINT32_MAX);

}  // namespace vrf_config
