#include "cli/output/details.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cstdint>

#include "cli/output/wrap.h"
#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr std::size_t kLineWidth = 100;
constexpr std::size_t kLeastWidth = 20;  // of texts that are broken beside their labels
constexpr std::size_t kBelowLabel = 2;   // columns of indentation

// The words in lines of at most this width, unless a word alone is longer.
Lines filled_lines(const Lines& words, std::size_t width) {
  Lines lines;
  for (const std::string& word : words) {
    if (lines.empty() || columns_of(lines.back()) + 1 + columns_of(word) > width) {
      lines.push_back(word);
    } else {
      lines.back() += ' ' + word;
    }
  }
  return lines;
}

Lines words_of(const std::string& text) {
  const std::vector<std::string_view> words = text::split(text, ' ');
  return {words.begin(), words.end()};
}

}  // namespace

std::size_t Details::room(std::size_t column) const {
  return width_ == 0 ? SIZE_MAX : width_ - std::min(width_, column);
}

void Details::lines(const char* label, const Lines& texts) {
  const Lines& shown = texts.empty() ? Lines{"-"} : texts;
  const auto is_wide = [this](const std::string& text) { return columns_of(text) > room(label_width_); };
  const bool is_below = room(label_width_) < kLeastWidth && std::ranges::any_of(shown, is_wide);
  const std::size_t column = is_below ? indent_ + kBelowLabel : label_width_;
  std::string start = std::string(indent_, ' ') + label;
  if (is_below) {
    fmt::print(out_, "{}\n", start);
    start.clear();
  }
  for (const std::string& text : shown) {
    const bool fits = columns_of(text) <= room(column);
    for (const std::string& line : fits ? Lines{text} : filled_lines(words_of(text), room(column))) {
      fmt::print(out_, "{:<{}}{}\n", start, column, line);
      start.clear();
    }
  }
}

void Details::words(const char* label, const Lines& words) {
  const std::size_t beside = room(label_width_);
  const std::size_t most = kLineWidth - label_width_;
  lines(label, filled_lines(words, beside < kLeastWidth ? SIZE_MAX : std::min(most, beside)));
}

}  // namespace cli
