#include "cli/output/wrap.h"

#include <algorithm>
#include <string_view>

#include "platform/core/text/words.h"

namespace cli {

namespace {

// Where the rest of a broken line begins.
std::size_t indentation(std::string_view line, std::size_t width) {
  const std::size_t first = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = line.find("  ", first);
  if (gap == std::string_view::npos) return first;
  const std::size_t second = std::min(line.find_first_not_of(' ', gap), line.size());
  return second * 4 > width * 3 ? first : second;
}

void add_wrapped(std::string line, std::size_t width, std::size_t wanted, std::string* text) {
  const std::size_t indent = wanted > 0 && wanted * 4 <= width * 3 ? wanted : indentation(line, width);
  while (line.size() > width) {
    std::size_t blank = line.rfind(' ', width);
    if (blank == std::string::npos || blank <= indent) blank = line.find(' ', width);
    if (blank == std::string::npos) break;
    *text += line.substr(0, line.find_last_not_of(' ', blank) + 1) + '\n';
    line = std::string(indent, ' ') + line.substr(line.find_first_not_of(' ', blank));
  }
  *text += line + '\n';
}

}  // namespace

std::string wrapped(const std::string& text, std::size_t width, std::size_t indent) {
  std::string result;
  std::string_view rest = text;
  while (!rest.empty()) add_wrapped(std::string(text::take_until(&rest, '\n')), width, indent, &result);
  return result;
}

}  // namespace cli
