#include "cli/output/address.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/output/table.h"
#include "cli/session.h"

namespace cli {

namespace {

Failure bad_prefix(const std::string& text, const std::string& why) {
  return {kExitUsage, "\"" + printable(text) + "\" is not a prefix; " + why};
}

}  // namespace

Prefix Prefix::shortened(std::uint32_t to_length) const {
  Prefix shorter{prefix, false};
  shorter.prefix.length = to_length;
  inet::clear_host_bits(&shorter.prefix.address.octets, to_length);
  return shorter;
}

Prefix parse_prefix(const std::string& text) {
  const std::size_t slash = text.find('/');
  const std::optional<inet::Address> address = inet::parse_address(text.substr(0, slash));
  if (!address) throw bad_prefix(text, "expected ADDRESS/LENGTH or ADDRESS, IPv4 or IPv6");
  const unsigned bits = inet::bits_of(address->family);
  if (slash == std::string::npos) return {{*address, bits}, true};
  const std::optional<unsigned> length = inet::parse_prefix_length(text.substr(slash + 1), address->family);
  if (!length) throw bad_prefix(text, fmt::format("the length is from 0 to {}", bits));
  const Prefix prefix{{*address, *length}, false};
  if (inet::has_host_bits(address->octets, *length)) {
    throw Failure(kExitUsage, inet::host_bits_error(text, prefix.prefix));
  }
  return prefix;
}

std::span<const std::uint8_t> octets_of(const ParcelOctets& octets) {
  return {octets.octets, static_cast<std::size_t>(octets.length)};
}

std::string address_text(std::span<const std::uint8_t> octets) {
  inet::Address address;
  for (const inet::Family family : {inet::Family::kIpv4, inet::Family::kIpv6}) {
    if (octets.size() != inet::octets_of(family)) continue;
    address.family = family;
    std::copy(octets.begin(), octets.end(), address.octets.begin());
    return inet::address_text(address);
  }
  return hexadecimal(octets);
}

std::string hexadecimal(std::span<const std::uint8_t> octets) {
  std::string text;
  for (const std::uint8_t octet : octets) text += fmt::format("{:02x}", octet);
  return text;
}

std::string mpls_index_text(std::span<const std::uint8_t> octets) {
  return octets.size() == 1 && octets[0] == 0 ? std::string() : hexadecimal(octets);
}

}  // namespace cli
