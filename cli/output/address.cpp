#include "cli/output/address.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "cli/output/table.h"
#include "cli/session.h"

namespace cli {

namespace {

constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6Size = 16;

Failure bad_prefix(const std::string& text, const std::string& why) {
  return {kExitUsage, "\"" + printable(text) + "\" is not a prefix; " + why};
}

std::optional<std::vector<std::uint8_t>> parse_address(const std::string& text) {
  std::vector<std::uint8_t> octets(kIpv6Size);
  if (inet_pton(AF_INET6, text.c_str(), octets.data()) == 1) return octets;
  octets.resize(kIpv4Size);
  if (inet_pton(AF_INET, text.c_str(), octets.data()) == 1) return octets;
  return std::nullopt;
}

std::optional<std::uint32_t> parse_length(const std::string& text) {
  std::uint32_t length = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, length);
  return error == std::errc() && rest == end ? std::optional(length) : std::nullopt;
}

std::string prefix_text(const Prefix& prefix) {
  return fmt::format("{}/{}", address_text(prefix.octets), prefix.length);
}

}  // namespace

Prefix Prefix::shortened(std::uint32_t to_length) const {
  Prefix shorter = *this;
  shorter.length = to_length;
  shorter.is_address = false;
  for (std::uint32_t bit = to_length; bit < bits(); ++bit) {
    const auto mask = static_cast<std::uint8_t>(~(0x80U >> bit % 8));
    shorter.octets[bit / 8] = static_cast<std::uint8_t>(shorter.octets[bit / 8] & mask);
  }
  return shorter;
}

Prefix parse_prefix(const std::string& text) {
  const std::size_t slash = text.find('/');
  const auto octets = parse_address(text.substr(0, slash));
  if (!octets) throw bad_prefix(text, "expected ADDRESS/LENGTH or ADDRESS, IPv4 or IPv6");
  Prefix prefix;
  prefix.octets = *octets;
  prefix.type = octets->size() == kIpv4Size ? kIpv4 : kIpv6;
  prefix.length = prefix.bits();
  prefix.is_address = slash == std::string::npos;
  if (prefix.is_address) return prefix;
  const auto length = parse_length(text.substr(slash + 1));
  if (!length || *length > prefix.bits())
    throw bad_prefix(text, fmt::format("the length is from 0 to {}", prefix.bits()));
  Prefix whole = prefix.shortened(*length);
  if (whole.octets != prefix.octets)
    throw Failure(kExitUsage, text + " has host bits set; did you mean " + prefix_text(whole) + "?");
  return whole;
}

std::span<const std::uint8_t> octets_of(const ParcelOctets& octets) {
  return {octets.octets, static_cast<std::size_t>(octets.length)};
}

std::string address_text(std::span<const std::uint8_t> octets) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (octets.size() != kIpv4Size && octets.size() != kIpv6Size) return hexadecimal(octets);
  const int family = octets.size() == kIpv4Size ? AF_INET : AF_INET6;
  inet_ntop(family, octets.data(), text.data(), text.size());
  return text.data();
}

std::string hexadecimal(std::span<const std::uint8_t> octets) {
  std::string text;
  for (const std::uint8_t octet : octets) text += fmt::format("{:02x}", octet);
  return text;
}

}  // namespace cli
