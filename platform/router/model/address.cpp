// Interface addresses as text, as users and router files write them.
//
// The system's own converters decide what an address is (inet_pton(3): no zone, no octal, no shortened IPv4),
// the prefix length is one to three decimal digits. A text with anything else is rejected.
#include "platform/router/model/address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace router {
namespace {

std::uint8_t length_limit(Family family) {
  return family == Family::kIpv4 ? 32 : 128;
}

bool parse_octets(const std::string& text, Address* address) {
  address->family = text.find(':') == std::string::npos ? Family::kIpv4 : Family::kIpv6;
  const int system_family = address->family == Family::kIpv4 ? AF_INET : AF_INET6;
  return inet_pton(system_family, text.c_str(), address->octets.data()) == 1;
}

bool parse_length(std::string_view text, std::uint8_t limit, std::uint8_t* length) {
  unsigned value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stopped != end || text.size() > 3 || value > limit) return false;
  *length = static_cast<std::uint8_t>(value);
  return true;
}

}  // namespace

bool parse_address(std::string_view text, Address* address) {
  if (text.find('\0') != std::string_view::npos) return false;
  const std::size_t slash = text.find('/');
  Address parsed;
  if (!parse_octets(std::string(text.substr(0, slash)), &parsed)) return false;
  parsed.prefix_length = length_limit(parsed.family);
  if (slash != std::string_view::npos &&
      !parse_length(text.substr(slash + 1), length_limit(parsed.family), &parsed.prefix_length)) {
    return false;
  }
  *address = parsed;
  return true;
}

std::string format_address(const Address& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int system_family = address.family == Family::kIpv4 ? AF_INET : AF_INET6;
  inet_ntop(system_family, address.octets.data(), text.data(), text.size());
  return std::string(text.data()) + '/' + std::to_string(address.prefix_length);
}

bool valid_address(const Address& address) {
  if (address.family != Family::kIpv4 && address.family != Family::kIpv6) return false;
  if (address.prefix_length > length_limit(address.family)) return false;
  const auto is_zero = [](std::uint8_t octet) { return octet == 0; };
  return address.family == Family::kIpv6 ||
         std::all_of(address.octets.begin() + 4, address.octets.end(), is_zero);
}

}  // namespace router
