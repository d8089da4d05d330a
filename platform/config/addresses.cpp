#include "platform/config/addresses.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace vrf_config {

namespace {

constexpr std::size_t kLongestAddress = 45;  // "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255"

int system_family(Family family) {
  return family == Family::kIpv4 ? AF_INET : AF_INET6;
}

unsigned bits_of(Family family) {
  return family == Family::kIpv4 ? 32 : 128;
}

}  // namespace

std::optional<std::uint32_t> parse_number(std::string_view text, std::uint32_t most) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  const bool whole = error == std::errc() && rest == end;
  return whole && number <= most ? std::optional(number) : std::nullopt;
}

std::optional<Address> parse_address(std::string_view text) {
  if (text.size() > kLongestAddress || text.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string terminated(text);
  Address address;
  for (const Family family : {Family::kIpv4, Family::kIpv6}) {
    address.family = family;
    if (inet_pton(system_family(family), terminated.c_str(), address.octets.data()) == 1) return address;
  }
  return std::nullopt;
}

std::string address_text(const Address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(system_family(address.family), address.octets.data(), text.data(), text.size());
  return text.data();
}

std::string dotted_quad(std::uint32_t address) {
  return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 0xff) + "." +
         std::to_string(address >> 8 & 0xff) + "." + std::to_string(address & 0xff);
}

std::optional<std::uint32_t> parse_dotted_quad(std::string_view text) {
  const std::optional<Address> address = parse_address(text);
  if (!address || address->family != Family::kIpv4) return std::nullopt;
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number = number << 8 | address->octets.at(i);
  return number;
}

std::optional<std::uint32_t> parse_area(std::string_view text) {
  const std::optional<std::uint32_t> number = parse_number(text);
  return number ? number : parse_dotted_quad(text);
}

std::optional<Prefix> parse_prefix(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const std::optional<Address> address = parse_address(text.substr(0, slash));
  if (!address) return std::nullopt;
  const std::optional<std::uint32_t> length = parse_number(text.substr(slash + 1), bits_of(address->family));
  if (!length) return std::nullopt;
  return Prefix{*address, *length};
}

void clear_host_bits(Prefix* prefix) {
  for (unsigned octet = 0; octet < prefix->address.octets.size(); ++octet) {
    const unsigned first_bit = octet * 8;
    const unsigned prefix_bits = prefix->length > first_bit ? std::min(prefix->length - first_bit, 8U) : 0;
    prefix->address.octets.at(octet) &= static_cast<std::uint8_t>(0xff00U >> prefix_bits);
  }
}

bool has_host_bits(const Prefix& prefix) {
  Prefix cleared = prefix;
  clear_host_bits(&cleared);
  return cleared.address.octets != prefix.address.octets;
}

}  // namespace vrf_config
