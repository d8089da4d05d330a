#include "platform/router/model/address.h"

#include <algorithm>

namespace router {

bool parse_address(std::string_view text, Address* address) {
  const std::size_t slash = text.find('/');
  const std::optional<inet::Address> parsed = inet::parse_address(text.substr(0, slash));
  if (!parsed) return false;
  std::optional<unsigned> length = inet::bits_of(parsed->family);
  if (slash != std::string_view::npos)
    length = inet::parse_prefix_length(text.substr(slash + 1), parsed->family);
  if (!length) return false;
  *address = {parsed->family, static_cast<std::uint8_t>(*length), parsed->octets};
  return true;
}

std::string format_address(const Address& address) {
  return inet::prefix_text({{address.family, address.octets}, address.prefix_length});
}

bool valid_address(const Address& address) {
  if (address.family != Family::kIpv4 && address.family != Family::kIpv6) return false;
  if (address.prefix_length > inet::bits_of(address.family)) return false;
  const auto is_zero = [](std::uint8_t octet) { return octet == 0; };
  return std::all_of(address.octets.begin() + inet::octets_of(address.family), address.octets.end(), is_zero);
}

}  // namespace router
