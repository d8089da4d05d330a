// See utf8.h.
#include "platform/core/parcel/utf8.h"

#include <algorithm>
#include <cstdint>

#include "platform/core/base/utf8.h"

namespace parcel_detail {
namespace {

constexpr std::string_view kReplacement = "\xef\xbf\xbd";

void append_ascii(char c, std::string* out) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  const auto code = static_cast<std::uint8_t>(c);
  if (c == '"' || c == '\\') {
    *out += '\\';
    *out += c;
  } else if (code < 0x20 || code == 0x7f) {
    *out += "\\u00";
    *out += kDigits[code >> 4U];
    *out += kDigits[code & 0xfU];
  } else {
    *out += c;
  }
}

}  // namespace

void append_json_text(std::string_view text, std::string* out) {
  *out += '"';
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 1) {
      append_ascii(text.front(), out);
    } else {
      out->append(length == 0 ? kReplacement : text.substr(0, length));
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  *out += '"';
}

}  // namespace parcel_detail
