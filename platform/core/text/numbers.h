// Numbers in texts.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

namespace text {

// The number of which all of the text consists: digits of the base alone, with a '-' for signed types. None
// for any other text, for a number that T cannot represent, and for one above `most`.
template <std::integral T = std::uint32_t>
std::optional<T> parse_number(std::string_view digits,
                              std::type_identity_t<T> most = std::numeric_limits<T>::max(), int base = 10) {
  T number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, number, base);
  const bool is_whole = error == std::errc() && stopped == end;
  return is_whole && number <= most ? std::optional(number) : std::nullopt;
}

// The same for a decimal fraction ("1.5", "1e3"); "inf" and "nan" are numbers, too.
inline std::optional<double> parse_real(std::string_view digits) {
  double number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, number);
  return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

// Seconds of a duration such as "500ms", "2s", "1.5m", "1h" or "1d". A number alone counts `unit` seconds.
// Not "1e1s", "inf" or "-1s".
std::optional<double> parse_duration(std::string_view duration, double unit);

}  // namespace text
