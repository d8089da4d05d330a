#include "cli/output/details.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>

#include "platform/core/text/words.h"

namespace cli {

namespace {

constexpr std::size_t kLineWidth = 100;
constexpr std::size_t kLeastWidth = 20;  // of the texts

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

Lines words_of(const std::string& text) {
  const std::vector<std::string_view> words = text::split(text, ' ');
  return {words.begin(), words.end()};
}

}  // namespace

std::size_t Details::room() const {
  return std::max(std::max(width_, label_width_) - label_width_, kLeastWidth);
}

void Details::lines(const char* label, const Lines& texts) {
  std::string start = std::string(indent_, ' ') + label;
  for (const std::string& text : texts.empty() ? Lines{"-"} : texts) {
    const bool is_wide = width_ > 0 && text.size() > room();
    for (const std::string& line : is_wide ? filled_lines(words_of(text), room()) : Lines{text}) {
      fmt::print(out_, "{:<{}}{}\n", start, label_width_, line);
      start.clear();
    }
  }
}

void Details::words(const char* label, const Lines& words) {
  const std::size_t most = kLineWidth - label_width_;
  lines(label, filled_lines(words, width_ > 0 ? std::min(most, room()) : most));
}

}  // namespace cli
