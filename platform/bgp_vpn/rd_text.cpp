// Route distinguishers as text (RFC 4364 section 4.2): "administrator:number", where the administrator is an
// AS number, plain or dotted (RFC 5396), or an IPv4 address. Only AS numbers above 65535 have more than one
// way of being written: a smaller one stands plainly in two octets and as "0.N" in four, in every format, so
// that two administrators of different types never read alike.
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

struct AsNumber {
  std::uint32_t number = 0;
  bool is_dotted = false;  // as it was read
};

// "65000", "64086.59904"; nothing for an address or any other text.
std::optional<AsNumber> parse_as_number(std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos) {
    const auto number = parse_number(text, UINT32_MAX);
    return number ? std::optional(AsNumber{*number, false}) : std::nullopt;
  }
  const auto high = parse_number(text.substr(0, dot), UINT16_MAX);
  const auto low = parse_number(text.substr(dot + 1), UINT16_MAX);
  if (!high || !low) return std::nullopt;
  return AsNumber{*high << 16 | *low, true};
}

std::string format_as_number(const AsNumber& as, BgpAsnFormat format) {
  const bool is_dotted = as.number <= UINT16_MAX ? as.is_dotted : format != BgpAsnFormat::kAsplain;
  if (!is_dotted) return std::to_string(as.number);
  return std::to_string(as.number >> 16) + '.' + std::to_string(as.number & UINT16_MAX);
}

}  // namespace

std::string bgp_util_format_rd(std::string_view rd, BgpAsnFormat format) {
  const std::size_t colon = rd.find(':');
  const auto as = colon == std::string_view::npos ? std::nullopt : parse_as_number(rd.substr(0, colon));
  if (!as) return std::string(rd);
  return format_as_number(*as, format).append(rd.substr(colon));
}
