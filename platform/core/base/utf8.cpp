// The well-formed sequences are those of RFC 3629 section 4: no overlong forms, no surrogates.
#include "platform/core/base/utf8.h"

#include <cstdint>

namespace {

struct Sequence {
  std::uint8_t first_low, first_high;    // lead octets
  std::uint8_t second_low, second_high;  // what may follow them
  std::size_t length;
};

constexpr Sequence kSequences[] = {
    {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3}, {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

std::uint8_t octet(std::string_view text, std::size_t at) {
  return static_cast<std::uint8_t>(text[at]);
}

bool fits(const Sequence& one, std::string_view text) {
  const std::uint8_t lead = octet(text, 0);
  if (lead < one.first_low || lead > one.first_high || text.size() < one.length) return false;
  if (octet(text, 1) < one.second_low || octet(text, 1) > one.second_high) return false;
  for (std::size_t i = 2; i < one.length; ++i) {
    if ((octet(text, i) & 0xc0U) != 0x80U) return false;
  }
  return true;
}

bool is_control(std::string_view character) {
  const std::uint8_t first = octet(character, 0);
  return first < 0x20 || first == 0x7f || (first == 0xc2 && octet(character, 1) < 0xa0);
}

}  // namespace

std::size_t utf8_length(std::string_view text) {
  if (text.empty()) return 0;
  if (octet(text, 0) < 0x80) return 1;
  for (const Sequence& one : kSequences) {
    if (fits(one, text)) return one.length;
  }
  return 0;
}

std::size_t utf8_printable_length(std::string_view text) {
  const std::size_t length = utf8_length(text);
  return length != 0 && is_control(text.substr(0, length)) ? 0 : length;
}
