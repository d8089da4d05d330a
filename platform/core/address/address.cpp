#include "platform/core/address/address.h"

#include <arpa/inet.h>

#include "platform/core/text/numbers.h"

namespace inet {

namespace {

constexpr std::size_t kLongestAddress = INET6_ADDRSTRLEN - 1;
constexpr std::size_t kLongestLength = 3;  // digits of a prefix length

int system_family(Family family) {
  return family == Family::kIpv4 ? AF_INET : AF_INET6;
}

}  // namespace

std::optional<Address> parse_address(std::string_view text) {
  if (text.size() > kLongestAddress || text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string terminated(text);
  Address address;
  address.family = text.find(':') == std::string_view::npos ? Family::kIpv4 : Family::kIpv6;
  const int parsed = inet_pton(system_family(address.family), terminated.c_str(), address.octets.data());
  return parsed == 1 ? std::optional(address) : std::nullopt;
}

std::string address_text(const Address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(system_family(address.family), address.octets.data(), text.data(), text.size());
  return text.data();
}

std::optional<std::uint32_t> parse_dotted_quad(std::string_view text) {
  const std::optional<Address> address = parse_address(text);
  if (!address || address->family != Family::kIpv4) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t at = 0; at < 4; ++at) number = number << 8 | address->octets.at(at);
  return number;
}

std::string dotted_quad(std::uint32_t address) {
  Address octets;
  for (std::size_t at = 0; at < 4; ++at)
    octets.octets.at(at) = static_cast<std::uint8_t>(address >> (24 - 8 * at));
  return address_text(octets);
}

std::optional<unsigned> parse_prefix_length(std::string_view text, Family family) {
  if (text.size() > kLongestLength) return std::nullopt;
  return text::parse_number<unsigned>(text, bits_of(family));
}

std::optional<Prefix> parse_prefix(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const std::optional<Address> address = parse_address(text.substr(0, slash));
  if (!address) return std::nullopt;
  const std::optional<unsigned> length = parse_prefix_length(text.substr(slash + 1), address->family);
  return length ? std::optional(Prefix{*address, *length}) : std::nullopt;
}

std::string prefix_text(const Prefix& prefix) {
  return address_text(prefix.address) + '/' + std::to_string(prefix.length);
}

std::string host_bits_error(std::string_view typed, const Prefix& prefix) {
  Prefix meant = prefix;
  clear_host_bits(&meant.address.octets, meant.length);
  return std::string(typed) + " has host bits set; did you mean " + prefix_text(meant) + "?";
}

}  // namespace inet
