// Words on one line, quoted where necessary. An octet that could control a terminal is always escaped.
#include <algorithm>
#include <array>

#include "platform/config/vrf_config.h"
#include "platform/core/base/utf8.h"

namespace vrf_config {

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kDigits = "0123456789abcdef";

bool is_plain(std::string_view word) {
  constexpr std::string_view kSpecial = " \"\\#";
  if (word.empty() || word.find_first_of(kSpecial) != std::string_view::npos) return false;
  while (const std::size_t length = utf8_printable_length(word)) word.remove_prefix(length);
  return word.empty();
}

std::string quoted(std::string_view word) {
  std::string text = "\"";
  while (!word.empty()) {
    const std::size_t length = utf8_printable_length(word);
    const char octet = word.front();
    if (length == 0) {
      const auto value = static_cast<unsigned char>(octet);
      text.append({'\\', 'x', kDigits.at(value >> 4), kDigits.at(value & 0xf)});
    } else {
      if (octet == '"' || octet == '\\') text += '\\';
      text.append(word.substr(0, length));
    }
    word.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text + '"';
}

// A line that is read from its beginning.
struct Line {
  std::string_view rest;

  char take() {
    const char octet = rest.front();
    rest.remove_prefix(1);
    return octet;
  }
  void skip_blanks() { rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size())); }
  bool at_end() const { return rest.empty() || rest.front() == '#'; }
};

std::optional<WordError> take_hexadecimal(Line* line, std::string* word) {
  const WordError error{"\\x takes two hexadecimal digits, not 00"};
  if (line->rest.size() < 2) return error;
  const std::size_t upper = kDigits.find(line->take());
  const std::size_t lower = kDigits.find(line->take());
  if (upper == std::string_view::npos || lower == std::string_view::npos || upper + lower == 0) return error;
  word->push_back(static_cast<char>(upper << 4 | lower));
  return std::nullopt;
}

std::optional<WordError> take_escaped(Line* line, std::string* word) {
  if (line->rest.empty()) return WordError{"the quotes do not end"};
  const char octet = line->take();
  if (octet == 'x') return take_hexadecimal(line, word);
  if (octet != '"' && octet != '\\') return WordError{"a backslash is before \", \\ or xNN only"};
  word->push_back(octet);
  return std::nullopt;
}

std::optional<WordError> take_quoted(Line* line, std::string* word) {
  line->take();
  while (!line->rest.empty()) {
    const char octet = line->take();
    if (octet == '"') {
      const bool ends = line->rest.empty() || kBlanks.find(line->rest.front()) != std::string_view::npos;
      return ends ? std::nullopt : std::optional(WordError{"a blank is missing after the quotes"});
    }
    if (octet != '\\') {
      word->push_back(octet);
    } else if (std::optional<WordError> error = take_escaped(line, word)) {
      return error;
    }
  }
  return WordError{"the quotes do not end"};
}

std::optional<WordError> take_plain(Line* line, std::string* word) {
  const std::size_t length = std::min(line->rest.find_first_of(kBlanks), line->rest.size());
  *word = line->rest.substr(0, length);
  line->rest.remove_prefix(length);
  if (word->find_first_of("\"\\") == std::string::npos) return std::nullopt;
  return WordError{"a word with a quote or a backslash needs double quotes around it"};
}

}  // namespace

std::string join_words(const Words& words) {
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    line += is_plain(word) ? word : quoted(word);
  }
  return line;
}

std::variant<Words, WordError> split_words(std::string_view text) {
  Line line{text};
  Words words;
  for (line.skip_blanks(); !line.at_end(); line.skip_blanks()) {
    std::string word;
    std::optional<WordError> error =
        line.rest.front() == '"' ? take_quoted(&line, &word) : take_plain(&line, &word);
    if (error) return std::move(*error);
    if (word.find('\0') != std::string::npos) return WordError{"an octet is 0"};
    words.push_back(std::move(word));
  }
  return words;
}

}  // namespace vrf_config
