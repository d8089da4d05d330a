#include "cli/output/details.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace cli {

namespace {

constexpr std::size_t kLineWidth = 100;

// The words in lines of at most this width, unless a word alone is longer.
Lines filled_lines(const Lines& words, std::size_t width) {
  Lines lines;
  for (const std::string& word : words) {
    if (lines.empty() || lines.back().size() + 1 + word.size() > width) {
      lines.push_back(word);
    } else {
      lines.back() += ' ' + word;
    }
  }
  return lines;
}

}  // namespace

void print_detail(std::ostream& out, const DetailsLayout& layout, const char* label, const Lines& lines,
                  bool are_words) {
  std::string text = std::string(layout.indent, ' ') + label;
  const Lines filled = are_words ? filled_lines(lines, kLineWidth - layout.label_width) : lines;
  for (const std::string& line : filled.empty() ? Lines{"-"} : filled) {
    fmt::print(out, "{:<{}}{}\n", text, layout.label_width, line);
    text.clear();
  }
}

}  // namespace cli
