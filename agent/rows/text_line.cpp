#include "agent/rows/text_line.h"

#include <algorithm>

namespace tables {
namespace {

constexpr std::uint8_t kFirstPrintable = 0x20;
constexpr std::uint8_t kDelete = 0x7f;

bool continues_character(std::uint8_t octet) {
  return (octet & 0xc0U) == 0x80U;
}

bool is_control(std::uint8_t octet) {
  return octet < kFirstPrintable || octet == kDelete;
}

}  // namespace

void make_one_line(std::vector<std::uint8_t>* octets, std::size_t at, std::size_t most) {
  if (octets->size() - at > most) {
    while (most > 0 && continues_character((*octets)[at + most])) --most;
    octets->resize(at + most);
  }
  std::replace_if(octets->begin() + static_cast<std::ptrdiff_t>(at), octets->end(), is_control, ' ');
}

}  // namespace tables
