#include "cli/output/wrap.h"

#include <algorithm>

#include "platform/core/text/words.h"

namespace cli {

namespace {

bool begins_character(char octet) {
  return (octet & 0xC0) != 0x80;
}

// Where the character in this column begins; the text is wider.
std::size_t octets_before(std::string_view text, std::size_t column) {
  std::size_t at = 0;
  for (std::size_t before = 0; at < text.size(); ++at) {
    if (begins_character(text[at]) && before++ == column) break;
  }
  return at;
}

// Where the rest of a broken line begins.
std::size_t indentation(std::string_view line, std::size_t width) {
  const std::size_t first = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = line.find("  ", first);
  if (gap == std::string_view::npos) return first;
  const std::size_t second = columns_of(line.substr(0, line.find_first_not_of(' ', gap)));
  return second * 4 > width * 3 ? first : second;
}

void add_wrapped(std::string line, std::size_t width, std::size_t wanted, std::string* text) {
  const std::size_t indent = wanted > 0 && wanted * 4 <= width * 3 ? wanted : indentation(line, width);
  while (columns_of(line) > width) {
    const std::size_t end = octets_before(line, width);
    std::size_t blank = line.rfind(' ', end);
    if (blank == std::string::npos || columns_of(std::string_view(line).substr(0, blank)) <= indent)
      blank = line.find(' ', end);
    if (blank == std::string::npos) break;
    *text += line.substr(0, line.find_last_not_of(' ', blank) + 1) + '\n';
    line = std::string(indent, ' ') + line.substr(line.find_first_not_of(' ', blank));
  }
  *text += line + '\n';
}

}  // namespace

std::size_t columns_of(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, begins_character));
}

std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  if (width == 0) return text.empty() || text.ends_with('\n') ? text : text + '\n';
  std::string result;
  std::string_view rest = text;
  while (!rest.empty()) add_wrapped(std::string(text::take_until(&rest, '\n')), width, indent, &result);
  return result;
}

}  // namespace cli
