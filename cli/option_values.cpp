#include "cli/option_values.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "cli/output/table.h"
#include "cli/words/known_words.h"
#include "platform/core/text/numbers.h"

namespace cli {

CLI::Validator duration_of(const Duration& duration) {
  const auto convert = [&duration](std::string& text) {
    const std::optional<double> seconds = text::parse_duration(text, duration.unit);
    if (!seconds || !(*seconds >= duration.least && *seconds <= duration.most))
      return fmt::format("{} is not a time {}, such as 500ms, 30s or 2m", printable(text), duration.range);
    text = fmt::format("{}", duration.unit == 1 ? *seconds : std::ceil(*seconds / duration.unit));
    return std::string();
  };
  return {convert, ""};
}

CLI::Validator one_of(const std::vector<std::string>& words) {
  const auto complete = [words](std::string& word) {
    const KnownWord found = find_known("word", word, words);
    if (found.error.empty()) word = found.word;
    return found.error;
  };
  return {complete, ""};
}

CLI::Validator number_from(std::uint32_t least, std::uint32_t most) {
  const auto check = [least, most](const std::string& text) {
    const std::optional<std::uint32_t> number = text::parse_number(text, most);
    if (number && *number >= least) return std::string();
    return fmt::format("{} is not a number from {} to {}", printable(text), least, most);
  };
  return {check, ""};
}

void add_count(CLI::App* command, const char* name, std::uint64_t* count, const char* description) {
  command->add_option(name, *count, std::string(description) + "; 0: no limit")
      ->type_name("N")
      ->check(number_from(0, kMostCount));
}

void add_structured(CLI::App* command, bool* structured) {
  command->add_flag("--structured", *structured, "Requests the structured (XML) form");
}

}  // namespace cli
