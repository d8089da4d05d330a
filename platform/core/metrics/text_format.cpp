#include "platform/core/metrics/text_format.h"

#include <array>
#include <charconv>

#include "platform/core/base/utf8.h"

namespace metrics {

namespace {

constexpr std::string_view kTypeNames[] = {"gauge", "counter", "histogram"};

void append_octet_in_hex(std::string* text, char octet) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(octet);
  *text += {'\\', '\\', 'x', kDigits[value >> 4], kDigits[value & 0xf]};
}

bool is_plain(char octet) {
  return octet >= ' ' && octet < '\x7f' && octet != '"' && octet != '\\';
}

// Appends the first character of the text and returns its length.
std::size_t append_character(std::string* text, std::string_view from) {
  const std::size_t length = utf8_length(from);
  if (length == 0) {
    append_octet_in_hex(text, from.front());
    return 1;
  }
  if (from.front() == '\n') {
    *text += "\\n";
  } else {
    if (from.front() == '"' || from.front() == '\\') *text += '\\';
    *text += from.substr(0, length);
  }
  return length;
}

template <typename Number>
void append_number(std::string* text, Number number) {
  std::array<char, 32> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text->append(digits.data(), end);
}

}  // namespace

void append_escaped(std::string* text, std::string_view value) {
  while (!value.empty()) {
    std::size_t plain = 0;
    while (plain < value.size() && is_plain(value[plain])) ++plain;
    *text += value.substr(0, plain);
    value.remove_prefix(plain);
    if (!value.empty()) value.remove_prefix(append_character(text, value));
  }
}

void Samples::add_header() {
  text_->append("# HELP ").append(family_.name) += ' ';
  text_->append(family_.help).append("\n# TYPE ").append(family_.name) += ' ';
  text_->append(kTypeNames[static_cast<std::size_t>(family_.type)]) += '\n';
}

void Samples::begin(std::string_view suffix, Labels labels) {
  text_->append(family_.name).append(suffix);
  char separator = '{';
  for (const Label& label : labels) {
    *text_ += separator;
    text_->append(label.name).append("=\"");
    append_escaped(text_, label.value);
    *text_ += '"';
    separator = ',';
  }
  text_->append(labels.size() == 0 ? " " : "} ");
}

void Samples::add_to(std::string_view suffix, Labels labels, std::uint64_t value) {
  begin(suffix, labels);
  append_number(text_, value);
  *text_ += '\n';
}

void Samples::add_seconds(std::string_view suffix, Labels labels, double seconds) {
  begin(suffix, labels);
  append_number(text_, seconds);
  *text_ += '\n';
}

}  // namespace metrics
