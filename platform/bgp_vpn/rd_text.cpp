// Route distinguishers as text (RFC 4364 section 4.2): "administrator:number", where the administrator is an
// AS number, plain or dotted (RFC 5396), or an IPv4 address. Only AS numbers have more than one way of being
// written.
#include <charconv>
#include <optional>

#include "platform/bgp_vpn/bgp_vpn.h"

namespace {

std::optional<std::uint32_t> parse_number(std::string_view text, std::uint32_t largest) {
  std::uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stopped != end || value > largest) return std::nullopt;
  return value;
}

// "65000", "64086.59904"; nothing for an address or any other text.
std::optional<std::uint32_t> parse_as_number(std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos) return parse_number(text, UINT32_MAX);
  const auto high = parse_number(text.substr(0, dot), UINT16_MAX);
  const auto low = parse_number(text.substr(dot + 1), UINT16_MAX);
  if (!high || !low) return std::nullopt;
  return *high << 16 | *low;
}

std::string format_as_number(std::uint32_t number, BgpAsnFormat format) {
  const bool is_plain =
      format == BgpAsnFormat::kAsplain || (format == BgpAsnFormat::kAsdot && number <= UINT16_MAX);
  if (is_plain) return std::to_string(number);
  return std::to_string(number >> 16) + '.' + std::to_string(number & UINT16_MAX);
}

}  // namespace

std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format) {
  const std::size_t colon = rd.find(':');
  const auto number = colon == std::string_view::npos ? std::nullopt : parse_as_number(rd.substr(0, colon));
  if (!number) return std::string(rd);
  return format_as_number(*number, format).append(rd.substr(colon));
}
