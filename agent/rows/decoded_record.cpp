#include "agent/rows/decoded_record.h"

#include <algorithm>
#include <string>

namespace tables {
namespace {

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7f;

bool continues_character(char octet) {
  return (static_cast<unsigned char>(octet) & 0xc0U) == 0x80U;
}

}  // namespace

void add_text(Window* window, const char* text, std::size_t most) {
  std::string line(text_or_empty(text));
  if (line.size() > most) {
    while (most > 0 && continues_character(line[most])) --most;
    line.resize(most);
  }
  std::replace_if(
      line.begin(), line.end(),
      [](char octet) {
        const auto value = static_cast<unsigned char>(octet);
        return value < kFirstPrintable || value == kDelete;
      },
      ' ');
  window->add_octets({reinterpret_cast<const std::uint8_t*>(line.data()), line.size()});
}

}  // namespace tables
