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

void Details::lines(const char* label, const Lines& texts) {
  std::string start = std::string(indent_, ' ') + label;
  for (const std::string& text : texts.empty() ? Lines{"-"} : texts) {
    fmt::print(out_, "{:<{}}{}\n", start, label_width_, text);
    start.clear();
  }
}

void Details::words(const char* label, const Lines& words) {
  lines(label, filled_lines(words, kLineWidth - label_width_));
}

}  // namespace cli
